#!/usr/bin/env bash
# prepare.sh MACHINE WORK [NAME... --OPTION...]: leaves kernel and initrd of the machine in folder WORK, with the programs
# that ./dev has built. For names and options see run.sh.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
machine=$1
work=$2
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/bridge_client/lab
root=$PWD/$work/root
. scripts/setup.sh
. lab/programs.sh
. lab/kernels.sh
. lab/initrd.sh
choose "${@:3}"

# make_module: the module for the machine's kernel. Built outside, as a blank in the tree's path would end the words of
# the kernel's makefiles.
make_module() {
    local cross=() scratch making
    [ "$machine" != ppc32be ] || cross=("${ppc32be_cross[@]}")
    scratch=$(mktemp -d)
    cp -r lab/module include "$scratch"
    # In the background, so that a signal is answered at once.
    "${make[@]}" -s -C "$kernel/build" "M=$scratch/module" "INCLUDE=$scratch/include" "${cross[@]}" modules &
    making=$!
    # shellcheck disable=SC2064 # expanded now
    trap "kill $making 2>/dev/null || true; wait $making || true; rm -rf '$scratch'" EXIT
    wait $making
    cp "$scratch/module/ef_bridge.ko" "$work/"
}

set -x
mkdir -p "$work" "$cache"
# One at a time fills the cache.
exec {lock}>"$cache/lock"
flock "$lock"
make_kernel_"$machine"
exec {lock}>&-
make_module
make_root_"$machine"
pack_root
ln -sfn "$kernel/image" "$work/kernel"
