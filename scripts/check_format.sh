#!/bin/bash
# Checks the layout of the C++ files, and the length of the lines of scripts.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
if git grep -nE '.{121}' -- '*.lua' '*.sh'; then
    echo "check_format.sh: a line has at most 120 characters" >&2
    exit 1
fi
