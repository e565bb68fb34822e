#!/usr/bin/env bash
# package.sh build|try FOLDER: `build` makes the Debian packages of the committed tree on this machine, and lintian has
# nothing to say against them; `try` installs those of FOLDER on this machine, which should be one to throw away, in the
# version before, upgrades, uses and removes them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh

folder=$2
work=$(mktemp -d) # Debian's tools know no blank in the path of a source, which may be in this tree's
trap 'rm -rf "$work"' EXIT

# The tree as a release hands it out, with the packaging where Debian looks for it.
unpack_source() {
    local name=bridge-client version
    version=$(dpkg-parsechangelog -l packaging/debian/changelog -S Version)
    source=$work/$name-${version%-*}
    git archive --prefix="${source##*/}/" HEAD | gzip -n9 >"$work/${name}_${version%-*}.orig.tar.gz"
    tar -xzf "$work/${name}_${version%-*}.orig.tar.gz" -C "$work"
    cp -r "$source/packaging/debian" "$source/debian"
}

build_packages() {
    setup package
    unpack_source
    (cd "$source" && DEB_BUILD_OPTIONS=${DEB_BUILD_OPTIONS:-parallel=$(nproc)} dpkg-buildpackage -us -uc)
    (cd "$work" && lintian --info --tag-display-limit 0 --fail-on error,warning ./*.changes)
    mkdir -p "$folder"
    rm -f "$folder"/*
    find "$work" -maxdepth 1 -type f -exec cp -t "$folder" {} +
    ls -l "$folder"
}

# The version before, as long as there is no release to take it from: the same packages under a lower number.
make_version_before() {
    local package content=$work/content
    mkdir "$work/before"
    for package in "$@"; do
        dpkg-deb -R "$package" "$content"
        sed -i -E 's/^(Version: .*)/\1~before/; s/(\(= [^)]*)\)/\1~before)/g' "$content/DEBIAN/control"
        dpkg-deb -b "$content" "$work/before" >/dev/null
        rm -r "$content"
    done
}

# What debian/tests/control asks for besides the packages themselves.
test_needs() {
    sed -n 's/^Depends: //p' packaging/debian/tests/control | tr , '\n' | tr -d ' @' | grep -v '^bridge-'
}

install_packages() {
    apt-get install -y -q --no-install-recommends "$@"
    dpkg-query -W -f '${Package} ${Version}\n' "${names[@]}"
}

# Nothing of the packages may stay; `files` is what they had.
look_for_remains() {
    local file remains=0
    while read -r file; do
        if [ -e "$file" ] && ! dpkg-query -S "$file" >/dev/null 2>&1; then
            echo "left behind: $file"
            remains=1
        fi
    done <"$work/files"
    if ldconfig -p | grep -E 'libbridge|libqv'; then
        echo "the loader still knows them"
        remains=1
    fi
    return $remains
}

try_packages() {
    local package packages names=() needs
    export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
    mapfile -t packages < <(find "$folder" -name '*.deb' ! -name '*-dbgsym_*')
    for package in "${packages[@]}"; do
        names+=("$(dpkg-deb -f "$package" Package)")
    done
    mapfile -t needs < <(test_needs)
    apt-get update -q
    apt-get install -y -q --no-install-recommends "${needs[@]}"
    make_version_before "${packages[@]}"
    echo "== install the version before"
    install_packages "$work/before"/*.deb
    echo "== upgrade"
    install_packages "${packages[@]}"
    if dpkg-query -W -f '${Version}\n' "${names[@]}" | grep '~before'; then
        return 1
    fi
    echo "== use"
    packaging/debian/tests/example
    echo "== remove"
    dpkg-query -L "${names[@]}" | sort -u | grep -v '^/\.$' >"$work/files"
    apt-get purge -y -q "${names[@]}"
    look_for_remains
    echo "Installed, upgraded, used and removed: ${names[*]}"
}

case $1 in
build) build_packages ;;
try) try_packages ;;
*) exit 2 ;;
esac
