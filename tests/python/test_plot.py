"""Figures of the example data, checked against the datasets' own values."""

import os
import subprocess
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402
import pytest  # noqa: E402

import ncds  # noqa: E402
from ncds import plot  # noqa: E402

CLI = os.environ.get("NCDS_CLI", "ncds")
DATA = os.environ.get("NCDS_EXAMPLE_DATA", "examples/data/fermentation.csv")


@pytest.fixture(scope="module")
def project_path(tmp_path_factory):
    path = tmp_path_factory.mktemp("plot") / "fermentation.ncds"
    phases = [a for p in ("Lag=20", "Growth=40", "Production=100") for a in ("--phase-points", p)]
    for args in (["import", DATA, str(path), "--id", "ObsID", "--batch", "Batch", "--phase",
                  "Phase"],
                 ["align", str(path), "1", "--maturity", "Time", "--relative", *phases,
                  "--name", "aligned"],
                 ["summarize", str(path), "aligned", "--by-phase", "--variables", "pH,Biomass",
                  "--stats", "Mean,Max", "--name", "levels"]):
        subprocess.run([CLI, *args], check=True, capture_output=True)
    return path


@pytest.fixture(scope="module")
def data(project_path):
    with ncds.open(project_path) as project:
        return {name: project.load(name) for name in ("fermentation", "aligned", "levels")}


@pytest.fixture(autouse=True)
def close_figures():
    yield
    plt.close("all")


def artists(ax, gid):
    return [a for a in (*ax.collections, *ax.lines) if a.get_gid() == gid]


def lines_of(ax):
    """The batches' lines with their NaN points (get_segments() would drop them)."""
    return [path.vertices for path in artists(ax, "trajectories")[0].get_paths()]


def test_raw_trajectories_one_line_per_batch_with_gaps_and_phase_starts(data):
    raw = data["fermentation"]
    frame = raw.to_pandas()
    ax = plot.trajectories(raw, "pH")
    lines, sizes = lines_of(ax), frame.groupby(level="batch", sort=False).size()
    assert [len(s) for s in lines] == list(sizes)
    np.testing.assert_array_equal(lines[0][:, 0], np.arange(1, sizes.iloc[0] + 1))
    np.testing.assert_array_equal(lines[0][:, 1], frame["pH"].to_numpy()[:sizes.iloc[0]])
    missing = (raw.values[:, raw.variable_names.index("pH")] == -99).sum()
    assert missing > 0 and sum(np.isnan(s[:, 1]).sum() for s in lines) == missing
    assert len({tuple(c) for c in artists(ax, "trajectories")[0].get_colors()}) == 32
    # Each batch's Growth starts right after its own Lag observations.
    assert [line.get_label() for line in ax.lines] == ["Growth starts", "Production starts"]
    lag = frame.xs("Lag", level="phase").groupby(level="batch", sort=False).size()
    np.testing.assert_array_equal(ax.lines[0].get_xdata(), lag.to_numpy() + 1)
    assert not artists(ax, "phase-boundaries") and "fermentation" in ax.get_title()
    assert (ax.get_xlabel(), ax.get_ylabel()) == ("Observation number in batch", "pH")

    # Date-time maturity: hours from each batch's start (the example samples every 12 minutes).
    ax = plot.trajectories(raw, "pH", ax=plt.figure().subplots(), maturity="Time")
    lines = lines_of(ax)
    assert all(s[0, 0] == 0 for s in lines) and lines[0][1, 0] == pytest.approx(0.2)
    assert ax.get_xlabel() == "Time [h from batch start]"


def test_aligned_boundaries_band_and_comparison(data):
    raw, aligned = data["fermentation"], data["aligned"]
    ax = plot.trajectories(aligned, "Temperature")
    [bounds] = artists(ax, "phase-boundaries")
    assert [s[0][0] for s in bounds.get_segments()] == [20.5, 60.5]
    assert [t.get_text().strip() for t in ax.texts] == ["Lag", "Growth", "Production"]
    assert not ax.lines and ax.get_ylim()[0] > 20  # the boundaries leave the y limits alone

    ax = plot.mean_band(aligned, "pH", ax=ax)
    assert len(artists(ax, "phase-boundaries")) == 1
    frame = aligned.to_pandas()
    assert frame["pH"].isna().any()
    stats = frame["pH"].groupby(frame.groupby(level="batch").cumcount().to_numpy() + 1).agg(
        ["mean", "std"])
    np.testing.assert_allclose(artists(ax, "mean")[0].get_ydata(), stats["mean"], rtol=1e-6)
    corners = np.concatenate([p.vertices for p in artists(ax, "band")[0].get_paths()])
    for at in (1, 60, 120, 160):
        ys = corners[np.rint(corners[:, 0]) == at, 1]
        expected = stats.loc[at, "mean"] + np.array([-2, 2]) * stats.loc[at, "std"]
        np.testing.assert_allclose([ys.min(), ys.max()], expected, rtol=1e-6)
    with pytest.raises(ValueError, match="differ in length"):
        plot.mean_band(raw, "pH")

    left, right = plot.compare(raw, aligned, "Biomass", maturity="Time").axes
    assert left.get_shared_y_axes().joined(left, right)
    assert "fermentation" in left.get_title() and "aligned" in right.get_title()
    assert left.get_xlabel().startswith("Time") and right.get_xlabel().startswith("Observation")
    assert len(lines_of(left)) == len(lines_of(right)) == 32


class FakeDataset:
    """Rows of many batches interleaved (row r belongs to batch r % batches), with a unit; the
    middle row misses its Temperature."""

    name = "many"

    def __init__(self, batches, points):
        k, p = np.divmod(np.arange(batches * points), batches)[::-1]
        self.values = np.column_stack([k * 100.0 + p, p, p % 2]).astype(np.float32)
        self.values[points * batches // 2, 0] = -99
        self.variables = [{"name": "Temperature", "kind": "quantitative", "unit": "°C"},
                          {"name": "Point", "kind": "quantitative", "unit": ""},
                          {"name": "Stage", "kind": "qualitative", "unit": ""}]
        self.observation_ids = [f"B{i}:{j}" for i, j in zip(k, p)]
        self.batches = [f"B{i}" for i in k]
        self.phases = ["early" if j < points // 3 + i % 5 else "late" for i, j in zip(k, p)]
        self.batch_codes = ncds.project._codes(self.batches)
        self.phase_codes = ncds.project._codes(self.phases)


def test_scatter_many_batches_units_and_unknown_names(data):
    levels = data["levels"]
    ax = plot.scatter(levels, "pH_Growth_Mean", "Biomass_Production_Max")
    frame = levels.to_pandas()
    assert [t.get_text() for t in ax.texts] == levels.observation_ids == list(frame.index)
    np.testing.assert_allclose([t.xy for t in ax.texts],
                               frame[["pH_Growth_Mean", "Biomass_Production_Max"]].to_numpy())
    assert (ax.get_xlabel(), ax.get_ylabel()) == ("pH_Growth_Mean", "Biomass_Production_Max")
    with pytest.raises(ValueError, match="no batches"):
        plot.trajectories(levels, "pH_Growth_Mean")

    fake = FakeDataset(1000, 50)
    ax = plot.trajectories(fake, "Temperature")
    lines = lines_of(ax)
    assert len(lines) == 1000 and len(ax.lines) == 1  # one collection, one phase-start series
    np.testing.assert_array_equal(lines[7][:, 1], 700 + np.arange(50))
    assert np.isnan(lines[0][25, 1]) and sum(np.isnan(s).sum() for s in lines) == 1
    assert ax.get_ylabel() == "Temperature [°C]"
    with pytest.raises(ValueError, match=r"no variable 'Temp'.*Temperature"):
        plot.trajectories(fake, "Temp")
    with pytest.raises(ValueError, match="qualitative"):
        plot.scatter(fake, "Temperature", "Stage")
    ax = plot.scatter(FakeDataset(3, 4), "Point", "Temperature")  # B0:2 misses Temperature
    assert len(ax.texts) == 11 and "B0:2" not in {t.get_text() for t in ax.texts}


def test_command_line_writes_png_and_svg_and_rejects_unknown_names(project_path, tmp_path):
    def run(*args):
        return subprocess.run([sys.executable, "-m", "ncds", "plot", str(project_path), *args],
                              capture_output=True, text=True)

    png, svg = tmp_path / "raw.png", tmp_path / "cmp.svg"
    assert run("fermentation", "pH", "-o", str(png), "--maturity", "Time").returncode == 0
    assert png.read_bytes().startswith(b"\x89PNG")
    assert run("1", "pH", "-o", str(svg), "--aligned", "aligned", "--band").returncode == 0
    assert all(f'id="{gid}' in svg.read_text() for gid in ("phase-boundaries", "band", "mean"))
    for args, message in ((["nope", "pH"], "no dataset nope"),
                          (["aligned", "Foo"], "no variable 'Foo'"),
                          (["aligned", "pH", "--band", "--maturity", "Time"], "--band")):
        result = run(*args, "-o", str(tmp_path / "x.png"))
        assert result.returncode == 2 and message in result.stderr
    assert not (tmp_path / "x.png").exists()
