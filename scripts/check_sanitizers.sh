#!/bin/bash
# Builds with AddressSanitizer and UndefinedBehaviorSanitizer, and runs the tests in that build.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

scripts/build.sh asan -DBUILD_TESTING=ON
exec ctest --preset asan
