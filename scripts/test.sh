#!/bin/bash
# Builds and runs the tests.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/test.sh [--all]

Builds the release and runs the unit and service tests.
With --all: warnings are errors, and every scripts/check_*.sh runs too (sanitizers, clang, ...).
TEXT
}

case ${1:-} in
-h | --help) usage; exit ;;
'' | --all) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
*) echo "test.sh: there is no option $1" >&2; usage >&2; exit 2 ;;
esac

run=(ctest -j2 --output-on-failure)

if [ "${1:-}" != --all ]; then
    scripts/deps.sh test
    scripts/build.sh release -DBUILD_TESTING=ON
    exec "${run[@]}" --test-dir build
fi

scripts/deps.sh all
scripts/build.sh release -DBUILD_TESTING=ON -DZEL_WERROR=ON

# The checks are tests beside those of the release, so that one line at the end counts everything.
mkdir -p build-all
{
    echo "subdirs(\"$PWD/build\")"
    for check in scripts/check_*.sh; do
        name=$(basename "$check" .sh)
        echo "add_test($name \"$PWD/$check\")"
        echo "set_tests_properties($name PROPERTIES PROCESSORS 2 TIMEOUT 1200)"
    done
} >build-all/CTestTestfile.cmake
exec "${run[@]}" --test-dir build-all
