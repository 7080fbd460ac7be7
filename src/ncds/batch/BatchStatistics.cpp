#include "ncds/batch/BatchStatistics.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace BatchStatistics {
namespace {

constexpr float kMissing = -99.0F;
constexpr std::uint32_t kMissingBits = 0xC2C60000U;   // the bits of -99.0F
constexpr std::uint32_t kExponentBits = 0x7F800000U;  // all set: NaN or infinity

constexpr const char* kNames[kStatisticCount] = {
    "N",    "Duration", "First",  "Last",     "Min",   "Max", "Range",
    "Mean", "Median",   "StdDev", "Variance", "Slope", "Area"};

// Neither missing nor NaN nor infinite; tested on the bits, which keeps the loops free of
// float compares.
inline bool IsValid(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits != kMissingBits && (bits & kExponentBits) != kExponentBits;
}

// What one pass over a run gathers. Value sums are taken relative to the first valid value
// (and maturity sums relative to the first valid maturity), so that the variance and the slope
// do not lose their digits to a large common offset.
struct Sums {
  std::size_t n = 0;
  std::size_t firstRow = 0;
  std::size_t lastRow = 0;
  double shift = 0;  // the first valid value
  double sum = 0;
  double sumSquares = 0;
  double min = 0;
  double max = 0;
  // With maturity statistics only.
  double firstTime = 0;
  double lastTime = 0;
  double sumTime = 0;
  double sumTimeSquares = 0;
  double sumTimeValue = 0;
  double area = 0;
};

// The maturity of row `row` in a run starting at `begin`.
template <bool kHasMaturity>
inline float TimeAt(const float* maturity, std::size_t row, std::size_t begin) {
  if constexpr (kHasMaturity) {
    return maturity[row];
  } else {
    return static_cast<float>(row - begin);
  }
}

// One pass over rows [begin, end): moments, extremes, ends, and (kTime) the maturity sums;
// with kMedian the valid values are also copied to `scratch`, which has room for the run.
template <bool kHasMaturity, bool kTime, bool kMedian>
Sums Accumulate(const float* values, const float* maturity, std::size_t begin, std::size_t end,
                float* scratch) {
  Sums s;
  std::size_t row = begin;
  while (row < end && !(IsValid(values[row]) &&
                        (!kHasMaturity || IsValid(TimeAt<kHasMaturity>(maturity, row, begin))))) {
    ++row;
  }
  if (row == end) return s;
  s.firstRow = row;
  s.shift = values[row];
  s.min = s.max = s.shift;
  double previousTime = 0;
  double previousValue = 0;
  if constexpr (kTime) {
    s.firstTime = TimeAt<kHasMaturity>(maturity, row, begin);
    previousTime = s.firstTime;
    previousValue = s.shift;
  }
  std::size_t n = 0;
  std::size_t last = row;
  double sum = 0;
  double sumSquares = 0;
  double min = s.min;
  double max = s.max;
  for (; row < end; ++row) {
    const float value = values[row];
    bool ok = IsValid(value);
    float time = 0;
    if constexpr (kHasMaturity || kTime) {
      time = TimeAt<kHasMaturity>(maturity, row, begin);
      if constexpr (kHasMaturity) ok = ok && IsValid(time);
    }
    if constexpr (kMedian) scratch[n] = value;  // kept only when `ok` advances n
    const double v = value;
    const double d = ok ? v - s.shift : 0.0;
    n += ok ? 1 : 0;
    sum += d;
    sumSquares += d * d;
    min = std::min(min, ok ? v : min);
    max = std::max(max, ok ? v : max);
    last = ok ? row : last;
    if constexpr (kTime) {
      if (ok) {
        const double t = time;
        const double dt = t - s.firstTime;
        s.sumTime += dt;
        s.sumTimeSquares += dt * dt;
        s.sumTimeValue += dt * d;
        s.area += 0.5 * (t - previousTime) * (v + previousValue);
        previousTime = t;
        previousValue = v;
      }
    }
  }
  s.n = n;
  s.lastRow = last;
  s.sum = sum;
  s.sumSquares = sumSquares;
  s.min = min;
  s.max = max;
  s.lastTime = previousTime;
  return s;
}

using AccumulateFn = Sums (*)(const float*, const float*, std::size_t, std::size_t, float*);

template <bool kHasMaturity>
AccumulateFn Pick(bool time, bool median) {
  if (time) {
    return median ? Accumulate<kHasMaturity, true, true> : Accumulate<kHasMaturity, true, false>;
  }
  return median ? Accumulate<kHasMaturity, false, true> : Accumulate<kHasMaturity, false, false>;
}

// Moves the k-th smallest of a[0, n) to a[k], smaller ones before it and larger ones after.
// Runs are short and their values random, where std::nth_element pays a mispredicted branch
// for about every other comparison; this quickselect partitions without branches (Lomuto with
// an unconditional swap) and hands the last few elements, or whatever remains after 64 rounds
// (pivots chosen badly again and again), to std::nth_element.
void Select(float* a, std::size_t n, std::size_t k) {
  std::size_t lo = 0;
  std::size_t hi = n;
  int rounds = 64;
  while (hi - lo > 6 && rounds-- > 0) {
    // The median of the first, middle and last element as the pivot, placed at hi - 1.
    float* first = a + lo;
    float* middle = a + lo + (hi - lo) / 2;
    float* last = a + hi - 1;
    if (*middle < *first) std::swap(*middle, *first);
    if (*last < *middle) std::swap(*last, *middle);
    if (*middle < *first) std::swap(*middle, *first);
    std::swap(*middle, *last);
    const float pivot = *last;
    std::size_t store = lo;
    for (std::size_t i = lo; i + 1 < hi; ++i) {
      const float x = a[i];
      a[i] = a[store];
      a[store] = x;
      store += x < pivot ? 1 : 0;
    }
    std::swap(a[store], *last);
    if (k == store) return;
    if (store == lo) {
      // Nothing is below the pivot: gather its equals behind it, so that a run of one repeated
      // value takes two passes rather than one per element.
      std::size_t equal = lo + 1;
      for (std::size_t i = lo + 1; i < hi; ++i) {
        const float x = a[i];
        a[i] = a[equal];
        a[equal] = x;
        equal += x <= pivot ? 1 : 0;
      }
      if (k < equal) return;
      lo = equal;
      continue;
    }
    if (k < store) {
      hi = store;
    } else {
      lo = store + 1;
    }
  }
  std::nth_element(a + lo, a + k, a + hi);
}

// The middle of the first n floats at `scratch` (reordered), by selection.
double Median(float* scratch, std::size_t n) {
  float* middle = scratch + n / 2;
  Select(scratch, n, n / 2);
  if (n % 2 != 0) return *middle;
  // The lower middle value is the largest of the lower half that the selection left in front.
  const double lower = *std::max_element(scratch, middle);
  return 0.5 * (lower + *middle);
}

// `result` as a float, or missing when it is not finite as one.
inline float Finite(double result) {
  const float f = static_cast<float>(result);
  return std::isfinite(f) ? f : kMissing;
}

double Variance(const Sums& s) {
  const double n = static_cast<double>(s.n);
  return std::max(0.0, s.sumSquares - s.sum * s.sum / n) / (n - 1.0);
}

float Result(Statistic statistic, const Sums& s, const float* values, float* scratch) {
  if (statistic == Statistic::N) return static_cast<float>(s.n);
  if (s.n == 0) return kMissing;
  const bool two = s.n >= 2;
  const double n = static_cast<double>(s.n);
  switch (statistic) {
    case Statistic::N:
      break;
    case Statistic::Duration:
      return Finite(s.lastTime - s.firstTime);
    case Statistic::First:
      return values[s.firstRow];
    case Statistic::Last:
      return values[s.lastRow];
    case Statistic::Min:
      return static_cast<float>(s.min);
    case Statistic::Max:
      return static_cast<float>(s.max);
    case Statistic::Range:
      return Finite(s.max - s.min);
    case Statistic::Mean:
      return Finite(s.shift + s.sum / n);
    case Statistic::Median:
      return Finite(Median(scratch, s.n));
    case Statistic::StdDev:
      return two ? Finite(std::sqrt(Variance(s))) : kMissing;
    case Statistic::Variance:
      return two ? Finite(Variance(s)) : kMissing;
    case Statistic::Slope: {
      if (!two) return kMissing;
      const double spread = s.sumTimeSquares - s.sumTime * s.sumTime / n;
      if (!(spread > 0)) return kMissing;
      return Finite((s.sumTimeValue - s.sumTime * s.sum / n) / spread);
    }
    case Statistic::Area:
      return two ? Finite(s.area) : kMissing;
  }
  return kMissing;
}

}  // namespace

const char* Name(Statistic statistic) {
  const auto index = static_cast<std::size_t>(statistic);
  return index < kStatisticCount ? kNames[index] : "";
}

bool Parse(const std::string& name, Statistic& out) {
  for (std::size_t i = 0; i < kStatisticCount; ++i) {
    const char* candidate = kNames[i];
    const std::size_t length = std::strlen(candidate);
    if (name.size() != length) continue;
    bool same = true;
    for (std::size_t c = 0; c < length && same; ++c) {
      same = std::tolower(static_cast<unsigned char>(name[c])) ==
             std::tolower(static_cast<unsigned char>(candidate[c]));
    }
    if (same) {
      out = static_cast<Statistic>(i);
      return true;
    }
  }
  return false;
}

void Compute(const float* values, const float* maturity, const std::vector<Run>& runs,
             const std::vector<Statistic>& statistics, float* out, std::vector<float>& scratch) {
  bool time = false;
  bool median = false;
  for (const Statistic statistic : statistics) {
    time = time || statistic == Statistic::Duration || statistic == Statistic::Slope ||
           statistic == Statistic::Area;
    median = median || statistic == Statistic::Median;
  }
  if (median) {
    std::size_t longest = 0;
    for (const Run& run : runs) {
      if (run.end > run.begin) longest = std::max(longest, run.end - run.begin);
    }
    if (scratch.size() < longest) scratch.resize(longest);
  }
  const AccumulateFn accumulate = maturity ? Pick<true>(time, median) : Pick<false>(time, median);
  const std::size_t runCount = runs.size();
  for (std::size_t r = 0; r < runCount; ++r) {
    const Sums s = accumulate(values, maturity, runs[r].begin, runs[r].end, scratch.data());
    for (std::size_t k = 0; k < statistics.size(); ++k) {
      out[k * runCount + r] = Result(statistics[k], s, values, scratch.data());
    }
  }
}

void Compute(const float* values, const float* maturity, const std::vector<Run>& runs,
             const std::vector<Statistic>& statistics, float* out) {
  std::vector<float> scratch;
  Compute(values, maturity, runs, statistics, out, scratch);
}

}  // namespace BatchStatistics
