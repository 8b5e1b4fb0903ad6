#!/bin/bash
# Fetches maps from QGIS Server and MapProxy, and compares them.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

export ZEL_BUILD=${ZEL_BUILD:-$PWD/build-all}
MAP_SERVERS="QGIS MapProxy" exec /usr/bin/python3 -B -m pytest -q tests/service/test_ogc_maps.py
