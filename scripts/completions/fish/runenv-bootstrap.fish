# Completion for runenv-bootstrap, which takes its options only in one order.

# Prints what may come next: the remaining options, or the kind of the expected value.
function __runenv_bootstrap_next
    set -l words (commandline -opc)[2..]
    set -l options --target --temp-cache --skip-platform --lock-latest
    set -q words[1]; or echo -- --help
    while set -q words[1]
        set -l position (contains -i -- $words[1] $options)
        or return # nothing follows the document or --help
        set options $options[(math $position + 1)..]
        if contains -- $words[1] --target --temp-cache
            if not set -q words[2]
                string replace -- -- value-of- $words[1]
                return
            end
            set -e words[1]
        end
        set -e words[1]
    end
    string join -- \n $options document
end

function __runenv_bootstrap_takes
    contains -- $argv[1] (__runenv_bootstrap_next)
end

complete -c runenv-bootstrap -f
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes document' -F
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes value-of-target' -a linux-x64
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes value-of-temp-cache' -a '(__fish_complete_directories)'
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes --target' -a --target -d 'Target, such as linux-x64'
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes --temp-cache' -a --temp-cache -d 'Directory for downloads'
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes --skip-platform' -a --skip-platform -d 'Update only the system types'
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes --lock-latest' -a --lock-latest -d 'Take turns with other runs'
complete -c runenv-bootstrap -n '__runenv_bootstrap_takes --help' -a --help -d 'Print the usage'
