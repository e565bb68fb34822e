#!/usr/bin/env bash
# result.sh MACHINE [NAME]: what program NAME said in the machine's last run; ends with its status. Without a name, a
# table of the machine and its programs.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
console=build/lab/$1/console

if [ $# -eq 1 ]; then
    awk '
        /\[lab\] machine / { sub(/^.*\[lab\] machine /, ""); print }
        /^[0-9]+ tests, [0-9]+ failed, [0-9]+ skipped/ { said = $0 }
        /^\[lab\] begin / { said = "" }
        /^\[lab\] end / { printf "  %-10s %4d  %6.1f s  (cpu %.1f)  %s\n", $3, $5, $7, $9, said }
    ' "$console"
    exit
fi
awk -v name="$2" '
    $0 == "[lab] begin " name { inside = 1; next }
    $1 == "[lab]" && $2 == "end" && $3 == name { ended = 1; status = $5; exit }
    inside && !/^\[=+\] .* ran\. |^\[  PASSED  \] / # what each test that passed has to say
    END {
        if (!ended) print name " did not come to its end"
        exit ended ? status : 1
    }' "$console"
