#!/bin/bash
# Builds and runs the tests.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/test.sh [--all]

Builds the release and runs the unit and service tests.
With --all: warnings are errors, the tests also run in a build with sanitizers, and every scripts/check_*.sh runs.
TEXT
}

case ${1:-} in
-h | --help) usage; exit ;;
'' | --all) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
*) echo "test.sh: there is no option $1" >&2; usage >&2; exit 2 ;;
esac

if [ "${1:-}" != --all ]; then
    scripts/deps.sh test
    scripts/build.sh release -DBUILD_TESTING=ON
    exec ctest --test-dir build -j2 --output-on-failure
fi

scripts/deps.sh all
scripts/build.sh release -DBUILD_TESTING=ON -DZEL_WERROR=ON
scripts/build.sh asan -DZEL_WERROR=ON
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1
[ ! -e tests/lsan.supp ] || export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0

# One run over both builds and the checks, so that one line at the end counts everything.
mkdir -p build-all
{
    echo "subdirs(\"$PWD/build\" \"$PWD/build-asan\")"
    for check in scripts/check_*.sh; do
        name=$(basename "$check" .sh)
        echo "add_test($name \"$PWD/$check\")"
    done
} >build-all/CTestTestfile.cmake
exec ctest --test-dir build-all -j2 --output-on-failure
