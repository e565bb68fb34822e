#!/usr/bin/env bash
# abi_since.sh COMMIT BUILD_DIR: builds COMMIT, with its own headers and libraries, and runs its programs with the shared
# libraries of BUILD_DIR: the program that calls every operation, the daemon of its README, and its example daemons in
# today's scenarios and under `bridge-sandbox check`. Nothing of COMMIT is compiled with a header of today, but for one
# program that tells whether the records have kept their sizes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
commit=$(git rev-parse --short --verify "$1^{commit}")
today=$(realpath "$2")
then=$PWD/build/since/$commit
sandbox=$today/sandbox/bridge-sandbox
log=$then/log
libraries=$today/client:$today/host:$today/platform
daemons=(port_watch mac_table vlan_guard vlan_follow)
failed=0

build_then() {
    local target targets=(bridge_client contract_exported_calls)
    rm -rf "$then/source"
    mkdir -p "$then/source"
    git archive "$commit" | tar -x -C "$then/source"
    cmake --preset dev -S "$then/source" -B "$then/build"
    for target in "${daemons[@]}"; do
        [ ! -f "$then/source/examples/$target.c" ] || targets+=("$target")
    done
    cmake --build "$then/build" --target "${targets[@]}"
    awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' "$then/source/README.md" >"$then/port_log.c"
    cc "$then/port_log.c" -I"$then/source/include" -I"$then/source/platform/include" -L"$then/build/client" \
        -L"$then/build/platform" -lbridge_client -lqv-thread -Wl,-rpath,"$then/build/client:$then/build/platform" \
        -o "$then/port_log"
    # What it takes a record's size for, with the records of today.
    cc -I include "$then/source/tests/contract/record_sizes.c" -o "$then/record_sizes"
}

# Whether the loader takes today's libraries for a program of then.
takes_todays() {
    LD_LIBRARY_PATH=$libraries ldd "$1" | awk -v today="$today/" '
        /libbridge_|libqv/ { found++; if (index($0, " => " today) == 0) exit status = 1 }
        END { exit status || !found }'
}

# outcome FOLDERS COMMAND...: what went wrong with the libraries of these folders, a line each: points that `bridge-sandbox check` judges, or the status.
outcome() {
    local status=0 folders=$1
    shift
    (cd "$then" && LD_LIBRARY_PATH=$folders "$@") >"$then/output" 2>&1 || status=$?
    [ $status -ne 0 ] || return 0
    awk '/^[a-z]+ .* wrong( |$)/ { sub(/ wrong( .*)?$/, ""); print; found = 1 }
        END { if (!found) print "status '$status'" }' "$then/output" | LC_ALL=C sort
}

# try NAME PROGRAM COMMAND...: today's library may not be worse for it than that of then, which it finds by itself, on the
# same event loop. What goes wrong once only is the machine's.
try() {
    local name=$1 program=$2 today_wrong worse
    shift 2
    if ! takes_todays "$program"; then
        echo "FAILED  $name: it does not take today's libraries"
        failed=1
        return
    fi
    today_wrong=$(outcome "$libraries" "$@")
    if [ -z "$today_wrong" ]; then
        echo "ok      $name"
        return
    fi
    today_wrong=$(outcome "$libraries" "$@" | LC_ALL=C comm -12 - <(cat <<<"$today_wrong"))
    cp "$then/output" "$then/output.today"
    worse=$(outcome "$today/platform" "$@" | LC_ALL=C comm -13 - <(cat <<<"$today_wrong"))
    if [ -z "${worse//[[:space:]]/}" ]; then
        echo "same    $name: not better with the library of then: $(tr -s ' \n' ' ' <<<"$today_wrong")"
    else
        printf 'FAILED  %s: worse than with the library of then:\n%s\n' "$name" "$worse"
        tail -20 "$then/output.today"
        failed=1
    fi
}

# Today's scenario with the daemons of then; fails when it starts another one.
with_daemons_of_then() {
    (cd "$then" && awk -v folder=build/examples/ '
        /^daemon start / { if (system("test -x " folder $3) != 0) exit status = 1; $3 = folder $3; found = 1 }
        { print }
        END { exit status || !found }') <"$1" >"$then/scenario"
}

mkdir -p "$then"
echo "Building $commit (log: $log)"
build_then >"$log" 2>&1 || { tail -20 "$log" >&2; exit 1; }
program=$then/build/tests/contract/contract_exported_calls
try "every operation called once" "$program" "$program"
if "$then/record_sizes" >"$then/output" 2>&1; then
    echo "ok      sizes of records"
else
    echo "FAILED  sizes of records:"
    tail -20 "$then/output"
    failed=1
fi
cat >"$then/scenario" <<'TEXT'
port add 1 access 1
daemon start ./port_log
wait client port_log registered
wait port 1 pvid is 10
TEXT
try "README's daemon" "$then/port_log" "$sandbox" run --script "$then/scenario"
for scenario in "$today"/sandbox/scenarios/*.scenario; do
    if with_daemons_of_then "$scenario"; then
        daemon=$then/$(awk '/^daemon start / { print $3; exit }' "$then/scenario")
        try "scenario $(basename "$scenario" .scenario)" "$daemon" "$sandbox" run --script "$then/scenario"
    fi
done
for daemon in "${daemons[@]}"; do
    program=$then/build/examples/$daemon
    [ ! -x "$program" ] || try "check of $daemon" "$program" "$sandbox" check -- "$program"
done
exit $failed
