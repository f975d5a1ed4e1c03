# Completion of tavimora-cli for bash. Commands, options and ports are those that the program itself tells.

_tavimora_cli()
{
    local program=$1 current=$2 previous=$3 words=""
    if [ "$COMP_CWORD" -eq 1 ] || [ "$previous" = help ]; then
        words=$("$program" help | sed -n 's/^.* tavimora-cli \([a-z]*\) .*/\1/p')
    elif [ "$previous" = --port ]; then
        words=$("$program" ports | cut -f 1)
    elif [[ $current == -* ]]; then
        words=$("$program" help "${COMP_WORDS[1]}" | sed -n 's/^  .*\(--[a-z-]*\).*/\1/p')
    fi
    mapfile -t COMPREPLY < <(IFS=$'\n' && compgen -W "$words" -- "$current")
}

complete -o default -F _tavimora_cli tavimora-cli
