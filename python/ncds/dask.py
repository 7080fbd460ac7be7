"""Batch datasets as Dask collections partitioned by batch, and the library's alignment and
batch-level summaries mapped over the partitions: the same calls run on a laptop's cores or on
a cluster (a `distributed.Client` in use).

A partition is a pandas DataFrame with the columns "batch" and "phase" (categoricals),
"observation" (the rows' names) and one float column per quantitative or date-time variable,
holding the values as the dataset stores them, NaN where missing (date-times in their stored
number form). Every batch lies in one
partition, so work that needs a whole batch runs partition by partition. Qualitative variables
are left out.

Alignment onto grids that depend on all batches measures every partition first, combines the
measures and aligns the partitions onto the common grids: the result is the single-process one.
"""

import numpy as np
import pandas as pd

from . import _ncds
from .project import Project, _align_choice, _filled, _in_use, open as open_project

_KEYS = ["batch", "phase", "observation"]
_MISSING = np.float32(-99)


def _groups(codes_names, rows, count, like=None):
    """A categorical column from (codes, names) of a dataset, one empty category when absent;
    with `like`, a categorical column, in the categories of `like` (a name it lacks is missing)."""
    codes, names = _filled(codes_names, count)
    codes = codes[rows]
    if like is None:
        return pd.Categorical.from_codes(codes, categories=names)
    # Only the categories `like` uses are looked at (a partition's column carries those of all
    # partitions), and rows of `like` are taken, so that its categories are not checked again.
    _, used_names, holding = _in_use(like.array)
    where = pd.Index(used_names).get_indexer(names)
    if (where < 0).any():
        return pd.Categorical.from_codes(codes, categories=names).set_categories(
            like.cat.categories)
    return like.array.take(holding[where][codes])


def _frame(dataset, rows=None, take=False, like=None):
    """The partition form of `dataset` (of rows `rows`, a slice, when given). With `take`, a
    throwaway dataset of a scratch project hands its values over instead of copying them. With
    `like`, a partition whose batches and phases those of `dataset` are among, the batch and
    phase columns have the categories of its columns, as all partitions of a result must."""
    variables = dataset.variables
    keep = [j for j, v in enumerate(variables) if v["kind"] != "qualitative"]
    names = [variables[j]["name"] for j in keep]
    rows = rows if rows is not None else slice(None)
    count = dataset.shape[0]
    # Rows first: taking the values leaves the dataset empty.
    batches = _groups(dataset.batch_codes, rows, count, None if like is None else like["batch"])
    phases = _groups(dataset.phase_codes, rows, count, None if like is None else like["phase"])
    observations = np.asarray(dataset.observation_ids, dtype=object)[rows]
    values = (dataset._take_values() if take else dataset.values)[rows]
    if len(keep) != values.shape[1]:
        values = values[:, keep]
    elif not take:
        values = np.array(values)  # a view would keep the whole dataset alive
    _as_nan(values)
    frame = pd.DataFrame(values, columns=names, copy=False)
    frame.insert(0, "batch", batches)
    frame.insert(1, "phase", phases)
    frame.insert(2, "observation", observations)
    return frame


def _as_nan(values):
    """Marks the missing values (-99) of an array of its own as NaN, in place."""
    values[values == _MISSING] = np.nan
    return values


def _as_missing(column):
    """A float32 column with NaN marked as the library marks missing values: itself (a view)
    when it holds no NaN, else a copy."""
    column = np.asarray(column, dtype=np.float32)
    nan = np.isnan(column)
    return np.where(nan, np.float32(_MISSING), column) if nan.any() else column


def _dataset(frame):
    """A batch dataset of a new scratch project from a partition (its rows numbered 1, 2, ...:
    the kernels do not need the observations' names)."""
    project = Project._scratch()
    names = [c for c in frame.columns if c not in _KEYS]
    return project, project.add_matrix(
        [frame[n].to_numpy(dtype=np.float32) for n in names], names, name="partition",
        batches=frame["batch"].astype("category"), phases=frame["phase"].astype("category"))


def _load_frame(path, dataset):
    """The partition form of dataset `dataset` of the project file at `path`."""
    with open_project(path) as project:
        return _frame(project.load(dataset))


def _with_columns(frame, columns):
    """`frame` with `columns`, in that order: those it lacks are float columns of NaN."""
    missing = {c: np.full(len(frame), np.nan, dtype=np.float32)
               for c in columns if c not in frame.columns}
    return frame.assign(**missing)[columns] if missing else frame[columns]


def _rows(frame, first, last, columns=None):
    rows = frame.iloc[first:last]
    return rows if columns is None or list(rows.columns) == columns else _with_columns(rows,
                                                                                       columns)


# A partition holds, unless asked otherwise, whole batches that fill about what Dask's own
# readers put in one (64 MiB): a row takes 4 bytes per variable and about 80 for its keys.
_PARTITION_BYTES = 64 << 20
_KEY_BYTES = 80


def _bounds(dataset, batches_per_partition):
    """The first row and the end of every partition of `dataset`: whole batches,
    `batches_per_partition` of them or, with None, as many as fill about _PARTITION_BYTES."""
    if batches_per_partition is not None and batches_per_partition < 1:
        raise ValueError(f"batches_per_partition must be 1 or more, not {batches_per_partition}")
    codes, _ = dataset.batch_codes
    starts = np.r_[0, np.flatnonzero(codes[1:] != codes[:-1]) + 1, len(codes)]
    batches = len(starts) - 1
    if batches_per_partition is None:
        rows = max(1, _PARTITION_BYTES // (4 * dataset.shape[1] + _KEY_BYTES))
        # A partition starts with the first batch that starts at or after each multiple of rows.
        first = np.unique(np.searchsorted(starts[:-1], np.arange(0, max(len(codes), 1), rows)))
        first = first[first < batches]
    else:
        first = np.arange(0, batches, batches_per_partition)
    cuts = starts[np.r_[first, batches]].tolist()
    return list(zip(cuts[:-1], cuts[1:]))


def from_dataset(dataset, batches_per_partition=None):
    """A Dask DataFrame of a loaded batch dataset in partitions of whole batches:
    `batches_per_partition` each or, by default, as many as fill about 64 MiB."""
    import dask
    import dask.dataframe as dd

    if dataset.kind != "batch":
        raise ValueError(f"dataset {dataset.name!r} is not a batch dataset")
    bounds = _bounds(dataset, batches_per_partition)
    whole = _frame(dataset)
    # The partitions in row order (the index keeps the row numbers).
    parts = [dask.delayed(whole.iloc[first:last]) for first, last in bounds]
    return dd.from_delayed(parts, meta=whole.iloc[:0])


def from_projects(paths, dataset, batches_per_partition=None):
    """A Dask DataFrame of dataset `dataset` (number or name) of many project files, read by
    the workers, in partitions of whole batches of one file: `batches_per_partition` each or,
    by default, as many as fill about 64 MiB. Its columns are the union of the files' (a file
    that lacks one holds NaN there)."""
    import dask
    import dask.dataframe as dd
    from dask.dataframe.utils import clear_known_categories

    files = []
    meta = None
    for path in paths:
        with open_project(path) as project:
            data = project.load(dataset)
            files.append((str(path), _bounds(data, batches_per_partition)))
            empty = _frame(data, slice(0, 0))
        # The union of the files' columns, in order of first appearance.
        meta = empty if meta is None else _with_columns(meta, list(meta.columns) + [
            c for c in empty.columns if c not in meta.columns])
    columns = list(meta.columns)
    # Each file has its own batches: the categories are known per partition only.
    meta = clear_known_categories(meta)
    parts = []
    for path, bounds in files:
        # Each file is read once, by a worker; its partitions are slices of what it read, with
        # the columns it lacks missing.
        whole = dask.delayed(_load_frame)(path, dataset)
        parts += [dask.delayed(_rows)(whole, first, last, columns) for first, last in bounds]
    return dd.from_delayed(parts, meta=meta)


class _Layout:
    """A partition as the arrays the library's row aligner takes: its variables' values, the
    first row and name of every batch, and every row's phase (in order of first appearance, as
    a dataset of these rows lists its phases)."""

    def __init__(self, frame, columns):
        batch, phase = frame["batch"].array, frame["phase"].array
        batch_codes, phase_codes = np.asarray(batch.codes), np.asarray(phase.codes)
        self.columns = columns
        self.values = [_as_missing(frame[c].to_numpy(dtype=np.float32)) for c in columns]
        self.starts = np.flatnonzero(np.r_[True, batch_codes[1:] != batch_codes[:-1]])
        self.batches = [str(c) for c in batch.categories[batch_codes[self.starts]]]
        used, names, holding = _in_use(phase)
        order = np.argsort(holding)  # the phases in order of first appearance
        self.phase_codes = used[order]  # every phase's category
        rank = np.zeros(len(phase.categories), dtype=np.int32)
        rank[self.phase_codes] = np.arange(len(used), dtype=np.int32)
        self.phases = rank[phase_codes]
        self.phase_names = [names[k] for k in order]
        # Rows without a batch or phase, batches in several runs, and names that only differ
        # in type go the dataset's way, which knows what to make of them.
        self.usable = (len(batch_codes) and batch_codes.min() >= 0 and phase_codes.min() >= 0
                       and len(set(self.batches)) == len(self.batches)
                       and len(set(self.phase_names)) == len(self.phase_names))

    def arguments(self, maturity, choice):
        return (self.values, self.columns.index(maturity), self.starts, self.batches,
                self.phases, self.phase_names, choice)


def _layout(frame, maturity, columns=None):
    """The partition's `_Layout` over `columns` (all variables by default), or None when the
    row aligner cannot take it."""
    columns = columns or [c for c in frame.columns if c not in _KEYS]
    if maturity not in columns:
        return None
    layout = _Layout(frame, columns)
    return layout if layout.usable else None


def _extent_partition(frame, maturity, points, phase_points, relative, smooth):
    """What the grids would span over the batches of one partition (None for no rows): only the
    maturity column is needed."""
    if frame.empty:
        return None
    choice = _align_choice(maturity, points, phase_points, relative, smooth, False)
    layout = _layout(frame, maturity, [maturity])
    if layout is not None:
        return _ncds.Project.align_rows_extent(*layout.arguments(maturity, choice))
    columns = _KEYS + [maturity] if maturity in frame.columns else list(frame.columns)
    project, data = _dataset(frame[columns])
    return project.align_extent(data, maturity, points=points, phase_points=phase_points,
                                relative=relative, smooth=smooth)


def _combine(extents):
    extents = [e for e in extents if e is not None]
    if not extents:
        return None
    total = extents[0]
    for extent in extents[1:]:
        total.add(extent)
    return total


def _extent(frame, maturity, points, phase_points, smooth):
    """The measuring pass of alignment onto absolute grids: a delayed extent of all
    partitions."""
    import dask

    return dask.delayed(_combine)([dask.delayed(_extent_partition)(part, maturity, points,
                                                                   phase_points, False, smooth)
                                   for part in frame.to_delayed()])


def _align_partition(frame, maturity, points, phase_points, relative, smooth, extend, extent):
    if frame.empty:
        return frame
    layout = _layout(frame, maturity)
    if layout is None:
        project, data = _dataset(frame)
        aligned = project.align(data, maturity, points=points, phase_points=phase_points,
                                relative=relative, smooth=smooth, extend=extend, name="aligned",
                                extent=extent)
        return _frame(aligned, take=True, like=frame)
    choice = _align_choice(maturity, points, phase_points, relative, smooth, extend)
    choice.extent = extent
    values, phases, names = _ncds.Project.align_rows(*layout.arguments(maturity, choice))
    per_batch = len(names) // len(layout.starts)
    # The batch and phase columns in the input's categories (its dtype: nothing to check); the
    # variables are columns of the aligned matrix, not copies. Built at once, as inserting
    # columns one by one rebuilds the frame's index each time.
    batch, phase = frame["batch"].array, frame["phase"].array
    batches = np.repeat(np.asarray(batch.codes)[layout.starts], per_batch)
    columns = {"batch": pd.Categorical.from_codes(batches, dtype=batch.dtype),
               "phase": pd.Categorical.from_codes(layout.phase_codes[phases], dtype=phase.dtype),
               "observation": names}
    _as_nan(values)
    columns.update((name, values[:, j]) for j, name in enumerate(layout.columns))
    return pd.DataFrame(columns, copy=False)


def align(frame, maturity, points=100, phase_points=None, relative=False, smooth=False,
          extend=False):
    """Aligns every batch onto `points` (or, phase by phase, `phase_points`) grid points of
    `maturity`, partition by partition, with the library's aligner, as `Project.align` does: a
    Dask DataFrame of the aligned rows, named "<batch>@<position>". The grids span the range
    all batches reach, measured over all partitions first (a small task per partition); with
    `relative` every batch fills 0-100 % of its own range and the partitions align at once."""
    extent = None if relative else _extent(frame, maturity, points, phase_points, smooth)
    return frame.map_partitions(_align_partition, maturity, points, phase_points, relative,
                                smooth, extend, extent, meta=frame._meta)


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
