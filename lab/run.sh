#!/usr/bin/env bash
# run.sh [ppc32be|amd64] [shell]: boots the lab's machines, both when none is named, and runs in them what
# lab/programs.txt lists; ctest says what came of it. With `shell` a prompt in the machine. See docs/target-lab.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/bridge_client/lab
. lab/kernels.sh
. lab/initrd.sh

declare -A emulator_of=([ppc32be]=qemu-system-ppc [amd64]=qemu-system-x86_64)

# make_module: the module for the machine's kernel. Built outside, as a blank in the tree's path would end the words of
# the kernel's makefiles.
make_module() {
    local options=()
    [ "$machine" != ppc32be ] || options=(ARCH=powerpc CROSS_COMPILE=powerpc-linux-gnu-)
    mkdir -p "$work/module" "$scratch/$machine"
    cp -r lab/module include "$scratch/$machine"
    make -s -C "$kernel/build" "M=$scratch/$machine/module" "INCLUDE=$scratch/$machine/include" "${options[@]}" modules
    cp "$scratch/$machine/module/ef_bridge.ko" "$work/module/"
}

# Leaves kernel, initrd and programs of the machine in place.
prepare() {
    machine=$1
    work=build/lab/$machine
    root=$PWD/$work/root
    mkdir -p "$work"
    make_kernel_"$machine" && make_module && make_root_"$machine" && pack_root && ln -sfn "$kernel/image" "$work/kernel"
}

usage() {
    echo "usage: ./dev lab [ppc32be|amd64] [shell]" >&2
    exit 2
}

# Names of the machine's programs.
programs() {
    awk -v machine="$1" '$1 == machine { print $2 }' lab/programs.txt
}

# A test tree whose tests are the boot of each machine and what each program came to, read from the console.
write_tests() {
    local machine name
    for machine in "${machines[@]}"; do
        printf 'add_test("lab/%s/boot" "lab/boot.sh" "%s")\n' "$machine" "$machine"
        printf 'set_tests_properties("lab/%s/boot" PROPERTIES FIXTURES_SETUP %s TIMEOUT 1800 COST 1000 ' \
            "$machine" "$machine"
        printf 'WORKING_DIRECTORY "%s")\n' "$PWD"
        for name in $(programs "$machine"); do
            printf 'add_test("lab/%s/%s" "lab/result.sh" "%s" "%s")\n' "$machine" "$name" "$machine" "$name"
            printf 'set_tests_properties("lab/%s/%s" PROPERTIES FIXTURES_REQUIRED %s SKIP_RETURN_CODE 77 ' \
                "$machine" "$name" "$machine"
            printf 'WORKING_DIRECTORY "%s")\n' "$PWD"
        done
    done
}

machines=()
shell=''
for word in "$@"; do
    case $word in
    ppc32be | amd64) machines+=("$word") ;;
    shell) shell=1 ;;
    *) usage ;;
    esac
done
[ ${#machines[@]} -gt 0 ] || machines=(ppc32be amd64)
[ -z "$shell" ] || [ ${#machines[@]} -eq 1 ] || usage

for machine in "${machines[@]}"; do
    command -v "${emulator_of[$machine]}" >/dev/null || {
        echo "lab: SKIPPED: no ${emulator_of[$machine]} on this machine, so nothing was booted or tested" >&2
        exit 77
    }
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p build/lab
: >build/lab/prepare.log
for machine in "${machines[@]}"; do
    echo "Preparing build/lab/$machine (log: build/lab/prepare.log)"
    start=$SECONDS
    # Not as a condition: there a failing step would not end it.
    status=0
    (set -x && prepare "$machine") >>build/lab/prepare.log 2>&1 &
    wait $! || status=$?
    if [ $status -ne 0 ]; then
        tail -20 build/lab/prepare.log >&2
        echo "lab: $machine could not be made" >&2
        exit 1
    fi
    echo "$machine: ready after $((SECONDS - start)) s"
done

if [ -n "$shell" ]; then
    lab/boot.sh "${machines[0]}" shell
    exit
fi
write_tests >build/lab/CTestTestfile.cmake
status=0
ctest --test-dir build/lab -j "${#machines[@]}" --output-on-failure --no-tests=error >build/lab/ctest.log 2>&1 || status=$?
for machine in "${machines[@]}"; do lab/result.sh "$machine"; done
sed -n '/Start/d; /Test  *#.*Passed/d; p' build/lab/ctest.log
exit $status
