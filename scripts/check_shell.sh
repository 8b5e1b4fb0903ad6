#!/bin/bash
# Checks the shell scripts with shellcheck.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

git ls-files -z '*.sh' '*.sbatch' '*.bash' .ci/run packaging/zel-ogc | xargs -0 shellcheck
