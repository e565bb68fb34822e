# shellcheck shell=bash
# shellcheck disable=SC2154 # root, work and kernel are the machine's, see prepare.sh
# Sourced by lab/prepare.sh: the first file system of a machine. `root` is the folder that becomes it.

# carry FILE...: files at the places where they are, with the libraries that they need.
carry() {
    local file
    for file in "$@"; do
        [ ! -e "$root$file" ] || continue
        mkdir -p "$root${file%/*}"
        cp -L --preserve=mode "$file" "$root$file"
        strip -g "$root$file" 2>/dev/null || true
        while read -r library; do carry "$library"; done < <(libraries_of "$file")
    done
}

libraries_of() {
    ldd "$1" 2>/dev/null | sed -nE 's/^\t(.* => )?(\/.*) \(0x[0-9a-f]+\)$/\2/p'
}

carry_command() {
    local name
    for name in "$@"; do carry "$(type -P "$name")"; done
}

# begin_root BUILD: what both machines have. The module is the last of those that init loads.
begin_root() {
    rm -rf "$root"
    mkdir -p "$root"/{proc,sys,dev/pts,dev/shm,tmp,run,root,etc,lib,lab/bin,lab/kept,lab/modules.d}
    cp "$1/lab/lab_init" "$root/init"
    echo 'root:x:0:0:root:/root:/bin/sh' >"$root/etc/passwd"
    echo 'root:x:0:' >"$root/etc/group"
    echo '127.0.0.1 localhost' >"$root/etc/hosts"
    mkdir -p "$root/var"
    ln -s ../run "$root/var/run"
}

add_modules() {
    local path
    for path in "$@"; do
        cp "$path" "$root/lab/modules.d/"
        echo "/lab/modules.d/${path##*/}" >>"$root/lab/modules"
    done
}

# A new file, as another machine may be reading the old one.
pack_root() {
    (cd "$root" && find . -print0 | cpio -0 -o -H newc -R 0:0 --quiet) | gzip -1 >"$work/initrd.part"
    mv "$work/initrd.part" "$work/initrd"
}

# The test programs of this machine's build are static. Those of the workstation are not; all lie in one folder.
make_root_ppc32be() {
    local program build libraries=/usr/powerpc-linux-gnu/lib
    begin_root build/ppc32be
    while read -r program; do
        build=build/ppc32be
        [ -e "$build/$program" ] || build+=-workstation
        powerpc-linux-gnu-strip -o "$root/lab/bin/${program##*/}" "$build/$program"
    done < <(
        files_of ppc32be
        [ ! -e build/ppc32be-workstation/sandbox/bridge-sandbox ] || printf '%s\n' "${carried_ppc32be[@]}"
    )
    find "$root/lab/bin" -name '*.so.*' -exec mv {} "$root/lib/" \;
    cp -L "$libraries"/{ld.so.1,libc.so.6,libm.so.6,libstdc++.so.6,libgcc_s.so.1} "$root/lib/"
    cp tests/tools/recordings/*.scenario "$root/lab/"
    plan ppc32be /lab/bin | sed "s|/lab/bin/[^\t]*/|/lab/bin/|" >"$root/lab/plan"
    add_modules "$work/ef_bridge.ko"
}

# The build lies where it lies here, as programs name each other by their paths.
make_root_amd64() {
    local build=$PWD/build/dev name
    begin_root "$build"
    while read -r name; do carry "$build/$name"; done < <(files_of amd64)
    for name in "${carried[@]}"; do carry "$build/$name"; done
    mkdir -p "$root$PWD"
    cp -r --parents include completion sandbox/scenarios tests/tools/recordings "$root$PWD"
    ln -s "$PWD/sandbox/scenarios" "$root$build/sandbox/scenarios"
    carry /bin/sh /bin/bash /bin/true
    carry_command ip bridge cat ls ps mkdir rm sleep grep kill mount umount insmod rmmod lsmod dmesg id uname chmod \
        seq head tail date stat cp mv ln touch env true false mktemp ping sed sort timeout
    plan amd64 "$build" >"$root/lab/plan"
    printf 'cd %q\n' "$PWD" >"$root/root/.bashrc"
    add_modules "${kernel_modules[@]/#/$kernel/lib/modules/$(cat "$kernel/release")/kernel/}" "$work/ef_bridge.ko"
}

# What those programs start.
carried=(sandbox/bridge-sandbox sandbox/libef_bridge_sim.so tests/soak/soak_host tests/picture_host tools/bridge-monitor
    examples/{port_watch,mac_table,vlan_guard,vlan_follow,port_guard,vlan_mirror})

carried_ppc32be=(sandbox/libef_bridge_sim.so examples/{mac_table,vlan_follow} tools/bridge-monitor
    client/libbridge_client.so.1 host/libbridge_host.so.1 platform/lib{qv-thread,qv_syslog}.so.1)

# In the order in which they can be loaded. A bridge, its peers and VLAN devices are for what drives real frames.
kernel_modules=(net/{llc/llc,802/stp,802/garp,802/mrp,bridge/bridge,8021q/8021q}.ko drivers/net/{veth,nlmon}.ko)
