#!/usr/bin/env bash
# again.sh: makes the recording of the 32-bit big-endian machine again, with what its daemons printed, in the lab's.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../../.."
here=tests/tools/recordings

./dev lab ppc32be -- tour
cp build/lab/ppc32be/kept/tour.pcapng "$here/ppc32be.pcapng"
"$here/dissect.sh" "$here/ppc32be.pcapng" >"$here/ppc32be.dissected"
# Of a run the console has its own answers too.
lab/result.sh ppc32be tour | grep -E '^(follow|table): |^[A-Z0-9]+_EV[A-Z0-9_]+' >"$here/ppc32be.printed"
