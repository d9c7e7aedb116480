# Completion for runenv-status.

complete -c runenv-status -l check -d 'Also compare with the server'
complete -c runenv-status -l verify -d 'Compare the files with the published list'
complete -c runenv-status -l json -d 'Print one JSON object'
complete -c runenv-status -l quiet -d 'Only set the exit status'
complete -c runenv-status -l directory -xa '(__fish_complete_directories)' -d 'Directory that contains runenv'
complete -c runenv-status -l temp-cache -xa '(__fish_complete_directories)' -d 'Directory for downloads'
complete -c runenv-status -l help -d 'Print the usage'
complete -c runenv-status -l version -d 'Print the version and the server'
