#!/usr/bin/env bash
# cross_libevent.sh: makes what the workstation's programs need on 32-bit big-endian PowerPC, for which Debian has no
# libevent, and says where it lies: libevent's core, built from Debian's source package, and the headers of the two
# libraries that are nothing else. It is kept by its version; remove the folder to have it made again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

version=$(dpkg-query -W -f '${Version}' libevent-dev)
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/bridge_client
prefix=$cache/ppc32be-libevent-$version

# Where this machine's packages come from has their sources too. Asked with lists of our own, so that nobody has to be
# root and the machine's stay as they are.
fetch_source() {
    local apt=$work/apt
    mkdir -p "$apt"/{lists/partial,archives/partial} "$work/source"
    # shellcheck disable=SC2016 # apt's own variables
    apt-get indextargets --format 'deb-src $(SITE) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
        sort -u >"$apt/sources.list"
    local options=(-q -o "Dir::Etc::SourceList=$apt/sources.list" -o Dir::Etc::SourceParts=- -o "Dir::State::Lists=$apt/lists"
        -o "Dir::Cache=$apt" -o Acquire::Languages=none)
    apt-get "${options[@]}" update
    (cd "$work/source" && apt-get "${options[@]}" source --download-only "libevent=$version")
    dpkg-source -x "$work"/source/*.dsc "$work/libevent"
}

build() {
    cmake -S "$work/libevent" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        "-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/toolchain-ppc32be.cmake" -DCMAKE_C_FLAGS=-w \
        -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DEVENT__LIBRARY_TYPE=STATIC -DEVENT__DISABLE_OPENSSL=ON \
        -DEVENT__DISABLE_THREAD_SUPPORT=ON -DEVENT__DISABLE_TESTS=ON -DEVENT__DISABLE_SAMPLES=ON \
        -DEVENT__DISABLE_BENCHMARK=ON
    cmake --build "$work/build" --target event_core_static
}

# collect PLACE: a tree as CMake and pkg-config search it. The headers alone, as those of the whole machine are for
# another processor.
collect() {
    local file
    mkdir -p "$1/lib/pkgconfig" "$1/include"
    cp "$work/build/lib/libevent_core.a" "$1/lib/"
    cp -r "$work/libevent/include/event2" "$work/build/include/event2" "$1/include/"
    # shellcheck disable=SC2016 # pkg-config's own variables
    printf '%s\n' 'prefix=${pcfiledir}/../..' 'Name: libevent_core' 'Description: libevent, for 32-bit big-endian PowerPC' \
        "Version: ${version%%-*}" 'Cflags: -I${prefix}/include' 'Libs: -L${prefix}/lib -levent_core' \
        >"$1/lib/pkgconfig/libevent_core.pc"
    dpkg -L libcli11-dev nlohmann-json3-dev | grep -E '^/usr/(include|share|lib)/(cmake/)?(CLI|nlohmann)' |
        while read -r file; do
            [ -d "$file" ] || install -D -m 644 "$file" "$1/${file#/usr/}"
        done
}

if [ ! -d "$prefix" ]; then
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    fetch_source
    build
    rm -rf "$prefix.part"
    collect "$prefix.part"
    mv "$prefix.part" "$prefix"
fi >&2
echo "$prefix"
