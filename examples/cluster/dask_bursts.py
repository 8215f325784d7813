#!/usr/bin/env python3
"""Reconstructs every burst in a folder on a Dask cluster: dask_bursts.py BURSTS OUTPUT [SCHEDULER]

A burst is an .npy file of frames x rows x columns. Each gives an image, NAME.npy, and a record, NAME.json, in OUTPUT; both
appear whole or not at all. What is there is not made again, so the same command goes on where an earlier one ended. A
worker that dies costs its burst a new try on another one. Without SCHEDULER two workers are started here.
"""

import json
import os
import pathlib
import sys

from distributed import Client, LocalCluster, as_completed

tries = 3


def reconstruct(source, target):
    """Runs on a worker. Returns the record."""
    import numpy as np

    import movra_sr

    done = target / f"{source.stem}.json"
    if done.exists():  # by a worker that died before its record was fetched
        return json.loads(done.read_text())
    record = {"burst": source.name, "worker": os.getpid()}
    try:
        result = movra_sr.reconstruct(np.load(source), threads=1)
        write(target / source.name, lambda file: np.save(file, result.image))
        record.update(status=result.status.name, sr_factor=result.sr_factor, noise=result.noise)
    except (movra_sr.Error, TypeError) as fault:  # the burst's fault: another try would end the same way
        record.update(status="FAILED", error=str(fault))
    write(done, lambda file: file.write(json.dumps(record).encode()))
    return record


def write(path, save):
    part = path.with_name(f".{path.name}.{os.getpid()}")
    with open(part, "wb") as file:
        save(file)
    os.replace(part, path)


def main(bursts, output, scheduler=None):
    target = pathlib.Path(output)
    target.mkdir(parents=True, exist_ok=True)
    sources = sorted(pathlib.Path(bursts).glob("*.npy"))
    left = [source for source in sources if not (target / f"{source.stem}.json").exists()]
    print(f"{len(sources)} bursts, {len(sources) - len(left)} were done before", flush=True)
    cluster = scheduler or LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None)
    with Client(cluster) as client:
        futures = client.map(reconstruct, left, target=target, retries=tries, pure=False)
        failed = 0
        for number, (future, record) in enumerate(as_completed(futures, with_results=True, raise_errors=False), 1):
            lost = future.status != "finished"
            failed += lost or record["status"] == "FAILED"
            print(f"{number} of {len(left)}: {'lost: ' + str(record) if lost else json.dumps(record)}", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
