"""The tool's operations as methods, on datasets made from pandas in a project in memory."""

import numpy as np
import pandas as pd
import pytest

import ncds


@pytest.fixture()
def runs():
    """Three batches of two phases over a time column, one value column with a gap."""
    rows = []
    for b, length in (("B1", 6), ("B2", 8), ("B3", 4)):
        for k in range(length):
            rows.append({"Batch": b, "Phase": "Growth" if k < length // 2 else "Feed",
                         "Time": float(k), "Temp": 30.0 + k + (0.5 if b == "B2" else 0.0)})
    frame = pd.DataFrame(rows)
    frame.loc[3, "Temp"] = np.nan
    project = ncds.Project()
    return project, ncds.from_pandas(frame, project, name="runs", batch="Batch", phase="Phase")


def test_from_pandas_align_summarize_merge_and_derive(runs, tmp_path):
    project, data = runs
    assert data.kind == "batch" and data.shape == (18, 2)
    assert data.batches[:7] == ["B1"] * 6 + ["B2"]
    assert np.isnan(data.get_values(as_nan=True)[3, 1])

    aligned = project.align(data, "Time", phase_points={"Growth": 3, "Feed": 3}, relative=True,
                            name="aligned")
    assert aligned.shape == (18, 2)
    frame = aligned.to_pandas()
    assert list(frame.index.get_level_values("phase")[:6]) == ["Growth"] * 3 + ["Feed"] * 3
    cube = aligned.to_xarray()
    assert cube.dims == ("batch", "maturity", "variable") and cube.shape == (3, 6, 2)
    assert list(cube.batch.values) == ["B1", "B2", "B3"] and aligned.aligned_on == "Time"
    assert list(cube.phase.values) == ["Growth"] * 3 + ["Feed"] * 3
    assert np.allclose(cube.sel(batch="B2", variable="Temp").values,
                       frame.loc["B2"]["Temp"].values, equal_nan=True)
    with pytest.raises(ValueError, match="differ in length"):
        data.to_xarray()

    calls = []
    levels = project.summarize(data, stats=["Mean", "N"], by_phase=True, variables=["Temp"],
                               name="levels", progress=lambda caption, f: calls.append(f))
    assert calls[0] == 0.0 and calls[-1] == 1.0
    summary = levels.to_pandas()
    assert list(summary.columns) == ["Temp_Growth_Mean", "Temp_Growth_N", "Temp_Feed_Mean",
                                     "Temp_Feed_N"]
    assert summary.loc["B1", "Temp_Feed_N"] == 2  # the gap is skipped
    assert summary.loc["B2", "Temp_Growth_Mean"] == pytest.approx(32.0)

    last = project.summarize(data, stats="Last", variables=["Temp"], name="last")
    log = project.merge(levels, last)
    assert "Variables added: 1" in log
    assert levels.to_pandas().loc["B3", "Temp_Last"] == pytest.approx(33.0)

    project.derive(data, "Warm", "Temp - 30")
    assert data.variable_names == ["Time", "Temp", "Warm"]
    assert data.values[0, 2] == pytest.approx(0.0)

    # Export and import again: the same values, the same fingerprint.
    path = tmp_path / "runs.csv"
    data.export_csv(path)
    again = project.import_csv(path, batch="Batch", phase="Phase", name="again")
    assert np.array_equal(again.values, data.values)
    assert again.fingerprint() == data.fingerprint() and len(data.fingerprint()) == 32


def test_refusals_and_cancels_arrive_as_python_errors(runs):
    project, data = runs
    before = project.datasets()
    with pytest.raises(ncds.Error, match="Mode is not a statistic"):
        project.summarize(data, stats="Mode")
    with pytest.raises(ncds.Error, match="cancelled"):
        project.summarize(data, progress=lambda caption, fraction: False)

    def broken(caption, fraction):
        raise KeyError("from the callback")

    with pytest.raises(KeyError, match="from the callback"):
        project.summarize(data, progress=broken)
    with pytest.raises(ncds.Error, match="has no variable Pressure"):
        project.align(data, "Pressure")
    with pytest.raises(ncds.Error, match="cannot be merged into itself"):
        project.merge(data, data)
    with pytest.raises(ncds.Error):
        project.delete_batches(data, batches=["B9"])
    assert project.datasets() == before
    project.delete_batches(data, batches=["B2"], phases=[("Feed", "B1")])
    assert sorted(set(data.batches)) == ["B1", "B3"] and data.shape[0] == 7


def test_appended_batches_and_a_second_campaign_share_variables(runs, tmp_path):
    project, data = runs
    more = pd.DataFrame({"batch_id": ["B4"] * 3, "Phase": ["Growth", "Growth", "Feed"],
                         "Temp": [40.0, 41.0, np.nan], "Time": [0.0, 1.0, 2.0],
                         "Stir": [1.0, 2.0, 3.0]})
    aligned = project.align(data, "Time", points=5, relative=True, name="aligned")
    assert aligned.update() == ["up to date"]
    log = data.append(more, batch="batch_id")
    assert log[0] == "Appended 1 batches, 3 observations." and "Stir" in log[2]
    assert data.shape == (21, 3) and data.variable_names == ["Time", "Temp", "Stir"]
    assert data.batches[-3:] == ["B4"] * 3
    assert np.isnan(data.get_values(as_nan=True)[0, 2]) and data.values[-1, 2] == 3.0
    assert project.load("runs").fingerprint() == data.fingerprint()  # saved
    assert aligned.update()[0].endswith("1 batches added, 0 made again, 0 removed.")
    anew = project.align(data, "Time", points=5, relative=True, name="anew")
    assert np.array_equal(aligned.values, anew.values)
    assert project.load("aligned").fingerprint() == anew.fingerprint()
    before = data.fingerprint()
    with pytest.raises(ncds.Error, match='holds the batch "B4" already'):
        data.append(more, batch="batch_id")
    with pytest.raises(ncds.Error, match='"Temp" is qualitative'):
        data.append(more.assign(batch_id="B5", Temp="warm"), batch="batch_id")
    assert data.fingerprint() == before
    data.append(more.assign(Temp=7.0), batch="batch_id", replace=True)
    assert data.shape == (21, 3) and data.values[-1, 1] == 7.0

    # A file appended with `into`; a second campaign imported on its own takes the same
    # variables, so that its summaries merge into the same columns.
    path = tmp_path / "b5.csv"
    more.assign(batch_id="B5").to_csv(path, index=False)
    assert project.import_csv(path, into="runs", batch="batch_id").shape == (24, 3)
    second = project.import_csv(path, batch="batch_id", phase="Phase", name="second")
    assert second.variable_names == ["Temp", "Time", "Stir"]
    first = project.summarize(data, stats="Mean", variables=["Temp"], name="first")
    project.merge(first, project.summarize(second, stats="Mean", variables=["Temp"]))
    assert list(first.to_pandas().columns) == ["Temp_Mean"] and first.shape == (5, 1)
    matrix = project.add_matrix(np.ones((2, 1)), ["temp"])
    assert matrix.variables[0]["id"] == data.variables[1]["id"]
