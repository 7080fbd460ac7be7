"""Projects and datasets: thin Python objects around the extension's."""

import numpy as np

from . import _ncds

MISSING = -99.0


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

    def get_values(self, as_nan=False):
        """The values; with `as_nan`, a copy with NaN where a value is missing."""
        values = self._handle.values
        if not as_nan:
            return values
        copy = np.array(values, dtype=np.float32, order="F")
        copy[copy == MISSING] = np.nan
        return copy

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
        return self._handle.batch_names()

    @property
    def phases(self):
        """The phase of every row (empty for a dataset without phases)."""
        return self._handle.phase_names()

    def to_pandas(self):
        """A DataFrame of the values: qualitative columns as categoricals, date-time columns as
        datetimes, missing as NaN; indexed by (batch, phase, observation) for batch data and by
        observation otherwise."""
        import pandas as pd

        values = self.get_values(as_nan=True)
        columns = {}
        for j, variable in enumerate(self._handle.variables()):
            if variable["kind"] == "qualitative":
                texts = self._handle.decoded_column(j + 1)
                columns[variable["name"]] = pd.Categorical(
                    [t if t else None for t in texts], categories=variable["levels"])
            elif variable["kind"] == "datetime":
                texts = self._handle.decoded_column(j + 1)
                columns[variable["name"]] = pd.to_datetime(
                    [t if t else None for t in texts])
            else:
                columns[variable["name"]] = values[:, j]
        ids = self.observation_ids
        if self._handle.is_batch:
            phases = self.phases or [""] * len(ids)
            index = pd.MultiIndex.from_arrays(
                [self.batches, phases, ids], names=["batch", "phase", "observation"])
        else:
            index = pd.Index(ids, name="observation")
        return pd.DataFrame(columns, index=index)

    def __repr__(self):
        rows, columns = self.shape
        return f"<ncds.Dataset {self.number} {self.name!r}: {rows} x {columns}, {self.kind}>"


class Project:
    """A project: in memory (`Project()`) or a project file (`ncds.open`). A context manager
    that closes the file."""

    def __init__(self, handle=None):
        self._handle = handle if handle is not None else _ncds.Project()

    @property
    def path(self):
        return self._handle.path or None

    def datasets(self):
        """The stored datasets as (number, name, observations, variables, kind) tuples."""
        return self._handle.datasets()

    def load(self, dataset):
        """The dataset with this number or name."""
        return Dataset(self._handle.load(dataset))

    def save(self, dataset):
        self._handle.save(dataset._handle)

    def delete(self, dataset):
        return self._handle.delete(dataset)

    def close(self):
        self._handle.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __repr__(self):
        where = self.path or "memory"
        return f"<ncds.Project {where}: {len(self.datasets())} datasets>"


def open(path, create=False):  # noqa: A001 - the package's entry point, like io.open
    """Opens the project file at `path`; with `create`, a missing file becomes a new project."""
    return Project(_ncds.Project.open(str(path), create))
