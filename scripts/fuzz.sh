#!/bin/bash
# Builds and runs the fuzz targets.
set -euo pipefail
cd "$(dirname "$0")/.."

targets=()
for seeds in fuzz/seeds/*; do
    targets+=("$(basename "$seeds")")
done

usage() {
    cat <<TEXT
usage: scripts/fuzz.sh TARGET|all SECONDS

Runs a fuzz target for so many seconds, or all of them, two at a time. What they learn stays in build-fuzz/corpus for
the next run. Ends with an error when there is a finding, and names the file with its input; to see it again:

    build-fuzz/fuzz/TARGET FILE

Targets: ${targets[*]}
TEXT
}

# fuzz TARGET SECONDS: one line about the run
fuzz() {
    local target=$1 seconds=$2 dictionary=fuzz/http.dict
    local corpus=build-fuzz/corpus/$target findings=build-fuzz/findings log=build-fuzz/$target.log
    ls fuzz/seeds/"$target"/*.xml >/dev/null 2>&1 && dictionary=fuzz/xml.dict
    mkdir -p "$corpus" "$findings"
    if build-fuzz/fuzz/"$target" -max_total_time="$seconds" -max_len=10000 -len_control=20 -timeout=10 \
        -rss_limit_mb=1024 -dict="$dictionary" -artifact_prefix="$findings/$target-" -print_final_stats=1 \
        "$corpus" fuzz/seeds/"$target" >"$log" 2>&1; then
        printf '%-22s %12s inputs in %s s, no finding\n' "$target" \
            "$(awk '/^stat::number_of_executed_units/ { print $2 }' "$log")" "$seconds"
    else
        printf '%-22s FINDING: %s\n' "$target" "$(sed -n 's/.*Test unit written to //p' "$log" | head -1)"
        tail -n 40 "$log" >&2
        return 1
    fi
}

case ${1:-} in
-h | --help) usage; exit ;;
esac
if [ $# -ne 2 ] || ! [[ $2 =~ ^[1-9][0-9]*$ ]] || { [ "$1" != all ] && [ ! -d "fuzz/seeds/$1" ]; }; then
    usage >&2
    exit 2
fi
[ "$1" = all ] || targets=("$1")

scripts/deps.sh all
scripts/build.sh fuzz -- "${targets[@]}"
export ASAN_OPTIONS=quarantine_size_mb=32:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1
export -f fuzz
printf '%s\n' "${targets[@]}" | xargs -P 2 -I{} bash -c 'set -euo pipefail; fuzz "$@"' fuzz {} "$2"
