# bash completion for xpsfilter(1). Commands and options are read from `xpsfilter ... --help`,
# so the completion always matches the installed command; --pipeline also offers the installed
# sample pipelines by name, and --printer the printers of the printer registry.

_xpsfilter_help_words() {
    # $1: "options" or "commands"; the rest: the command words so far.
    local what=$1
    shift
    "${_xpsfilter_program:-xpsfilter}" "$@" --help 2>/dev/null | awk -v what="$what" '
        /^[A-Za-z]+:$/ { section = $0; next }
        what == "commands" && section == "Subcommands:" && $1 ~ /^[a-z]/ { print $1 }
        what == "options" && section == "Options:" && $1 ~ /^-/ {
            n = split($1, names, ",")
            for (i = 1; i <= n; i++) print names[i]
        }'
}

_xpsfilter_data() {
    local program
    program=$(type -P "${_xpsfilter_program:-xpsfilter}") || return
    printf '%s\n' "$(dirname "$(dirname "$(readlink -f "$program")")")/share/filterutilities"
}

_xpsfilter() {
    local cur prev
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}
    _xpsfilter_program=${COMP_WORDS[0]}

    # The command words given so far (options skipped).
    local -a path=()
    local i word commands
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ $word == -* ]] && continue
        commands=$(_xpsfilter_help_words commands "${path[@]}")
        if grep -qx -- "$word" <<<"$commands"; then path+=("$word"); else break; fi
    done

    case $prev in
    --pipeline)
        local data
        data=$(_xpsfilter_data)
        local names=""
        [[ -d $data/pipelines ]] && names=$(cd "$data/pipelines" && ls -- *.xml 2>/dev/null | sed 's/\.xml$//')
        COMPREPLY=($(compgen -W "$names" -- "$cur") $(compgen -f -- "$cur"))
        return
        ;;
    --printer)
        local registry=${FU_PRINTER_REGISTRY:-/etc/xpsfilter/printers}
        [[ -d $registry ]] || registry=$(_xpsfilter_data)/printers
        local IFS=$'\n'
        COMPREPLY=($(cd "$registry" 2>/dev/null && compgen -d -- "$cur" | grep -vx drivers))
        return
        ;;
    --scope) COMPREPLY=($(compgen -W "page document job" -- "$cur")); return ;;
    --which) COMPREPLY=($(compgen -W "page job all" -- "$cur")); return ;;
    --as) COMPREPLY=($(compgen -W "page job" -- "$cur")); return ;;
    --ticket | -o | --output | --size | --max-part-size | --queue | --threads)
        COMPREPLY=($(compgen -f -- "$cur"))
        return
        ;;
    esac

    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_xpsfilter_help_words options "${path[@]}")" -- "$cur"))
        return
    fi
    commands=$(_xpsfilter_help_words commands "${path[@]}")
    if [[ -n $commands ]]; then
        COMPREPLY=($(compgen -W "$commands" -- "$cur"))
    else
        COMPREPLY=($(compgen -f -- "$cur"))
    fi
}

complete -o filenames -F _xpsfilter xpsfilter
