# Completion for runenv-prune.

complete -c runenv-prune -l keep -x -d 'Keep this number of other releases of each item'
complete -c runenv-prune -l older-than -x -d 'Skip items whose pointer moved within this number of days'
complete -c runenv-prune -l unlisted -d 'Remove items that the document does not name'
complete -c runenv-prune -l dry-run -d 'Remove nothing'
complete -c runenv-prune -l directory -xa '(__fish_complete_directories)' -d 'Directory that contains runenv'
complete -c runenv-prune -l temp-cache -xa '(__fish_complete_directories)' -d 'Directory for downloads'
complete -c runenv-prune -l help -d 'Print the usage'
complete -c runenv-prune -l version -d 'Print the version'
