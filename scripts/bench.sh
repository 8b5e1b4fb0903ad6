#!/bin/bash
# Builds the release and compares it with its peers.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/bench.sh [xml|results|transfer|harvest|all]

  xml       reading documents, beside a bare scan of the parser and OWSLib
  results   handing records to scripts, beside reading them
  transfer  downloads over loopback, beside curl -o
  harvest   harvesting services into a database, beside OWSLib
  all       all of them (default), and writes the table to docs/benchmarks.md
TEXT
}

part=${1:-all}
case $part in
-h | --help) usage; exit ;;
xml | results | transfer | harvest | all) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
*) echo "bench.sh: there is no part $part" >&2; usage >&2; exit 2 ;;
esac

scripts/deps.sh all
scripts/build.sh release -- zel zel_ogc bare_scan buffer_download
if [ "$part" = all ]; then page=(--page docs/benchmarks.md); else page=(); fi
exec /usr/bin/python3 -B -m bench.compare "$part" --build build "${page[@]}"
