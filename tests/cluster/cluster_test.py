"""Runs examples/cluster: a cluster of two workers of which one is killed, GNU parallel, the Slurm script, and the tool's
batch, which is killed in the middle. cluster_test.py FOLDER-OF-THE-TOOL; exit code 77, shown as skipped, without Dask.
"""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

try:
    from distributed import LocalCluster
except ImportError:
    print("skipped: Dask's distributed is not installed")
    sys.exit(77)
import numpy as np

import movra_sr

examples = pathlib.Path(__file__).resolve().parents[2] / "examples" / "cluster"
count = 12


def killed_worker(folder):
    """Nothing lost, nothing double, although a worker is killed in the middle."""
    bursts, output = folder / "arrays", folder / "dask"
    bursts.mkdir()
    for i in range(count):
        np.save(bursts / f"burst{i:02}.npy", movra_sr.simulate(width=200, height=150, seed=i + 1).frames)
    np.save(bursts / "broken.npy", np.zeros((3, 2, 2)))
    with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster:
        command = [sys.executable, examples / "dask_bursts.py", bursts, output, cluster.scheduler_address]
        run = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        lines = []
        for line in run.stdout:
            lines.append(line)
            if len(lines) == 4:
                victim = json.loads(line.split(": ", 1)[1])["worker"]
                os.kill(victim, signal.SIGKILL)
        assert run.wait() == 1, "".join(lines)  # the broken one
        assert lines[0].startswith(f"{count + 1} bursts, 0 were done"), lines[0]
        records = {path.stem: json.loads(path.read_text()) for path in output.glob("*.json")}
        workers = {record["worker"] for record in records.values()}
        assert len(lines) == count + 2 and len(records) == count + 1, "".join(lines)
        assert len(workers) >= 2 and victim in workers, workers
        for i in range(count):
            assert np.load(output / f"burst{i:02}.npy").shape == (300, 400)
            assert records[f"burst{i:02}"]["status"] == "SUCCESS"
        assert records["broken"]["status"] == "FAILED" and "8 to 16384" in records["broken"]["error"]
        assert not list(output.glob(".*")), "something half-written is left"
        again = subprocess.run(command, capture_output=True, text=True, check=True)
        assert f"{count + 1} were done before" in again.stdout, again.stdout


def scripts(folder):
    """The same with GNU parallel and as a Slurm array."""
    bursts = folder / "folders"
    for i in (1, 2, 3):
        subprocess.run(
            ["movra-sr", "simulate", "-o", bursts / f"burst{i}", "--size", "64x48", "--seed", str(i), "--quiet"], check=True
        )
        for name in ("truth.tiff", "shifts.csv", "burst.json"):
            (bursts / f"burst{i}" / name).unlink()
    if shutil.which("parallel"):
        subprocess.run([examples / "parallel_bursts.sh", bursts, folder / "in parallel"], check=True)
        assert len(list((folder / "in parallel").glob("*.tiff"))) == 3
    else:
        print("skipped: GNU parallel is not installed")
    for task in ("1", "2", "3", "2"):
        environment = {**os.environ, "SLURM_ARRAY_TASK_ID": task}
        subprocess.run([examples / "slurm_bursts.sh", bursts, folder / "slurm"], check=True, env=environment)
    assert len(list((folder / "slurm").glob("*.tiff"))) == 3
    return bursts


def killed_batch(folder, bursts):
    """movra-sr batch goes on where it was killed."""
    for i in range(4, 16):
        shutil.copytree(bursts / "burst1", bursts / f"burst{i}")
    (bursts / "burst16").mkdir()  # without frames
    output = folder / "batch"
    command = ["movra-sr", "batch", bursts, "-o", output, "-j", "2"]
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as run:
        while len(list(output.glob("*.tiff"))) < 3 and run.poll() is None:
            time.sleep(0.01)
        run.kill()
    time.sleep(1)  # what it had started ends
    with open(output / "records.jsonl", "a") as records:
        records.write('{"burst": "half a li')
    again = subprocess.run([*command, "--json"], capture_output=True, text=True)
    assert again.returncode == 1, again.stderr
    document = json.loads(again.stdout)
    assert document["done"] + document["skipped"] == 15 and document["failed"] == 1, document
    assert document["skipped"] >= 1, document
    lines = (output / "records.jsonl").read_text().splitlines()
    records = [json.loads(line) for line in lines if line != '{"burst": "half a li']
    assert len(records) == 16 and len({record["burst"] for record in records}) == 16
    assert {record["exit_code"] for record in records if not record["burst"].endswith("16")} == {0}
    assert len(list(output.glob("*.tiff"))) == 15 and not list(output.glob(".*"))


if __name__ == "__main__":
    os.environ["PATH"] = f"{sys.argv[1]}:{os.environ['PATH']}"
    with tempfile.TemporaryDirectory() as name:
        scratch = pathlib.Path(name)
        killed_worker(scratch)
        killed_batch(scratch, scripts(scratch))
