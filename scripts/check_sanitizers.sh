#!/bin/bash
# Builds with AddressSanitizer and UndefinedBehaviorSanitizer, and runs the tests in that build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/build.sh asan -DZEL_WERROR=ON
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1
[ ! -e tests/lsan.supp ] || export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
exec ctest --test-dir build-asan -j2 --output-on-failure
