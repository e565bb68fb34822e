#!/bin/sh
# example.sh BUILD_DIR SOURCE_DIR CC CMAKE GENERATOR: installs into a directory of its own, builds the example project with a
# copy of its sources against what is there, and runs its tests, which find nothing else.
set -eu
build_dir=$1
source_dir=$2
cc=$3
cmake=$4
generator=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$cmake" --install "$build_dir" --prefix "$work/tree" >"$work/install.log"
cp -r "$source_dir/kit/example" "$work/example"
unset PYTHONPATH BRIDGE_SANDBOX BRIDGE_EXAMPLES BRIDGE_TEST_DAEMONS
{
    "$cmake" -G "$generator" -S "$work/example" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/tree" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="-Wall -Wextra -Werror"
    "$cmake" --build "$work/build"
} >"$work/build.log" 2>&1 || {
    cat "$work/build.log"
    exit 1
}
TMPDIR=$work ctest --test-dir "$work/build" --output-on-failure --no-tests=error

# Whoever has no CMake names the program by PATH and the modules by PYTHONPATH.
PATH=$work/tree/bin:$PATH
PYTHONPATH=$work/tree/share/bridge_client/python
export PATH PYTHONPATH PYTHONDONTWRITEBYTECODE=1 TMPDIR="$work"
VLAN_KEEPER=$work/build/vlan_keeper pytest-3 -q -p no:cacheprovider "$work/example"

# The scenarios and their daemons are found in the tree that the program is installed in.
bridge-sandbox run --time-scale 20 --script rollback >/dev/null

# The lines of the kit's guide, as they stand there.
guide=$source_dir/kit/README.md
block() {
    awk -v begin="\`\`\`$1" '$0 == begin { on = 1; next } /^```$/ { on = 0 } on' "$guide"
}
mkdir "$work/guide"
cp "$work/example/conftest.py" "$work/guide"
block python >"$work/guide/test_guide.py"
{
    printf '#include <bridge/testkit.h>\nint main(void) {\n'
    block c
    printf '}\n'
} >"$work/guide.c"
"$cc" -std=c11 -Wall -Wextra -Werror "$work/guide.c" -I "$work/tree/include" \
    "$(find "$work/tree" -name libbridge_testkit.a)" -o "$work/guide_test"
cd "$work"
./guide_test
pytest-3 -q -p no:cacheprovider guide
