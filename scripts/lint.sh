#!/usr/bin/env bash
# lint.sh [--all]: formatting, clang-tidy, a clang build with warnings as errors, shell scripts. Runs all of them; fails if
# one does. Without --all it looks at what differs from main, committed or not, and at what includes that.
# shellcheck disable=SC2317 # the steps are functions that are called by name
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit
jobs=$(nproc)
failed=0
files=build/lint/files

# step NAME COMMAND...
step() {
    local name=$1 log=build/lint/${1// /_}.log start=$SECONDS
    shift
    if "$@" >"$log" 2>&1; then
        echo "ok      $name ($((SECONDS - start)) s)"
    else
        echo "FAILED  $name"
        grep -E 'error|warning|In .* line' "$log" | sort -u | head -60 || tail -20 "$log"
        failed=1
    fi
}

# What differs from where this tree left main; fails where there is no main to compare with.
changed() {
    local base main
    for main in origin/main main; do
        base=$(git merge-base HEAD $main 2>/dev/null) || continue
        git diff --name-only --diff-filter=d "$base"
        git ls-files --others --exclude-standard
        return
    done
    return 1
}

# with_includers FILE...: these and every file that includes one of them, and so on. An #include has a header's path from
# the root or from an include/, or its name alone.
with_includers() {
    local seen='' now names
    now=$(printf '%s\n' "$@" | sort -u)
    while [ "$now" != "$seen" ]; do
        seen=$now
        names=$(grep -E '\.(h|hpp|def|inc)$' <<<"$now" | sed 's#^\(platform/\)\{0,1\}include/##; h; s#.*/##; x; G' |
            sort -u | sed 's/[.]/[.]/g' | paste -sd'|')
        [ -n "$names" ] || break
        now=$({
            echo "$seen"
            git grep -lE --untracked "^ *# *include [\"<]($names)[\">]" -- '*.h' '*.hpp' '*.c' '*.cpp' '*.def'
        } | sort -u)
    done
    echo "$now"
}

# What decides about every file calls for all of them.
choose_files() {
    local list=()
    if [ "$scope" = changed ] && mapfile -t list < <(changed || echo .clang-tidy) &&
        ! printf '%s\n' "${list[@]}" | grep -qE '(^|/)(CMakeLists\.txt|CMakePresets\.json|\.clang-(tidy|format))$|^cmake/'; then
        [ ${#list[@]} -gt 0 ] || return 1
        with_includers "${list[@]}" >$files
    else
        scope=all
        git ls-files >$files
    fi
}

# chosen PATTERN: the files whose whole names fit.
chosen() { grep -E "^($1)$" "$files" || true; }

formatted() {
    chosen '.*\.(h|hpp|c|cpp)' | grep -v '^tests/contract/agreed_interface.h$' | xargs -r -P "$jobs" -n 8 \
        clang-format --dry-run -Werror
}

# Objects of the chosen files that some target has: ninja knows them as FILE^.
clang_build() {
    cmake --preset clang || return
    if [ "$scope" = all ]; then
        cmake --build --preset clang
        return
    fi
    chosen '.*\.(c|cpp)' | while read -r file; do
        ! grep -qF "\"file\": \"$PWD/$file\"" build/clang/compile_commands.json || printf '%s\0' "$PWD/$file^"
    done | xargs -r -0 ninja -C build/clang -k 0
}

# One file a run: the analyzer carries its idea of variable arguments over from one file to the next.
tidy() {
    chosen '(client|shared|vlan|l2|wire|platform|sandbox|tools)/.*\.cpp|host/.*\.c' | xargs -r -P "$jobs" -n 1 \
        clang-tidy --quiet -p build/clang
}

scripts() {
    chosen 'dev|\.ci/run|.*\.sh' | xargs -r shellcheck -x
}

case ${1:-} in
'') scope=changed ;;
--all) scope=all ;;
*) echo "lint what: $1 (nothing or --all)" >&2 && exit 2 ;;
esac
mkdir -p build/lint
choose_files || {
    echo "Nothing differs from main; ./dev lint --all looks at everything."
    exit 0
}
[ "$scope" = all ] || echo "$(wc -l <$files) files that differ from main or include one that does"
step "clang-format" formatted
step "clang build" clang_build
step "clang-tidy" tidy
step "shell scripts" scripts
exit $failed
