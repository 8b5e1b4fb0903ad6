#!/bin/bash
# Runs every fuzz target for a few seconds.
exec "$(dirname "$0")/fuzz.sh" all 5
