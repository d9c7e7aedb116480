# Completion for runenv-served.

set -l commands list check prune index
set -l none "not __fish_seen_subcommand_from $commands"
complete -c runenv-served -f
complete -c runenv-served -n 'test (count (commandline -opc)) -eq 1' -a '(__fish_complete_directories)'
complete -c runenv-served -n "$none; and test (count (commandline -opc)) -gt 1" -a "$commands"
complete -c runenv-served -n "$none; or __fish_seen_subcommand_from list" -l json -d 'Print one JSON object'
complete -c runenv-served -n "$none; or __fish_seen_subcommand_from check" -l quick -d 'Do not read the whole archives'
complete -c runenv-served -n "$none; or __fish_seen_subcommand_from prune" -l keep -x -d 'Keep this number of releases besides the latest'
complete -c runenv-served -n "$none; or __fish_seen_subcommand_from prune" -l older-than -x -d 'Keep releases published within this number of days'
complete -c runenv-served -n "$none; or __fish_seen_subcommand_from prune" -l grace -x -d 'Keep all releases of an item whose pointer moved within this number of days'
complete -c runenv-served -n "$none; or __fish_seen_subcommand_from prune" -l dry-run -d 'Remove nothing'
complete -c runenv-served -l help -d 'Print the usage'
complete -c runenv-served -l version -d 'Print the version'
