#!/usr/bin/env bash
# The reference of the public headers, from their comments, in build/docs/html and, as manual pages, in build/docs/man3.
# Fails when it is not whole.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
rm -rf build/docs
mkdir -p build/docs/man3
doxygen docs/Doxyfile >build/docs/doxygen.log 2>build/docs/warnings.log
sed -i -E 's/BRI_NOTHING(&#160;| )*//' build/docs/html/*.html build/docs/html/{,search/}*.js # see docs/comments.awk
# In C++ members share the comment above the first of them, which Doxygen takes for that one's alone.
sed -i '/\.hpp:[0-9]*: warning: Member .* is not documented/d' build/docs/warnings.log

# Doxygen says nothing when its filter fails; so the names that it has found are held against those of the headers.
for kind in exports records; do
    awk -v kind=$kind -f tests/contract/public_names.awk include/bridge/*.h
done | sort -u >build/docs/public_names.txt
[ -s build/docs/public_names.txt ] || { echo "no public names found" >&2; exit 1; }
awk '/ kind="/ { kind = $0 } /^ *<name>/ && kind ~ /"(function|variable|struct)"/ { gsub(/ *<[^>]*>/, ""); print }' \
    build/docs/names.tag | sort -u >build/docs/reference_names.txt
missing=$(comm -23 build/docs/public_names.txt build/docs/reference_names.txt)

# Every link of the pages leads to one of them.
grep -ohE 'href="[^"#:]+["#]' build/docs/html/*.html | sed 's/^href="//; s/.$//' | sort -u | while read -r page; do
    [ -e "build/docs/html/$page" ] || echo "$page is linked to, but is not there"
done >>build/docs/warnings.log

# A page for each exported name, and nothing in it that the formatter warns of.
find include/bridge -name '*.h' ! -name bridge.h -exec awk -v into=build/docs/man3 \
    -v version="$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)" -f docs/man.awk {} +
groff -man -Tutf8 -ww -z build/docs/man3/*.3 2>>build/docs/warnings.log
awk -v kind=exports -f tests/contract/public_names.awk include/bridge/*.h | while read -r name; do
    grep -qs "^$name .- [^ ]" "build/docs/man3/$name.3" || echo "$name has no manual page, or one without a text"
done >>build/docs/warnings.log

status=0
if [ -n "$missing" ]; then
    echo "$(wc -l <<<"$missing") of $(wc -l <build/docs/public_names.txt) public names are not in the reference:" >&2
    head -20 <<<"$missing" >&2
    status=1
fi
if grep -q . build/docs/warnings.log; then
    sed "/^$/d; s#^$PWD/##" build/docs/warnings.log >&2
    echo "$(grep -c 'is not documented' build/docs/warnings.log || true) names without a comment" >&2
    status=1
fi
echo "build/docs/html/index.html: $(wc -l <build/docs/public_names.txt) public names; build/docs/man3: $(find build/docs/man3 -name '*.3' |
    wc -l) manual pages"
exit $status
