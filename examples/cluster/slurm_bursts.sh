#!/usr/bin/env bash
#SBATCH --job-name=movra-sr --cpus-per-task=1 --requeue
# One array task per folder of frames:  sbatch --array=1-$(ls BURSTS | wc -l) slurm_bursts.sh BURSTS OUTPUT
# An image appears whole or not at all, so a task that is started again does no harm.
set -euo pipefail
burst=$(find "$1" -mindepth 1 -maxdepth 1 -type d | sort | sed -n "${SLURM_ARRAY_TASK_ID}p")
name=$(basename "$burst")
mkdir -p "$2"
[ -e "$2/$name.tiff" ] || movra-sr reconstruct "$burst" -o "$2/$name.tiff" --threads "${SLURM_CPUS_PER_TASK:-1}" --json > "$2/$name.json"
