#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The workflow of docs/batch.md on Slurm: a cluster of this one machine on the loopback, with keys, ports and directories
# of its own, is set up, used by tests/cmd/batch_slurm_test.sh, and taken down. Needs root, and installs slurm-wlm and
# snakemake, which are large.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

[[ $(id -u) == 0 ]] || fail "Slurm's daemons need root."
need_packages "${build_packages[@]}" "${test_packages[@]}" snakemake slurm-wlm
for command in munged slurmctld slurmd snakemake; do
  command -v "$command" >/dev/null || fail "$command is missing."
done

say "Building the program and the tests' media tool"
configure release -DTARN_BUILD_TESTS=ON -DTARN_BUILD_APPS=ON --log-level=WARNING
build release --target tarnstitch tarn_test_media

cluster=$(mktemp -d)
chmod 755 "$cluster"
daemons=()
take_down() {
  local status=$? daemon
  # The last ones first: what a node still runs goes with the node.
  for ((daemon = ${#daemons[@]} - 1; daemon >= 0; --daemon)); do
    kill "${daemons[daemon]}" 2>/dev/null || true
    wait "${daemons[daemon]}" 2>/dev/null || true
  done
  if ((status != 0)); then
    tail -n 20 "$cluster"/*.log >&2 || true
  fi
  rm -rf "$cluster"
  exit "$status"
}
trap take_down EXIT

# A port that nobody listens at.
free_port() {
  local port
  while port=$((20000 + RANDOM % 20000)) && (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do :; done
  echo "$port"
}

say "Setting up a cluster of this machine in $cluster"
mkdir -m 755 "$cluster/munge"
head -c 1024 /dev/urandom >"$cluster/munge/key"
chmod 600 "$cluster/munge/key"
munged --foreground --force --socket="$cluster/munge/socket" --key-file="$cluster/munge/key" \
  --pid-file="$cluster/munge/pid" --seed-file="$cluster/munge/seed" --log-file="$cluster/munge.log" 2>/dev/null &
daemons+=($!)

node=$(hostname -s)
mkdir "$cluster/state" "$cluster/spool"
cat >"$cluster/slurm.conf" <<END
ClusterName=loopback
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=$(free_port)
SlurmdPort=$(free_port)
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$cluster/munge/socket
CryptoType=crypto/munge
StateSaveLocation=$cluster/state
SlurmdSpoolDir=$cluster/spool
SlurmctldPidFile=$cluster/slurmctld.pid
SlurmdPidFile=$cluster/slurmd.pid
SlurmctldLogFile=$cluster/slurmctld.log
SlurmdLogFile=$cluster/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
ReturnToService=2
SlurmdParameters=config_overrides
NodeName=$node NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=all Nodes=$node Default=YES MaxTime=INFINITE State=UP
END
export SLURM_CONF=$cluster/slurm.conf
slurmctld -D -c 2>/dev/null &
daemons+=($!)
slurmd -D -c 2>/dev/null &
daemons+=($!)

for ((round = 0; ; ++round)); do
  [[ $(sinfo --noheader --format %T 2>/dev/null) != idle ]] || break
  ((round < 600)) || fail "The node does not come up."
  sleep 0.1
done
sinfo

say "The workflow on it"
bash tests/cmd/batch_slurm_test.sh "$root/build/release/apps/tarnstitch/tarnstitch" "$root/samples" \
  "$root/build/release/tests/cmd/tarn_test_media"
say "The cluster ran the folder, was cancelled in the middle, and went on."
