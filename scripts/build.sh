#!/bin/bash
# Configures and builds a preset: scripts/build.sh release|debug|asan|fuzz|all [CMake options ...] [-- TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
-h | --help) sed -n '2s/^# //p' "$0"; exit ;;
'' | -*) sed -n '2s/^# //p' "$0" >&2; exit 2 ;;
esac
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
