#!/bin/sh
# Builds the release and compares it with its peers.
set -eu

usage() {
    cat <<'TEXT'
usage: scripts/bench.sh [xml|results|transfer|all]

  xml       reading documents, beside a bare scan of the parser and OWSLib
  results   handing records to scripts, beside reading them
  transfer  downloads over loopback, beside curl -o
  all       all three (default), and writes the table to docs/benchmarks.md
TEXT
}

what=${1:-all}
case $what in
xml | results | transfer | all) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
-h | --help) usage; exit ;;
*) echo "bench.sh: '$what' is not something to compare" >&2; usage >&2; exit 2 ;;
esac

cd "$(dirname "$0")/.."
cmake --preset release
cmake --build --preset release --target zel zel_ogc bare_scan buffer_download
if [ "$what" = all ]; then set -- --page docs/benchmarks.md; else set --; fi
exec /usr/bin/python3 -B bench/compare.py "$what" --build build "$@"
