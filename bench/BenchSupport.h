#ifndef NCDS_BENCH_BENCHSUPPORT_H
#define NCDS_BENCH_BENCHSUPPORT_H

// Helpers shared by the benchmarks.

#include <cstdint>
#include <string>

namespace ncds::bench {

// Resets the peak resident set size of this process (Linux), so that `PeakRssBytes` afterwards
// reports the peak of the work in between. False when the system cannot reset it.
bool ResetPeakRss();
// Peak resident set size (VmHWM) and current resident set size (VmRSS) in bytes.
std::int64_t PeakRssBytes();
std::int64_t CurrentRssBytes();

// A path for scratch files: $NCDS_BENCH_DIR if set, else the system's temporary folder.
std::string ScratchPath(const std::string& name);

}  // namespace ncds::bench

#endif  // NCDS_BENCH_BENCHSUPPORT_H
