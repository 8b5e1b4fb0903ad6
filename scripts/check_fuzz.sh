#!/bin/bash
# Runs every fuzz target for a few seconds.
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
exec "$(dirname "$0")/fuzz.sh" all 5
