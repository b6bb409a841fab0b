# Completes the commands and options of tervainctl in bash.

_tervainctl() {
  local current=$2 previous=$3 word command=
  local -A options=(
    [ping]='--json' [cursor]='' [screenshot]='--display --output -o'
    [click]='--button --count' [move]='' [drag]='--from' [scroll]='--dx --dy'
    [type]='' [key]='' [launch]='' [tree]='--pid --depth --json' [at]='--json'
    [exec]='--no-input -n' [events]='--delete --dir --max-bytes' [session]='' [raw]=''
    [conform]='--app --no-desktop'
  )
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word != -- ]] || return 0  # what follows is the guest's
    if [[ ! $command && $word && ${options[$word]+known} ]]; then
      command=$word
    fi
  done
  [[ $previous != : ]] || previous=${COMP_WORDS[COMP_CWORD-2]}
  case $previous in
    -a | --agent)
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -W 'vsock: unix:' -- "$current")
      ;;
    unix | -o | --output) mapfile -t COMPREPLY < <(compgen -f -- "${current#:}") ;;
    --button) mapfile -t COMPREPLY < <(compgen -W 'left middle right' -- "$current") ;;
    --count) mapfile -t COMPREPLY < <(compgen -W '1 2 3' -- "$current") ;;
    vsock | --display | --from | --dx | --dy | --pid | --depth | --app | --dir | --max-bytes) ;;
    *)
      if [[ $current == -* ]]; then
        word="${options[${command:-cursor}]} --agent -a --help -h"
        [[ $command ]] || word+=' --version'
      elif [[ $command ]]; then
        return 0
      else
        word=${!options[*]}
      fi
      mapfile -t COMPREPLY < <(compgen -W "$word" -- "$current")
      ;;
  esac
}

complete -F _tervainctl tervainctl
