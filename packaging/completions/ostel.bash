# shellcheck shell=bash
# bash completion for ostelcli and ostel-gateway. Verbs and options are taken from the programs' own
# help, names of parameters from the gateway. Nothing that was typed is ever run: only verbs that a
# help names are passed on, with --help.

# The first words of the entries below a heading such as Options.
_ostel_help() {
    local heading=$1
    shift
    "$@" --help 2>/dev/null |
        awk -v heading="$heading:" '/^[^ ]/ { inside = $0 == heading }
            inside && /^  [^ ]/ { n = split($1, names, ","); for (i = 1; i <= n; ++i) print names[i] }'
}

_ostel() {
    local current=${COMP_WORDS[COMP_CWORD]} command=("${COMP_WORDS[0]}") words=() word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if _ostel_help Subcommands "${command[@]}" | grep -qxF -e "$word"; then
            command+=("$word")
        fi
    done
    case $current in
        -*)
            mapfile -t words < <(_ostel_help Options "${command[@]}")
            ;;
        Device.*)
            # Up to the next point: names are walked through as paths are.
            mapfile -t words < <(timeout 2 "${COMP_WORDS[0]}" get "${current%.*}." 2>/dev/null |
                awk -v typed="${current%.*}." \
                    '{ rest = substr($1, length(typed) + 1); end = index(rest, ".")
                       print typed (end ? substr(rest, 1, end) : rest) }' | sort -u)
            [[ ${words[*]} != *. ]] || compopt -o nospace 2>/dev/null
            ;;
        *)
            mapfile -t words < <(_ostel_help Subcommands "${command[@]}")
            # What takes a name offers the root of all names, what takes a file is left to bash.
            case ${#words[@]}:$(_ostel_help Positionals "${command[@]}" | head -n 1) in
                0:|0:FILE|[1-9]*) ;;
                *) words=(Device.) ;;
            esac
            [ "${words[*]}" != Device. ] || compopt -o nospace 2>/dev/null
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$current")
}

complete -o bashdefault -o default -F _ostel ostelcli ostel-gateway
