#!/usr/bin/env bash
# Runs the array job of examples/slurm on a Slurm of one node, set up in a scratch folder from
# Debian's packages (munge, slurmctld, slurmd, slurm-client), as root, and compares the results with
# those of a plain run. Ends what it started.
set -euo pipefail
source=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
if ! mountpoint -q /sys/fs/cgroup; then
    echo "slurm: slurmd does not start without /sys/fs/cgroup" >&2
    exit 77
fi
scratch=$(mktemp -d)
pids=()
finish() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    rm -rf "$scratch"
}
trap finish EXIT
cd "$scratch"
chmod 755 .
mkdir spool state munge

# munge insists on folders and files of its own that nobody else can write to.
(umask 077 && head -c 128 /dev/urandom >munge/key)
munged --foreground --force --key-file="$scratch/munge/key" --socket="$scratch/munge/socket" \
    --pid-file="$scratch/munge/pid" --log-file="$scratch/munge/log" \
    --seed-file="$scratch/munge/seed" >munge.out 2>&1 &
pids+=($!)

node=$(hostname -s)
cat >slurm.conf <<END
ClusterName=scratch
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=16817
SlurmdPort=16818
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$scratch/munge/socket
CredType=cred/munge
StateSaveLocation=$scratch/state
SlurmdSpoolDir=$scratch/spool
SlurmctldPidFile=$scratch/slurmctld.pid
SlurmdPidFile=$scratch/slurmd.pid
SlurmctldLogFile=$scratch/slurmctld.log
SlurmdLogFile=$scratch/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
MailProg=/bin/true
NodeName=$node NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=all Nodes=$node Default=YES MaxTime=10 State=UP
END
export SLURM_CONF=$scratch/slurm.conf
slurmctld -D >slurmctld.out 2>&1 &
pids+=($!)
slurmd -D >slurmd.out 2>&1 &
pids+=($!)

complain() {
    echo "slurm: $1" >&2
    tail -n 20 ./*.out ./*.log munge/log >&2 || true
    exit 1
}
for ((try = 0; ; try++)); do
    [[ $(sinfo -h -o %T 2>/dev/null) != idle ]] || break
    ((try < 60)) || complain "the node does not come up"
    sleep 0.5
done

mkdir corpus
for number in 0 1 2 3 4 5 6; do
    sox "$source/examples/sample.wav" "corpus/utt $number.wav" trim "0.$number" 0.5
done
# Sends an array and waits for its end.
send() {
    job=$(sbatch --parsable --array="$1" "$source/examples/slurm/corpus.sh" corpus features \
        -- --ccord=20)
    for ((try = 0; ; try++)); do
        [[ -n $(squeue -h -j "$job" 2>/dev/null) ]] || break
        ((try < 120)) || complain "the job does not end"
        sleep 0.5
    done
    cat nalveo16-"${job}"_*.log
}
send 1-3
[[ $(cat nalveo16-"${job}"_*.log | grep -c ' analysed, 0 finished before, 0 failed') -eq 3 ]] ||
    complain "not all tasks went well"
nalveo16-corpus corpus plain -- --ccord=20 >/dev/null
diff -r --exclude=.nalveo16-corpus features plain
[[ $(find features -name '*.mcc' | wc -l) -eq 7 ]]

# Some tasks again: they still are those of three.
rm "features/utt 1.mcc" "features/utt 2.mcc"
send 1,2
send 3
grep -q '^1 analysed, 1 finished before, 0 failed' nalveo16-"${job}"_3.log ||
    complain "task 3 did not do its slice again"
diff -r --exclude=.nalveo16-corpus features plain
