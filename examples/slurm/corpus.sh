#!/bin/bash
#SBATCH --job-name=nalveo16
#SBATCH --array=1-8
#SBATCH --cpus-per-task=1
#SBATCH --output=nalveo16-%A_%a.log

# A corpus as an array job: each task does its slice, on as many cores as it is given.
#
#   sbatch corpus.sh IN_DIR OUT_DIR [options of nalveo16-corpus] [-- options of nalveo16]
#
# The array must count from 1; its length is free: sbatch --array=1-100 corpus.sh ...
# Both folders must be seen by all nodes. The same command goes on after failures and time limits;
# single tasks may be sent again, as in --array=3,17, and know the length of the first array.

slice=$SLURM_ARRAY_TASK_ID
if [[ $SLURM_ARRAY_TASK_MIN -eq 1 && $SLURM_ARRAY_TASK_MAX -eq $SLURM_ARRAY_TASK_COUNT ]] &&
    [[ $SLURM_ARRAY_TASK_COUNT -gt 1 || ! -s $2/.nalveo16-corpus/slices ]]; then
    slice+=/$SLURM_ARRAY_TASK_COUNT
fi
exec nalveo16-corpus "$1" "$2" --slice "$slice" --jobs "${SLURM_CPUS_PER_TASK:-1}" "${@:3}"
