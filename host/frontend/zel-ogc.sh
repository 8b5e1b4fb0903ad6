#!/bin/sh
# The command zel-ogc: the runner beside this file runs it.
exec "$(dirname "$(readlink -f "$0")")/zel" -e 'require("zel.ogc.command")(arg)' "$@"
