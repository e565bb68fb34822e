#!/usr/bin/env bash
# boot.sh MACHINE [shell]: boots the machine that lab/run.sh has made, by emulation alone, and keeps what it says in
# build/lab/MACHINE/console, and beside it in kept/ what its programs leave in /lab/kept. Fails when the machine does not
# come to its end within LAB_SECONDS (900). The emulator's own status says nothing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
machine=$1
work=build/lab/$machine${2:+-$2}

options=(-nographic -no-reboot -kernel "$work/kernel" -initrd "$work/initrd" -nic none)
# Programs lie at the same addresses in every process, so that what the emulator has translated serves the next one, too.
append='panic=-1 oops=panic loglevel=1 norandmaps'
if [ "${2:-}" = shell ]; then
    append+=' lab=shell'
else
    # The machine's clock counts its instructions, 2 ns each, and leaps over the time in which it has nothing to do. So
    # waiting costs nothing, and a workstation under load changes no result.
    options+=(-icount 'shift=1,sleep=off')
fi
case $machine in
ppc32be) command=(qemu-system-ppc -M g3beige -m 512 "${options[@]}" -append "console=ttyPZ0 $append") ;;
amd64) command=(qemu-system-x86_64 -M q35 -cpu qemu64 -m 1024 "${options[@]}"
    -append "console=ttyS0 nokaslr mitigations=off tsc=reliable $append") ;;
*) exit 2 ;;
esac

# Nothing outlives the one that has started it, whatever ends that.
with_its_parent=(setpriv --pdeathsig KILL)
# Standard input, from when the machine has a prompt on: its firmware takes what comes earlier. At its end the machine's.
feed() {
    until grep -q '\[lab\] machine' "$work/console.raw"; do
        sleep 0.1
        kill -0 $$ 2>/dev/null || exit
    done
    cat
    echo exit
}
if [ "${2:-}" = shell ]; then
    [ ! -t 0 ] || exec "${with_its_parent[@]}" "${command[@]}"
    : >"$work/console.raw"
    exec {typed}<&0
    "${with_its_parent[@]}" "${command[@]}" < <(feed <&$typed) | tee "$work/console.raw"
    exit
fi
limit=${LAB_SECONDS:-900}
status=0
"${with_its_parent[@]}" timeout "$limit" "${with_its_parent[@]}" "${command[@]}" \
    </dev/null >"$work/console.raw" 2>&1 || status=$?
tr -d '\r' <"$work/console.raw" >"$work/console"
if ! grep -qx '\[lab\] done' "$work/console"; then
    tail -30 "$work/console"
    [ $status -ne 124 ] || echo "$machine was ended after $limit s"
    echo "$machine did not come to its end"
    exit 1
fi
rm -rf "$work/kept"
mkdir -p "$work/kept"
while read -r name bytes; do
    basenc --decode --base16 <<<"$bytes" >"$work/kept/$name"
done < <(sed -n 's/^\[lab\] file //p' "$work/console")
