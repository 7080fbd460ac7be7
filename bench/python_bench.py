"""Benchmarks of the Python package, each against its peer in the same run.

    PYTHONPATH=build/bench/python /usr/bin/python3 bench/python_bench.py [--rows N] [--repeat R]

- `dataset.values` of a 1,000,000 x 100 dataset (a view, no copy), against the time numpy
  takes to copy the same matrix once;
- `dataset.to_pandas()`, against `pandas.DataFrame` built from the same values as numpy
  columns (NaN for missing) with the same index;
- with `--dask`: aligning 10,000 batches (100 rows, 3 phases, 10 variables) through
  `ncds.dask` on a LocalCluster of two worker processes, against the same call run in one
  process (Dask's synchronous scheduler), onto absolute grids and on relative maturity, with
  glibc's default memory trimming and with the one Dask gives its workers.
Each figure is the median of R runs.
"""

import argparse
import itertools
import statistics
import time

import numpy as np
import pandas as pd

import ncds


def median_seconds(work, repeat):
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--columns", type=int, default=100)
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--dask", action="store_true")
    parser.add_argument("--dask-single", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--batches", type=int, default=10_000)
    args = parser.parse_args()
    if args.dask or args.dask_single:
        return dask_alignment(args.batches, args.repeat, args.dask_single)

    rng = np.random.default_rng(7)
    values = rng.standard_normal((args.rows, args.columns), dtype=np.float32)
    values[rng.random(values.shape) < 0.01] = np.nan
    names = [f"X{j}" for j in range(args.columns)]
    data = ncds.Project().add_matrix(values, names, name="bench")
    ids = data.observation_ids

    view = median_seconds(lambda: data.values, args.repeat)
    copy = median_seconds(lambda: np.array(values, order="F"), args.repeat)
    print(f"values view      {view * 1e3:9.3f} ms   (numpy copy of the matrix {copy * 1e3:.1f} ms)")

    ours = median_seconds(data.to_pandas, args.repeat)
    columns = {n: values[:, j] for j, n in enumerate(names)}  # the same arrays, NaN for missing

    def peer():
        return pd.DataFrame(columns, index=pd.Index(ids, name="observation"))

    theirs = median_seconds(peer, args.repeat)
    print(f"to_pandas        {ours * 1e3:9.1f} ms   pandas.DataFrame {theirs * 1e3:.1f} ms   "
          f"ratio {ours / theirs:.2f}")


def _burn(partition, seconds, _):
    """A stand-in partition task that only spends `seconds` of CPU time."""
    start = time.process_time()
    while time.process_time() - start < seconds:
        pass
    return partition.iloc[:0]


def dask_alignment(batch_count, repeat, single_only=False):
    import json
    import os
    import subprocess
    import sys

    import dask
    import distributed

    import ncds.dask as nd

    per_batch, variables = 100, 10
    rng = np.random.default_rng(5)
    rows = batch_count * per_batch
    values = rng.standard_normal((rows, variables), dtype=np.float32)
    values[:, 0] = np.tile(np.arange(per_batch, dtype=np.float32), batch_count)
    batches = np.repeat([f"B{b:05d}" for b in range(batch_count)], per_batch).tolist()
    phases = np.tile(np.repeat(["Heat", "React", "Cool"], [25, 50, 25]), batch_count).tolist()
    data = ncds.Project().add_matrix(values, [f"V{j}" for j in range(variables)],
                                     batches=batches, phases=phases)
    points = {"Heat": 20, "React": 40, "Cool": 20}
    modes = {"absolute grids": False, "relative maturity": True}

    def timed(frame, relative, client=None):
        times = []
        for _ in range(repeat + 1):  # the first call pays for imports and fresh memory
            start = time.perf_counter()
            # The aligned partitions stay where they were made, as a pipeline's next step wants.
            aligned = nd.align(frame, "V0", phase_points=points, relative=relative).persist()
            if client:
                distributed.wait(aligned)
            times.append(time.perf_counter() - start)
            if client:
                # The next call has the same keys: let the scheduler forget these first.
                keys = {f.key for f in client.futures_of(aligned)}
                del aligned
                while client.run_on_scheduler(
                        lambda dask_scheduler, keys=keys: any(k in dask_scheduler.tasks
                                                              for k in keys)):
                    time.sleep(0.01)
        return statistics.median(times[1:])

    def single():
        frame = nd.from_dataset(data, batches_per_partition=500).persist(scheduler="sync")
        with dask.config.set(scheduler="sync"):
            return {mode: timed(frame, relative) for mode, relative in modes.items()}

    if single_only:
        print(json.dumps(single()))
        return

    # Dask starts its workers with MALLOC_TRIM_THRESHOLD_=65536: glibc then hands freed memory
    # back at once and every partition pays for fresh pages again. Both sides are measured in
    # both settings: one process with the same variable (a child process), and workers with
    # glibc's own default.
    default = dask.config.get("distributed.nanny.pre-spawn-environ")
    settings = {
        "glibc's default": ({k: v for k, v in default.items()
                             if k != "MALLOC_TRIM_THRESHOLD_"}, None),
        "Dask's worker default": (default, str(default.get("MALLOC_TRIM_THRESHOLD_", ""))),
    }
    for label, (environ, trim) in settings.items():
        if trim is None:
            one = single()
        else:
            child = subprocess.run(
                [sys.executable, __file__, "--dask-single", "--batches", str(batch_count),
                 "--repeat", str(repeat)], env={**os.environ, "MALLOC_TRIM_THRESHOLD_": trim},
                check=True, capture_output=True, text=True)
            one = json.loads(child.stdout)
        with dask.config.set({"distributed.nanny.pre-spawn-environ": environ}), \
                distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                         dashboard_address=None) as cluster, \
                distributed.Client(cluster) as client:
            frame = client.persist(nd.from_dataset(data, batches_per_partition=500))
            distributed.wait(frame)
            client.rebalance(frame)  # half the partitions on each worker, as a cluster holds them
            for mode, relative in modes.items():
                two = timed(frame, relative, client)
                # What Dask and this machine allow: partitions that only burn the same CPU
                # time each, on the same cluster.
                busy = one[mode] / frame.npartitions
                calls = itertools.count()  # new keys for every call
                floor = median_seconds(lambda: distributed.wait(frame.map_partitions(
                    _burn, busy, next(calls), meta=frame._meta).persist()), repeat)
                print(f"dask align {batch_count} batches, {mode}, {label}: one process "
                      f"{one[mode]:.2f} s, two workers {two:.2f} s, speed-up "
                      f"{one[mode] / two:.2f}x; CPU-only partitions of the same cost "
                      f"{floor:.2f} s ({one[mode] / floor:.2f}x), ncds within "
                      f"{two / floor:.2f}x of that")


if __name__ == "__main__":
    main()
