# Passes ctest's output on without the lines of passed tests, and writes a table of the configurations before its
# closing lines. Fails when a configuration ran no test (unless `filtered`: the caller chose tests).
#   builds    "configuration=build-seconds ..." in the order of the table

BEGIN {
    rows = split(builds, entries, " ")
    for (i = 1; i <= rows; i++) {
        split(entries[i], pair, "=")
        order[i] = pair[1]
        build[pair[1]] = pair[2]
    }
    step = 500
}

function table(   i, name) {
    printf "\n%-14s %8s %10s %14s %14s\n", "configuration", "tests", "failures", "test seconds", "build seconds"
    for (i = 1; i <= rows; i++) {
        name = order[i]
        printf "%-14s %8d %10d %14.1f %14d\n", name, tests[name], failures[name], seconds[name], build[name]
        if (tests[name] == 0 && !filtered)
            empty = empty " " name
    }
    printf "\n"
    if (empty != "")
        printf "FAILED: no test ran in:%s\n", empty
    fflush()
}

/^ +Start +[0-9]+: / { next }

/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
    name = $0
    sub(/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: /, "", name)
    sub(/\/.*/, "", name)
    tests[name]++
    seconds[name] += $(NF - 1)
    done++
    if ($0 ~ /   Passed +[0-9.]+ sec/) {
        if (done % step == 0) {
            printf "%d tests ran\n", done
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
