"""Benchmarks of the Python package, each against its peer in the same run.

    PYTHONPATH=build/bench/python /usr/bin/python3 bench/python_bench.py [--rows N] [--repeat R]

- `dataset.values` of a 1,000,000 x 100 dataset (a view, no copy), against the time numpy
  takes to copy the same matrix once;
- `dataset.to_pandas()`, against `pandas.DataFrame` built from the same values as numpy
  columns (NaN for missing) with the same index.
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
    args = parser.parse_args()

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


if __name__ == "__main__":
    main()
