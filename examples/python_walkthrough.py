"""The example fermentation project from Python: a look at the data, raw and aligned
trajectories of one variable in a PNG, the batch-level summary as a DataFrame, and the
alignment run again through Dask on two worker processes.

    PYTHONPATH=build/release/python /usr/bin/python3 examples/python_walkthrough.py \
        build/release/fermentation.ncds [OUTPUT.png]

The project is the one the main job (scripts/run.sh) makes; this script adds nothing to it.
"""

import sys

import matplotlib

matplotlib.use("Agg")  # files only, no display needed

import distributed  # noqa: E402
import numpy as np  # noqa: E402

import ncds  # noqa: E402
import ncds.dask as nd  # noqa: E402
from ncds import plot  # noqa: E402

PHASE_POINTS = {"Start": 20, "Growth": 40, "Production": 100}


def main(path, picture):
    with ncds.open(path) as project:
        for number, name, rows, columns, kind in project.datasets():
            print(f"{number:3}  {name:14} {rows:6} x {columns:<3} {kind}")
        raw = project.load(1)
        aligned = project.load("aligned")

    print(f"\n{raw.name}: {raw.shape[0]} rows of {len(set(raw.batches))} batches; "
          f"values is a view of the matrix: {raw.values.base is not None}")
    print(raw.to_pandas().head(3))

    figure = plot.compare(raw, aligned, "pH", maturity="Time")
    figure.savefig(picture, dpi=100)
    print(f"\nraw and aligned pH trajectories: {picture}")

    # The batch-level summary, one row per batch, as the tool's `summarize` made it.
    with ncds.open(path) as project:
        levels = project.load("batch-level").to_pandas()
    print(f"\nbatch-level summary: {levels.shape[0]} batches x {levels.shape[1]} columns")
    print(levels.iloc[:3, :4])

    # The same alignment through Dask, partitioned by batch, on two worker processes; it
    # matches the single-process dataset value for value.
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, \
            distributed.Client(cluster):
        frame = nd.from_projects([path], 1, batches_per_partition=8)
        result = nd.align(frame, "Time", phase_points=PHASE_POINTS, relative=True).compute()
    numbers = result.drop(columns=["batch", "phase", "observation"]).to_numpy(np.float32)
    keep = [j for j, v in enumerate(aligned.variables) if v["kind"] != "qualitative"]
    same = np.array_equal(numbers, aligned.get_values(as_nan=True)[:, keep], equal_nan=True)
    print(f"\nthrough Dask: {frame.npartitions} partitions, {len(result)} aligned rows, "
          f"equal to the project's aligned dataset: {same}")
    return 0 if same else 1


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2] if len(sys.argv) == 3 else
                  sys.argv[1].rsplit(".", 1)[0] + "-pH.png"))
