#ifndef NCDS_BATCH_BATCHSTATISTICS_H
#define NCDS_BATCH_BATCHSTATISTICS_H

// Per-run statistics of one variable: the numbers behind batch-level datasets, where each row
// summarises a batch (or a batch's phase) by statistics of every variable over its rows.
//
// A run is a range of rows [begin, end) of a column. A cell counts as valid when its value is
// neither missing (-99) nor NaN/infinite, and, when a maturity column is given, its maturity is
// valid too; every other cell is skipped by every statistic. Without a maturity column a row's
// maturity is its position within its run (0 for the run's first row, missing rows included).
//
// Results are floats; a statistic that cannot be computed is -99 (missing):
//   - a run without valid cells gives N = 0 and -99 for everything else;
//   - StdDev, Variance (both sample statistics, divided by n - 1), Slope and Area need at least
//     two valid cells; Duration and Range of a single cell are 0;
//   - Slope over cells that all share one maturity, and any result that is not finite, is -99.
// Sums are accumulated in double. Area is the trapezoidal area of the valid cells in row order
// (a missing cell is bridged by its valid neighbours); it is signed, so falling maturities give
// a negative area. Everything but the median is found in one pass over a run; the median is
// selected (not sorted) in a scratch buffer, so there is no allocation per run.
//
// The functions keep no state; concurrent calls are safe as long as each has its own scratch.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ncds/ncds_export.h"

namespace BatchStatistics {

// The statistics. The values are stable (they may be stored); new ones are added at the end.
enum class Statistic : std::uint8_t {
  N,         // number of valid cells
  Duration,  // last minus first maturity of the valid cells
  First,     // first valid value
  Last,      // last valid value
  Min,
  Max,
  Range,  // Max - Min
  Mean,
  Median,    // the middle value; the mean of the two middle values for an even count
  StdDev,    // sample standard deviation (n - 1)
  Variance,  // sample variance (n - 1)
  Slope,     // least-squares slope of value over maturity
  Area,      // trapezoidal area under value over maturity
};
constexpr std::size_t kStatisticCount = 13;

// The name of a statistic as used in column names ("Mean" in "Temperature_Growth_Mean").
NCDS_EXPORT const char* Name(Statistic statistic);
// The statistic named `name`, ignoring case; false (and `out` untouched) for an unknown name.
NCDS_EXPORT bool Parse(const std::string& name, Statistic& out);

// Rows [begin, end) of a column; an empty run (begin == end) is allowed and has no valid cells.
struct Run {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// Computes `statistics` for each of `runs` over `values` (and `maturity`, which may be null)
// and writes them statistic by statistic: the result of statistics[k] for runs[r] goes to
// out[k * runs.size() + r], so each statistic's results are contiguous, as one column of a
// column-major matrix with a row per run. `out` must hold runs.size() * statistics.size()
// floats. The runs must lie within the columns; they may overlap and come in any order.
// `scratch` is used for the median and grows to the longest run only; reuse it across calls.
NCDS_EXPORT void Compute(const float* values, const float* maturity, const std::vector<Run>& runs,
                         const std::vector<Statistic>& statistics, float* out,
                         std::vector<float>& scratch);
// As above with a scratch buffer of its own (one allocation per call).
NCDS_EXPORT void Compute(const float* values, const float* maturity, const std::vector<Run>& runs,
                         const std::vector<Statistic>& statistics, float* out);

}  // namespace BatchStatistics

#endif  // NCDS_BATCH_BATCHSTATISTICS_H
