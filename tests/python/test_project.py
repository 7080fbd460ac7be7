"""The Python package over a project the command-line tool made from the example data."""

import os
import shutil
import sqlite3
import subprocess

import numpy as np
import pytest

import ncds

CLI = os.environ.get("NCDS_CLI", "ncds")
DATA = os.environ.get("NCDS_EXAMPLE_DATA", "examples/data/fermentation.csv")


@pytest.fixture(scope="module")
def project_path(tmp_path_factory):
    path = tmp_path_factory.mktemp("ncds") / "fermentation.ncds"
    for args in (["import", DATA, str(path), "--id", "ObsID", "--batch", "Batch", "--phase",
                  "Phase"],
                 ["summarize", str(path), "1", "--by-phase", "--variables", "pH,Biomass",
                  "--stats", "Mean,Max", "--name", "levels"]):
        subprocess.run([CLI, *args], check=True, capture_output=True)
    return path


def test_values_are_a_read_only_view_that_outlives_the_project(project_path):
    with ncds.open(project_path) as project:
        assert [d[1] for d in project.datasets()] == ["fermentation", "levels"]
        data = project.load("fermentation")
        assert project.load(1).shape == data.shape
    assert data.kind == "batch"
    values = data.values
    assert values.shape == data.shape and values.dtype == np.float32
    assert not values.flags.writeable
    with pytest.raises(ValueError):
        values[0, 0] = 1.0
    # Two views share the dataset's own cells: no copy was made.
    assert np.shares_memory(values, data.values)
    names = data.variable_names
    ph = values[:, names.index("pH")]
    assert 6.0 < float(ph[ph != -99].mean()) < 8.0
    nan = data.get_values(as_nan=True)
    assert not np.shares_memory(nan, values)
    assert np.array_equal(np.isnan(nan), values == -99)


def test_to_pandas_decodes_and_indexes_batches(project_path):
    with ncds.open(project_path) as project:
        data = project.load("fermentation")
        levels = project.load("levels")
    frame = data.to_pandas()
    assert list(frame.index.names) == ["batch", "phase", "observation"]
    assert frame.index.get_level_values("batch")[0] == "B01"
    assert str(frame["Time"].dtype).startswith("datetime64")
    assert frame.shape == data.shape
    summary = levels.to_pandas()
    assert summary.index.name == "observation" and summary.index[0] == "B01"
    assert "pH_Growth_Mean" in summary.columns
    by_batch = frame.groupby(level="batch")["Biomass"].max()
    peak = summary[[c for c in summary.columns if c.startswith("Biomass_") and
                    c.endswith("_Max")]].max(axis=1)
    assert np.allclose(peak.values, by_batch.loc[peak.index].values, rtol=1e-5)


def test_errors_arrive_as_ncds_error(project_path, tmp_path):
    with ncds.open(project_path) as project:
        with pytest.raises(ncds.Error, match="no dataset nothing"):
            project.load("nothing")
    with pytest.raises(ncds.Error, match="is closed"):
        project.datasets()
    with pytest.raises(ncds.Error):
        ncds.open(tmp_path / "absent.ncds")
    fresh = ncds.open(tmp_path / "new.ncds", create=True)
    assert fresh.datasets() == [] and fresh.damaged() == []
    assert ncds.Project().datasets() == [] and ncds.Project().damaged() == []
    # A file whose dataset values are damaged opens; the damage is named.
    damaged = tmp_path / "damaged.ncds"
    shutil.copy(project_path, damaged)
    with sqlite3.connect(damaged) as db:
        blob = db.execute("SELECT blob FROM ncds_chunk WHERE stream = 'dataset/2'").fetchone()[0]
        data = bytearray(db.execute("SELECT data FROM ncds_blob WHERE id = ?", (blob,)).fetchone()[0])
        data[len(data) // 2] ^= 0x20
        db.execute("UPDATE ncds_blob SET data = ? WHERE id = ?", (bytes(data), blob))
    with ncds.open(damaged) as project:
        assert project.damaged() == ['The values of dataset 2 "levels" are damaged: the dataset '
                                     'cannot be read; `ncds delete` removes it.']
        assert project.load(1).shape[0] > 0


def test_add_matrix_takes_nan_as_missing_and_checks_the_shape():
    project = ncds.Project()
    values = np.array([[1.0, np.nan], [3.0, 4.0], [-99.0, 6.0]], dtype=np.float64)
    data = project.add_matrix(values, ["a", "b"], ids=["r1", "r2", "r3"], name="m")
    assert data.shape == (3, 2) and data.observation_ids == ["r1", "r2", "r3"]
    assert data.values[0, 1] == -99 and data.values[2, 0] == -99 and data.values[1, 1] == 4
    frame = data.to_pandas()
    assert frame.loc["r2", "b"] == 4 and np.isnan(frame.loc["r1", "b"])
    assert list(frame.columns) == ["a", "b"]
    with pytest.raises(ncds.Error, match="match the matrix"):
        project.add_matrix(values, ["a"])
    # Columns (strided views here) give the same dataset; columns of unequal length are refused.
    columns = project.add_matrix([values[:, 0], values[:, 1]], ["a", "b"], name="columns")
    assert columns.values.tolist() == data.values.tolist()
    with pytest.raises(ncds.Error, match="must be a matrix"):
        project.add_matrix([values[:, 0], values[:2, 1]], ["a", "b"])
    assert [d[1] for d in project.datasets()] == ["m", "columns"]
    # Batch rows come grouped by batch, in order of first appearance.
    runs = project.add_matrix(values, ["a", "b"], name="runs", batches=["B2", "B1", "B2"],
                              phases=["P", "P", "Q"])
    assert runs.kind == "batch" and runs.batches == ["B2", "B2", "B1"]
    assert runs.phases == ["P", "Q", "P"] and runs.observation_ids == ["1", "3", "2"]
    assert runs.values[1, 0] == -99 and runs.values[2, 0] == 3
    codes, names = runs.batch_codes
    assert names == ["B2", "B1"] and codes.tolist() == [0, 0, 1]
    # Categoricals give their codes (categories nothing uses are left out); a row without a
    # batch is refused.
    import pandas as pd
    categories = ["B0", "B1", "B2", "B3"]
    same = project.add_matrix(values, ["a", "b"],
                              batches=pd.Categorical(["B2", "B1", "B2"], categories=categories),
                              phases=pd.Series(["P", "P", "Q"], dtype="category"))
    assert same.batches == runs.batches and same.phases == runs.phases
    with pytest.raises(ncds.Error, match="Row 2 has no batch"):
        project.add_matrix(values, ["a", "b"],
                           batches=pd.Categorical(["B3", None, "B3"], categories=categories))
    # A scratch project stores nothing; its datasets still work and get numbers of their own.
    scratch = ncds.Project._scratch()
    first = scratch.add_matrix(values, ["a", "b"], batches=["B2", "B1", "B2"])
    again = scratch.add_matrix([values[:, 0], values[:, 1]], ["a", "b"],
                               batches=["B2", "B1", "B2"])  # columns regrouped as rows are
    assert scratch.datasets() == [] and first.number != again.number
    assert again.observation_ids == runs.observation_ids and again.batches == runs.batches
    assert again.values.tolist() == runs.values.tolist()
    with pytest.raises(ncds.Error, match="no dataset"):
        scratch.load(first.number)
    # A scratch dataset that nothing else holds hands its matrix over and is left empty; one
    # with a view out, or of another project, is copied and keeps its values.
    taken = first._take_values()
    assert taken.flags.writeable and taken.tolist() == runs.values.tolist()
    assert first.shape == (0, 0) and first.values.shape == (0, 0)
    view = again.values
    copied = again._take_values()
    assert copied.tolist() == view.tolist() and not np.shares_memory(copied, view)
    assert again.shape == (3, 2) and np.shares_memory(again.values, view)
    runs._take_values()[0, 0] = 7
    assert runs.values[0, 0] == 1
