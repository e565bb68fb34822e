#!/usr/bin/env bash
# run.sh [ppc32be|amd64] [shell] [-- NAME... [--OPTION...]]: boots the lab's machines, both when none is named, and runs
# in them what lab/programs.txt lists, or of that what is named; ctest says what came of it. The options go to each of
# the programs. With `shell` a prompt in the machine. See docs/target-lab.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. lab/programs.sh

declare -A emulator_of=([ppc32be]=qemu-system-ppc [amd64]=qemu-system-x86_64)
machines=()
shell=''

usage() {
    echo "usage: ./dev lab [ppc32be|amd64] [shell] [-- NAME... [--OPTION...]]" >&2
    exit 2
}

take_arguments() {
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        case $1 in
        ppc32be | amd64) machines+=("$1") ;;
        shell) shell=shell ;;
        *) usage ;;
        esac
        shift
    done
    choose "${@:2}"
    [ ${#machines[@]} -gt 0 ] || machines=(ppc32be amd64)
    [ -z "$shell" ] || [ ${#machines[@]} -eq 1 ] || usage
}

check_names() {
    local machine name
    for machine in "${machines[@]}"; do
        for name in "${chosen[@]}"; do
            awk -v machine="$machine" -v name="$name" '$1 == machine && $2 == name { exit found = 1 } END { exit !found }' \
                lab/programs.txt && continue
            echo "lab: $machine has no program $name; it has: $(awk -v machine="$machine" '$1 == machine { print $2 }' \
                lab/programs.txt | xargs)" >&2
            exit 2
        done
    done
}

check_emulators() {
    local machine
    for machine in "${machines[@]}"; do
        command -v "${emulator_of[$machine]}" >/dev/null && continue
        echo "lab: SKIPPED: no ${emulator_of[$machine]} on this machine, so nothing was booted or tested" >&2
        exit 77
    done
}

# guarded COMMAND...: its status. It has a process group of its own, which goes when this script is ended; and a signal
# is answered at once.
job=''
guarded() {
    local status=0
    set -m
    setpriv --pdeathsig TERM "$@" &
    job=$!
    set +m
    wait $job || status=$?
    job=''
    return $status
}
trap '[ -z "$job" ] || kill -- -$job 2>/dev/null' EXIT
trap 'exit 143' INT TERM HUP

# A test tree whose tests are the boot of each machine and what each program came to, read from the console.
write_tests() {
    local machine name
    for machine in "${machines[@]}"; do
        printf 'add_test("lab/%s/boot" setpriv --pdeathsig TERM "lab/boot.sh" "%s")\n' "$machine" "$machine"
        printf 'set_tests_properties("lab/%s/boot" PROPERTIES FIXTURES_SETUP %s TIMEOUT 3600 COST 1000 ' \
            "$machine" "$machine"
        printf 'WORKING_DIRECTORY "%s")\n' "$PWD"
        for name in $(plan "$machine" | cut -f 1) kernel; do
            printf 'add_test("lab/%s/%s" "lab/result.sh" "%s" "%s")\n' "$machine" "$name" "$machine" "$name"
            printf 'set_tests_properties("lab/%s/%s" PROPERTIES FIXTURES_REQUIRED %s SKIP_RETURN_CODE 77 ' \
                "$machine" "$name" "$machine"
            printf 'WORKING_DIRECTORY "%s")\n' "$PWD"
        done
    done
    write_comparison
}

# What the big-endian machine has recorded is held against the same tour on this workstation; amd64 holds its own against
# the recording that is kept.
write_comparison() {
    [[ " ${machines[*]} " = *' ppc32be '* && -x build/dev/tests/test_tools ]] || return 0
    plan ppc32be | grep -q '^tour' || return 0
    printf 'add_test("lab/recordings" env "BRIDGE_THEIR_RECORDING=%s/build/lab/ppc32be/kept/tour.pcapng" ' "$PWD"
    printf '"%s/build/dev/tests/test_tools" "--gtest_filter=BothMachines.see*" --gtest_brief=1)\n' "$PWD"
    printf 'set_tests_properties("lab/recordings" PROPERTIES FIXTURES_REQUIRED ppc32be)\n'
}

prepare() {
    local machine work log start
    for machine in "${machines[@]}"; do
        work=build/lab/$machine${shell:+-shell}
        log=$work/prepare.log
        mkdir -p "$work"
        echo "Preparing $work (log: $log)"
        start=$SECONDS
        guarded lab/prepare.sh "$machine" "$work" "${chosen[@]}" "${options[@]}" >"$log" 2>&1 || {
            tail -20 "$log" >&2
            echo "lab: $machine could not be made" >&2
            exit 1
        }
        echo "$machine: ready after $((SECONDS - start)) s"
    done
}

run_machines() {
    local status=0 machine
    write_tests >build/lab/CTestTestfile.cmake
    guarded ctest --test-dir build/lab -j "${#machines[@]}" --output-on-failure --no-tests=error >build/lab/ctest.log \
        2>&1 || status=$?
    for machine in "${machines[@]}"; do lab/result.sh "$machine"; done
    sed -n '/Start/d; /Test  *#.*Passed/d; p' build/lab/ctest.log
    exit $status
}

take_arguments "$@"
check_names
check_emulators
mkdir -p build/lab
exec {lock}>"build/lab/lock$shell"
flock -n $lock || {
    echo "Waiting for another run in this tree"
    flock $lock
}
prepare
[ -n "$shell" ] || run_machines
exec {lock}>&- # what it boots from is not needed once it runs
exec lab/boot.sh "${machines[0]}" shell
