#!/bin/sh
# links.sh SOURCE_DIR: every relative link of the documents leads to a file, and one to a place in a file to a heading.
set -eu
cd "$1"

# anchors FILE: how its headings are named in links.
anchors() { sed -n 's/^##* //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'; }

failed=0
count=0
# links DOCUMENT: outside code.
# shellcheck disable=SC2016 # these are backquotes
links() { sed 's/`[^`]*`//g' "$1" | grep -oE '\]\([^) ]+\)' | sed 's/^](//; s/)$//'; }

for document in $(git ls-files '*.md' 2>/dev/null || find . -name '*.md'); do
    for link in $(links "$document"); do
        case $link in *://*) continue ;; esac
        count=$((count + 1))
        file=${link%%#*}
        target=$document
        [ -z "$file" ] || target=$(dirname "$document")/$file
        if ! [ -e "$target" ]; then
            echo "$document: $link leads nowhere"
            failed=1
        elif [ "$link" != "$file" ] && ! anchors "$target" | grep -qx -- "${link#*#}"; then
            echo "$document: $link: no such heading"
            failed=1
        fi
    done
done
[ "$count" -gt 0 ]
echo "$count links"
exit $failed
