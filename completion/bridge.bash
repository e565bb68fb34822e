# Completion for bash: bridge-inspect, bridge-monitor, bridge-replay, bridge-sandbox, bridge-tap. What it offers are the
# words that the programs themselves list, so that it never falls behind them.

# The long options in a help text.
_bridge_options() {
    sed -nE 's/^  (-[A-Za-z],)?(--[a-z-]+)( .*)?$/\2/p'
}

# The subcommands in a help text.
_bridge_subcommands() {
    awk '/^Subcommands:/ { inside = 1; next }
         /^$/ { inside = 0 }
         inside && /^  [a-z]/ { print $1 }
         sub(/^Other subcommands: /, "") { gsub(/,/, ""); print }'
}

# _bridge_choices OPTION: the values that a help text has for it in braces.
_bridge_choices() {
    sed -nE "s/^ .*$1 [A-Z]+:\{([a-z,]+)\}.*/\1/p" | tr , ' '
}

# The words of bridge-monitor: groups, events, filters.
_bridge_events() {
    "$1" --list 2>/dev/null | awk '{ print $1 }'
    echo port= vlan= mac=
}

# The first words of the commands that a running server knows.
_bridge_commands() {
    timeout 1 "$1" ctl help 2>/dev/null | awk '/^ *[a-z]/ { print $1 }' | sort -u
}

_bridge_complete() {
    local program=$1 word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local help known words='' subcommand='' index
    help=$("$program" --help 2>/dev/null)
    known=" $(_bridge_subcommands <<<"$help" | tr '\n' ' ')"
    for ((index = 1; index < COMP_CWORD; ++index)); do
        if [[ $known == *" ${COMP_WORDS[index]} "* ]]; then
            subcommand=${COMP_WORDS[index]}
            [[ $subcommand == ctl ]] || help+=$'\n'$("$program" "$subcommand" --help 2>/dev/null)
            break
        fi
    done
    [[ $previous != -* ]] || words=$(_bridge_choices "$previous" <<<"$help")
    if [[ -z $words && $word == -* ]]; then
        words=$(_bridge_options <<<"$help")
    elif [[ -z $words ]]; then
        case ${program##*/}:$subcommand in
        bridge-monitor:*) words=$(_bridge_events "$program") ;;
        bridge-sandbox:ctl) words=$(_bridge_commands "$program") ;;
        *:) words=$known ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null
}

complete -o default -F _bridge_complete bridge-inspect bridge-monitor bridge-replay bridge-sandbox bridge-tap
