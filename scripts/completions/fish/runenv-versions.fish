# Completion for runenv-versions.

complete -c runenv-versions -f
complete -c runenv-versions -n __fish_use_subcommand -a compose -d 'Write a document'
complete -c runenv-versions -n __fish_use_subcommand -a show -d 'Print a document'
complete -c runenv-versions -n __fish_use_subcommand -l version -d 'Print the version'
complete -c runenv-versions -l help -d 'Print the usage'
complete -c runenv-versions -n '__fish_seen_subcommand_from compose' -s o -l output -rF -d 'File to write'
complete -c runenv-versions -n '__fish_seen_subcommand_from show' -F
