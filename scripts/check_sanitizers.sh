#!/bin/bash
# Builds with AddressSanitizer and UndefinedBehaviorSanitizer, and runs the tests in that build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/build.sh asan -DBUILD_TESTING=ON
exec ctest --preset asan
