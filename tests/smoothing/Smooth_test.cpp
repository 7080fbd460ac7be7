#include "ncds/smoothing/Smooth.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "ncds/foundations/Exception.h"

namespace {

using Matrix = NCDataMatrix<float>;
using Floats = std::vector<float>;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

NCDataVector<float> Vec(const Floats& values) {
  NCDataVector<float> vector;
  vector.CopyVector(values.data(), values.size());
  return vector;
}

// SmoothVector of `values`; no start list when `starts` is empty.
NCDataVector<float> Smoothed(const Floats& values, float start, float end, const Matrix* hat,
                             bool coarse = false, const std::vector<int>& starts = {}) {
  NCIntegralVector<int, -99> list;
  for (const int position : starts) list.push_back(position);
  const NCDataVector<float> input = Vec(values);
  return Smooth::SmoothVector(&input, starts.empty() ? nullptr : &list, start, end, hat, coarse);
}

void ExpectNear(const NCDataVector<float>& actual, const Floats& expected, float tolerance) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_NEAR(actual[i], expected[i], tolerance) << i;
}

TEST(Smooth, HatMatrixOfUnevenPositions) {
  const Matrix even = Smooth::GetHatMatrix(4, false);  // positions -1, 0, 1, 2: |t|^2 = 6
  ASSERT_EQ(even.SizeColumns(), 4U);
  EXPECT_FLOAT_EQ(even(0, 3), -2.0F / 6);
  EXPECT_FLOAT_EQ(even(3, 3), 4.0F / 6);
  EXPECT_FLOAT_EQ(even(1, 2), 0.0F);
  EXPECT_TRUE(std::isnan(Smooth::GetHatMatrix(1, true)(0, 0)));
}

TEST(Smooth, WindowAndIncrementFollowTheNumberOfPoints) {
  // Linear windows up to 30 points, quadratic ones from 31 on.
  const int points[] = {4, 5, 6, 10, 30, 31, 36, 50, 57, 100};
  const std::size_t windows[] = {4, 5, 5, 5, 5, 7, 7, 7, 9, 11};
  for (int k = 0; k < 10; ++k) {
    const Matrix hat = Smooth::GetHatMatrix(points[k]);
    ASSERT_EQ(hat.SizeRows(), windows[k]) << points[k];
    const Matrix expected = Smooth::GetHatMatrix(static_cast<int>(windows[k]), k >= 5);
    EXPECT_EQ(hat.GetColumn(0), expected.GetColumn(0)) << points[k];
  }
  EXPECT_EQ(Smooth::GetHatMatrix(0).SizeRows() + Smooth::GetHatMatrix(-1, true).SizeRows(), 0U);
  EXPECT_FLOAT_EQ(Smooth::GetAbsMinMaturityIncrement(0, 100, 10, false), 0.01F);
  EXPECT_FLOAT_EQ(Smooth::GetAbsMinMaturityIncrement(100, 0, 10, true), 0.2F);
  EXPECT_EQ(Smooth::GetAbsMinMaturityIncrement(0, 100, 0, true), 0.0F);
}

TEST(Smooth, MonotoneSegmentsComeBackUnchanged) {
  const Matrix hat = Smooth::GetHatMatrix(100);
  const Floats rising{0, 1, 3, 6, 10, 15, 21, 28, 36, 45, 55, 66}, falling{9, 8, 6, 3, 2};
  EXPECT_EQ(Smoothed(rising, 0, 66, &hat), Vec(rising));
  EXPECT_EQ(Smoothed(falling, 10, 0, nullptr), Vec(falling));
  // Start equals end: the end becomes 3, rising, and the flat segment's increment is 0.
  EXPECT_EQ(Smoothed({1, 1, 1}, 0, 0, &hat), Vec({1, 1, 1}));
}

TEST(Smooth, NoisySegmentsBecomeStrictlyMonotoneTowardTheirEnd) {
  const Matrix quadratic = Smooth::GetHatMatrix(100), tooNarrow = Smooth::GetHatMatrix(2);
  std::mt19937 random(7);
  std::uniform_real_distribution<float> noise(-1.5F, 1.5F);
  for (const float d : {1.0F, -1.0F}) {
    for (const Matrix* hat : {&quadratic, &tooNarrow, static_cast<const Matrix*>(nullptr)}) {
      const bool coarse = hat != &quadratic;
      Floats x(100);
      for (int i = 0; i < 100; ++i) x[i] = 50 + d * (i - 50) + noise(random);
      const NCDataVector<float> y = Smoothed(x, 50 - 51 * d, 50 + 51 * d, hat, coarse);
      const float increment = std::fabs(x[99] - x[0]) / (coarse ? 5000 : 100000);
      for (int i = 1; i < 100; ++i) ASSERT_GE((y[i] - y[i - 1]) * d, 0.99F * increment) << i;
    }
  }
  // Flat, then a jump: the first window's fit falls before it rises, and is pushed back.
  const Matrix seven = Smooth::GetHatMatrix(7, true);
  const NCDataVector<float> y = Smoothed({5, 5, 5, 5, 5, 5, 20, 21, 20.5F, 22}, 0, 30, &seven);
  for (int i = 1; i < 10; ++i) EXPECT_GT(y[i], y[i - 1]) << i;
}

TEST(Smooth, WindowedFitKeepsTheTrendAwayFromAGlitch) {
  // Every window reproduces a quadratic (linear) trend: only the values within half a window
  // of the glitch may change, those near the ends included.
  const Matrix hat = Smooth::GetHatMatrix(40);  // 7 points, quadratic
  for (const auto& [m, half, h] :
       {std::tuple{40, 3, &hat}, std::tuple{20, 2, static_cast<const Matrix*>(nullptr)}}) {
    Floats trend(m);
    for (int i = 0; i < m; ++i) trend[i] = 10 + 2 * i + (h ? 0.05F * i * i : 0);
    Floats glitched = trend;
    glitched[m / 2] = trend[m / 2 - 1] - 1;
    const NCDataVector<float> y = Smoothed(glitched, 0, 200, h);
    for (int i = 0; i < m; ++i) {
      if (std::abs(i - m / 2) <= half) continue;
      EXPECT_NEAR(y[i], trend[i], 1e-3) << i;
    }
  }
  // Shorter than the window: one linear fit of the whole segment, after 0.5 became 1.0008.
  const Floats shortSegment{0, 1, 0.5F, 3, 4};
  ExpectNear(Smoothed(shortSegment, 0, 4, &hat),
             {-0.19984F, 0.80016F, 1.80016F, 2.80016F, 3.80016F}, 1e-4F);
  const Matrix narrow = Smooth::GetHatMatrix(2, false);
  ExpectNear(Smoothed(shortSegment, 0, 4, &narrow), {0, 1, 1.0008F, 3, 4}, 1e-6F);
  ExpectNear(Smoothed(shortSegment, 0, 4, &narrow, true), {0, 1, 1.016F, 3, 4}, 1e-6F);
}

TEST(Smooth, SegmentsAreSmoothedOnTheirOwn) {
  std::mt19937 random(3);
  std::uniform_real_distribution<float> noise(-2, 2);
  Floats all;
  NCDataVector<float> alone;
  for (const int length : {40, 60, 7}) {
    Floats part;
    for (int i = 0; i < length; ++i) part.push_back(static_cast<float>(i) + noise(random));
    all.insert(all.end(), part.begin(), part.end());
    for (const float value : Smoothed(part, 0, 0, nullptr)) alone.push_back(value);
  }
  // Out of range, repeated and backward starts are skipped; before the first start, a segment.
  for (const std::vector<int>& starts : {std::vector<int>{1, 41, 101}, std::vector<int>{41, 101},
                                         std::vector<int>{0, -99, 41, 41, 30, 101, 108}}) {
    EXPECT_EQ(Smoothed(all, 0, 0, nullptr, false, starts), alone);
  }
}

TEST(Smooth, FillsMissingAndNonFiniteValues) {
  ExpectNear(Smoothed({-99, 2, -99, 4, -99}, 0, 10, nullptr), {0, 2, 3, 4, 10}, 1e-6F);
  ExpectNear(Smoothed({kNaN, 2, kInf, 4, -kInf}, 0, 10, nullptr), {0, 2, 3, 4, 10}, 1e-6F);
  ExpectNear(Smoothed({-99, -99, 6, -99}, 0, 10, nullptr), {0, 3, 6, 10}, 1e-6F);
  ExpectNear(Smoothed({-99, -99, -99, -99, -99}, 0, 0, nullptr), {0, 1.25F, 2.5F, 3.75F, 5}, 1e-6F);
  ExpectNear(Smoothed({-99, -99, -99}, 10, 0, nullptr), {10, 5, 0}, 1e-6F);
  ExpectNear(Smoothed({-99}, 2, 7, nullptr), {2}, 0);
}

TEST(Smooth, RefusesWhatItCannotSmooth) {
  EXPECT_TRUE(Smooth::SmoothVector(nullptr, nullptr, 0, 1, nullptr, false).empty());
  EXPECT_TRUE(Smoothed({}, 0, 1, nullptr).empty());
  const Matrix notSquare(3, 4, 0.0F);
  EXPECT_THROW(Smoothed({1, 2}, 0, 1, &notSquare), InvalidArgument);
  const Floats noisy{3, 1, kNaN, 2};  // left as it is
  EXPECT_EQ(Smoothed(noisy, kNaN, 1, nullptr), Vec(noisy));
  EXPECT_EQ(Smoothed(noisy, 0, kInf, nullptr), Vec(noisy));
}

}  // namespace
