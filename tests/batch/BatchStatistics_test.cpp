#include "ncds/batch/BatchStatistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using BatchStatistics::Run;
using BatchStatistics::Statistic;
using Floats = std::vector<float>;
constexpr float M = -99.0F;
constexpr std::size_t kCount = BatchStatistics::kStatisticCount;

std::vector<Statistic> AllStatistics() {
  std::vector<Statistic> all;
  for (std::size_t i = 0; i < kCount; ++i) all.push_back(static_cast<Statistic>(i));
  return all;
}

// All statistics of one run, in enum order.
Floats Of(const Floats& values, const Floats* maturity) {
  Floats out(kCount);
  BatchStatistics::Compute(values.data(), maturity ? maturity->data() : nullptr,
                           {Run{0, values.size()}}, AllStatistics(), out.data());
  return out;
}

float At(const Floats& result, Statistic statistic) {
  return result[static_cast<std::size_t>(statistic)];
}

bool Usable(float x) { return x != M && std::isfinite(x); }

// The statistics of one run computed the plain way: collect the valid pairs, then two passes
// in double and a full sort for the median.
std::vector<double> Reference(const float* values, const float* maturity, Run run) {
  std::vector<double> v;
  std::vector<double> t;
  for (std::size_t row = run.begin; row < run.end; ++row) {
    const float time = maturity ? maturity[row] : static_cast<float>(row - run.begin);
    if (Usable(values[row]) && Usable(time)) {
      v.push_back(values[row]);
      t.push_back(time);
    }
  }
  std::vector<double> r(kCount, M);
  const std::size_t n = v.size();
  r[0] = static_cast<double>(n);
  if (n == 0) return r;
  double mean = 0;
  double meanTime = 0;
  for (std::size_t i = 0; i < n; ++i) mean += v[i] / n, meanTime += t[i] / n;
  double ss = 0;
  double stt = 0;
  double stv = 0;
  double area = 0;
  for (std::size_t i = 0; i < n; ++i) {
    ss += (v[i] - mean) * (v[i] - mean);
    stt += (t[i] - meanTime) * (t[i] - meanTime);
    stv += (t[i] - meanTime) * (v[i] - mean);
    if (i > 0) area += (t[i] - t[i - 1]) * (v[i] + v[i - 1]) / 2;
  }
  std::vector<double> sorted = v;
  std::sort(sorted.begin(), sorted.end());
  const double median = n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
  const double expected[] = {r[0],
                             t.back() - t.front(),
                             v.front(),
                             v.back(),
                             sorted.front(),
                             sorted.back(),
                             sorted.back() - sorted.front(),
                             mean,
                             median,
                             n > 1 ? std::sqrt(ss / (n - 1)) : M,
                             n > 1 ? ss / (n - 1) : M,
                             n > 1 && stt > 0 ? stv / stt : M,
                             n > 1 ? area : M};
  return std::vector<double>(std::begin(expected), std::end(expected));
}

TEST(BatchStatistics, NamesRoundTripAndParseIgnoresCase) {
  EXPECT_STREQ(BatchStatistics::Name(Statistic::N), "N");
  EXPECT_STREQ(BatchStatistics::Name(Statistic::StdDev), "StdDev");
  EXPECT_STREQ(BatchStatistics::Name(Statistic::Area), "Area");
  for (const Statistic statistic : AllStatistics()) {
    std::string name = BatchStatistics::Name(statistic);
    std::transform(name.begin(), name.end(), name.begin(), ::toupper);
    Statistic parsed = Statistic::N;
    ASSERT_TRUE(BatchStatistics::Parse(name, parsed)) << name;
    EXPECT_EQ(parsed, statistic);
  }
  Statistic untouched = Statistic::Slope;
  EXPECT_TRUE(BatchStatistics::Parse("variance", untouched));
  EXPECT_EQ(untouched, Statistic::Variance);
  for (const char* unknown : {"", "Average", "Std", "Means", "N "}) {
    EXPECT_FALSE(BatchStatistics::Parse(unknown, untouched)) << unknown;
    EXPECT_EQ(untouched, Statistic::Variance);
  }
}

TEST(BatchStatistics, MatchesPlainComputationOnRunsWithMissingCells) {
  // Values far from zero (the sums must keep their digits), a fifth missing, some NaN and
  // infinite; maturities rising with some missing. Runs of many lengths, odd and even, an empty
  // one, one of a single cell, one all missing, overlapping and out of order.
  std::mt19937 random(11);
  std::normal_distribution<float> normal(1000.0F, 3.0F);
  std::uniform_real_distribution<float> uniform(0.0F, 1.0F);
  const std::size_t rows = 300;
  Floats values(rows);
  Floats maturity(rows);
  float time = 5;
  for (std::size_t i = 0; i < rows; ++i) {
    const float u = uniform(random);
    values[i] = u < 0.2F ? M : normal(random);
    if (u > 0.98F) values[i] = u > 0.99F ? std::numeric_limits<float>::quiet_NaN() : INFINITY;
    maturity[i] = time += uniform(random);
    if (uniform(random) < 0.1F) maturity[i] = M;
  }
  for (std::size_t i = 100; i < 110; ++i) values[i] = M;
  // Many repeated values, then one value throughout: the median's selection must cope.
  for (std::size_t i = 200; i < 260; ++i) {
    if (Usable(values[i])) values[i] = std::round(values[i] - 1000.0F) + 1000.0F;
  }
  for (std::size_t i = 260; i < 300; ++i) values[i] = i % 7 ? 7.0F : M;
  const std::vector<BatchStatistics::Run> runs = {
      {0, 25},    {25, 75},   {75, 100},  {100, 110}, {110, 110}, {110, 111}, {111, 113},
      {113, 120}, {120, 300}, {200, 260}, {260, 300}, {50, 60},   {5, 6}};
  // Statistics in another order than the enum's, the median twice.
  std::vector<Statistic> statistics = AllStatistics();
  std::reverse(statistics.begin(), statistics.end());
  statistics.push_back(Statistic::Median);
  std::vector<float> scratch(3, 12345.0F);
  const float* maturities[] = {nullptr, maturity.data()};
  for (const float* mat : maturities) {
    Floats out(runs.size() * statistics.size());
    BatchStatistics::Compute(values.data(), mat, runs, statistics, out.data(), scratch);
    for (std::size_t r = 0; r < runs.size(); ++r) {
      const std::vector<double> expected = Reference(values.data(), mat, runs[r]);
      for (std::size_t k = 0; k < statistics.size(); ++k) {
        const double want = expected[static_cast<std::size_t>(statistics[k])];
        const float got = out[k * runs.size() + r];
        SCOPED_TRACE(std::string(BatchStatistics::Name(statistics[k])) + " run " +
                     std::to_string(r) + (mat ? " maturity" : " position"));
        if (want == M) {
          EXPECT_EQ(got, M);
        } else {
          EXPECT_NEAR(got, want, 2e-6 * std::max(1.0, std::abs(want)));
        }
      }
    }
  }
}

TEST(BatchStatistics, EdgeRules) {
  // No valid cell: N is 0, everything else missing.
  const Floats none = Of({M, M, M}, nullptr);
  EXPECT_EQ(At(none, Statistic::N), 0.0F);
  for (std::size_t k = 1; k < kCount; ++k) EXPECT_EQ(none[k], M) << k;

  // One valid cell: the value statistics are that value, the spreads and the slope are not.
  const Floats one = Of({M, 4.5F, M}, nullptr);
  EXPECT_EQ(one, (Floats{1, 0, 4.5F, 4.5F, 4.5F, 4.5F, 0, 4.5F, 4.5F, M, M, M, M}));

  // Without maturity a row's position counts, missing rows included; with it, a missing
  // maturity drops the row's value.
  const Floats position = Of({M, 1, M, 5, 7}, nullptr);
  EXPECT_EQ(At(position, Statistic::Duration), 3.0F);
  EXPECT_EQ(At(position, Statistic::Slope), 2.0F);
  EXPECT_EQ(At(position, Statistic::Area), 12.0F);  // (1+5)/2*2 + (5+7)/2*1
  const Floats maturity = {10, 20, M, 40, 50};
  const Floats timed = Of({M, 1, 3, 5, 9}, &maturity);
  EXPECT_EQ(At(timed, Statistic::N), 3.0F);
  EXPECT_EQ(At(timed, Statistic::Mean), 5.0F);
  EXPECT_EQ(At(timed, Statistic::Duration), 30.0F);
  EXPECT_EQ(At(timed, Statistic::Area), 60.0F + 70);

  // Median of an even count is the mean of the two middle values.
  EXPECT_EQ(At(Of({7, 1, M, 3, 100}, nullptr), Statistic::Median), 5.0F);
  EXPECT_EQ(At(Of({7, 1, 3}, nullptr), Statistic::Median), 3.0F);

  // One shared maturity has no slope; results that overflow a float are missing.
  const Floats same = {2, 2, 2};
  EXPECT_EQ(At(Of({1, 2, 3}, &same), Statistic::Slope), M);
  EXPECT_EQ(At(Of({1, 2, 3}, &same), Statistic::Area), 0.0F);
  const Floats huge = Of({-3e38F, 3e38F}, nullptr);
  EXPECT_EQ(At(huge, Statistic::Range), M);
  EXPECT_EQ(At(huge, Statistic::Variance), M);
  EXPECT_EQ(At(huge, Statistic::Mean), 0.0F);
  EXPECT_EQ(At(huge, Statistic::Max), 3e38F);
}

}  // namespace
