#!/bin/bash
# Harvests services of all kinds in every way there is, and compares the databases with the truth and with each other.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'TEXT'
usage: scripts/check_harvest.sh [SERVICES]

300 services without a number. They are harvested by one process, whose memory is watched, by --jobs 2, by an array of
eight Slurm jobs with one that fails, and by processes that are killed twenty times.
TEXT
}

services=${1:-300}
case $services in
-h | --help) usage; exit ;;
'' | *[!0-9]*) usage >&2; exit 2 ;;
esac
[ $# -le 1 ] || { usage >&2; exit 2; }

KILLS=20
RETRIES=1
build=$(realpath "${ZEL_BUILD:-build-all}")
export PATH=$build:$PATH
directory=$(mktemp -d -t check_harvest.XXXXXX)
list=$directory/list.txt

fail() {
    echo "check_harvest.sh: $*" >&2
    exit 1
}

cleanup() {
    kill "$fleet" 2>/dev/null || true
    rm -rf "$directory"
}
setpriv --pdeathsig KILL /usr/bin/python3 -B -m bench.fleet "$directory" "$services" &
fleet=$!
trap cleanup EXIT
trap 'exit 130' INT TERM
until [ -e "$directory/ready" ]; do
    [ -e "/proc/$fleet" ] || fail "the services did not start"
    sleep 0.1
done

step() { echo "== $* ($SECONDS s)"; }

# The settings of every harvest here: all processes read them from the user's defaults.
export XDG_CONFIG_HOME=$directory/config
mkdir -p "$XDG_CONFIG_HOME/zel"
echo "return {timeout = 3, retries = $RETRIES}" >"$XDG_CONFIG_HOME/zel/ogc.lua"

# Processes of this check are recognised by a variable in their environment.
export CHECK_HARVEST=$directory
# shellcheck disable=SC2016 # the inner shell expands them
left_over() { env -u CHECK_HARVEST sh -c 'grep -lzsxF "$1" /proc/[0-9]*/environ | wc -l' - "CHECK_HARVEST=$directory"; }

# ends_alone: nothing that was started for a harvest is left
ends_alone() {
    for _ in {1..100}; do
        [ "$(left_over)" -gt 0 ] || return 0
        sleep 0.1
    done
    fail "$(left_over) processes are left after $1"
}

step "one process"
began=$(date +%s%N)
few=$((services < 1000 ? services / 2 : 500))
/usr/bin/python3 -B -m bench.resident $few "$directory/one.db" zel-ogc harvest "$list" "$directory/one.db"
seconds=$(($(date +%s%N) - began))e-9

step "--jobs 2"
zel-ogc harvest "$list" "$directory/jobs.db" --jobs 2

# Of an array of eight elements the third is killed; its part is submitted again, and merged after that.
array() {
    local element
    cd "$CHECK_HARVEST"
    "$SOURCE/examples/harvest.sbatch" list.txt array.db
    until element=$(pgrep -f "$CHECK_HARVEST/array.db.parts/3.db --shard"); do
        squeue --noheader | grep -q . || { echo "nobody harvested part 3" >&2; return 1; }
        sleep 0.05
    done
    kill -KILL "$element"
    [ ! -e array.db.parts/3.db-shm ] || { echo "a part needs shared memory" >&2; return 1; }
    while squeue --noheader | grep -q .; do sleep 0.2; done
    grep -h "submitted again: 3$" harvest-*.log || { cat harvest-*.log >&2; return 1; }
}
step "an array of Slurm jobs"
export -f array
SOURCE=$PWD scripts/with_slurm.sh bash -euo pipefail -c array
zel-ogc merge "$directory/array.db" "$directory"/array.db.parts/*.db # counts nothing twice

step "killed $KILLS times"
killed=$directory/killed.db
for ((kill = 1; kill <= KILLS; kill++)); do
    zel-ogc harvest "$list" "$killed" --jobs $((kill % 2 + 1)) --quiet &
    pid=$!
    sleep "$(awk -v seed=$kill -v most="$seconds" -v kills=$KILLS '
        BEGIN { srand(seed); print 1.2 * rand() * most / kills }')"
    kill -KILL $pid 2>/dev/null || fail "the harvest came to its end before it was killed $KILLS times"
    wait $pid || true
done
ends_alone "SIGKILL"

step "interrupted"
env --default-signal=INT setsid zel-ogc harvest "$list" "$killed" --jobs 2 --quiet &
pid=$!
sleep 0.5
kill -INT -- -$pid
status=0
wait $pid || status=$?
[ $status -eq 130 ] || fail "the interrupted harvest ended with status $status, not 130"
ends_alone "Ctrl-C"
zel-ogc harvest "$list" "$killed"

step "compared"
/usr/bin/python3 -B -m bench.harvested "$directory/truth.json" $RETRIES "$directory"/{one,jobs,array,killed}.db
echo "Equal ($SECONDS s)"
