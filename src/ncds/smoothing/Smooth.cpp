#include "ncds/smoothing/Smooth.h"

#include <cmath>
#include <cstddef>
#include <vector>

#include "ncds/foundations/Exception.h"

namespace Smooth {
namespace {

constexpr float kMissing = -99.0F;

bool IsMissing(float value) { return value == kMissing || !std::isfinite(value); }

std::size_t Index(int i) { return static_cast<std::size_t>(i); }

// Writes the n x n hat matrix row by row into `out`; `u` and `q` are scratch.
void FillHat(int n, bool quadratic, std::vector<float>& u, std::vector<float>& q,
             std::vector<float>& out) {
  u.resize(Index(n));
  out.resize(Index(n) * Index(n));
  const int middle = (n + 1) / 2;
  float sumSquares = 0.0F;
  for (int i = 0; i < n; ++i) {
    const float t = static_cast<float>(i + 1 - middle);
    u[Index(i)] = t;
    sumSquares += t * t;
  }
  const float norm = std::sqrt(sumSquares);
  for (float& value : u) value /= norm;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) out[Index(i * n + j)] = u[Index(i)] * u[Index(j)];
  }
  if (!quadratic) return;
  q.resize(Index(n));
  float mean = 0.0F;
  for (int i = 0; i < n; ++i) {
    q[Index(i)] = u[Index(i)] * u[Index(i)];
    mean += q[Index(i)];
  }
  mean /= static_cast<float>(n);
  float sumQ = 0.0F;
  for (float& value : q) {
    value -= mean;
    sumQ += value * value;
  }
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) out[Index(i * n + j)] += q[Index(i)] * q[Index(j)] / sumQ;
  }
}

// Window and degree of GetHatMatrix(n).
void ChooseWindow(int n, int& window, bool& quadratic) {
  quadratic = n >= 31;
  if (n < 6) {
    window = n;
  } else if (!quadratic) {
    window = 5;
  } else {
    window = static_cast<int>(std::sqrt(static_cast<double>(n)) + 0.49999);
    if (window % 2 == 0) ++window;
  }
}

// Moves each of x[from + 1..m) that does not step beyond its predecessor by `increment` in
// `direction` to its predecessor plus the increment; true when any moved.
bool ForceForward(float* x, int from, int m, float direction, float increment) {
  const float step = direction * increment;
  bool moved = false;
  float previous = x[from];
  for (int i = from + 1; i < m; ++i) {
    const bool tooSmall = (x[i] - previous) * direction < increment;
    previous = tooSmall ? previous + step : x[i];
    x[i] = previous;
    moved |= tooSmall;
  }
  return moved;
}

// The same toward the start: each of x[0..from) at most its successor minus the increment.
void ForceBackward(float* x, int from, float direction, float increment) {
  for (int i = from - 1; i >= 0; --i) {
    if ((x[i + 1] - x[i]) * direction < increment) x[i] = x[i + 1] - direction * increment;
  }
}

// Fills the missing values of x[0..m) as SmoothVector describes.
void FillGaps(float* x, int m, float start, float end) {
  int lead = 0;
  while (lead < m && IsMissing(x[lead])) ++lead;
  if (lead == m) {
    for (int i = 0; i < m; ++i) {
      x[i] = m == 1 ? start
                    : start + (end - start) * static_cast<float>(i) / static_cast<float>(m - 1);
    }
    return;
  }
  for (int i = 0; i < lead; ++i) {
    x[i] = start + (x[lead] - start) * static_cast<float>(i) / static_cast<float>(lead);
  }
  int known = lead;
  for (int i = lead + 1; i < m; ++i) {
    if (IsMissing(x[i])) continue;
    for (int k = known + 1; k < i; ++k) {
      x[k] = x[known] +
             (x[i] - x[known]) * static_cast<float>(k - known) / static_cast<float>(i - known);
    }
    known = i;
  }
  for (int k = known + 1; k < m; ++k) {
    x[k] = x[known] +
           (end - x[known]) * static_cast<float>(k - known) / static_cast<float>(m - 1 - known);
  }
}

// Smooths one segment after another, reusing its buffers, so that a long vector of many
// segments allocates only while the buffers grow.
class SegmentSmoother {
 public:
  SegmentSmoother(const NCDataMatrix<float>* hat, float start, float end, bool coarse)
      : mOwnHat(hat == nullptr), mStart(start), mEnd(end), mCoarse(coarse) {
    if (!hat) return;
    // Row by row, so that a window's fit reads a row contiguously.
    mWindow = static_cast<int>(hat->SizeRows());
    mHat.resize(Index(mWindow) * Index(mWindow));
    for (int i = 0; i < mWindow; ++i) {
      for (int j = 0; j < mWindow; ++j) mHat[Index(i * mWindow + j)] = (*hat)(Index(i), Index(j));
    }
  }

  void Run(float* x, int m) {
    const float end = mEnd == mStart ? static_cast<float>(m) + mStart : mEnd;
    const float direction = mStart < end ? 1.0F : -1.0F;
    FillGaps(x, m, mStart, end);
    const float first = x[0];
    const float last = x[m - 1];
    const float increment = (last - first) * direction >= 0.0F
                                ? GetAbsMinMaturityIncrement(first, last, m, mCoarse)
                                : GetAbsMinMaturityIncrement(mStart, end, m, mCoarse);
    if (!ForceForward(x, 0, m, direction, increment) || m < 3) return;
    if (mOwnHat) LoadHat(m);
    if (mWindow < 3) return;
    if (m < mWindow) {
      FitWhole(x, m, direction, increment);
    } else {
      FitWindows(x, m, direction, increment);
    }
  }

 private:
  // Makes GetHatMatrix(m) the window, unless it already is.
  void LoadHat(int m) {
    int window = 0;
    bool quadratic = false;
    ChooseWindow(m, window, quadratic);
    if (window == mWindow && quadratic == mQuadratic) return;
    mWindow = window;
    mQuadratic = quadratic;
    FillHat(window, quadratic, mU, mQ, mHat);
  }

  // A segment shorter than the window: one fit with the linear hat matrix of its length.
  void FitWhole(float* x, int m, float direction, float increment) {
    if (m != mWholeSize) {
      FillHat(m, false, mU, mQ, mWholeHat);
      mWholeSize = m;
    }
    double sum = 0.0;
    for (int i = 0; i < m; ++i) sum += x[i];
    const float mean = static_cast<float>(sum / m);
    mWork.resize(Index(m));
    for (int i = 0; i < m; ++i) mWork[Index(i)] = x[i] - mean;
    for (int i = 0; i < m; ++i) x[i] = mean + Dot(&mWholeHat[Index(i * m)], mWork.data(), m);
    ForceForward(x, 0, m, direction, increment);
  }

  // The window moved along the segment. Every window's mean comes from running sums; the fit
  // at the windows' centres is accumulated one hat column at a time over all windows, which
  // keeps the inner loop free of dependencies (and vectorised) with the same sums per value.
  void FitWindows(float* x, int m, float direction, float increment) {
    const int w = mWindow;
    const int half = static_cast<int>(std::floor(w * 0.5 - 0.01));
    const int windows = m - w + 1;
    mWork.assign(x, x + m);
    mPrefix.resize(Index(m) + 1);
    mPrefix[0] = 0.0;
    for (int i = 0; i < m; ++i) mPrefix[Index(i) + 1] = mPrefix[Index(i)] + x[i];
    mMeans.resize(Index(windows));
    mFit.assign(Index(windows), 0.0F);
    for (int s = 0; s < windows; ++s) {
      mMeans[Index(s)] = static_cast<float>((mPrefix[Index(s + w)] - mPrefix[Index(s)]) / w);
    }
    const float* centre = &mHat[Index(half * w)];
    const float* means = mMeans.data();
    float* fit = mFit.data();
    for (int j = 0; j < w; ++j) {
      const float weight = centre[j];
      const float* values = mWork.data() + j;
      for (int s = 0; s < windows; ++s) fit[s] += weight * (values[s] - means[s]);
    }
    for (int s = 0; s < windows; ++s) x[s + half] = means[s] + fit[s];
    // The values nearer an end than the centre: the other rows of the first and last window.
    for (int r = 0; r < half; ++r) x[r] = FitRow(r, 0);
    for (int r = half + 1; r < w; ++r) x[windows - 1 + r] = FitRow(r, windows - 1);
    ForceForward(x, half, m, direction, increment);
    ForceBackward(x, half, direction, increment);
  }

  // Row `r` of the fit of the window starting at `s`.
  float FitRow(int r, int s) const {
    const int w = mWindow;
    const float mean = mMeans[Index(s)];
    const float* values = mWork.data() + s;
    const float* row = &mHat[Index(r * w)];
    float sum = 0.0F;
    for (int j = 0; j < w; ++j) sum += row[j] * (values[j] - mean);
    return mean + sum;
  }

  static float Dot(const float* a, const float* b, int n) {
    float sum = 0.0F;
    for (int j = 0; j < n; ++j) sum += a[j] * b[j];
    return sum;
  }

  const bool mOwnHat;
  const float mStart;
  const float mEnd;
  const bool mCoarse;
  int mWindow = 0;  // rows of mHat
  bool mQuadratic = false;
  std::vector<float> mHat;  // the window's hat matrix, row by row
  int mWholeSize = 0;       // rows of mWholeHat
  std::vector<float> mWholeHat;
  std::vector<float> mU, mQ, mWork, mMeans, mFit;
  std::vector<double> mPrefix;
};

}  // namespace

NCDataMatrix<float> GetHatMatrix(int n, bool quadratic) {
  if (n < 1) return NCDataMatrix<float>();
  NCDataMatrix<float> hat(Index(n), Index(n), kMissing);
  std::vector<float> u, q, cells;
  FillHat(n, quadratic, u, q, cells);
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < n; ++i) hat(Index(i), Index(j)) = cells[Index(i * n + j)];
  }
  return hat;
}

NCDataMatrix<float> GetHatMatrix(int n) {
  if (n < 1) return NCDataMatrix<float>();
  int window = 0;
  bool quadratic = false;
  ChooseWindow(n, window, quadratic);
  return GetHatMatrix(window, quadratic);
}

float GetAbsMinMaturityIncrement(float first, float last, int n, bool coarse) {
  if (n < 1) return 0.0F;
  return std::fabs((last - first) / (static_cast<float>(n) * (coarse ? 50.0F : 1000.0F)));
}

NCDataVector<float> SmoothVector(const NCDataVector<float>* values,
                                 const NCIntegralVector<int, -99>* starts, float startValue,
                                 float endValue, const NCDataMatrix<float>* hat, bool coarse) {
  if (hat && hat->SizeRows() != hat->SizeColumns()) {
    throw InvalidArgument("SmoothVector: the hat matrix is not square");
  }
  if (!values) return NCDataVector<float>();
  NCDataVector<float> result(*values);
  const int n = static_cast<int>(result.size());
  if (n == 0 || !std::isfinite(startValue) || !std::isfinite(endValue)) return result;

  std::vector<int> bounds{0};  // 0-based first positions of the segments
  if (starts) {
    for (const int start : *starts) {
      if (start > bounds.back() + 1 && start <= n) bounds.push_back(start - 1);
    }
  }
  bounds.push_back(n);
  SegmentSmoother smoother(hat, startValue, endValue, coarse);
  for (std::size_t k = 0; k + 1 < bounds.size(); ++k) {
    smoother.Run(result.data() + bounds[k], bounds[k + 1] - bounds[k]);
  }
  return result;
}

}  // namespace Smooth
