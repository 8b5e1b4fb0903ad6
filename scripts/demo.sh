#!/bin/bash
# Builds, starts a real map server on loopback and fetches a map and a coverage from it.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/demo.sh [DIRECTORY]
       scripts/demo.sh --serve

Fetches a map (PNG) and a coverage (GeoTIFF) into DIRECTORY, demo-output without one.
With --serve: only starts the server and prints its URL; Ctrl-C ends it.
TEXT
}

fail() {
    echo "demo.sh: $*" >&2
    exit 1
}

# keep FILE NAME DRIVER WIDTH HEIGHT: copies a file that was fetched, if it is what it should be
keep() {
    local info
    info=$(gdalinfo "$1") || fail "$1 is not an image"
    [[ $info == "Driver: $3/"*"Size is $4, $5"* ]] || fail "$1 is not the $3 file of $4 x $5 pixels that was asked for"
    cp "$1" "$output/$2"
}

# fetch SCRIPT [ARGUMENT ...]: runs an example; its last line ends with the name of the file it fetched
fetch() {
    build/zel "examples/$1" "${@:2}" | tee "$work/log"
    file=$(sed -n '$s/^[^:]*: //p' "$work/log")
}

case ${1:-} in
-h | --help) usage; exit ;;
--serve) [ $# -eq 1 ] || { usage >&2; exit 2; } ;;
-*) echo "demo.sh: there is no option $1" >&2; usage >&2; exit 2 ;;
*) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
esac

scripts/deps.sh demo
if [ "${1:-}" = --serve ]; then exec /usr/bin/python3 -B -m mapserver; fi

output=${1:-demo-output}
mkdir -p "$output"
scripts/build.sh release -DBUILD_TESTING=OFF -- zel zel_ogc

work=$(mktemp -d)
coproc SERVER { exec /usr/bin/python3 -B -m mapserver; }
server=$SERVER_PID
trap 'kill $server 2>/dev/null; wait $server 2>/dev/null; rm -rf "$work"' EXIT
read -r url <&"${SERVER[0]}" || fail "the map server did not start"
export ZEL_USER_DIR=$work

fetch wms_map.lua "$url" earth zones places
keep "$file" map.png PNG 512 256
fetch wcs_coverage.lua "$url" earth
keep "$file" coverage.tif GTiff 1024 512

echo
echo "Map:      $output/map.png"
echo "Coverage: $output/coverage.tif"
