#!/bin/bash
# Builds and runs the tests.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/test.sh [NAME | --all]

Builds the release and runs the unit and service tests.

NAME   only the tests whose name contains it, a regular expression: service.wms
--all  in a separate build folder, build-all: warnings are errors, and every scripts/check_*.sh runs too (sanitizers,
       a bare machine, ...)
TEXT
}

preset=release directory=build
packages='test'
only=()
case ${1:-} in
-h | --help) usage; exit ;;
'') ;;
--all) preset=all directory=build-all packages=all ;;
-*) echo "test.sh: there is no option $1" >&2; usage >&2; exit 2 ;;
*) only=(--tests-regex "$1") ;;
esac
[ $# -le 1 ] || { usage >&2; exit 2; }

scripts/deps.sh "$packages"
scripts/build.sh "$preset" -DBUILD_TESTING=ON
if [ ${#only[@]} -gt 0 ] && [[ $(ctest --preset "$preset" -N "${only[@]}") == *"Total Tests: 0" ]]; then
    echo "test.sh: no test's name contains $1; ctest --preset $preset -N lists them" >&2
    exit 2
fi

log=$directory/Testing/Temporary/LastTest
rm -f "${log}sFailed.log"
if ctest --preset "$preset" "${only[@]}"; then exit; fi
[ -e "${log}sFailed.log" ] || exit 1

# Once more at the end, for those who see no more than the last lines.
while IFS=: read -r _ name; do
    echo "== $name failed"
    sed -n "\\| Testing: $name\$|,/^<end of output>/p" "$log.log" | tail -n 40
done <"${log}sFailed.log"
exit 1
