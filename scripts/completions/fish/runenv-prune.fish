# Completion for runenv-prune.

complete -c runenv-prune -l keep -x -d 'Keep so many of the other releases'
complete -c runenv-prune -l older-than -x -d 'Leave what has changed within so many days'
complete -c runenv-prune -l unlisted -d 'Remove items that the document does not name'
complete -c runenv-prune -l dry-run -d 'Remove nothing'
complete -c runenv-prune -l directory -xa '(__fish_complete_directories)' -d 'Name where runenv is'
complete -c runenv-prune -l temp-cache -xa '(__fish_complete_directories)' -d 'Name the directory for downloads'
complete -c runenv-prune -l help -d 'Print the usage'
complete -c runenv-prune -l version -d 'Print the version'
