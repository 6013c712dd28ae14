#!/usr/bin/env bash
# A one-node Slurm cluster on this machine, for the tests that hand steps to Slurm.
#   slurm-cluster.sh start    set up munge and Slurm in a folder of their own, start the daemons,
#                             wait until the node is idle
#   slurm-cluster.sh stop     end the daemons started here; nothing of them keeps running
#   slurm-cluster.sh status   say whether it runs (exit 0 when all three daemons run, else 3)
#   slurm-cluster.sh env      print SLURM_CONF=..., the setting that points Slurm's commands at it
# Everything lives under ORVANTIS_SLURM_DIR (default /run/orvantis-slurm-test): its own munge key
# and socket, its own slurm.conf, state, logs and ports, so a machine's own Slurm or munge setup
# is neither read nor touched. Slurm's commands find this cluster through SLURM_CONF.
# Needs root (slurmd runs jobs as their users; munged runs as the munge user).
set -euo pipefail

base=${ORVANTIS_SLURM_DIR:-/run/orvantis-slurm-test}
conf=$base/slurm.conf
munge_dir=$base/munge
socket=$munge_dir/munge.socket
# Ports of their own, so that a Slurm the machine may run on 6817/6818 keeps them.
ctld_port=${ORVANTIS_SLURM_CTLD_PORT:-6917}
slurmd_port=${ORVANTIS_SLURM_SLURMD_PORT:-6918}
node=$(hostname -s)
export SLURM_CONF=$conf

die() { echo "slurm-cluster: $*" >&2; exit 1; }

need_root() {
  [ "$(id -u)" -eq 0 ] ||
    die "must run as root (slurmd starts jobs as their users and munged as the munge user); not started."
}

need_programs() {
  local p
  for p in munged slurmctld slurmd sinfo scontrol; do
    command -v "$p" >/dev/null ||
      die "$p is not installed (packages munge slurmctld slurmd slurm-client); not started."
  done
  getent passwd munge >/dev/null || die "there is no user munge (package munge); not started."
}

pid_alive() { [ -s "$1" ] && kill -0 "$(cat "$1")" 2>/dev/null; }

write_munge_setup() {
  install -d -m 0755 -o root -g root "$base"
  install -d -m 0700 -o munge -g munge "$munge_dir"
  if [ ! -s "$munge_dir/munge.key" ]; then
    dd if=/dev/urandom of="$munge_dir/munge.key" bs=1024 count=1 status=none
  fi
  chown munge:munge "$munge_dir/munge.key"
  chmod 0400 "$munge_dir/munge.key"
}

start_munge() {
  pid_alive "$munge_dir/munged.pid" && return 0
  rm -f "$socket" "$socket.lock"
  # --force: this socket folder is private to the cluster, whatever munged thinks of /run.
  runuser -u munge -- munged --force --key-file="$munge_dir/munge.key" --socket="$socket" \
    --pid-file="$munge_dir/munged.pid" --log-file="$munge_dir/munged.log" \
    --seed-file="$munge_dir/munged.seed" ||
    die "munged did not start; see $munge_dir/munged.log"
}

# The node's CPUs and memory as slurmd itself counts them, so the node never drains as "invalid".
node_hardware() {
  slurmd -C | head -1 | tr ' ' '\n' |
    grep -E '^(CPUs|Boards|SocketsPerBoard|CoresPerSocket|ThreadsPerCore|RealMemory)=' | tr '\n' ' '
}

write_slurm_conf() {
  install -d -m 0755 "$base/state" "$base/spool" "$base/log"
  cat > "$conf" <<EOF
# Written by scripts/slurm-cluster.sh: a one-node cluster for tests.
ClusterName=orvantis-test
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=$ctld_port
SlurmdPort=$slurmd_port
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$socket
StateSaveLocation=$base/state
SlurmdSpoolDir=$base/spool/slurmd
SlurmctldPidFile=$base/slurmctld.pid
SlurmdPidFile=$base/slurmd.pid
SlurmctldLogFile=$base/log/slurmctld.log
SlurmdLogFile=$base/log/slurmd.log
SlurmctldDebug=info
SlurmdDebug=info
# No cgroups in a container: processes are tracked through /proc.
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/linux
JobAcctGatherFrequency=task=1
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
SelectType=select/cons_tres
# Cores only: with memory as a resource too, each job would take the whole node's memory.
SelectTypeParameters=CR_Core
SchedulerType=sched/builtin
# A job starts at once or at the next pass of the scheduler, a second later at most.
SchedulerParameters=batch_sched_delay=0,sched_min_interval=0,sched_interval=1
MinJobAge=120
KillWait=2
InactiveLimit=0
SlurmdTimeout=30
ReturnToService=2
MpiDefault=none
NodeName=$node NodeAddr=127.0.0.1 $(node_hardware)State=UNKNOWN
# Each core is shared by up to four jobs, so that tests running at once don't wait for each other.
PartitionName=debug Nodes=$node Default=YES MaxTime=INFINITE State=UP OverSubscribe=FORCE:4
EOF
}

start_slurm() {
  pid_alive "$base/slurmctld.pid" || slurmctld -c -f "$conf" ||
    die "slurmctld did not start; see $base/log/slurmctld.log"
  pid_alive "$base/slurmd.pid" || slurmd -N "$node" -f "$conf" ||
    die "slurmd did not start; see $base/log/slurmd.log"
}

wait_for_idle_node() {
  local i state
  for i in $(seq 1 60); do
    state=$(sinfo -h -n "$node" -o '%T' 2>/dev/null || true)
    case "$state" in
      idle) return 0 ;;
      drain*|down*)
        scontrol update NodeName="$node" State=RESUME >/dev/null 2>&1 || true ;;
    esac
    sleep 0.5
  done
  die "the node $node did not become idle in 30 s (state \"${state:-none}\"); see $base/log/"
}

stop_daemon() { # pid file, name
  pid_alive "$1" || { rm -f "$1"; return 0; }
  local pid i
  pid=$(cat "$1")
  kill -TERM "$pid"
  for i in $(seq 1 50); do
    kill -0 "$pid" 2>/dev/null || { rm -f "$1"; return 0; }
    sleep 0.2
  done
  echo "slurm-cluster: $2 ($pid) did not end in 10 s; killing it" >&2
  kill -KILL "$pid" 2>/dev/null || true
  rm -f "$1"
}

# The slurmstepd helpers of this cluster (they carry its SLURM_CONF) with all their descendants:
# the job steps, should any outlive their slurmd.
our_job_processes() {
  local pid
  for pid in $(pgrep -f '^slurmstepd: \[' || true); do
    tr '\0' '\n' < "/proc/$pid/environ" 2>/dev/null | grep -qx "SLURM_CONF=$conf" || continue
    echo "$pid"
    descendants "$pid"
  done
}
descendants() {
  local child
  for child in $(ps -o pid= --ppid "$1" || true); do
    echo "$child"
    descendants "$child"
  done
}

# Every job is cancelled, and the daemons wait until their jobs have ended.
end_jobs() {
  pid_alive "$base/slurmctld.pid" || return 0
  scancel --quiet --partition=debug 2>/dev/null || true
  local i
  for i in $(seq 1 50); do
    [ -z "$(squeue -h -p debug -o %i 2>/dev/null)" ] && return 0
    sleep 0.2
  done
  echo "slurm-cluster: jobs were still ending after 10 s" >&2
}

all_running() {
  pid_alive "$munge_dir/munged.pid" && pid_alive "$base/slurmctld.pid" && pid_alive "$base/slurmd.pid"
}

cmd_start() {
  need_root
  need_programs
  if all_running; then
    echo "slurm-cluster: already running; export SLURM_CONF=$conf"
    return 0
  fi
  # A start that fails half-way ends what it started.
  trap 'cmd_stop >/dev/null' EXIT
  write_munge_setup
  start_munge
  write_slurm_conf
  start_slurm
  wait_for_idle_node
  trap - EXIT
  echo "slurm-cluster: node $node idle in partition debug; export SLURM_CONF=$conf"
}

cmd_stop() {
  need_root
  # Jobs first: slurmd leaves running jobs alone when it ends.
  end_jobs
  stop_daemon "$base/slurmd.pid" slurmd
  stop_daemon "$base/slurmctld.pid" slurmctld
  stop_daemon "$munge_dir/munged.pid" munged
  local left
  left=$(our_job_processes | tr '\n' ' ')
  if [ -n "${left// /}" ]; then
    echo "slurm-cluster: ending leftover job processes $left" >&2
    kill -KILL $left 2>/dev/null || true
  fi
  echo "slurm-cluster: stopped"
}

cmd_status() {
  local rc=0 name file
  for name in munged slurmctld slurmd; do
    case $name in munged) file=$munge_dir/munged.pid ;; *) file=$base/$name.pid ;; esac
    if pid_alive "$file"; then echo "$name: running ($(cat "$file"))"; else echo "$name: not running"; rc=3; fi
  done
  [ $rc -eq 0 ] && echo "node $node: $(sinfo -h -n "$node" -o '%T' 2>/dev/null || echo unknown)"
  echo "export SLURM_CONF=$conf"
  return $rc
}

case "${1:-}" in
  start) cmd_start ;;
  stop) cmd_stop ;;
  status) cmd_status ;;
  env) echo "SLURM_CONF=$conf" ;;
  *) echo "usage: $0 start|stop|status|env" >&2; exit 2 ;;
esac
