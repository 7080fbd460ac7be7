"""Benchmarks of the Python package, each against its peer in the same run.

    PYTHONPATH=build/bench/python /usr/bin/python3 bench/python_bench.py [--rows N] [--repeat R]

- `dataset.values` of a 1,000,000 x 100 dataset (a view, no copy), against the time numpy
  takes to copy the same matrix once;
- `dataset.to_pandas()`, against `pandas.DataFrame` built from the same values as numpy
  columns (NaN for missing) with the same index;
- with `--dask`: aligning 10,000 batches (100 rows, 3 phases, 10 variables) through
  `ncds.dask` on a LocalCluster of two worker processes, against the same call run in one
  process (Dask's synchronous scheduler), onto absolute grids and on relative maturity, with
  glibc's default memory trimming and with the one Dask gives its workers; the two sides take
  turns call by call, and with them a stand-in whose partitions only burn the CPU time the
  single process spent in its tasks (what Dask and the machine allow), and one whose
  partitions do nothing (what a call costs Dask alone). `--batch-rows` and `--variables`
  change the size of a batch.
Each figure is the median of R runs.
"""

import argparse
import itertools
import statistics
import sys
import time

import numpy as np
import pandas as pd

import ncds


def median_seconds(work, repeat):
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--columns", type=int, default=100)
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--dask", action="store_true")
    parser.add_argument("--dask-single", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--batches", type=int, default=10_000)
    parser.add_argument("--batch-rows", type=int, default=100)
    parser.add_argument("--variables", type=int, default=10)
    parser.add_argument("--partition-batches", type=int, default=500)
    args = parser.parse_args()
    shape = (args.batches, args.batch_rows, args.variables)
    if args.dask_single:
        return _single_process(shape, args.partition_batches)
    if args.dask:
        return dask_alignment(shape, args.partition_batches, args.repeat)

    rng = np.random.default_rng(7)
    values = rng.standard_normal((args.rows, args.columns), dtype=np.float32)
    values[rng.random(values.shape) < 0.01] = np.nan
    names = [f"X{j}" for j in range(args.columns)]
    data = ncds.Project().add_matrix(values, names, name="bench")
    ids = data.observation_ids

    view = median_seconds(lambda: data.values, args.repeat)
    copy = median_seconds(lambda: np.array(values, order="F"), args.repeat)
    print(f"values view      {view * 1e3:9.3f} ms   (numpy copy of the matrix {copy * 1e3:.1f} ms)")

    ours = median_seconds(data.to_pandas, args.repeat)
    columns = {n: values[:, j] for j, n in enumerate(names)}  # the same arrays, NaN for missing

    def peer():
        return pd.DataFrame(columns, index=pd.Index(ids, name="observation"))

    theirs = median_seconds(peer, args.repeat)
    print(f"to_pandas        {ours * 1e3:9.1f} ms   pandas.DataFrame {theirs * 1e3:.1f} ms   "
          f"ratio {ours / theirs:.2f}")


def _burn(partition, seconds, _):
    """A stand-in partition task that only spends `seconds` of CPU time in its own thread (what
    a worker's other threads spend meanwhile is not the task's work)."""
    start = time.thread_time()
    while time.thread_time() - start < seconds:
        pass
    return partition.iloc[:0]


def _batch_data(batch_count, per_batch, variables):
    """`variables` variables over `batch_count` batches of `per_batch` rows in 3 phases (a
    quarter, a half, a quarter); V0 is the maturity."""
    rng = np.random.default_rng(5)
    values = rng.standard_normal((batch_count * per_batch, variables), dtype=np.float32)
    values[:, 0] = np.tile(np.arange(per_batch, dtype=np.float32), batch_count)
    batches = pd.Categorical.from_codes(np.repeat(np.arange(batch_count), per_batch),
                                        categories=[f"B{b:05d}" for b in range(batch_count)])
    quarter = per_batch // 4
    phases = pd.Categorical.from_codes(
        np.tile(np.repeat([0, 1, 2], [quarter, per_batch - 2 * quarter, quarter]), batch_count),
        categories=["Heat", "React", "Cool"])
    return ncds.Project().add_matrix(values, [f"V{j}" for j in range(variables)],
                                     batches=batches, phases=phases)


_POINTS = {"Heat": 20, "React": 40, "Cool": 20}
_MODES = {"absolute grids": False, "relative maturity": True}


def _single_process(shape, per_partition):
    """Serves timed single-process alignments: reads a mode per line, answers the seconds the
    alignment took, the seconds its tasks took (without the scheduler's own work) and, onto
    absolute grids, the seconds the tasks of its measuring pass alone take."""
    import dask
    from dask.callbacks import Callback

    import ncds.dask as nd

    class TaskTime(Callback):
        """Adds up the time spent inside the tasks of a synchronous computation."""

        def __init__(self):
            super().__init__()
            self.seconds = 0.0
            self._started = 0.0

        def _pretask(self, key, dsk, state):
            self._started = time.perf_counter()

        def _posttask(self, key, result, dsk, state, worker_id):
            self.seconds += time.perf_counter() - self._started

    frame = nd.from_dataset(_batch_data(*shape),
                            batches_per_partition=per_partition).persist(scheduler="sync")
    with dask.config.set(scheduler="sync"):
        print("ready", flush=True)
        for line in sys.stdin:
            relative = _MODES[line.strip()]
            start = time.perf_counter()
            with TaskTime() as tasks:
                nd.align(frame, "V0", phase_points=_POINTS, relative=relative).persist()
            seconds = time.perf_counter() - start
            measuring = TaskTime()
            if not relative:
                with measuring:
                    nd._extent(frame, "V0", 100, _POINTS, False).compute()
            print(seconds, tasks.seconds, measuring.seconds, flush=True)


def dask_alignment(shape, per_partition, repeat):
    import os
    import subprocess

    import dask
    import distributed

    import ncds.dask as nd

    data = _batch_data(*shape)
    batch_count = shape[0]

    def on_cluster(frame, relative, client):
        start = time.perf_counter()
        # The aligned partitions stay where they were made, as a pipeline's next step wants.
        aligned = nd.align(frame, "V0", phase_points=_POINTS, relative=relative).persist()
        distributed.wait(aligned)
        seconds = time.perf_counter() - start
        # The next call has the same keys: let the scheduler forget these first.
        keys = {f.key for f in client.futures_of(aligned)}
        del aligned
        while client.run_on_scheduler(
                lambda dask_scheduler, keys=keys: any(k in dask_scheduler.tasks for k in keys)):
            time.sleep(0.01)
        return seconds

    # Dask starts its workers with MALLOC_TRIM_THRESHOLD_=65536: glibc then hands freed memory
    # back at once. Both sides are measured in both settings: the single process is a child
    # started with the workers' environment. The two sides take turns, call by call, so that
    # a machine that slows down or speeds up meanwhile does so for both.
    default = dask.config.get("distributed.nanny.pre-spawn-environ")
    settings = {
        "glibc's default": {k: v for k, v in default.items() if k != "MALLOC_TRIM_THRESHOLD_"},
        "Dask's worker default": default,
    }
    for label, environ in settings.items():
        env = {k: v for k, v in os.environ.items() if k != "MALLOC_TRIM_THRESHOLD_"}
        env.update({k: str(v) for k, v in environ.items()})
        single = subprocess.Popen(
            [sys.executable, __file__, "--dask-single", "--batches", str(batch_count),
             "--batch-rows", str(shape[1]), "--variables", str(shape[2]),
             "--partition-batches", str(per_partition)],
            env=env, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        single.stdout.readline()  # ready

        def in_one_process(mode, single=single):
            single.stdin.write(mode + "\n")
            single.stdin.flush()
            return [float(t) for t in single.stdout.readline().split()]

        with dask.config.set({"distributed.nanny.pre-spawn-environ": environ}), \
                distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                         dashboard_address=None) as cluster, \
                distributed.Client(cluster) as client:
            frame = client.persist(nd.from_dataset(data,
                                                   batches_per_partition=per_partition))
            distributed.wait(frame)
            client.rebalance(frame)  # half the partitions on each worker, as a cluster holds them
            calls = itertools.count()  # new keys for every stand-in call

            def on_stand_in(busy, measuring):
                """What Dask and this machine allow: partitions that only burn CPU time, on the
                same cluster and in the same shape of work: with `measuring`, a first pass that
                burns that much per partition and is gathered into one result, as alignment
                onto absolute grids measures all partitions first, then `busy` per partition."""
                start = time.perf_counter()
                after = next(calls)
                if measuring:
                    after = dask.delayed(len)([dask.delayed(_burn)(part, measuring, after)
                                               for part in frame.to_delayed()])
                distributed.wait(frame.map_partitions(_burn, busy, after,
                                                      meta=frame._meta).persist())
                return time.perf_counter() - start

            times = {mode: ([], [], [], [], []) for mode in _MODES}
            # The first round pays for imports and fresh memory; the modes take turns too.
            for _, (mode, relative) in itertools.product(range(repeat + 1), _MODES.items()):
                ones, tasks, twos, floors, empties = times[mode]
                seconds, in_tasks, measuring = in_one_process(mode)
                ones.append(seconds)
                tasks.append(in_tasks)
                twos.append(on_cluster(frame, relative, client))
                # The stand-in gets the time this very call's tasks took in one process, and
                # once nothing at all: what a call of this shape costs Dask alone.
                parts = frame.npartitions
                floors.append(on_stand_in((in_tasks - measuring) / parts, measuring / parts))
                empties.append(on_stand_in(0.0, 1e-9 if measuring else 0.0))
            for mode, samples in times.items():
                one, task, two, floor, empty = (statistics.median(t[1:]) for t in samples)
                # Each call against the stand-in of its own round, which ran right after it.
                within = statistics.median(t / f for t, f in zip(samples[2][1:], samples[3][1:]))
                print(f"dask align {batch_count} batches x {shape[1]} rows x {shape[2]} "
                      f"variables, {frame.npartitions} partitions, {mode}, {label}: one process "
                      f"{one:.3f} s ({task:.3f} s in tasks), two workers {two:.3f} s, speed-up "
                      f"{one / two:.2f}x; CPU-only partitions of the same cost {floor:.3f} s "
                      f"({one / floor:.2f}x), ncds within {within:.2f}x of that; empty "
                      f"partitions {empty:.3f} s")
        single.stdin.close()
        single.wait()


if __name__ == "__main__":
    main()
