# Passes ctest's output on without the lines of passed tests, and writes a table of the configurations before its
# closing lines. Fails when a configuration ran no test (unless `filtered`: the caller chose tests).
# Reads first the lists of suites ("# suite tests", see cmake/list_suites.cmake), then what ctest says: to ctest a suite
# is one test; whatever is not a suite counts as one.
#   builds    "configuration=build-seconds ..." in the order of the table

BEGIN {
    rows = split(builds, entries, " ")
    for (i = 1; i <= rows; i++) {
        split(entries[i], pair, "=")
        order[i] = pair[1]
        build[pair[1]] = pair[2]
    }
    step = 1000
}

function table(   i, name) {
    printf "\n%-14s %8s %8s %14s %14s %14s\n", "configuration", "tests", "suites", "failed suites", "test seconds",
        "build seconds"
    for (i = 1; i <= rows; i++) {
        name = order[i]
        printf "%-14s %8d %8d %14d %14.1f %14d\n", name, tests[name], suites[name], failures[name], seconds[name],
            build[name]
        if (tests[name] == 0 && !filtered)
            empty = empty " " name
    }
    printf "\n"
    if (empty != "")
        printf "FAILED: no test ran in:%s\n", empty
    fflush()
}

stage != "ctest" {
    if ($1 == "#")
        count[$2] = $3
    next
}

/^ +Start +[0-9]+: / { next }

/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
    name = $0
    sub(/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: /, "", name)
    sub(/ .*/, "", name)
    ran = name in count ? count[name] : 1
    sub(/\/.*/, "", name)
    suites[name]++
    tests[name] += ran
    seconds[name] += $(NF - 1)
    if ($0 ~ /   Passed +[0-9.]+ sec/) {
        done += ran
        if (int(done / step) != int((done - ran) / step)) {
            printf "%d tests passed\n", done
            fflush()
        }
        next
    }
    if ($0 !~ /\*\*\*Skipped/)
        failures[name]++
}

/^[0-9]+% tests passed, / { table() }

{ print; fflush() }

END { exit empty != "" }
