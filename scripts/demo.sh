#!/bin/bash
# Builds, starts a real map server on loopback and fetches a map and a coverage from it.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/demo.sh [DIRECTORY]
       scripts/demo.sh --serve

Fetches a map (PNG) and a coverage (GeoTIFF) into DIRECTORY, demo-output without one.
With --serve: builds, starts the server and prints how to use it; Ctrl-C ends it.
TEXT
}

fail() {
    echo "demo.sh: $*" >&2
    exit 1
}

# start_server: sets url, and variables for docs/guide.md; the server ends with this script
start_server() {
    work=$(mktemp -d)
    coproc SERVER { exec /usr/bin/python3 -B -m mapserver; }
    server=$SERVER_PID
    trap 'kill $server 2>/dev/null; wait $server 2>/dev/null; rm -rf "$work"' EXIT
    { read -r url && read -r variables; } <&"${SERVER[0]}" || fail "the map server did not start"
}

serve() {
    start_server
    trap 'exit 0' INT TERM
    cat <<TEXT

export $variables PATH='$PWD/build':"\$PATH"

The server runs until Ctrl-C. Paste the line above into another terminal, and try it there:

    zel-ogc info "\$OGC_SERVER_URL"
    zel-ogc map "\$OGC_SERVER_URL" earth places --bbox -30 30 60 75 --to europe.png

and everything in docs/guide.md, which also uses a password, TLS and a proxy of this server.
TEXT
    wait "$server"
}

# fetch FILE DRIVER WIDTHxHEIGHT COMMAND NAME ...: runs zel-ogc, and checks the file
fetch() {
    local command=(build/zel-ogc "$4" "$url" "${@:5}" --size "$3" --to "$1") info
    echo "${command[*]}"
    "${command[@]}" >/dev/null || fail "$1 could not be fetched"
    info=$(gdalinfo "$1") || fail "$1 is not an image"
    [[ $info == "Driver: $2/"*"Size is ${3/x/, }"* ]] || fail "$1 is not the $2 file of $3 pixels that was asked for"
}

case ${1:-} in
-h | --help) usage; exit ;;
--serve) [ $# -eq 1 ] || { usage >&2; exit 2; } ;;
-*) echo "demo.sh: there is no option $1" >&2; usage >&2; exit 2 ;;
*) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
esac

scripts/deps.sh demo
scripts/build.sh release -DBUILD_TESTING=OFF -- zel zel_ogc
if [ "${1:-}" = --serve ]; then
    serve
    exit
fi

output=${1:-demo-output}
mkdir -p "$output"

start_server
export ZEL_USER_DIR=$work
fetch "$output/map.png" PNG 512x256 map earth zones places
fetch "$output/coverage.tif" GTiff 1024x512 coverage earth

cat <<TEXT

Map:      $output/map.png
Coverage: $output/coverage.tif

Next, a map of your own: this starts the server again and prints what to paste into another terminal.

    scripts/demo.sh --serve
TEXT
