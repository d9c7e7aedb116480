# Completion for runenv-publish. Offers the names that are already in the tree.

# Prints the words so far that are neither options nor their values.
function __runenv_publish_operands
    set -l words (commandline -opc)[2..]
    while set -q words[1]
        switch $words[1]
            case --from --platform --sign --compress
                set -e words[1]
            case '-*'
            case '*'
                echo -- $words[1]
        end
        set -e words[1]
    end
end

function __runenv_publish_has
    test (count (__runenv_publish_operands)) -eq $argv[1]
end

function __runenv_publish_published
    set -l operands (__runenv_publish_operands)
    set -l last 3
    test "$operands[2]" = system-type; and set last 4
    test (count $operands) -ge 2 -a (count $operands) -le $last; or return
    set -l kind (string replace system-type system-types -- $operands[2])
    set -l tree (string replace -r '^~/' $HOME/ -- $operands[1])
    for directory in (string join -- / $tree 2 runenv $kind $operands[3..])/*/
        string replace -r '.*/([^/]+)/$' '$1' -- $directory
    end
end

complete -c runenv-publish -f
complete -c runenv-publish -n '__runenv_publish_has 0' -a '(__fish_complete_directories)'
complete -c runenv-publish -n '__runenv_publish_has 1' -a 'platform system-type'
complete -c runenv-publish -a '(__runenv_publish_published)'
complete -c runenv-publish -l from -rF -d 'Directory or archive to publish'
complete -c runenv-publish -l list -d 'Also pack a list of the files'
complete -c runenv-publish -l platform -x -a linux-x64 -d 'Platform of the archive'
complete -c runenv-publish -l keep-latest -d 'Do not move the pointer'
complete -c runenv-publish -l latest-only -d 'Only move the pointer'
complete -c runenv-publish -l replace -d 'Replace a published archive'
complete -c runenv-publish -l drop-platforms -d 'Move the pointer even if archives for platforms are missing'
complete -c runenv-publish -l sign -rF -d 'Sign with the key in a file'
complete -c runenv-publish -l unsigned -d 'Move the pointer even if archives are not signed'
complete -c runenv-publish -l as-is -d 'Publish content that looks like a mistake'
complete -c runenv-publish -l compress -x -a "'pigz -n' gzip" -d 'Program to compress with'
complete -c runenv-publish -l quiet -d 'Print nothing on success'
complete -c runenv-publish -l help -d 'Print the usage'
complete -c runenv-publish -l version -d 'Print the version'
