# shellcheck shell=sh
# Sourced: a VSDID of its own for a script, and what it leaves behind removed.
export VSDID=$$
remove_tables() {
    for base in 0x11110001 0x22220001 0x33330001 0x5A5B7C3D; do
        ipcrm -M $((base + VSDID)) 2>/dev/null || true
        ipcrm -S $((base + VSDID)) 2>/dev/null || true
    done
}
