# shellcheck shell=bash
# Sourced by ./dev: installs the Debian packages that a kind of work needs and this machine lacks.

# packages_for WORK: names from scripts/packages.txt; `all` means every kind of work.
packages_for() {
    awk -v work="$1" '
        /^[[:space:]]*(#|$)/ { next }
        { for (i = 2; i <= NF; i++) if (work == "all" || $i == "build" || $i == work) { print $1; next } }
    ' scripts/packages.txt
}

kinds_of_work() {
    awk '/^[[:space:]]*(#|$)/ { next } { for (i = 2; i <= NF; i++) print $i }' scripts/packages.txt | sort -u
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# as_root COMMAND...: fails when this user cannot become root without being asked in the middle of a script.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null && { [ -t 0 ] || sudo -n true 2>/dev/null; }; then
        sudo "$@"
    else
        return 1
    fi
}

apt_install() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$@"
}

# setup WORK: leaves with 75 and the one line to run when the packages cannot be installed from here.
setup() {
    if [ "$1" != all ] && ! kinds_of_work | grep -qxF -- "$1"; then
        echo "no such kind of work: $1 (there are: all $(kinds_of_work | xargs))" >&2
        exit 2
    fi
    if ! command -v dpkg-query >/dev/null; then
        echo "Not a Debian machine: taking it that what scripts/packages.txt lists for '$1' is at hand."
        return
    fi
    local package missing=() log=build/setup.log
    for package in $(packages_for "$1"); do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "Installing: ${missing[*]}"
    mkdir -p build
    # The package lists are fetched only when the install fails without them.
    if ! apt_install "${missing[@]}" >"$log" 2>&1; then
        { as_root apt-get update -q && apt_install "${missing[@]}"; } >>"$log" 2>&1 || {
            echo "Packages are missing. Run this, then try again:" >&2
            echo "  sudo apt-get update && sudo apt-get install -y --no-install-recommends ${missing[*]}" >&2
            [ ! -s "$log" ] || echo "(what was tried: $log)" >&2
            exit 75
        }
    fi
}
