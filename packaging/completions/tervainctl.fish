# Completes the commands and options of tervainctl in fish.

complete -c tervainctl -f
complete -c tervainctl -s a -l agent -x -a 'vsock: unix:' -d 'Where the agent listens'
complete -c tervainctl -s h -l help -d 'Print help and exit'
complete -c tervainctl -n __fish_use_subcommand -l version -d 'Print the version and exit'

for command in \
    'ping Show the agent\'s version, displays and privacy grants' \
    'cursor Show where the pointer is' \
    'screenshot Take a picture of a display, as JPEG' \
    'click Click at a point' \
    'move Move the pointer to a point' \
    'drag Drag to a point with the left button' \
    'scroll Scroll what is under the pointer, by lines' \
    'type Type a text' \
    'key Press a key, such as return or cmd+shift+z' \
    'launch Start an application, or bring it up' \
    'tree Show an application\'s elements as an outline' \
    'at Show the element at a point' \
    'exec Run a command in the guest' \
    'events Collect the guest\'s shell events' \
    'conform Check that an agent does all that it should' \
    'session Perform commands from standard input on one connection' \
    'raw Send request lines from standard input, print the replies'
    set -l words (string split -m 1 ' ' $command)
    complete -c tervainctl -n __fish_use_subcommand -a $words[1] -d $words[2]
end

function __tervainctl_option -a command
    complete -c tervainctl -n "__fish_seen_subcommand_from $command" $argv[2..]
end
for command in ping tree at
    __tervainctl_option $command -l json -d 'Print the reply as it is'
end
__tervainctl_option screenshot -l display -x -d 'Which display, counted from 0'
__tervainctl_option screenshot -s o -l output -r -F -d 'The file to write'
__tervainctl_option click -l button -x -a 'left middle right' -d 'Which button'
__tervainctl_option click -l count -x -a '1 2 3' -d 'How many clicks'
__tervainctl_option drag -l from -x -d 'The point to start at'
__tervainctl_option scroll -l dx -x -d 'Lines to the left; negative: to the right'
__tervainctl_option scroll -l dy -x -d 'Lines up; negative: down'
__tervainctl_option tree -l pid -x -d 'The application\'s process'
__tervainctl_option tree -l depth -x -d 'How many levels, 1 to 25'
__tervainctl_option exec -s n -l no-input -d 'Give the command no input'
__tervainctl_option events -l delete -d 'Have the guest delete what it has sent'
__tervainctl_option events -l dir -x -d 'The guest\'s directory to collect from'
__tervainctl_option events -l max-bytes -x -d 'How many bytes to take at most'
__tervainctl_option conform -l app -x -d 'The text editor to work with'
__tervainctl_option conform -l no-desktop -d 'Launch no application'
functions -e __tervainctl_option
