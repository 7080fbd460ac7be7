"""Projects and datasets: thin Python objects around the extension's."""

import numpy as np

from . import _ncds

MISSING = -99.0


def _codes(labels):
    """A label per row (a sequence, or a pandas Categorical or categorical Series) as int32
    codes into a list of names (in order of first appearance for a sequence); empty for None."""
    if labels is None:
        return np.zeros(0, dtype=np.int32), []
    labels = getattr(labels, "array", labels)  # a Series: its Categorical
    if hasattr(labels, "codes") and hasattr(labels, "categories"):
        # Only the categories in use: a slice of a large column still carries all of them.
        used, names, _ = _in_use(labels)
        codes = np.asarray(labels.codes, dtype=np.int32)
        if len(used) < len(labels.categories):
            codes = np.where(codes >= 0, np.searchsorted(used, codes), -1).astype(np.int32)
        return codes, names
    labels = np.asarray(labels, dtype=object)
    if labels.size == 0:
        return np.zeros(0, dtype=np.int32), []
    names, first, codes = np.unique(labels.astype(str), return_index=True, return_inverse=True)
    order = np.argsort(first)  # names in order of first appearance
    rank = np.empty_like(order)
    rank[order] = np.arange(len(order))
    return rank[codes].astype(np.int32), names[order].tolist()


def _in_use(labels):
    """The categories a pandas Categorical uses, as their codes (sorted), their names and a
    row holding each. Rows of a batch come one after the other: only the first code of every
    run is sorted."""
    codes = np.asarray(labels.codes)
    if not len(codes):
        return codes, [], codes
    starts = np.flatnonzero(np.r_[True, codes[1:] != codes[:-1]])
    used, first = np.unique(codes[starts], return_index=True)
    keep = used >= 0
    used = used[keep]
    return used, [str(c) for c in labels.categories[used]], starts[first[keep]]


def _labels(codes_names):
    """The name of every row from (codes, names)."""
    codes, names = codes_names
    return np.asarray(names, dtype=object)[codes].tolist() if len(codes) else []


def _filled(codes_names, rows):
    """(codes, names), or one empty name for all `rows` rows when there are none."""
    codes, names = codes_names
    return (codes, names) if len(codes) else (np.zeros(rows, dtype=np.int32), [""])


def _align_choice(maturity, points, phase_points, relative, smooth, extend):
    choice = _ncds.Project.AlignChoice()
    choice.maturity = maturity
    choice.points = points
    choice.phase_points = list((phase_points or {}).items())
    choice.relative, choice.smooth, choice.extend = relative, smooth, extend
    return choice


class Dataset:
    """A loaded dataset: its values, variables, observations and batch structure."""

    def __init__(self, handle):
        self._handle = handle

    @property
    def name(self):
        return self._handle.name

    @property
    def number(self):
        return self._handle.number

    @property
    def shape(self):
        return self._handle.shape

    @property
    def kind(self):
        return "batch" if self._handle.is_batch else "ordinary"

    @property
    def values(self):
        """The matrix (observations x variables) as a read-only numpy view, -99 where missing."""
        return self._handle.values

    def _take_values(self):
        """The values as a writable array of their own, taken without a copy from a throwaway
        dataset of a scratch project (which is empty afterwards); copied from any other."""
        return self._handle.take_values()

    def get_values(self, as_nan=False):
        """The values; with `as_nan`, a copy with NaN where a value is missing."""
        if not as_nan:
            return self._handle.values
        return self._handle.values_with_nan()

    @property
    def variables(self):
        """One dict per column: id, name, kind, block, included, unit, levels, generated."""
        return self._handle.variables()

    @property
    def variable_names(self):
        return [v["name"] for v in self._handle.variables()]

    @property
    def observation_ids(self):
        return self._handle.observation_ids(1)

    @property
    def batches(self):
        """The batch of every row (empty for a dataset without batches)."""
        return _labels(self.batch_codes)

    @property
    def phases(self):
        """The phase of every row (empty for a dataset without phases)."""
        return _labels(self.phase_codes)

    @property
    def batch_codes(self):
        """The batch of every row as (int32 codes, names in order of first appearance): the
        cheap form for many rows. Both empty for a dataset without batches."""
        return self._handle.batch_codes()

    @property
    def phase_codes(self):
        """The phase of every row as (int32 codes, names in order of first appearance)."""
        return self._handle.phase_codes()

    def decoded_column(self, column):
        """The texts of a qualitative or date-time column, by name or 0-based position, with ""
        where a value is missing."""
        j = self.variable_names.index(column) if isinstance(column, str) else column
        return self._handle.decoded_column(j + 1)

    def to_pandas(self):
        """A DataFrame of the values: qualitative columns as categoricals, date-time columns as
        datetimes, missing as NaN; indexed by (batch, phase, observation) for batch data and by
        observation otherwise."""
        import pandas as pd

        variables = self._handle.variables()
        ids = self.observation_ids
        if self._handle.is_batch:
            batch_codes, batch_names = self.batch_codes
            phase_codes, phase_names = _filled(self.phase_codes, len(ids))
            id_codes, id_names = pd.factorize(np.asarray(ids, dtype=object))
            index = pd.MultiIndex(levels=[batch_names, phase_names, id_names],
                                  codes=[batch_codes, phase_codes, id_codes],
                                  names=["batch", "phase", "observation"])
        else:
            index = pd.Index(ids, name="observation")
        # The numbers go in as one block, without a copy of the NaN copy; decoded columns are
        # put in at their positions afterwards.
        numeric = [j for j, v in enumerate(variables) if v["kind"] == "quantitative"]
        values = self.get_values(as_nan=True)
        block = values if len(numeric) == len(variables) else values[:, numeric]
        frame = pd.DataFrame(block, columns=[variables[j]["name"] for j in numeric],
                             index=index, copy=False)
        for j, variable in enumerate(variables):
            if variable["kind"] == "quantitative":
                continue
            texts = [t if t else None for t in self._handle.decoded_column(j + 1)]
            if variable["kind"] == "qualitative":
                column = pd.Categorical(texts, categories=variable["levels"])
            else:
                column = pd.to_datetime(texts)
            frame.insert(j, variable["name"], column)
        return frame

    @property
    def aligned_on(self):
        """The variable an aligned dataset was aligned on, or None."""
        return self._handle.aligned_on

    def to_xarray(self):
        """An aligned dataset as a (batch, maturity, variable) xarray DataArray of its
        quantitative and date-time columns' values, NaN where missing. The maturity coordinate
        is the grid position (1, 2, ...); the grid's maturity values and the phase of each
        position come along as coordinates when all batches share them."""
        import xarray as xr

        codes, order = self.batch_codes  # rows grouped by batch: names in row order
        if not len(codes):
            raise ValueError(f"dataset {self.name!r} has no batches")
        counts = np.bincount(codes, minlength=len(order))
        if len(set(counts)) != 1:
            raise ValueError(f"the batches of dataset {self.name!r} differ in length; align "
                             f"them first")
        points = int(counts[0])
        variables = self.variables
        keep = [j for j, v in enumerate(variables) if v["kind"] != "qualitative"]
        values = self.get_values(as_nan=True)[:, keep]
        # Rows are grouped by batch: reshape without copying the batches' order around.
        cube = values.reshape(len(order), points, len(keep))
        variables = [variables[j]["name"] for j in keep]
        coords = {"batch": order, "maturity": np.arange(1, points + 1), "variable": variables}
        phase_codes, phase_names = self.phase_codes
        if len(phase_codes):
            grid = phase_codes.reshape(len(order), points)
            if np.all(grid == grid[0]):
                coords["phase"] = ("maturity", [phase_names[c] for c in grid[0]])
        maturity = self.aligned_on
        if maturity in variables:
            grid = cube[:, :, variables.index(maturity)]
            if np.allclose(grid, grid[0], equal_nan=True):
                coords[f"{maturity}_grid"] = ("maturity", grid[0])
        return xr.DataArray(cube, dims=("batch", "maturity", "variable"), coords=coords,
                            name=self.name)

    def export_csv(self, path, centered=False, separator=",", decimal="."):
        """Writes the dataset as CSV, as `ncds export` does (locally centered with `centered`)."""
        self._handle.export_csv(str(path), centered, separator, decimal)

    def append(self, frame, batch=None, phase=None, id=None, replace=False,
               rename_clashes=False, progress=None):
        """Appends the batches of a DataFrame to this batch dataset, as `ncds import --into`
        does, and saves it: rows after the dataset's batches, columns matched by variable name
        (new ones missing in the earlier rows), `batch` and `phase` default to the project's
        series names. A batch the dataset holds already is refused unless `replace`. Returns
        the log, one line each."""
        ids = [id] if isinstance(id, str) else list(id or [])
        text = frame.to_csv(index=False, date_format="%Y-%m-%dT%H:%M:%S", na_rep="")
        log = self._handle.append(text, True, ids, batch or "", phase or "", ",", ".", [],
                                  replace, rename_clashes, _progress(progress))
        return log.splitlines()

    def update(self, progress=None):
        """Brings an aligned or batch-level dataset up to date with the batches of its source,
        as `ncds update` does, and saves it: new batches aligned onto the stored grids or
        summarized into the same columns, gone batches removed, replaced ones made again, and
        its own generated variables computed again. Returns the log, one line each ("up to
        date" when there was nothing to do)."""
        return self._handle.update(_progress(progress)).splitlines()

    def fingerprint(self):
        """The MD5 digest of the values (row by row, little-endian singles), in hex."""
        return self._handle.fingerprint()

    def __repr__(self):
        rows, columns = self.shape
        return f"<ncds.Dataset {self.number} {self.name!r}: {rows} x {columns}, {self.kind}>"


class Project:
    """A project: in memory (`Project()`) or a project file (`ncds.open`). A context manager
    that closes the file."""

    def __init__(self, handle=None):
        self._handle = handle if handle is not None else _ncds.Project()

    @classmethod
    def _scratch(cls):
        """A project in memory that keeps none of the datasets saved into it (no stream, no
        description): for throwaway pieces of work, such as the partitions of `ncds.dask`."""
        return cls(_ncds.Project.scratch())

    @property
    def path(self):
        return self._handle.path or None

    def datasets(self):
        """The stored datasets as (number, name, observations, variables, kind) tuples."""
        return self._handle.datasets()

    def damaged(self):
        """What is damaged in the project file, one sentence per part saying what it costs (a
        dataset that cannot be read, observations that lost their records); empty when nothing
        is, and for a project in memory. Reads the whole file."""
        return _ncds.check(str(self.path)) if self.path else []

    def add_matrix(self, values, names, ids=None, name="matrix", batches=None, phases=None,
                   rename_clashes=False):
        """A new dataset of quantitative variables `names` from a 2-D array (observations x
        variables; NaN and -99 are missing) or a list of its columns (1-D arrays, read where
        they are: a DataFrame's columns need no copy into one array first), its rows named by
        `ids` (default 1, 2, ...). With `batches` (and `phases`), the batch (phase) of every row
        as a sequence of names or a pandas Categorical, it is a batch dataset, its rows grouped
        by batch in order of first appearance. A name that the project's variables have takes
        that variable (a qualitative or date-time one is refused unless `rename_clashes`)."""
        ids = list(ids) if ids is not None else []
        batch_codes, batch_names = _codes(batches)
        phase_codes, phase_names = _codes(phases)
        if len(batch_codes):
            # Group the rows by batch (stable, batches in order of first appearance) unless
            # they already come one batch after the other (one run per name: every name is in
            # use); a row without a batch is refused below, by its own number.
            runs = np.count_nonzero(batch_codes[1:] != batch_codes[:-1]) + 1
            if runs != len(batch_names) and batch_codes.min() >= 0:
                first = np.full(len(batch_names), len(batch_codes), dtype=np.int64)
                np.minimum.at(first, batch_codes, np.arange(len(batch_codes)))
                order = np.argsort(first[batch_codes], kind="stable")
                values = ([np.asarray(c)[order] for c in values]
                          if isinstance(values, (list, tuple)) else np.asarray(values)[order])
                batch_codes = batch_codes[order]
                phase_codes = phase_codes[order] if len(phase_codes) else phase_codes
                ids = [ids[i] for i in order] if ids else [str(i + 1) for i in order]
        return Dataset(self._handle.add_matrix(values, list(names), ids, name, batch_codes,
                                               batch_names, phase_codes, phase_names,
                                               rename_clashes))

    def load(self, dataset):
        """The dataset with this number or name."""
        return Dataset(self._handle.load(dataset))

    def save(self, dataset):
        self._handle.save(dataset._handle)

    def delete(self, dataset):
        return self._handle.delete(dataset)

    def close(self):
        self._handle.close()

    # ---- The tool's operations. Each saves what it changed or made into the project; those
    # that take `progress` report to it: a callable(caption, fraction) (fraction -1 while busy
    # without a measure; returning False cancels), or True for a tqdm bar when tqdm is
    # installed.

    def import_csv(self, path, name="", ids=(), batch="", phase="", separator=",",
                   decimal=".", missing=(), rename_clashes=False, into=None, replace=False,
                   progress=None):
        """Imports a CSV file as a new dataset, as `ncds import` does; `batch` (and `phase`)
        name the columns of a batch dataset. Columns take the project's variables of their
        names; one whose variable is of another kind is refused unless `rename_clashes`. With
        `into` (a batch dataset, its name or number) the file's batches are appended to that
        dataset instead (see `Dataset.append`; `replace` replaces batches it holds), which is
        returned."""
        if into is not None:
            target = into if isinstance(into, Dataset) else self.load(into)
            target._handle.append(str(path), False, list(ids), batch or "", phase or "",
                                  separator, decimal, list(missing), replace, rename_clashes,
                                  _progress(progress))
            return target
        _, made = self._handle.import_csv(
            str(path), name, list(ids), batch or "", phase or "", separator, decimal,
            list(missing), rename_clashes, _progress(progress))
        return Dataset(made)

    def delete_batches(self, dataset, batches=(), phases=()):
        """Deletes batches, and phases (names, or (phase, batch) pairs) of batches; the log."""
        pairs = [(p, "") if isinstance(p, str) else tuple(p) for p in phases]
        return self._handle.delete_batches(dataset._handle, list(batches), pairs)

    def rename_phase(self, dataset, old, new):
        return self._handle.rename_phase(dataset._handle, old, new)

    def align(self, dataset, maturity, points=100, phase_points=None, relative=False,
              smooth=False, extend=False, name=None, progress=None, extent=None):
        """Aligns the batches onto a common maturity grid into a new dataset (`ncds align`);
        `phase_points` maps phases to their points for phase-wise alignment. With `extent`
        (from `align_extent`, combined over several pieces of the data with `add`), the grids
        span it instead of this dataset's own range."""
        choice = _align_choice(maturity, points, phase_points, relative, smooth, extend)
        choice.extent = extent
        _, made = self._handle.align(dataset._handle, choice,
                                     name or f"{dataset.name} aligned", _progress(progress))
        return Dataset(made)

    def align_extent(self, dataset, maturity, points=100, phase_points=None, relative=False,
                     smooth=False):
        """What the grids of `align` with these settings would span on `dataset`: an
        `AlignExtent` to widen (`add`) by other pieces' and hand to `align`."""
        choice = _align_choice(maturity, points, phase_points, relative, smooth, False)
        return self._handle.align_extent(dataset._handle, choice)

    def summarize(self, dataset, stats=None, by_phase=False, variables=None, maturity=None,
                  conditions=False, name=None, progress=None):
        """A new batch-level dataset of `dataset` (`ncds summarize`): one row per batch."""
        choice = _ncds.Project.SummaryChoice()
        choice.statistics = ",".join(stats) if isinstance(stats, (list, tuple)) else stats or ""
        choice.variables = list(variables or [])
        choice.maturity = maturity or ""
        choice.by_phase, choice.conditions = by_phase, conditions
        _, made = self._handle.summarize(dataset._handle, choice,
                                         name or f"{dataset.name} batch level",
                                         _progress(progress))
        return Dataset(made)

    def merge(self, into, source, keep=False):
        """Merges `source` into `into` (`ncds merge`); the merge's log."""
        return self._handle.merge(into._handle, source._handle, keep)

    def derive(self, dataset, name, formula):
        """Adds a generated variable computed by `formula` (`ncds derive`)."""
        return self._handle.derive(dataset._handle, name, formula)

    def update_generated(self, dataset):
        """Recomputes every generated variable of the dataset."""
        return self._handle.derive(dataset._handle, "", "")

    def center(self, dataset, path, separator=","):
        """Stores local centers read from a CSV or XML file with the dataset (`ncds center`)."""
        return self._handle.center(dataset._handle, str(path), separator)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __repr__(self):
        where = self.path or "memory"
        return f"<ncds.Project {where}: {len(self.datasets())} datasets>"


def _progress(progress):
    """The callable the extension reports to: `progress` itself, a tqdm bar for True (when
    tqdm is installed), or None."""
    if progress is not True:
        return progress
    try:
        from tqdm import tqdm
    except ImportError:
        return None
    bars = {}

    def report(caption, fraction):
        bar = bars.get(caption)
        if bar is None:
            bar = bars[caption] = tqdm(total=100, desc=caption, leave=False)
        if fraction >= 0:
            bar.n = int(fraction * 100)
            bar.refresh()
        if fraction >= 1:
            bar.close()
            del bars[caption]
        return True

    return report


def from_pandas(frame, project=None, name="dataset", batch=None, phase=None, id=None,
                rename_clashes=False):
    """A new dataset of `project` (a new project in memory when None) from a DataFrame, as the
    tool imports a CSV file: `batch` and `phase` name the columns of a batch dataset, `id` the
    column (or columns) of observation IDs; the index is ignored. Numbers become quantitative
    variables, texts qualitative ones, ISO dates date-time ones."""
    project = project if project is not None else Project()
    ids = [id] if isinstance(id, str) else list(id or [])
    text = frame.to_csv(index=False, date_format="%Y-%m-%dT%H:%M:%S", na_rep="")
    _, made = project._handle.import_text(text, name, ids, batch or "", phase or "",
                                          rename_clashes)
    return Dataset(made)


def open(path, create=False):  # noqa: A001 - the package's entry point, like io.open
    """Opens the project file at `path`; with `create`, a missing file becomes a new project."""
    return Project(_ncds.Project.open(str(path), create))
