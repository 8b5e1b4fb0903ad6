#!/bin/bash
# Checks the shell scripts with shellcheck.
set -euo pipefail
cd "$(dirname "$0")/.."

git ls-files -z '*.sh' '*.sbatch' '*.bash' .ci/run packaging/zel-ogc | xargs -0 shellcheck
