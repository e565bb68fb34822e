#!/bin/sh
# examples.sh SOURCE_DIR CC CXX FLAG...: each header that offers operations has an example, and every example compiles
# with these flags, those in C as C++, too. So does what docs/debugging.md adds to a daemon.
set -eu
source_dir=$1
cc=$2
cxx=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
find "$source_dir/include/bridge" -name '*.h*' -exec awk -v into="$work" -f "$source_dir/tests/contract/examples.awk" {} +

for header in "$source_dir"/include/bridge/*; do
    name=${header##*/}
    case $name in
    base.h | bridge.h) continue ;; # types alone, and the others
    *.h) example=$work/bridge_${name%.h}_h.c ;;
    *) example=$work/bridge_${name%.hpp}_hpp.cpp ;;
    esac
    if ! [ -s "$example" ]; then
        echo "bridge/$name shows no example"
        exit 1
    fi
done

awk '/^```/ { inside = $0 == "```c"; next } inside' "$source_dir/docs/debugging.md" >"$work/debugging.c"
[ -s "$work/debugging.c" ]
"$cc" -x c -std=c11 "$@" "$work"/*.c
"$cxx" -x c++ -std=c++20 "$@" "$work"/*.c "$work"/*.cpp
echo "$(find "$work" -name '*.c*' | wc -l) examples compile"
