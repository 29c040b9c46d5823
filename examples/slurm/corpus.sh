#!/bin/bash
#SBATCH --job-name=nalveo16
#SBATCH --array=1-8
#SBATCH --cpus-per-task=1
#SBATCH --output=nalveo16-%A_%a.log

# A corpus as an array job: each task does its slice, on as many cores as it is given.
#
#   sbatch corpus.sh IN_DIR OUT_DIR [options of nalveo16-corpus] [-- options of nalveo16]
#
# Both folders must be seen by all nodes. The length of the first array, which must count from 1, is
# free, as in sbatch --array=1-100 corpus.sh ...: it is the number of slices. It is kept in OUT_DIR:
# the same command goes on after failures and time limits, and single tasks may be sent again, as in
# --array=3,17. To cut otherwise: SLICES=50 sbatch --array=1-50 corpus.sh ...

slice=$SLURM_ARRAY_TASK_ID
if [[ -n ${SLICES-} ]]; then
    slice+=/$SLICES
elif [[ ! -s $2/.nalveo16-corpus/slices && $SLURM_ARRAY_TASK_MIN -eq 1 &&
    $SLURM_ARRAY_TASK_MAX -eq $SLURM_ARRAY_TASK_COUNT ]]; then
    slice+=/$SLURM_ARRAY_TASK_COUNT
fi
exec nalveo16-corpus "$1" "$2" --slice "$slice" --jobs "${SLURM_CPUS_PER_TASK:-1}" "${@:3}"
