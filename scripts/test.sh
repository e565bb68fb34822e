# shellcheck shell=bash
# Sourced by ./dev: builds the test configurations and runs all their tests in one run of ctest.

test_configurations=(dev asan tsan i686 ppc32be gate gate-ppc32be)
jobs=$(nproc)

# build_configuration NAME: configures and builds; the output goes to build/test/NAME.log, the seconds to NAME.seconds.
build_configuration() {
    local start=$SECONDS log=build/test/$1.log
    if ! { cmake --preset "$1" -DBRIDGE_UNITY=ON && cmake --build --preset "$1" -j "$jobs"; } >"$log" 2>&1; then
        echo "${clear_line:-}$1: the build failed; all of it is in $log:"
        grep -E 'rror:|FAILED|undefined reference' "$log" | cut -c1-300 | head -20 || tail -20 "$log"
        return 1
    fi
    echo $((SECONDS - start)) >"build/test/$1.seconds"
    echo "${clear_line:-}$1: built in $((SECONDS - start)) s"
}

# Two at a time: configuring and linking one leaves a processor to the other.
build_configurations() {
    local name running=0 failed=0
    for name in "$@"; do
        if [ $running -eq 2 ]; then
            wait -n || failed=1
            running=$((running - 1))
        fi
        build_configuration "$name" &
        running=$((running + 1))
    done
    while [ $running -gt 0 ]; do
        wait -n || failed=1
        running=$((running - 1))
    done
    return $failed
}

# A test tree without tests of its own that takes in those of the build trees.
write_combined_tree() {
    local name
    for name in "$@"; do
        printf 'subdirs("%s/build/%s")\n' "$PWD" "$name"
    done >build/test/CTestTestfile.cmake
}

# run_tests [CONFIGURATION...] [-- ctest arguments]
run_tests() {
    local names=()
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        if [[ " ${test_configurations[*]} " != *" $1 "* ]]; then
            echo "no such test configuration: $1 (there are: ${test_configurations[*]})" >&2
            return 2
        fi
        names+=("$1")
        shift
    done
    [ $# -eq 0 ] || shift
    [ ${#names[@]} -gt 0 ] || names=("${test_configurations[@]}")

    mkdir -p build/test
    rm -f build/test/*.log build/test/*.seconds
    local logs=("${names[@]/#/build/test/}")
    with_progress "${logs[@]/%/.log}" -- build_configurations "${names[@]}" || return 1
    write_combined_tree "${names[@]}"

    local build_seconds='' suites=() name list
    for name in "${names[@]}"; do
        build_seconds+="$name=$(cat "build/test/$name.seconds") "
        for list in build/"$name"/tests/*_suites.cmake; do
            [ ! -e "$list" ] || suites+=("$list") # gate has none
        done
    done
    # ctest's own words end the output; the summary goes in before its closing lines.
    ctest --test-dir build/test -j "$jobs" --output-on-failure --no-tests=error --no-label-summary "$@" 2>&1 |
        tee build/test/ctest.log | awk -v builds="$build_seconds" -v filtered=$# -f scripts/test_summary.awk \
            "${suites[@]}" stage=ctest -
}
