#!/bin/bash
# Checks the layout of the C++ files.
set -euo pipefail
cd "$(dirname "$0")/.."

git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
