#!/bin/bash
# Configures and builds one of the presets: scripts/build.sh release|debug|asan|fuzz [CMake options ...] [-- TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -eq 0 ]; then
    sed -n '2s/^# //p' "$0" >&2
    exit 2
fi
preset=$1
shift
options=()
while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
done
[ $# -eq 0 ] || shift
cmake --preset "$preset" "${options[@]}" >/dev/null
cmake --build --preset "$preset" ${1:+--target "$@"}
