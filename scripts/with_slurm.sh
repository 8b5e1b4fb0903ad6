#!/bin/bash
# Runs a command with a Slurm cluster of one node, this machine. Its daemons end with the command.
set -euo pipefail

usage() {
    cat <<'TEXT'
usage: scripts/with_slurm.sh COMMAND ...

Starts munged, slurmctld and slurmd for the command, with a configuration, keys and ports of their own, so that sbatch
and squeue work in it. Needs root, but neither systemd nor control groups.
TEXT
}

fail() {
    echo "with_slurm.sh: $*" >&2
    exit 1
}

case ${1:-} in
-h | --help) usage; exit ;;
'') usage >&2; exit 2 ;;
esac
[ "$(id -u)" -eq 0 ] || fail "slurmd needs root to start jobs"

directory=$(mktemp -d -t slurm.XXXXXX)
daemons=()

stop() {
    local pid
    # Jobs are not children of the daemons: they are ended while these can still do it.
    if timeout 5 scancel --user=root 2>/dev/null; then
        timeout 20 bash -c 'while squeue --noheader | grep -q .; do sleep 0.1; done' || true
    fi
    for pid in "${daemons[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait
    rm -rf "$directory"
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# start COMMAND ...: a daemon with a log. It ends with this script, however that ends, and not before, by Ctrl-C
start() {
    setsid setpriv --pdeathsig KILL "$@" >"$directory/${1##*/}.log" 2>&1 </dev/null &
    daemons=("$!" "${daemons[@]}")
}

# until_works WHAT COMMAND ...: waits for what a daemon offers
until_works() {
    local try
    for try in {1..300}; do
        ! "${@:2}" >/dev/null 2>&1 || return 0
        sleep 0.1
    done
    tail -n 20 "$directory"/*.log >&2
    fail "$1 did not start within $((try / 10)) s"
}

read -r controller_port node_port < <(/usr/bin/python3 -c '
import socket
sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(2)]
print(*(one.getsockname()[1] for one in sockets))')

mkdir "$directory/state" "$directory/spool"
(umask 077 && head -c 1024 /dev/urandom >"$directory/key")
export SLURM_CONF=$directory/slurm.conf
cat >"$SLURM_CONF" <<CONF
ClusterName=loopback
SlurmctldHost=localhost
SlurmctldPort=$controller_port
SlurmdPort=$node_port
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$directory/munge
CredType=cred/munge
StateSaveLocation=$directory/state
SlurmdSpoolDir=$directory/spool
SlurmctldPidFile=$directory/slurmctld.pid
SlurmdPidFile=$directory/slurmd.pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MailProg=/bin/true
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=batch_sched_delay=0,sched_min_interval=100000
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SlurmdParameters=config_overrides
NodeName=localhost NodeHostname=$(hostname -s) NodeAddr=127.0.0.1 CPUs=2 \
    RealMemory=$(awk '/^MemTotal/ { print int($2 / 1024) }' /proc/meminfo)
PartitionName=all Nodes=ALL Default=YES State=UP
CONF

# Nothing uses control groups, but slurmd looks for them unless their version is named.
echo CgroupPlugin=cgroup/v1 >"$directory/cgroup.conf"

start /usr/sbin/munged --foreground --force --key-file="$directory/key" --socket="$directory/munge" \
    --pid-file="$directory/munged.pid" --seed-file="$directory/seed"
until_works munged munge --socket="$directory/munge" --no-input
start /usr/sbin/slurmctld -D
start /usr/sbin/slurmd -D
until_works slurmd bash -c 'sinfo --noheader --format=%T | grep -q idle'
"$@"
