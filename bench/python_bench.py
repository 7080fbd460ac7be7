"""Benchmarks of the Python package, each against its peer in the same run.

    PYTHONPATH=build/bench/python /usr/bin/python3 bench/python_bench.py [--rows N] [--repeat R]

- `dataset.values` of a 1,000,000 x 100 dataset (a view, no copy), against the time numpy
  takes to copy the same matrix once;
- `dataset.to_pandas()`, against `pandas.DataFrame` built from the same values as numpy
  columns (NaN for missing) with the same index;
- with `--dask`: aligning 10,000 batches (100 rows, 3 phases, 10 variables) through
  `ncds.dask` on a LocalCluster of two worker processes, against the same call run in this
  process (Dask's synchronous scheduler).
Each figure is the median of R runs.
"""

import argparse
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
    parser.add_argument("--batches", type=int, default=10_000)
    args = parser.parse_args()
    if args.dask:
        return dask_alignment(args.batches, args.repeat)

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


def dask_alignment(batch_count, repeat):
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
    frame = nd.from_dataset(data, batches_per_partition=500).persist(scheduler="sync")
    points = {"Heat": 20, "React": 40, "Cool": 20}

    def run(cluster=False):
        # The aligned partitions stay where they were made, as a pipeline's next step wants.
        aligned = nd.align(frame, "V0", phase_points=points).persist()
        if cluster:
            distributed.wait(aligned)
        return aligned

    with dask.config.set(scheduler="sync"):
        single = median_seconds(run, repeat)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        frame = client.persist(nd.from_dataset(data, batches_per_partition=500))
        distributed.wait(frame)
        run(True)  # workers import the package once
        two = median_seconds(lambda: run(True), repeat)
    print(f"dask align {batch_count} batches: one process {single:.2f} s, two workers "
          f"{two:.2f} s, speed-up {single / two:.2f}x")


if __name__ == "__main__":
    main()
