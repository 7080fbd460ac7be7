"""ncds.dask on a LocalCluster of two workers against the single-process results."""

import numpy as np
import pytest

import ncds

distributed = pytest.importorskip("distributed")
import dask.dataframe as dd  # noqa: E402
import ncds.dask as nd  # noqa: E402


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       dashboard_address=None)
    with distributed.Client(cluster) as client:
        yield client
    cluster.close()


@pytest.fixture(scope="module")
def runs():
    rng = np.random.default_rng(3)
    batches, phases, rows = [], [], []
    for b in range(12):
        length = 20 + b
        for k in range(length):
            batches.append(f"B{b:02d}" if b != 7 else "B07-Kühler")  # names are UTF-8
            phases.append("Growth" if k < length // 2 else "Feed")
            rows.append([k * (1.0 + 0.1 * b), rng.normal(30, 1), rng.normal(7, 0.1)])
    values = np.array(rows)
    values[5, 1] = np.nan
    project = ncds.Project()
    data = project.add_matrix(values, ["Time", "Temp", "pH"], name="runs", batches=batches,
                              phases=phases)
    return project, data


def test_alignment_and_summaries_on_two_workers_match_one_process(client, runs):
    project, data = runs
    frame = nd.from_dataset(data, batches_per_partition=5)
    assert frame.npartitions == 3
    # Batches of different lengths and speeds: absolute grids span what all partitions reach.
    for options in ({"phase_points": {"Growth": 5, "Feed": 7}, "relative": True},
                    {"phase_points": {"Growth": 5, "Feed": 7}}, {"points": 9, "extend": True}):
        aligned = nd.align(frame, "Time", **options).compute()
        single = project.align(data, "Time", name="single", **options)
        assert list(aligned["observation"]) == single.observation_ids
        assert list(aligned["batch"]) == single.batches and list(aligned["phase"]) == single.phases
        assert np.array_equal(aligned[["Time", "Temp", "pH"]].to_numpy(np.float32),
                              single.get_values(as_nan=True), equal_nan=True)

    # Every aligned partition keeps the categories of the partition it came from.
    middle = nd.align(frame, "Time", points=9, relative=True).partitions[1].compute()
    assert middle["batch"].dtype == frame.partitions[1].compute()["batch"].dtype
    # Categories in another order than the rows: the batches still follow the rows.
    def flip(part):
        return part.assign(batch=part["batch"].cat.reorder_categories(
            part["batch"].cat.categories[::-1]))

    flipped = nd.align(frame.map_partitions(flip, meta=flip(frame._meta)), "Time", points=9,
                       relative=True).compute()
    assert list(flipped["batch"]) == project.align(data, "Time", points=9, relative=True,
                                                   name="flipped").batches

    # A batch whose rows are not together aligns as a dataset of those rows does.
    part = frame.partitions[0].compute()
    split = part.iloc[np.r_[0:10, 20:41, 10:20]]  # B00, B01, the rest of B00
    aligned = nd.align(dd.from_pandas(split, npartitions=1, sort=False), "Time", points=9,
                       relative=True).compute()
    alone = project.add_matrix(split[["Time", "Temp", "pH"]].to_numpy(), ["Time", "Temp", "pH"],
                               batches=list(split["batch"]), phases=list(split["phase"]))
    assert np.array_equal(aligned[["Time", "Temp", "pH"]].to_numpy(np.float32),
                          project.align(alone, "Time", points=9, relative=True).values)

    levels = nd.summarize(frame, stats=["Mean", "Max", "Slope"], by_phase=True,
                          maturity="Time").compute()
    reference = project.summarize(data, stats=["Mean", "Max", "Slope"], by_phase=True,
                                  maturity="Time", name="reference").to_pandas()
    assert list(levels.index) == list(reference.index)
    assert np.allclose(levels.to_numpy(), reference.to_numpy(), equal_nan=True)
    with pytest.raises(ValueError, match="not a batch dataset"):
        nd.from_dataset(project.load("reference"))


def test_many_project_files_become_one_collection(client, runs, tmp_path):
    _, data = runs
    paths = []
    for k in range(2):
        path = tmp_path / f"plant{k}.ncds"
        with ncds.open(path, create=True) as project:
            rows = slice(0, 86) if k == 0 else slice(86, data.shape[0])  # at a batch start
            values, names = data.values[rows], data.variable_names
            if k == 1:  # the second plant measures one variable more
                values, names = np.c_[values, np.ones(len(values))], names + ["Stir"]
            project.add_matrix(values, names, name="runs", batches=data.batches[rows],
                               phases=data.phases[rows])
        paths.append(path)
    frame = nd.from_projects(paths, "runs", batches_per_partition=3)
    assert frame.npartitions == 5
    whole = frame.compute()
    assert list(whole["batch"]) == data.batches
    expected = data.get_values(as_nan=True)
    assert np.array_equal(whole[["Time", "Temp", "pH"]].to_numpy(np.float32), expected,
                          equal_nan=True)
    # The union of the columns, NaN where a file lacks one or a value is missing, so that
    # pandas' reductions skip them.
    assert list(whole.columns[3:]) == ["Time", "Temp", "pH", "Stir"]
    assert whole["Stir"].isna().sum() == 86 and whole["Stir"].dtype == np.float32
    assert whole["Temp"].mean() == pytest.approx(np.nanmean(expected[:, 1]), rel=1e-6)
    aligned = nd.align(frame, "Time", points=9).compute()
    project = ncds.Project()
    single = project.add_matrix(data.values, data.variable_names, batches=data.batches,
                                phases=data.phases)
    assert np.array_equal(aligned[["Time", "Temp", "pH"]].to_numpy(np.float32),
                          project.align(single, "Time", points=9).get_values(as_nan=True),
                          equal_nan=True)


def test_default_partitions_fill_a_budget_with_whole_batches(runs, monkeypatch):
    _, data = runs
    assert nd.from_dataset(data).npartitions == 1  # 306 rows, far below 64 MiB
    # A budget of 60 rows: partitions start with the first batch at or after rows 0, 60, 120,
    # ... (the batches start at rows 0, 20, 41, 63, 86, 110, 135, 161, 188, 216, 245, 275).
    monkeypatch.setattr(nd, "_PARTITION_BYTES", 60 * (4 * 3 + nd._KEY_BYTES))
    parts = [p.compute(scheduler="sync") for p in nd.from_dataset(data).to_delayed()]
    assert [p["batch"].iloc[0] for p in parts] == ["B00", "B03", "B06", "B08", "B10"]
    assert sum(p["batch"].nunique() for p in parts) == 12  # no batch in two partitions
    assert sum((list(p["observation"]) for p in parts), []) == data.observation_ids
    with pytest.raises(ValueError, match="1 or more"):
        nd.from_dataset(data, batches_per_partition=0)
