#!/bin/bash
# Checks every source of the gate's build with clang-tidy, which reports clang's own warnings too. What was clean is
# checked again only when it, a header that it includes, its flags or the checks have changed.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

[ -e build-all/compile_commands.json ] || cmake --preset all >/dev/null
state=$(cat build-all/compile_commands.json .clang-tidy ./*/.clang-tidy <(clang-tidy --version) | sha256sum)
clean=$PWD/build-all/clean/${state%% *}
mkdir -p "$clean"

cd build-all
declare -A read=()  # by source: the files that its compilation read
while read -r file; do
    case $file in
    *'#deps'*) source= ;;
    ?*) source=${source:-$(realpath "$file")}; read[$source]+=" $file" ;;
    esac
done < <(ninja -t deps)

sources=()
while read -r file; do
    stamp=$clean/${file//\//_}
    # shellcheck disable=SC2086
    if [ -e "$stamp" ] && [ -n "${read[$file]-}" ] && [ -z "$(find ${read[$file]} -newer "$stamp" -print -quit)" ]
    then continue; fi
    sources+=("$file")
done < <(sed -n 's/^  "file": "\(.*\)".*/\1/p' compile_commands.json)
[ ${#sources[@]} -gt 0 ] || exit 0

started=$(mktemp)
trap 'rm -f "$started"' EXIT
run-clang-tidy -quiet -p . "${sources[@]/%/\$}"
for file in "${sources[@]}"; do touch -r "$started" "$clean/${file//\//_}"; done
