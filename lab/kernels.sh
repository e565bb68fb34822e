# shellcheck shell=bash
# shellcheck disable=SC2154 # cache is the lab's own
# Sourced by lab/prepare.sh: the machines' kernels, each a folder of the cache with `image`, `release` and `build`, the tree
# that modules are built in. A folder is complete once it has its name; until then it ends in .part.

debs=$cache/debs
make=(setpriv --pdeathsig TERM make) # ends with the script, whatever ends that
ppc32be_cross=(ARCH=powerpc CROSS_COMPILE=powerpc-linux-gnu-)

# fetch PACKAGE...: the packages' files in $debs, by apt, which need not be asked once they are there.
fetch() {
    local package missing=()
    mkdir -p "$debs"
    for package in "$@"; do
        compgen -G "$debs/${package}_*.deb" >/dev/null || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    (cd "$debs" && apt-get download "${missing[@]}") && return
    as_root apt-get update -q && (cd "$debs" && apt-get download "${missing[@]}")
}

# The version of Debian's kernel: that of the cache, or the one that the package lists name.
cloud_release() {
    local deb release=''
    for deb in "$debs"/linux-image-*-cloud-amd64_*.deb; do
        [ ! -f "$deb" ] || release=$deb
    done
    [ -n "$release" ] || release=$(apt-cache depends linux-image-cloud-amd64 | awk '/Depends:/ { print $2; exit }')
    release=${release##*/linux-image-}
    release=${release#linux-image-}
    release=${release%%_*}
    [ -n "$release" ] && echo "$release"
}

# Debian's kernel as it is packed.
make_kernel_amd64() {
    local release common package
    release=$(cloud_release) || as_root apt-get update -q
    release=$(cloud_release)
    common=${release%-cloud-amd64}-common
    kernel=$cache/amd64-$release
    [ ! -d "$kernel" ] || return 0
    fetch "linux-image-$release" "linux-headers-$release" "linux-headers-$common" linux-kbuild-6.1
    rm -rf "$kernel.part"
    mkdir -p "$kernel.part"
    for package in "linux-image-$release" "linux-headers-$release" "linux-headers-$common" linux-kbuild-6.1; do
        dpkg -x "$debs/${package}"_*.deb "$kernel.part"
    done
    cp "$kernel.part/boot/vmlinuz-$release" "$kernel.part/image"
    echo "$release" >"$kernel.part/release"
    # The headers' makefile names its other half by where the package is installed.
    sed -i "s|^include .*|include \$(dir \$(lastword \$(MAKEFILE_LIST)))../linux-headers-$common/Makefile|" \
        "$kernel.part/usr/src/linux-headers-$release/Makefile"
    ln -s "usr/src/linux-headers-$release" "$kernel.part/build"
    mv "$kernel.part" "$kernel"
}

# What neither the build nor the configuration of so small a kernel reads is not even unpacked.
unpacked_without=(
    '*/Documentation/*/*' '*/sound/*.[ch]' '*/tools/testing/*' '*/tools/perf/*' '*/samples/*.c'
    '*/drivers/gpu/*.[ch]' '*/drivers/net/*/*.[ch]' '*/drivers/media/*.[ch]' '*/drivers/staging/*.[ch]'
    '*/drivers/scsi/*.[ch]' '*/drivers/infiniband/*.[ch]' '*/drivers/usb/*.[ch]' '*/drivers/iio/*.[ch]'
    '*/arch/arm*/*.dts*' '*/arch/*/*/*.dts' '*/fs/xfs/*.c' '*/fs/btrfs/*.c' '*/fs/nfs/*.c'
)

# check_configuration FILE: whether every option that we ask for is in it; an option whose needs are not met falls out.
check_configuration() {
    local missing
    missing=$(grep -E '^(# )?CONFIG_' lab/ppc32be.config | grep -vxFf "$1" | grep '=y$') || return 0
    printf 'The kernel would lack:\n%s\n' "$missing" >&2
    return 1
}

# A kernel of our own configuration, from the source that Debian packs.
make_kernel_ppc32be() {
    local key exclude=() pattern
    fetch linux-source-6.1
    key=$({ cat lab/ppc32be.config && basename "$debs"/linux-source-6.1_*.deb; } | sha256sum | cut -c1-12)
    kernel=$cache/ppc32be-$key
    [ ! -d "$kernel" ] || return 0
    for pattern in "${unpacked_without[@]}"; do exclude+=("--exclude=$pattern"); done
    rm -rf "$kernel.part"
    mkdir -p "$kernel.part/source"
    dpkg-deb --fsys-tarfile "$debs"/linux-source-6.1_*.deb | tar -xO ./usr/src/linux-source-6.1.tar.xz |
        xz -dc | tar -x -C "$kernel.part/source" --strip-components=1 "${exclude[@]}"
    local made=("${make[@]}" -C "$kernel.part/source" -s -j "$(nproc)" "${ppc32be_cross[@]}")
    "${made[@]}" tinyconfig
    cat lab/ppc32be.config >>"$kernel.part/source/.config" # the last word on an option counts
    "${made[@]}" olddefconfig 2>/dev/null
    check_configuration "$kernel.part/source/.config" || return 1
    "${made[@]}" vmlinux modules_prepare
    "${made[@]}" kernelrelease >"$kernel.part/release"
    powerpc-linux-gnu-strip -o "$kernel.part/image" "$kernel.part/source/vmlinux"
    # What is left is what a module's build reads.
    find "$kernel.part/source" -type f \( -name '*.c' -o -name '*.o' -o -name '*.S' \) \
        -not -path '*/scripts/*' -not -path '*/arch/powerpc/lib/*' -delete
    rm -f "$kernel.part/source/vmlinux"*
    ln -s source "$kernel.part/build"
    mv "$kernel.part" "$kernel"
}
