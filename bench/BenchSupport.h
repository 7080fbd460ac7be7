#ifndef NCDS_BENCH_BENCHSUPPORT_H
#define NCDS_BENCH_BENCHSUPPORT_H

// Helpers shared by the benchmarks.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

class VStreamBase;

namespace ncds::bench {

// Resets the peak resident set size of this process (Linux), so that `PeakRssBytes` afterwards
// reports the peak of the work in between. False when the system cannot reset it.
bool ResetPeakRss();
// Peak resident set size (VmHWM) and current resident set size (VmRSS) in bytes.
std::int64_t PeakRssBytes();
std::int64_t CurrentRssBytes();

// Single passes, repeated, reported as mean, median and spread: the median leaves out the first
// pass, which pays for the system's first touch of page cache and huge pages.
void Repeated(benchmark::internal::Benchmark* b);

// A path for scratch files: $NCDS_BENCH_DIR if set, else the system's temporary folder.
std::string ScratchPath(const std::string& name);

// Writes `object` to a new file at `path` in each iteration (the file is removed untimed
// first: ext4 flushes a file replaced by truncation when it is closed, which would time the
// disk rather than the writer), and reports the largest growth of the resident set during a
// write as "rss_growth/matrix", a fraction of `matrixBytes`. The file is removed at the end.
void TimeWriteToNewFile(benchmark::State& state, const VStreamBase& object, const std::string& path,
                        double matrixBytes);

}  // namespace ncds::bench

#endif  // NCDS_BENCH_BENCHSUPPORT_H
