# shellcheck shell=bash
# Sourced by ./dev: the binary interface and the sizes of the libraries as they are installed, on both targets.

interface_targets=(gate:x86_64: gate-ppc32be:ppc32be:powerpc-linux-gnu-)

# has_change_line: whether CHANGELOG.md has a line that main has not.
has_change_line() {
    git diff "$(git merge-base HEAD origin/main 2>/dev/null || echo HEAD~)" -- CHANGELOG.md | grep -q '^+[^+]'
}

# The README's table of sizes, from the accepted figures.
sizes_table() {
    awk '
        { size[$1 " " $2, $3] = $4; if (!seen[$1 " " $2]++) row[++rows] = $1 " " $2 }
        END {
            print "| library | code | constants | data | relocations |\n|---|---|---|---|---|"
            for (i = 1; i <= rows; i++) {
                split(row[i], name, " ")
                printf "| `%s`, %s | %d | %d | %d | %d |\n", name[2], name[1], size[row[i], "text"],
                    size[row[i], "constants"], size[row[i], "data"], size[row[i], "relocations"]
            }
        }
    ' tests/gate/sizes.txt
}

write_sizes_into_readme() {
    sizes_table >build/sizes.md
    awk '
        /^\| library \| code / { while ((getline line <"build/sizes.md") > 0) print line; inside = 1 }
        inside && !/^\|/ { inside = 0 }
        !inside
    ' README.md >build/README.md && cat build/README.md >README.md
}

# look_at_interface abi|sizes [--accept], or abi --since COMMIT
look_at_interface() {
    local what=$1 accept=${2:-} entry preset name tools library libraries status=0
    case $what$accept in
    abi | sizes | abi--accept | sizes--accept) ;;
    abi--since)
        build release
        scripts/abi_since.sh "${3:?the commit whose programs are to run}" build/release
        return
        ;;
    *) echo "$what what: $accept" >&2 && return 2 ;;
    esac
    if [ "$what$accept" = abi--accept ] && ! has_change_line; then
        echo "Say in CHANGELOG.md what is new in the interface, then accept it." >&2
        return 1
    fi
    for entry in "${interface_targets[@]}"; do
        IFS=: read -r preset name tools <<<"$entry"
        target=bridge_host build "$preset" || return
        libraries=(build/"$preset"/client/libbridge_client.so.1 build/"$preset"/host/libbridge_host.so.1)
        if [ "$what" = sizes ]; then
            sh tests/gate/sizes.sh tests/gate/sizes.txt "$name" "${tools}size" "${tools}readelf" "${libraries[@]}" \
                ${accept:+--update} || status=1
            continue
        fi
        for library in "${libraries[@]}"; do
            sh tests/gate/abi.sh "abi/$(basename "$library" .so.1).$name.abi" "$library" "$PWD" ${accept:+update} ||
                status=1
        done
    done
    [ "$what$accept" != sizes--accept ] || write_sizes_into_readme
    return $status
}
