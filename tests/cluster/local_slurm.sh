# Private one-node Slurm cluster for tests; source this file, do not run it.
#   slurm_start DIR         start munged, slurmctld, slurmd with all state in DIR
#   slurm_wait_job ID SECS  wait until job ID (all array tasks) left the queue
#   slurm_stop              stop what slurm_start started (safe in an EXIT trap)
# slurm_start exports SLURM_CONF, so sbatch/squeue/scontrol/scancel use it.
# Safe under set -euo pipefail.

_SLURM_DIR=

_slurm_fail() {
    local f
    echo "slurm_start: $1" >&2
    for f in "$_SLURM_DIR"/*.log; do
        [ -f "$f" ] && { echo "--- $f" >&2; tail -n 20 "$f" >&2; }
    done
    return 1
}

slurm_start() {
    local d node mem ports i p state
    d=$(cd "$1" && pwd) || return 1
    _SLURM_DIR=$d
    mkdir -p "$d/state" "$d/spool" && : > "$d/plugstack.conf" || return 1
    # munged insists on a key owned by its user and closed to others.
    dd if=/dev/urandom of="$d/munge.key" bs=1024 count=1 status=none &&
        chmod 600 "$d/munge.key" || return 1
    # munged forks only once its socket and pid file exist.
    munged --force --socket="$d/munge.sock" --key-file="$d/munge.key" \
        --pid-file="$d/munged.pid" --log-file="$d/munged.log" \
        --seed-file="$d/munged.seed" || { _slurm_fail "munged failed"; return 1; }

    # Node name and memory as slurmd itself sees them; addresses are pinned
    # to 127.0.0.1 so a hostname that does not resolve does not matter.
    read -r node mem < <(slurmd -C |
        sed -n 's/^NodeName=\([^ ]*\) .*RealMemory=\([0-9]*\).*/\1 \2/p') ||
        { _slurm_fail "slurmd -C failed"; return 1; }
    # Two distinct free ports, both bound at once by the kernel.
    ports=($(python3 -c 'import socket
s = [socket.socket() for _ in range(2)]
for x in s: x.bind(("127.0.0.1", 0))
print(*[x.getsockname()[1] for x in s])')) || return 1
    # One key per line: slurm.conf rejects several on a line.
    cat > "$d/slurm.conf" <<EOF
ClusterName=vorlithtest
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=${ports[0]}
SlurmdPort=${ports[1]}
SlurmUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$d/munge.sock
StateSaveLocation=$d/state
SlurmdSpoolDir=$d/spool
SlurmctldPidFile=$d/slurmctld.pid
SlurmdPidFile=$d/slurmd.pid
PlugStackConfig=$d/plugstack.conf
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
MailProg=/bin/true
ReturnToService=2
NodeName=$node NodeAddr=127.0.0.1 CPUs=$(nproc) RealMemory=$((mem * 9 / 10)) State=UNKNOWN
PartitionName=test Nodes=$node Default=YES MaxTime=INFINITE State=UP
EOF
    export SLURM_CONF=$d/slurm.conf
    # Foreground daemons (logging to stderr) in a subshell: the pid file is
    # there before we go on, so slurm_stop finds them even if start fails,
    # and the caller's shell has no background jobs to report or wait for.
    for p in slurmctld slurmd; do
        ( "$p" -D -f "$SLURM_CONF" </dev/null >>"$d/$p.log" 2>&1 &
          echo $! > "$d/$p.pid" )
    done
    for ((i = 0; i < 120; i++)); do
        for p in slurmctld slurmd; do
            kill -0 "$(cat "$d/$p.pid")" 2>/dev/null || { _slurm_fail "$p died"; return 1; }
        done
        state=$(sinfo -h -N -n "$node" -o %t 2>/dev/null || true)
        [ "$state" = idle ] && return 0
        sleep 0.5
    done
    _slurm_fail "node $node not idle after 60 s (state '$state')"
}

slurm_wait_job() {
    local end=$((SECONDS + $2)) out
    while out=$(squeue -h -j "$1" -o %i 2>&1); do
        [ -z "$out" ] && return 0
        ((SECONDS < end)) || { echo "slurm_wait_job: $1 still queued" >&2; return 1; }
        sleep 0.5
    done
    # A job already purged by the controller is gone; any other error (the
    # controller is down) must not pass for "finished".
    [[ $out == *"Invalid job id"* ]] && return 0
    echo "slurm_wait_job: $out" >&2
    return 1
}

# _slurm_kill DIR NAME...: SIGTERM the named daemons together, wait (10 s at
# most) until all have exited, then SIGKILL any left.
_slurm_kill() {
    local d=$1 p pid pids=() i alive
    shift
    for p; do
        pid=$(cat "$d/$p.pid" 2>/dev/null) || continue
        rm -f "$d/$p.pid"
        # Never signal a recycled pid that is no longer our daemon.
        [ "$(cat "/proc/$pid/comm" 2>/dev/null)" = "$p" ] &&
            kill "$pid" 2>/dev/null && pids+=("$pid")
    done
    for ((i = 0; i < 40; i++)); do
        alive=
        for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null && alive=1; done
        [ -n "$alive" ] || return 0
        sleep 0.25
    done
    kill -9 "${pids[@]}" 2>/dev/null
    return 0
}

slurm_stop() {
    local d=$_SLURM_DIR pid i
    [ -n "$d" ] || return 0
    _SLURM_DIR=
    # Cancel leftover jobs so no slurmstepd or job process outlives the cluster.
    pid=$(cat "$d/slurmctld.pid" 2>/dev/null || true)
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null &&
        SLURM_CONF=$d/slurm.conf scancel -u "$(id -un)"; then
        for ((i = 0; i < 40; i++)); do
            [ -z "$(SLURM_CONF=$d/slurm.conf squeue -h 2>/dev/null)" ] && break
            sleep 0.5
        done
    fi
    _slurm_kill "$d" slurmd slurmctld
    _slurm_kill "$d" munged  # last: the slurm daemons use it until they exit
}
