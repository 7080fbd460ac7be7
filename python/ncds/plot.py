"""Plots of datasets with matplotlib: batch trajectories, raw against aligned batches, the mean
trajectory with a band of two standard deviations, and batch-level scatter plots.

Each function draws into the Axes it is given, or into a new figure, and returns what it drew
into. Artists carry a gid ("trajectories", "phase-boundaries", "mean", "band", "points"), which
also names them in SVG output.

Phase changes are marked in one of two ways. When every batch changes phase at the same x (an
aligned dataset plotted against the point number), the boundaries are vertical dashed lines
with each phase's name at the top. Otherwise each batch gets a black marker on its own line
where a phase starts, one marker shape per phase.

All work is done on whole columns (one sort, one split), so a dataset of a thousand batches
takes one LineCollection rather than a thousand lines.
"""

import difflib
import warnings

import numpy as np

MISSING = -99.0

_LEGEND_BATCHES = 12  # more batches than this get no legend entries of their own
_PHASE_MARKERS = ("|", "x", "+", "1", "2", "3", "4")


def _find(dataset, name, what="variable"):
    """The column index and record of variable `name`; ValueError naming a few that exist."""
    variables = dataset.variables
    names = [v["name"] for v in variables]
    if name in names:
        j = names.index(name)
        return j, variables[j]
    shown = difflib.get_close_matches(name, names, n=3)
    shown += [n for n in names if n not in shown][:6 - len(shown)]
    more = ", ..." if len(names) > len(shown) else ""
    raise ValueError(f"dataset {dataset.name!r} has no {what} {name!r}; it has "
                     f"{', '.join(shown)}{more} ({len(names)} in all)")


def _quantitative(dataset, name, what="variable", allow_datetime=False):
    j, variable = _find(dataset, name, what)
    kinds = ("quantitative", "datetime") if allow_datetime else ("quantitative",)
    if variable["kind"] not in kinds:
        raise ValueError(f"{what} {name!r} of dataset {dataset.name!r} is {variable['kind']}; "
                         f"only a quantitative one can be plotted")
    return j, variable


def _column(dataset, j):
    """Column `j` as float64 with NaN for missing values (a copy of that column only)."""
    column = np.array(dataset.values[:, j], dtype=np.float64)
    column[column == MISSING] = np.nan
    return column


def _label(variable):
    unit = variable.get("unit") or ""
    return f"{variable['name']} [{unit}]" if unit else variable["name"]


class _Layout:
    """How the rows of a batch dataset group into batches: `order` sorts the rows so that each
    batch's rows are together (in their stored order), `codes` numbers the batch of every sorted
    row, `starts` are the sorted positions where batches begin."""

    def __init__(self, dataset):
        codes, names = dataset.batch_codes
        if len(codes) == 0:
            raise ValueError(f"dataset {dataset.name!r} has no batches")
        self.order = np.argsort(codes, kind="stable")
        self.codes = codes[self.order]
        self.names = [str(n) for n in names]
        self.rows = len(self.codes)
        self.starts = np.flatnonzero(np.r_[True, self.codes[1:] != self.codes[:-1]])
        self.sizes = np.diff(np.r_[self.starts, self.rows])
        phase_codes, phase_names = dataset.phase_codes
        self.phases = (np.asarray(phase_names, dtype=object)[phase_codes[self.order]]
                       if len(phase_codes) else None)

    def positions(self):
        """Every sorted row's number within its batch, from 1."""
        return np.arange(self.rows) - np.repeat(self.starts, self.sizes) + 1

    def phase_starts(self):
        """Sorted rows that start a phase other than their batch's first."""
        if self.phases is None:
            return np.empty(0, dtype=np.intp)
        change = (self.phases[1:] != self.phases[:-1]) & (self.codes[1:] == self.codes[:-1])
        return np.flatnonzero(change) + 1


def _maturity(dataset, layout, name):
    """The x of every sorted row from variable `name`, and its axis label. A date-time variable
    becomes the hours since its batch's first time."""
    import pandas as pd

    j, variable = _quantitative(dataset, name, "maturity variable", allow_datetime=True)
    if variable["kind"] != "datetime":
        return _column(dataset, j)[layout.order], _label(variable)
    texts = dataset.decoded_column(j)
    times = pd.to_datetime([t if t else None for t in texts]).values[layout.order]
    hours = times.astype("datetime64[ns]").astype(np.int64).astype(np.float64) / 3.6e12
    hours[np.isnat(times)] = np.nan
    first = np.fmin.reduceat(hours, layout.starts)
    return hours - first[layout.codes], f"{variable['name']} [h from batch start]"


def _batch_colors(count):
    """Colours that stay apart: qualitative maps for few batches, turbo sampled evenly beyond."""
    from matplotlib import colormaps

    if count <= 10:
        return colormaps["tab10"](np.arange(count))
    if count <= 20:
        return colormaps["tab20"](np.arange(count))
    return colormaps["turbo"](np.linspace(0.05, 0.95, count))


def _has_gid(ax, gid):
    return any(a.get_gid() == gid for a in (*ax.collections, *ax.lines))


def _shared_boundaries(layout, x, starts):
    """The x of each boundary and the phase names in order, when every batch changes phase at
    the same x; None otherwise."""
    batches = len(layout.starts)
    if len(starts) == 0 or len(starts) % batches:
        return None
    per_batch = len(starts) // batches
    if np.any(np.bincount(layout.codes[starts], minlength=batches) != per_batch):
        return None
    at = ((x[starts - 1] + x[starts]) / 2).reshape(batches, per_batch)
    names = layout.phases[starts].reshape(batches, per_batch)
    if not (np.array_equal(at, at[:1].repeat(batches, 0)) and np.all(names == names[:1])):
        return None
    return at[0], [layout.phases[0], *names[0]]


def _draw_boundaries(ax, layout, x, shared):
    """Vertical lines at shared phase boundaries, each phase named at the top."""
    from matplotlib.collections import LineCollection

    if _has_gid(ax, "phase-boundaries"):
        return
    at, names = shared
    # x in data, y in axes coordinates: from bottom to top, leaving the data limits alone.
    ax.add_collection(LineCollection([[(a, 0), (a, 1)] for a in at], colors="0.4",
                                     linestyles="--", linewidths=1, gid="phase-boundaries",
                                     transform=ax.get_xaxis_transform()), autolim=False)
    for left, name in zip([np.nanmin(x[:layout.sizes[0]]), *at], names):
        ax.text(left, 0.98, f" {name}", transform=ax.get_xaxis_transform(), va="top",
                ha="left", fontsize="small", color="0.3")


def _draw_phase_markers(ax, layout, x, y, starts):
    """A marker on each batch's line where one of its phases starts; one Line2D per phase."""
    marker_y = np.where(np.isnan(y[starts]), y[starts - 1], y[starts])
    names = layout.phases[starts]
    handles = []
    for k, name in enumerate(dict.fromkeys(names)):
        rows = names == name
        handles += ax.plot(x[starts][rows], marker_y[rows], linestyle="none", color="black",
                           marker=_PHASE_MARKERS[k % len(_PHASE_MARKERS)], markersize=9,
                           zorder=3, label=f"{name} starts", gid=f"phase-start-{k + 1}")
    return handles


def _new_axes():
    import matplotlib.pyplot as plt

    return plt.subplots(layout="constrained")[1]


def trajectories(dataset, variable, ax=None, maturity=None):
    """One line per batch of `variable` against `maturity` (a variable's values; a date-time one
    as hours from the batch's start) or, without it, against the row's number in its batch.
    Missing values leave gaps. Phase changes are marked (see the module's description)."""
    from matplotlib.collections import LineCollection
    from matplotlib.lines import Line2D

    j, record = _quantitative(dataset, variable)
    layout = _Layout(dataset)
    ax = ax if ax is not None else _new_axes()
    y = _column(dataset, j)[layout.order]
    if maturity is None:
        x, xlabel = layout.positions().astype(np.float64), "Observation number in batch"
    else:
        x, xlabel = _maturity(dataset, layout, maturity)

    colors = _batch_colors(len(layout.starts))
    lines = LineCollection(np.split(np.column_stack([x, y]), layout.starts[1:]), colors=colors,
                           linewidths=1, gid="trajectories")
    ax.add_collection(lines, autolim=False)
    shown = ~np.isnan(x) & ~np.isnan(y)
    if shown.any():
        ax.update_datalim([(x[shown].min(), y[shown].min()), (x[shown].max(), y[shown].max())])
        ax.autoscale_view()

    handles = []
    if len(layout.starts) <= _LEGEND_BATCHES:
        handles = [Line2D([], [], color=c, label=n) for c, n in zip(colors, layout.names)]
    starts = layout.phase_starts()
    shared = _shared_boundaries(layout, x, starts)
    if shared is not None:
        _draw_boundaries(ax, layout, x, shared)
    elif len(starts):
        handles += _draw_phase_markers(ax, layout, x, y, starts)
    if handles:
        ax.legend(handles=handles, fontsize="small")

    ax.set_xlabel(xlabel)
    ax.set_ylabel(_label(record))
    ax.set_title(f"{dataset.name}: {variable}")
    return ax


def compare(raw, aligned, variable, maturity=None):
    """A figure of `variable` in the raw batches (left, against `maturity` when given) and in
    the aligned ones (right, against the grid point), sharing the y axis."""
    import matplotlib.pyplot as plt

    figure, (left, right) = plt.subplots(1, 2, sharey=True, figsize=(12, 4.8),
                                         layout="constrained")
    trajectories(raw, variable, ax=left, maturity=maturity)
    trajectories(aligned, variable, ax=right)
    right.set_ylabel("")
    figure.suptitle(f"{variable}: {raw.name} and {aligned.name}")
    return figure


def mean_band(dataset, variable, ax=None):
    """The mean trajectory over the batches of an aligned dataset with a band of +-2 standard
    deviations, point by point, ignoring missing values. Batches of different lengths cannot be
    compared point by point: ValueError."""
    j, record = _quantitative(dataset, variable)
    layout = _Layout(dataset)
    if layout.sizes.min() != layout.sizes.max():
        raise ValueError(f"the batches of dataset {dataset.name!r} differ in length "
                         f"({layout.sizes.min()} to {layout.sizes.max()} observations); "
                         f"a mean trajectory needs aligned batches")
    batches, points = len(layout.starts), int(layout.sizes[0])
    y = _column(dataset, j)[layout.order].reshape(batches, points)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", RuntimeWarning)  # points missing in (nearly) all
        mean = np.nanmean(y, axis=0)
        sd = np.nanstd(y, axis=0, ddof=1)
    x = np.arange(1, points + 1, dtype=np.float64)

    ax = ax if ax is not None else _new_axes()
    ax.fill_between(x, mean - 2 * sd, mean + 2 * sd, color="tab:blue", alpha=0.25, linewidth=0,
                    label="mean ± 2 SD", gid="band")
    ax.plot(x, mean, color="black", linewidth=2, label="mean", gid="mean", zorder=4)
    starts = layout.phase_starts()
    shared = _shared_boundaries(layout, layout.positions().astype(np.float64), starts)
    if shared is not None:
        _draw_boundaries(ax, layout, x, shared)
    ax.legend(fontsize="small")
    ax.set_xlabel("Observation number in batch")
    ax.set_ylabel(_label(record))
    ax.set_title(f"{dataset.name}: {variable}, mean of {batches} batches")
    return ax


def scatter(dataset, x, y, ax=None):
    """Column `y` against column `x`, one point per observation (a batch of a summary dataset),
    each labelled with its ID. Observations missing either value are left out."""
    jx, record_x = _quantitative(dataset, x)
    jy, record_y = _quantitative(dataset, y)
    xs, ys = _column(dataset, jx), _column(dataset, jy)
    shown = ~np.isnan(xs) & ~np.isnan(ys)
    ids = np.asarray(dataset.observation_ids, dtype=object)[shown]
    xs, ys = xs[shown], ys[shown]

    ax = ax if ax is not None else _new_axes()
    ax.scatter(xs, ys, s=16, gid="points")
    for label, px, py in zip(ids, xs, ys):
        ax.annotate(label, (px, py), xytext=(3, 3), textcoords="offset points",
                    fontsize="x-small")
    ax.set_xlabel(_label(record_x))
    ax.set_ylabel(_label(record_y))
    ax.set_title(f"{dataset.name}: {y} against {x}")
    return ax
