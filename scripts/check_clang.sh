#!/bin/bash
# Checks every source of the gate's build with clang-tidy, which reports clang's own warnings too.
set -euo pipefail
cd "$(dirname "$0")/.."

[ -e build-all/compile_commands.json ] || cmake --preset all >/dev/null
exec run-clang-tidy -quiet -p build-all
