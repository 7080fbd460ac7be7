"""Batch datasets as Dask collections partitioned by batch, and the library's alignment and
batch-level summaries mapped over the partitions: the same calls run on a laptop's cores or on
a cluster (a `distributed.Client` in use).

A partition is a pandas DataFrame with the columns "batch", "phase" and "observation" and one
float column per quantitative or date-time variable, holding the values as the dataset stores
them (-99 for missing; date-times in their stored number form). Every batch lies in one
partition, so work that needs a whole batch runs partition by partition. Qualitative variables
are left out.

Alignment onto a grid that depends on all batches (absolute maturity) would need the range of
every batch first; partitions align each batch on its own, so `align` asks for relative
maturity, which gives exactly the single-process result.
"""

import numpy as np
import pandas as pd

from .project import Project, open as open_project

_KEYS = ["batch", "phase", "observation"]


def _frame(dataset, rows=None):
    """The partition form of `dataset` (of rows `rows`, a slice, when given)."""
    keep = [j for j, v in enumerate(dataset.variables) if v["kind"] != "qualitative"]
    names = [dataset.variable_names[j] for j in keep]
    rows = rows if rows is not None else slice(None)
    values = np.asarray(dataset.values[rows][:, keep], dtype=np.float32)
    phases = dataset.phases or [""] * dataset.shape[0]
    frame = pd.DataFrame(values, columns=names)
    frame.insert(0, "batch", np.asarray(dataset.batches, dtype=object)[rows])
    frame.insert(1, "phase", np.asarray(phases, dtype=object)[rows])
    frame.insert(2, "observation", np.asarray(dataset.observation_ids, dtype=object)[rows])
    return frame


def _dataset(frame, project=None):
    """A batch dataset of a new project in memory from a partition."""
    project = project or Project()
    names = [c for c in frame.columns if c not in _KEYS]
    return project, project.add_matrix(
        frame[names].to_numpy(dtype=np.float32), names, ids=list(frame["observation"]),
        name="partition", batches=list(frame["batch"]), phases=list(frame["phase"]))


def _load_frame(path, dataset):
    """The partition form of dataset `dataset` of the project file at `path`."""
    with open_project(path) as project:
        return _frame(project.load(dataset))


def _rows(frame, first, last):
    return frame.iloc[first:last]


def _batch_starts(batches):
    """The first row of every batch and, last, the row count."""
    batches = np.asarray(batches, dtype=object)
    if len(batches) == 0:
        return [0]
    changes = np.flatnonzero(batches[1:] != batches[:-1]) + 1
    return [0, *changes.tolist(), len(batches)]


def from_dataset(dataset, batches_per_partition=100):
    """A Dask DataFrame of a loaded batch dataset, `batches_per_partition` whole batches each."""
    import dask
    import dask.dataframe as dd

    if dataset.kind != "batch":
        raise ValueError(f"dataset {dataset.name!r} is not a batch dataset")
    starts = _batch_starts(dataset.batches)
    whole = _frame(dataset)
    # One partition per run of whole batches, in row order (the index keeps the row numbers).
    parts = [dask.delayed(whole.iloc[starts[b]:starts[min(b + batches_per_partition,
                                                            len(starts) - 1)]])
             for b in range(0, len(starts) - 1, batches_per_partition)]
    return dd.from_delayed(parts, meta=whole.iloc[:0])


def from_projects(paths, dataset, batches_per_partition=100):
    """A Dask DataFrame of dataset `dataset` (number or name) of many project files, read by
    the workers: `batches_per_partition` whole batches per partition."""
    import dask
    import dask.dataframe as dd

    parts = []
    meta = None
    for path in paths:
        with open_project(path) as project:
            data = project.load(dataset)
            starts = _batch_starts(data.batches)
            if meta is None:
                meta = _frame(data, slice(0, 0))
        # Each file is read once, by a worker; its partitions are slices of what it read.
        whole = dask.delayed(_load_frame)(str(path), dataset)
        for first in range(0, len(starts) - 1, batches_per_partition):
            last = min(first + batches_per_partition, len(starts) - 1)
            parts.append(dask.delayed(_rows)(whole, starts[first], starts[last]))
    return dd.from_delayed(parts, meta=meta)


def _align_partition(frame, maturity, points, phase_points, smooth, extend):
    if frame.empty:
        return frame
    project, data = _dataset(frame)
    aligned = project.align(data, maturity, points=points, phase_points=phase_points,
                            relative=True, smooth=smooth, extend=extend, name="aligned")
    return _frame(aligned)


def align(frame, maturity, points=100, phase_points=None, smooth=False, extend=False):
    """Aligns every batch onto `points` (or, phase by phase, `phase_points`) of its relative
    maturity, partition by partition, with the library's aligner: a Dask DataFrame of the
    aligned rows, named "<batch>@<position>"."""
    meta = frame._meta
    return frame.map_partitions(_align_partition, maturity, points, phase_points, smooth,
                                extend, meta=meta)


def _summarize_partition(frame, stats, by_phase, variables, maturity):
    if frame.empty:
        return pd.DataFrame()
    project, data = _dataset(frame)
    levels = project.summarize(data, stats=stats, by_phase=by_phase, variables=variables,
                               maturity=maturity, name="levels")
    summary = levels.to_pandas()
    summary.index.name = "batch"
    return summary


def summarize(frame, stats=None, by_phase=False, variables=None, maturity=None):
    """Batch-level summaries partition by partition (one row per batch, indexed by batch), as
    `Project.summarize` makes them. Summarizes the first batch first to know the columns."""
    head = frame.get_partition(0).compute()
    first = head[head["batch"] == head["batch"].iloc[0]] if len(head) else head
    meta = _summarize_partition(first, stats, by_phase, variables, maturity).iloc[:0]
    return frame.map_partitions(_summarize_partition, stats, by_phase, variables, maturity,
                                meta=meta)
