#!/usr/bin/env bash
# The reference of the public headers, from their comments, in build/docs/html.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mkdir -p build/docs
doxygen docs/Doxyfile >build/docs/doxygen.log 2>build/docs/warnings.log
undocumented=$(grep -c 'is not documented' build/docs/warnings.log || true)
echo "build/docs/html/index.html ($undocumented names without a comment of their own: build/docs/warnings.log)"
