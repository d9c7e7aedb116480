# Completion for runenv-verify.

complete -c runenv-verify -l keys -xa '(__fish_complete_directories)' -d 'Directory of the trusted keys'
complete -c runenv-verify -l tar -d 'Run instead of tar'
complete -c runenv-verify -l help -d 'Print the usage'
complete -c runenv-verify -l version -d 'Print the version'
