#ifndef NCDS_SMOOTHING_SMOOTH_H
#define NCDS_SMOOTHING_SMOOTH_H

// Smoothing of a batch process's maturity (or time) vector: a noisy, possibly non-monotonic
// series becomes a smooth, strictly monotonic one, batch by batch. Each segment (batch) is
// first forced monotonic; when that had to change a value, a local trend is fitted over a
// sliding window with a hat matrix, and the fitted values are forced monotonic again.
//
// A hat matrix projects a window's centred values onto a local linear (and optionally
// quadratic) trend. It has no constant term: the window's mean is subtracted before it is
// applied and added back afterwards. The missing value is -99.
//
// The maturity of batch data is often the time since each batch started: the generated
// variable "$Time" (`CreateAndInsert_DollarTime`).

#include <boost/shared_ptr.hpp>

#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class BatchImportSettings;
class NCDataSet;

namespace Smooth {

// The n x n local-trend hat matrix. With positions t_i = i - (n + 1) / 2 for i = 1..n (integer
// division, so an even n is not symmetric about 0: n = 4 gives -1, 0, 1, 2) and u = t / |t|,
// H(i, j) = u_i u_j; with `quadratic`, q_i = u_i^2 - mean(u^2) adds q_i q_j / |q|^2. Computed in
// single precision. An n of 1 gives the single entry 0 / 0 (NaN); below 1 an empty matrix.
NCDS_EXPORT NCDataMatrix<float> GetHatMatrix(int n, bool quadratic);

// The hat matrix suited to a series of n points: below 6 points a linear window of n; from 6 to
// 30 a linear window of 5; from 31 on a quadratic window of trunc(sqrt(n) + 0.49999) points,
// made odd by adding 1 when even. Empty for n below 1.
NCDS_EXPORT NCDataMatrix<float> GetHatMatrix(int n);

// The smallest step allowed between neighbours of a smoothed series of n points running from
// `first` to `last`: |(last - first) / (n * k)| with k = 50 when `coarse`, else 1000. 0 for n
// below 1.
NCDS_EXPORT float GetAbsMinMaturityIncrement(float first, float last, int n, bool coarse);

// The smoothed copy of `values`, segment by segment; empty when `values` is null.
//
// Segments: `starts` holds 1-based first positions. Starts outside 1..size() and starts not
// above the previous accepted one are ignored; the values before the first accepted start form
// a segment of their own, so every value belongs to exactly one segment. A null or empty
// `starts` makes the whole vector one segment. Each segment is smoothed on its own:
//
// 1. Direction: the segment runs from `startValue` to `endValue`, or to m + `startValue` when
//    the two are equal (m the segment's length). It ascends when the start is below the end.
// 2. Gaps: NaN and infinite values count as missing. Missing values between two known ones are
//    interpolated linearly; a leading gap ramps linearly from `startValue` (at the segment's
//    first position) to the first known value, a trailing gap from the last known value to the
//    end value (at the segment's last position). An all-missing segment becomes an even ramp
//    from `startValue` to the end value (just `startValue` for a single value).
// 3. Minimum increment: GetAbsMinMaturityIncrement of the segment's first and last values,
//    or of `startValue` and the end value when the segment runs against the direction.
// 4. Each value that does not step beyond its predecessor by the increment in the direction is
//    moved to its predecessor plus the increment. When no value moved, when the window w (the
//    rows of `hat`) is below 3 or when the segment is shorter than 3, that is the result.
// 5. A segment shorter than w is fitted as a whole with the linear hat matrix of its length;
//    a longer one with `hat` moved along it: each value takes the fit at its own position from
//    the window centred on it (centre = floor(w / 2 - 0.01) rows into the window), and the
//    values closer to an end than that take theirs from the first or last window. The fit is
//    forced monotonic again: forward from the first window's centre, each value at least its
//    predecessor plus the increment, and backward from there toward the start, each value at
//    most its successor minus the increment (the other way round when descending).
//
// A null `hat` uses GetHatMatrix(m) for each segment. Non-finite `startValue` or `endValue`
// leave the values unsmoothed. Throws `InvalidArgument` for a hat that is not square.
NCDS_EXPORT NCDataVector<float> SmoothVector(const NCDataVector<float>* values,
                                             const NCIntegralVector<int, -99>* starts,
                                             float startValue, float endValue,
                                             const NCDataMatrix<float>* hat, bool coarse);

// Gives every row of a batch dataset its time since the start of its batch, in the column of
// the variable "$Time" (`BatchInfo::GetGeneratedTimeVariableName`).
//
// Time source, the first that applies:
// 1. the first date-time column whose accuracy is year..second: $Time is in hours (unit "h"),
//    whatever the accuracy (a month is 30 days, a year 360);
// 2. the first quantitative column named "Time" (ignoring case): $Time is in its unit;
// 3. the row's 1-based position in its batch: $Time counts rows, 0 for the batch's first.
// $Time is the row's time minus the first valid (not missing, finite) time of its batch, so
// it is 0 at that row. Rows with a missing time, and every row of a batch without a valid
// time, get missing. A difference of exactly -99 is stored as the float next to -99 towards
// zero, so that it is not read as missing.
//
// Batches: the runs of the rows in the observations' batch series when the project's
// observation container has one; otherwise the dataset's batches, in row order, with their
// observation counts (all phases), rows beyond them forming one more batch.
//
// The column: the first column whose variable is quantitative and named exactly "$Time" is
// recomputed in place. Otherwise a column is appended for the project's quantitative variable
// "$Time" when the project holds one (another dataset's $Time), else for a new one with a new
// unique ID: a Y variable, included unless the project already has an included Y. The
// variable's unit is set to that of the time.
//
// With `settings`, its source-variable map records the time variable as the source of $Time
// (the no-variable ID when the positions are the time and an earlier source is recorded).
//
// False, with nothing changed, for a null dataset, a dataset without a project or without
// batches (not batch data), and when the project's change check refuses the column (asked
// without the user). True otherwise.
NCDS_EXPORT bool CreateAndInsert_DollarTime(boost::shared_ptr<NCDataSet> dataset,
                                            BatchImportSettings* settings);

}  // namespace Smooth

#endif  // NCDS_SMOOTHING_SMOOTH_H
