#!/bin/sh
# library.sh WHAT LIBRARY READELF NM: what the shared library asks of a host process.
set -eu
what=$1
library=$2
readelf=$3
nm=$4
export LC_ALL=C

# values TAG: the dynamic section's values of that tag, sorted, in one line.
values() { "$readelf" -d "$library" | sed -n "s/.*($1).*\[\(.*\)\].*/\1/p" | sort | tr '\n' ' '; }

# equal WHAT FOUND WANTED
equal() {
    echo "$1: $2"
    [ "$2" = "$3" ] || { echo "instead of $3" && exit 1; }
}

case $what in
soname) equal soname "$(values SONAME)" 'libbridge_client.so.1 ' ;;
needed) equal needed "$(values NEEDED)" 'libc.so.6 libqv-thread.so.1 libqv_syslog.so.1 ' ;;
layer_soname) equal soname "$(values SONAME)" 'libbridge_host.so.1 ' ;;
layer_needed) equal needed "$(values NEEDED)" 'libbridge_client.so.1 libc.so.6 libqv-thread.so.1 ' ;;
no_cxx_runtime)
    undefined=$("$nm" -D --undefined-only "$library" | awk '{ sub(/@.*/, "", $NF); print $NF }')
    [ -n "$undefined" ]
    # __cxa_finalize is the C library's own: the start-up files of every shared object refer to it.
    if echo "$undefined" | grep -E '^(_Z|__cxa_|__gxx_|_Unwind_|__dynamic_cast)' | grep -v '^__cxa_finalize$'; then
        echo "of the C++ runtime"
        exit 1
    fi
    echo "$(echo "$undefined" | wc -l) names asked for, none of the C++ runtime"
    ;;
*)
    echo "what is $what?"
    exit 2
    ;;
esac
