#!/bin/bash
# Builds and runs requests, parses, failures and cancels in one process, watching what it holds.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/soak.sh [ROUNDS]

10000 rounds without a number. Prints resident size, descriptors, files and what the host holds while it runs; the exit
status is not 0 when one of them drifts after the first hundred rounds.
TEXT
}

rounds=${1:-10000}
case $rounds in
-h | --help) usage; exit ;;
'' | *[!0-9]*) usage >&2; exit 2 ;;
esac
[ $# -le 1 ] || { usage >&2; exit 2; }

if [ -z "${ZEL_BUILD:-}" ]; then
    scripts/deps.sh test
    scripts/build.sh release -DBUILD_TESTING=ON -- zel zel_ogc
    export ZEL_BUILD=$PWD/build
fi
SOAK_ROUNDS=$rounds exec /usr/bin/python3 -B -m pytest -q -s tests/service/test_soak.py
