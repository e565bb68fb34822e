#!/bin/sh
# perf.sh PROGRAM BUDGET [update]: counts the instructions of each path of PROGRAM and holds them against the
# figures of BUDGET, which allow 3 % more. Status 1 when a path takes more or has no figure, 77 when this machine cannot
# tell: no valgrind, or another compiler or C library than the figures are for. `update` writes the figures.
set -eu
program=$1 budget=$2 action=${3:-check}
tools=$("$program" tools)

if ! command -v valgrind >/dev/null; then
    echo "not counted: no valgrind on this machine"
    exit 77
fi
held_for=$(sed -n 's/^# for: //p' "$budget" 2>/dev/null || true)
if [ "$action" = check ] && [ "$held_for" != "$tools" ]; then
    echo "not counted: the figures are for ${held_for:-nothing yet}; here is $tools"
    exit 77
fi

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
# The C library's plainest vector code, which every processor of the kind has: so the counts are the same on all of
# them, and no clear counts as one instruction a byte, as a string instruction does.
export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX512BW,-AVX2,-AVX,-ERMS,-FSRM,-SSSE3,-SSE4_1,-SSE4_2
export LD_BIND_NOW=1
for part in library layer; do
    valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$directory/counts.$part" \
        --log-file="$directory/log" "$program" "$part" >>"$directory/runs" || {
        cat "$directory/log" "$directory/runs" >&2
        exit 1
    }
done

# "path instructions", of one run each.
awk '
    FNR == 1 { path = "" }
    FILENAME ~ /runs$/ { runs[$1] = $2; order[++paths] = $1; next }
    /^desc: Trigger: Client Request: / { path = $5 }
    /^(summary|totals): / { if (path != "") counted[path] = $2 / runs[path] }
    END { for (i = 1; i <= paths; ++i) printf "%s %.1f\n", order[i], counted[order[i]] }
' "$directory/runs" "$directory"/counts.* >"$directory/counted"

if [ "$action" = update ]; then
    {
        echo "# Instructions of one run of each path; 3 % more are allowed. A commit that changes a figure says why."
        echo "# Written by: ./dev perf-gate update"
        echo "# for: $tools"
        cat "$directory/counted"
    } >"$budget"
fi

awk '
    FNR == NR { if ($1 !~ /^#/) allowed[$1] = $2; next }
    {
        seen[$1] = 1
        verdict = ""
        if (!($1 in allowed)) { verdict = "  has no figure"; failed = 1 }
        else if ($2 > allowed[$1] * 1.03) { verdict = "  TOO MANY"; failed = 1 }
        else if ($2 < allowed[$1] * 0.97) verdict = "  fewer: the figure can be lowered"
        printf "%-20s %12.1f  figure %12.1f%s\n", $1, $2, allowed[$1], verdict
    }
    END {
        for (path in allowed) if (!(path in seen)) { print path ": was not counted"; failed = 1 }
        exit failed
    }
' "$budget" "$directory/counted"
