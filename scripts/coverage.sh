#!/usr/bin/env bash
# Line coverage of the library by the tests of an instrumented build.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mkdir -p build/coverage/report
echo "Building build/coverage (log: build/coverage/build.log)"
{ cmake --preset coverage && cmake --build --preset coverage; } >build/coverage/build.log 2>&1 || {
    tail -40 build/coverage/build.log >&2
    exit 1
}
find build/coverage -name '*.gcda' -delete
ctest --test-dir build/coverage -j "$(nproc)" --output-on-failure >build/coverage/test.log 2>&1 || {
    tail -40 build/coverage/test.log >&2
    exit 1
}
gcovr --root . --filter '(base|client|shared|vlan|l2)/' --print-summary --txt build/coverage/report/coverage.txt \
    --html-details build/coverage/report/index.html build/coverage/client build/coverage/tests
cat build/coverage/report/coverage.txt
echo "Line by line: build/coverage/report/index.html"
