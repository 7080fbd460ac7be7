#include "ncds/batch/BatchAligner.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <istream>
#include <ostream>
#include <vector>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"

namespace ncds::detail {
namespace {

constexpr float kMissing = -99.0F;
constexpr std::int16_t kVersion = 3;
constexpr std::int16_t kOldVersion = 2;
constexpr std::uint16_t kNumberOfTags = 3;
constexpr std::uint16_t kTagGrid = 0;
constexpr std::uint16_t kTagAscending = 3;
constexpr std::uint16_t kTagExtrapolate = 4;

// How a grid point's value comes out of its bracket (x0, y0), (x1, y1).
enum EndMode { kFree = 0, kHold = 1, kCut = 2 };

bool IsMissingMaturity(float value) { return value == kMissing || std::isnan(value); }

// The value at `t` between (x0, y0) and (x1, y1).
float Interpolate(float x0, float y0, float x1, float y1, float t, EndMode mode) {
  if (t == kMissing) return kMissing;
  if (x0 == kMissing || x1 == kMissing || y0 == kMissing || y1 == kMissing) {
    if (BatchAligner::CompareTolerant(t, x0) == 0) return y0;
    if (BatchAligner::CompareTolerant(t, x1) == 0) return y1;
    return kMissing;
  }
  if (BatchAligner::CompareTolerant(x1, x0) == 0) return y0;
  const bool above = t > x0 && t > x1;
  const bool below = t < x0 && t < x1;
  if (mode == kHold) {
    if (above) return x0 > x1 ? y0 : y1;
    if (below) return x1 > x0 ? y0 : y1;
  } else if (mode == kCut && (above || below)) {
    return kMissing;
  }
  return y0 + (t - x0) / (x1 - x0) * (y1 - y0);
}

// The bracket of one grid point, which depends on the maturities only: the upper index k of
// (k - 1, k), the end mode, and what the point's value is when neither value of the bracket
// is missing (the common case, which then needs no comparison at all).
struct Bracket {
  enum Kind : std::uint8_t { kMissingValue, kLower, kUpper, kBetween };
  int k;
  EndMode mode;
  Kind kind;
  float ratio;  // of the way from maturity k - 1 to k, for kBetween

  // The value between the bracket's values y0 and y1, neither of them missing.
  float Value(float y0, float y1) const {
    switch (kind) {
      case kLower:
        return y0;
      case kUpper:
        return y1;
      case kBetween:
        return y0 + ratio * (y1 - y0);
      default:
        return kMissing;
    }
  }
};

// What `Interpolate` answers for a bracket whose values are both present, as a kind.
Bracket Classify(int k, EndMode mode, float x0, float x1, float t) {
  Bracket bracket{k, mode, Bracket::kBetween, 0.0F};
  if (t == kMissing) {
    bracket.kind = Bracket::kMissingValue;
    return bracket;
  }
  if (BatchAligner::CompareTolerant(x1, x0) == 0) {
    bracket.kind = Bracket::kLower;
    return bracket;
  }
  const bool above = t > x0 && t > x1;
  const bool below = t < x0 && t < x1;
  if (mode == kHold && (above || below)) {
    bracket.kind = (above ? x0 > x1 : x1 > x0) ? Bracket::kLower : Bracket::kUpper;
  } else if (mode == kCut && (above || below)) {
    bracket.kind = Bracket::kMissingValue;
  } else {
    bracket.ratio = (t - x0) / (x1 - x0);
  }
  return bracket;
}

// The maturities of one batch with the missing ones dropped (copied only when there are any),
// checked for monotony, and the bracket of every grid point.
class Plan {
 public:
  Plan(const BatchAligner& aligner, const float* maturity, int n) {
    const NCDataVector<float>* grid = aligner.GetTimeMaturityVector();
    if (!grid || grid->empty()) return;
    mGrid = grid->data();
    mPoints = grid->size();
    if (n < 1) return;
    mMaturity = maturity;
    mCount = n;
    if (std::any_of(maturity, maturity + n, IsMissingMaturity)) {
      for (int i = 0; i < n; ++i) {
        if (IsMissingMaturity(maturity[i])) continue;
        mKept.push_back(i);
        mKeptMaturity.push_back(maturity[i]);
      }
      mMaturity = mKeptMaturity.data();
      mCount = static_cast<int>(mKept.size());
    }
    if (mCount < 2) return;
    const bool ascending = aligner.IsAscending();
    for (int i = 0; i + 1 < mCount; ++i) {
      if (ascending ? mMaturity[i] > mMaturity[i + 1] : mMaturity[i + 1] > mMaturity[i]) {
        throw NCError(ExceptionMessage::translate(
                          "Data can not be aligned since the maturity isn't monotone."),
                      NCError::Error);
      }
    }
    mBrackets.resize(mPoints);
    const float* const first = mMaturity;
    const float* const last = mMaturity + mCount;
    for (std::size_t j = 0; j < mPoints; ++j) {
      const float t = mGrid[j];
      const float* found = ascending ? std::lower_bound(first, last, t)
                                     : std::lower_bound(first, last, t, std::greater<float>());
      int k = std::clamp(static_cast<int>(found - first), 1, mCount - 1);
      EndMode mode = kCut;
      if (aligner.GetExtraPolateShortCutLongBatches()) {
        if (k > 1 && BatchAligner::CompareTolerant(t, mMaturity[k - 1]) == 0) {
          --k;
          mode = kFree;
        } else {
          mode = BatchAligner::CompareTolerant(t, mMaturity[k]) == 0 ? kFree : kHold;
        }
      }
      mBrackets[j] = Classify(k, mode, mMaturity[k - 1], mMaturity[k], t);
    }
  }

  // Whether anything can be aligned: a grid and two valid maturities.
  bool Usable() const { return !mBrackets.empty(); }
  std::size_t Points() const { return mPoints; }

  // One column of n values onto `out` (a slot per grid point); `work` is room for n values.
  void Run(const float* values, float* out, std::vector<float>& work, bool extrapolate) const {
    if (!Usable()) {
      std::fill(out, out + mPoints, kMissing);
      return;
    }
    if (!mKept.empty()) {
      work.resize(mKept.size());
      for (std::size_t i = 0; i < mKept.size(); ++i) work[i] = values[mKept[i]];
      values = work.data();
    }
    if (!HasMissing(values, mCount)) {
      RunComplete(values, out, extrapolate);
      return;
    }
    const float* const x = mMaturity;
    const int n = mCount;
    bool holdTried = extrapolate;  // the one-point hold applies only without extension
    bool previousOnPoint = false;
    for (std::size_t j = 0; j < mPoints; ++j) {
      const float t = mGrid[j];
      const Bracket& bracket = mBrackets[j];
      int lo = bracket.k - 1;
      int hi = bracket.k;
      float value = kMissing;
      const float y0 = values[lo];
      const float y1 = values[hi];
      if (y0 != kMissing && y1 != kMissing) {
        value = bracket.Value(y0, y1);
      } else {
        // Bridge missing values with the nearest present ones on either side.
        while (values[lo] == kMissing && lo >= 1) --lo;
        while (values[hi] == kMissing && hi < n - 1) ++hi;
        value = Interpolate(x[lo], values[lo], x[hi], values[hi], t, bracket.mode);
      }
      if (value == kMissing && !holdTried) {
        holdTried = true;
        if (j >= 1 && previousOnPoint && x[hi] != mGrid[j - 1]) {
          value = Interpolate(x[lo], values[lo], x[hi], values[hi], t, kHold);
        }
      }
      out[j] = value;
      previousOnPoint = t == x[hi];
    }
  }

 private:
  static bool HasMissing(const float* values, int n) {
    bool missing = false;  // no early exit, so that the loop vectorises
    for (int i = 0; i < n; ++i) missing |= values[i] == kMissing;
    return missing;
  }

  // `Run` for a column without missing values: every bracket is (k - 1, k), so each value
  // comes straight from its bracket's kind, and the one-point hold is settled afterwards.
  void RunComplete(const float* values, float* out, bool extrapolate) const {
    for (std::size_t j = 0; j < mPoints; ++j) {
      const Bracket& bracket = mBrackets[j];
      out[j] = bracket.Value(values[bracket.k - 1], values[bracket.k]);
    }
    if (extrapolate) return;
    const std::size_t j = static_cast<std::size_t>(std::find(out, out + mPoints, kMissing) - out);
    if (j == 0 || j == mPoints) return;
    const float* const x = mMaturity;
    const int k = mBrackets[j].k;
    if (mGrid[j - 1] == x[mBrackets[j - 1].k] && x[k] != mGrid[j - 1]) {
      out[j] = Interpolate(x[k - 1], values[k - 1], x[k], values[k], mGrid[j], kHold);
    }
  }

  const float* mGrid = nullptr;
  std::size_t mPoints = 0;
  const float* mMaturity = nullptr;
  int mCount = 0;
  std::vector<int> mKept;  // positions of the valid maturities, when some are missing
  std::vector<float> mKeptMaturity;
  std::vector<Bracket> mBrackets;
};

}  // namespace
}  // namespace ncds::detail

const VStreamableData BatchAligner::msVStreamData(ncds::detail::kVersion, "Aligner");

BatchAligner::BatchAligner() = default;

BatchAligner::BatchAligner(const NCDataVector<float>& timeMaturity, bool ascending,
                           bool extrapolateShortCutLong)
    : mTimeMaturity(std::make_unique<NCDataVector<float>>(timeMaturity)),
      mAscending(ascending),
      mExtrapolate(extrapolateShortCutLong) {}

BatchAligner::BatchAligner(const BatchAligner& other)
    : VStreamBase(other),
      mTimeMaturity(other.mTimeMaturity
                        ? std::make_unique<NCDataVector<float>>(*other.mTimeMaturity)
                        : nullptr),
      mAscending(other.mAscending),
      mExtrapolate(other.mExtrapolate) {}

BatchAligner& BatchAligner::operator=(const BatchAligner& other) {
  if (this != &other) {
    SetTimeMaturityVector(other.mTimeMaturity.get());
    mAscending = other.mAscending;
    mExtrapolate = other.mExtrapolate;
  }
  return *this;
}

BatchAligner::~BatchAligner() = default;

void BatchAligner::SetTimeMaturityVector(const NCDataVector<float>* grid) {
  mTimeMaturity = grid ? std::make_unique<NCDataVector<float>>(*grid) : nullptr;
}

int BatchAligner::CompareTolerant(double a, double b) {
  int exponent = 0;
  std::frexp(std::max(std::fabs(a), std::fabs(b)), &exponent);
  const double tolerance = std::ldexp(1.1920928955078125e-7, exponent);
  const double difference = a - b;
  if (difference > tolerance) return 1;
  if (difference < -tolerance) return -1;
  return 0;
}

void BatchAligner::Align(const float* values, const float* maturity, int n,
                         NCDataVector<float>& out) const {
  const float* const columns[] = {values};
  float* const outs[] = {out.data()};
  if (out.size() < GridSize()) throw InvalidArgument("Align: the output is shorter than the grid");
  AlignColumns(columns, 1, maturity, n, outs);
}

std::unique_ptr<NCDataVector<float>> BatchAligner::Align(
    const NCDataVector<float>& values, const NCDataVector<float>& maturity) const {
  if (maturity.size() < values.size()) {
    throw InvalidArgument("Align: fewer maturities than values");
  }
  auto out = std::make_unique<NCDataVector<float>>(GridSize());
  Align(values.data(), maturity.data(), static_cast<int>(values.size()), *out);
  return out;
}

void BatchAligner::Align(const NCDataMatrix<float>& data, const NCDataVector<float>& maturity,
                         NCDataMatrix<float>& out) const {
  if (maturity.size() < data.SizeRows() || out.SizeRows() < GridSize() ||
      out.SizeColumns() != data.SizeColumns()) {
    throw InvalidArgument("Align: the matrices and the maturity do not match the grid");
  }
  std::vector<const float*> columns(data.SizeColumns());
  std::vector<float*> outs(data.SizeColumns());
  for (std::size_t c = 0; c < columns.size(); ++c) {
    columns[c] = data.ColumnData(c);
    outs[c] = out.ColumnData(c);
  }
  AlignColumns(columns.data(), columns.size(), maturity.data(), static_cast<int>(data.SizeRows()),
               outs.data());
}

std::unique_ptr<NCDataMatrix<float>> BatchAligner::Align(
    const NCDataMatrix<float>& data, const NCDataVector<float>& maturity) const {
  auto out = std::make_unique<NCDataMatrix<float>>(GridSize(), data.SizeColumns());
  Align(data, maturity, *out);
  return out;
}

void BatchAligner::AlignColumns(const float* const* columns, std::size_t count,
                                const float* maturity, int n, float* const* out) const {
  const ncds::detail::Plan plan(*this, maturity, n);
  std::vector<float> work;
  for (std::size_t c = 0; c < count; ++c) plan.Run(columns[c], out[c], work, mExtrapolate);
}

bool BatchAligner::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (!msVStreamData.Write(os)) return false;
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  bool ok = true;
  if (mTimeMaturity) ok = WriteToStreamDir(*mTimeMaturity, directory, d::kTagGrid);
  ok = ok && WriteToStreamDir(mAscending, directory, d::kTagAscending) &&
       WriteToStreamDir(mExtrapolate, directory, d::kTagExtrapolate);
  return directory.Close() && ok && static_cast<bool>(os);
}

bool BatchAligner::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version)) return false;
  if (version != ncds::detail::kVersion && version != ncds::detail::kOldVersion) return false;
  return ReadStreamDirectory(is, version);
}

bool BatchAligner::ReadStreamDirectory(std::istream& is, std::int16_t version) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = directory.IsValid();
  try {
    auto grid = std::make_unique<NCDataVector<float>>();
    bool ascending = mAscending;
    ReadFromStreamDir(*grid, directory, d::kTagGrid, true);
    ReadFromStreamDir(ascending, directory, d::kTagAscending, true);
    // Version 2 has no flag: the aligner keeps its own.
    if (version == d::kVersion)
      ReadFromStreamDir(mExtrapolate, directory, d::kTagExtrapolate, false);
    mTimeMaturity = std::move(grid);
    mAscending = ascending;
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void BatchAligner::VStreamableReset() const { mGuard.Reset(); }
