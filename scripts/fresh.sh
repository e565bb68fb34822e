#!/usr/bin/env bash
# fresh.sh [COMMAND]: runs COMMAND, or else the first commands of README.md, in a clone of the committed tree on a bare
# Debian 12 below build/fresh: a root with processes, IPC objects and mounts of its own, and with nothing in it but the
# essential packages, so that whatever a fresh machine lacks is missed here too. It shares the network.
# Ends as COMMAND ends, or with 75 when such a root cannot be made here.
#
# The bare root, the packages that were installed in it and the lab's kernels are kept in the user's cache folder; with
# them the next run needs no network. A bare root is made anew after a month.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh

suite=bookworm
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/bridge_client/$suite-$(uname -m)
base=$cache/base.tar
root=build/fresh/root
tree='/root/bridge client' # a blank on purpose
log=build/fresh/root.log

no_root() {
    echo "fresh: no bare Debian root can be made here: $1" >&2
    [ ! -s "$log" ] || tail -5 "$log" >&2
    exit 75
}

# The machine's own sources of the suite, whatever the format of their files, as lines of a sources.list.
debian_sources() {
    # shellcheck disable=SC2016 # apt's own variables
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        awk -v suite=$suite '$2 ~ "^" suite "(-updates|-security)?$" && $3 == "main" { print "deb", $0 }' | sort -u
}

# How the machine fetches: proxies, whether dates are checked, and so on. A script that finds a proxy stays outside.
fetch_settings() {
    local scheme
    for scheme in http https; do
        local variable=${scheme}_proxy
        [ -z "${!variable:-}" ] || echo "Acquire::$scheme::Proxy \"${!variable}\";"
    done
    apt-config dump | grep '^Acquire::' | grep -v 'Proxy-Auto-Detect'
}

# The keys of its sources.
apt_keys() {
    find /etc/apt/trusted.gpg.d -type f
    sed -n 's/.*[Ss]igned-[Bb]y[:=] *\(\/[^] ]*\).*/\1/p' /etc/apt/sources.list /etc/apt/sources.list.d/*.list \
        /etc/apt/sources.list.d/*.sources 2>/dev/null || true
}

# Leaves $base with the package lists in it. They are the lists of the cached packages: both are renewed together.
make_base() {
    local sources packages=() keys=build/fresh/keys
    sources=$(debian_sources)
    [ -n "$sources" ] || return 1
    [[ $sources != *https:* ]] || packages=(--include=ca-certificates)
    rm -rf $keys
    mkdir -p $keys
    apt_keys | sort -u | while read -r key; do cp "$key" $keys/; done
    fetch_settings >build/fresh/apt.conf
    # shellcheck disable=SC2016 # $1 is the hook's
    mmdebstrap --variant=minbase --skip=cleanup/apt/lists,output/dev --aptopt=build/fresh/apt.conf \
        --setup-hook='mkdir -p "$1/etc/apt/trusted.gpg.d" && cp build/fresh/keys/* "$1/etc/apt/trusted.gpg.d"' \
        "${packages[@]}" "" build/fresh/base.tar - <<<"$sources" || return 1
    mkdir -p "$cache"
    rm -rf "$cache/archives"
    mv build/fresh/base.tar "$base"
}

# Puts the bare root, the packages of earlier runs and the tree in place.
make_root() {
    rm -rf --one-file-system $root &&
        mkdir -p $root "$cache/archives" &&
        tar -xpf "$base" --numeric-owner -C $root &&
        cp /etc/resolv.conf /etc/hosts $root/etc/ &&
        find "$cache/archives" -name '*.deb' -exec cp --reflink=auto -t $root/var/cache/apt/archives {} + &&
        git clone -q --no-hardlinks . "$root$tree"
}

# Everything that apt has fetched in the root, whether or not the run ended well. Without it the next run fetches more.
keep_packages() {
    find $root/var/cache/apt/archives -maxdepth 1 -name '*.deb' -exec cp -u --reflink=auto -t "$cache/archives" {} +
}

# What every machine has besides its files. These mounts are seen in the namespaces only, and end with them.
furnish() {
    local node
    mkdir -p $root/dev
    mount -t tmpfs -o mode=755 tmpfs $root/dev
    for node in null zero full random urandom tty; do
        touch $root/dev/$node
        mount --bind /dev/$node $root/dev/$node
    done
    mkdir $root/dev/shm $root/dev/pts
    mount -t tmpfs -o mode=1777 tmpfs $root/dev/shm
    mount -t devpts -o newinstance,mode=620,ptmxmode=666 devpts $root/dev/pts
    ln -s pts/ptmx $root/dev/ptmx
    ln -s /proc/self/fd $root/dev/fd
    ln -s fd/0 $root/dev/stdin
    ln -s fd/1 $root/dev/stdout
    ln -s fd/2 $root/dev/stderr
    mount -t proc proc $root/proc
    # Kernels and packages of the lab's machines, which it keeps itself.
    mkdir -p "${cache%/*}/lab" $root/root/.cache/bridge_client/lab
    mount --bind "${cache%/*}/lab" $root/root/.cache/bridge_client/lab
    # Packages that one run builds and another one tries.
    mkdir -p build/package $root/root/packages
    mount --bind build/package $root/root/packages
}

# The first process of the namespaces: whatever runs there ends with it.
if [ "${1:-}" = --inside ]; then
    set -E
    trap 'no_root "nothing can be mounted"' ERR
    furnish
    trap - ERR
    status=0
    # shellcheck disable=SC2016 # expanded in the root
    env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin TERM="${TERM:-dumb}" \
        chroot $root bash -ec 'cd "$1" && eval "$2"' fresh "$tree" "$2" || status=$?
    exit $status
fi

{ # read whole before it runs: the file may be changed meanwhile
command=${*:-$(awk '/^```$/ { if (inside) exit; inside = 1; next } inside' README.md)}
mkdir -p build/fresh
rm -f $log
[ "$(id -u)" -eq 0 ] || no_root "it takes root: sudo ./dev fresh"
exec {lock}>build/fresh/lock
flock -n $lock || no_root "another run uses build/fresh"
(setup fresh) >$log 2>&1 || no_root "packages are missing"
unshare --mount --pid --ipc --fork --kill-child true 2>>$log || no_root "no namespaces"

if [ -z "$(find "$base" -mtime -30 2>/dev/null)" ]; then
    echo "Making a bare Debian root (log: $log)"
    make_base >>$log 2>&1 || [ -f "$base" ] || no_root "it could not be fetched"
fi
make_root >>$log 2>&1 || no_root "it could not be unpacked"
git diff --quiet HEAD || echo "What is not committed is left out."
printf 'In a bare Debian root, %s, runs:\n%s\n' "$root$tree" "$command"

# In the background, so that a signal is answered at once; the namespaces die with the process that waits for them.
unshare --mount --pid --ipc --fork --kill-child scripts/fresh.sh --inside "$command" <&0 {lock}>&- &
space=$!
trap 'kill -KILL $space 2>/dev/null; wait $space 2>/dev/null; exit 143' INT TERM HUP
status=0
wait $space || status=$?
keep_packages || true
exit $status
}
