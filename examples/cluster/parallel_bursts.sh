#!/usr/bin/env bash
# Every folder of frames in BURSTS, on all processors, with GNU parallel: parallel_bursts.sh BURSTS OUTPUT
# The job log makes the same command go on where it was interrupted; failed bursts are tried again.
set -euo pipefail
mkdir -p "$2"
output=$(printf %q "$2")
find "$1" -mindepth 1 -maxdepth 1 -type d -print0 | sort --zero-terminated |
  parallel --null --will-cite --retries 3 --joblog "$2/jobs.log" --resume-failed \
    "movra-sr reconstruct {} -o $output/{/}.tiff --threads 1 --force --json > $output/{/}.json"
