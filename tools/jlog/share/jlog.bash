# Completion of jlog for bash. Commands and options are those that jlog's own help names.
_jlog() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=
    [ "$COMP_CWORD" -gt 1 ] && command=${COMP_WORDS[1]}
    COMPREPLY=()
    case "$before" in
        --level) mapfile -t COMPREPLY < <(compgen -W 'V D I W E F' -- "$word"); return ;;
        --since | --until | --pid | --tid | --module | --slow | --request | --around | --before | \
            --after | --threshold | --tz | --label) return ;;
    esac
    if [ -z "$command" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$(jlog --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')" -- "$word")
    elif [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(jlog "$command" --help 2>/dev/null | grep -oE -- '--[a-z]+' | sort -u)" -- "$word")
    elif [ "$command" = export ] && [ "$COMP_CWORD" -eq 2 ]; then
        mapfile -t COMPREPLY < <(compgen -W 'perfetto json html ndjson' -- "$word")
    fi
}
complete -o default -F _jlog jlog
