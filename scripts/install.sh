#!/usr/bin/env bash
# install.sh install PREFIX BUILD_DIR: puts what BUILD_DIR has built below PREFIX, with a list of it; what an earlier install
# put there and this one does not goes.
# install.sh uninstall PREFIX: removes what stands in that list, and the folders that came with it and are empty now.
set -euo pipefail
action=$1
prefix=$(realpath -m "$2")
list_name=share/bridge_client/installed # names from PREFIX on; those of folders end in a slash
list=$prefix/$list_name

# The names of a list that are folders' or files' (grep's -v).
listed() { [ ! -f "$list" ] || grep "$@" '/$' "$list" || true; }

# The names of files on the input, and before them those of their folders, from PREFIX itself on, which is ./
with_folders() {
    awk -F/ '{ print "./"; name = ""; for (i = 1; i < NF; i++) print name = name $i "/"; print }' | LC_ALL=C sort -u
}

install_tree() {
    local build=$1 file work
    work=$(mktemp -d)
    # shellcheck disable=SC2064 # the folder of now
    trap "rm -rf '$work'" EXIT
    # Folders that were there before stay when everything else is removed.
    { [ ! -d "$prefix" ] || find "$prefix" -type d -printf '%P/\n' | sed 's#^/$#./#'; } | LC_ALL=C sort >"$work/there"
    { listed -v; listed; } >"$work/earlier"
    cmake --install "$build" --prefix "$prefix"
    while read -r file || [ -n "$file" ]; do
        echo "${file#"$prefix/"}"
    done <"$build/install_manifest.txt" | (cat && echo $list_name) | with_folders >"$work/now"
    { grep -vxFf "$work/now" "$work/earlier" || true; } | { grep -v '/$' || true; } | remove_files
    mkdir -p "$(dirname "$list")"
    { LC_ALL=C comm -23 "$work/now" "$work/there"; grep '/$' "$work/earlier" || true; } | LC_ALL=C sort -u >"$list"
}

# With what Python keeps of a module beside it.
remove_files() {
    local file cache
    while read -r file; do
        rm -f "$prefix/$file"
        cache=$prefix/$(dirname "$file")/__pycache__
        if [[ $file == *.py ]] && [ -d "$cache" ]; then
            find "$cache" -name "$(basename "$file" .py).*" -delete
            rmdir --ignore-fail-on-non-empty "$cache"
        fi
    done
}

# Deepest first.
remove_folders() {
    local folder
    LC_ALL=C sort -r | while read -r folder; do
        [ ! -d "$prefix/${folder#./}" ] || rmdir --ignore-fail-on-non-empty "$prefix/${folder#./}"
    done
}

uninstall_tree() {
    local files folders
    [ -f "$list" ] || { echo "nothing to remove: there is no $list" >&2; exit 1; }
    files=$(listed -v) folders=$(listed)
    remove_files <<<"$files"
    remove_folders <<<"$folders"
    echo "removed: $(wc -l <<<"$files") files below $prefix"
}

case $action in
install) install_tree "$3" ;;
uninstall) uninstall_tree ;;
*) exit 2 ;;
esac
