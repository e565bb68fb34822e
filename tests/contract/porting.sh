#!/bin/sh
# porting.sh SOURCE_DIR: builds the library for a made-up switch, whose two libraries and toolchain file lie in a sysroot
# of their own, by the words of docs/porting.md, and runs a host of the switch under an emulator.
set -eu
source_dir=$1
here=$source_dir/tests/contract
work=$(mktemp -d)
# shellcheck source=tests/contract/tables.sh
. "$here/tables.sh"
trap 'remove_tables; rm -rf "$work"' EXIT
sysroot=$work/sysroot
image=$work/image
export sysroot image

# blocks KIND: the guide's blocks of that kind, with this switch's places.
# shellcheck disable=SC2016 # the words that are typed name the places themselves
blocks() {
    awk -v kind="\`\`\`$1" '/^```/ { inside = $0 == kind; next } inside' "$source_dir/docs/porting.md" |
        sed -e 's#/sysroot#"$sysroot"#g; s#/image#"$image"#g' -e "s#build/switch#\"$work/build\"#g"
}

mkdir -p "$sysroot/usr/lib" "$sysroot/usr/include" "$image"
blocks cmake >"$sysroot/toolchain.cmake"
cp "$here/switch/switch_loop.h" "$sysroot/usr/include"
for library in qv-thread:loop qv_syslog:log; do
    name=lib${library%:*}.so
    powerpc-linux-gnu-gcc -std=c11 -shared -fPIC -I"$here/switch" "$here/switch/${library#*:}.c" \
        -Wl,-soname,"$name.7" -o "$sysroot/usr/lib/$name.7"
    ln -s "$name.7" "$sysroot/usr/lib/$name"
done

cp "$here/switch/host.c" "$work"
blocks sh >"$work/typed.sh"
{ sed '/^export PKG/,$d' "$work/typed.sh"; echo "cd '$work'"; sed -n '/^export PKG/,$p' "$work/typed.sh"; } >"$work/all.sh"
(cd "$source_dir" && sh -eu "$work/all.sh") >"$work/log" 2>&1 || {
    cat "$work/log"
    exit 1
}
echo "built and installed as docs/porting.md says"

# Nothing of the workstation's, and the switch's libraries by the names that they give themselves.
for left_out in bin include/qv_thread.h lib/libqv-thread.so lib/libqv_syslog.so; do
    [ ! -e "$image/usr/$left_out" ] || { echo "$left_out is installed for a switch"; exit 1; }
done
powerpc-linux-gnu-readelf -d "$image/usr/lib/libbridge_client.so.1" >"$work/dynamic"
for needed in libqv-thread.so.7 libqv_syslog.so.7; do
    grep -q "NEEDED.*\[$needed\]" "$work/dynamic" || { echo "$needed is not asked for"; exit 1; }
done

# Connecting fails, as the switch has no server, and is asked for again in a second.
TMPDIR=$work qemu-ppc -L /usr/powerpc-linux-gnu -E LD_LIBRARY_PATH="$image/usr/lib:$sysroot/usr/lib" "$work/host" \
    >"$work/said" || { cat "$work/said"; echo "the host ends with status $?"; exit 1; }
for line in 'ran bri-conn' 'ran bri-msg-timer' 'ran bri-reconn' 'log 7 BRIDGE/LIB_DEBUG 1: \[on_switch\]'; do
    grep -q "^$line" "$work/said" || { cat "$work/said"; echo "no line \"$line\""; exit 1; }
done
echo "a host of the switch runs: $(grep -c '^ran' "$work/said") jobs, $(grep -c '^log' "$work/said") log lines"
