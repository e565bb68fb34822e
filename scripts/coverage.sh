#!/usr/bin/env bash
# Line and branch coverage of the library by the tests of an instrumented build; fails below 95 and 85 per cent.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mkdir -p build/coverage/report
echo "Building build/coverage (log: build/coverage/build.log)"
{ cmake --preset coverage && cmake --build --preset coverage; } >build/coverage/build.log 2>&1 || {
    tail -40 build/coverage/build.log >&2
    exit 1
}
find build/coverage -name '*.gcda' -delete
# The contract tests look at the built library, which here carries the counters.
ctest --test-dir build/coverage -j "$(nproc)" -LE contract --output-on-failure >build/coverage/test.log 2>&1 || {
    tail -40 build/coverage/test.log >&2
    exit 1
}
report() {
    gcovr --root . --filter '(base|client|shared|vlan|l2)/' --exclude-unreachable-branches --exclude-throw-branches \
        "$@" build/coverage/client build/coverage/tests
}
report --html-details build/coverage/report/index.html
report --branches --txt build/coverage/report/branches.txt
echo "Branches that no test takes both ways:"
awk '$1 ~ /\// && $4 != "100%" && $2 > 0' build/coverage/report/branches.txt
echo
echo "Lines that no test runs:"
report --txt build/coverage/report/lines.txt
awk '$1 ~ /\// && $4 != "100%" && $2 > 0' build/coverage/report/lines.txt
echo
report --print-summary --fail-under-line 95 --fail-under-branch 85 --txt /dev/null
echo "Line by line: build/coverage/report/index.html"
