#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using Floats = std::vector<float>;
constexpr float M = -99.0F;

NCDataVector<float> Vector(const Floats& values) {
  NCDataVector<float> vector(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) vector[i] = values[i];
  return vector;
}

Floats Aligned(const BatchAligner& aligner, const Floats& values, const Floats& maturity) {
  const auto out = aligner.Align(Vector(values), Vector(maturity));
  return Floats(out->begin(), out->end());
}

BatchAligner Aligner(const Floats& grid, bool ascending = true, bool extend = false) {
  return BatchAligner(Vector(grid), ascending, extend);
}

TEST(BatchAligner, InterpolatesBridgesGapsAndDropsMissingMaturities) {
  const BatchAligner aligner = Aligner({0, 0.5F, 1, 2.25F, 3});
  EXPECT_EQ(Aligned(aligner, {0, 10, 20, 30}, {0, 1, 2, 3}), (Floats{0, 5, 10, 22.5F, 30}));
  // A gap is bridged by its neighbours; a grid point on a maturity takes its value even when
  // the neighbours are missing.
  EXPECT_EQ(Aligned(aligner, {0, M, 20, M}, {0, 1, 2, 3}), (Floats{0, 5, 10, M, M}));
  EXPECT_EQ(Aligned(aligner, {M, 10, M, M}, {0, 1, 2, 3}), (Floats{M, M, 10, M, M}));
  // A missing maturity drops its pair, NaN included.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(Aligned(aligner, {0, 99, 20, 30}, {0, M, 2, 3}), (Floats{0, 5, 10, 22.5F, 30}));
  EXPECT_EQ(Aligned(aligner, {0, 99, 20, 30}, {0, nan, 2, 3}), (Floats{0, 5, 10, 22.5F, 30}));
  // Fewer than two valid maturities, no rows or no grid: all missing.
  EXPECT_EQ(Aligned(aligner, {1, 2, 3}, {M, 1, M}), Floats(5, M));
  EXPECT_EQ(Aligned(aligner, {}, {}), Floats(5, M));
  EXPECT_TRUE(Aligned(BatchAligner(), {1, 2}, {0, 1}).empty());
  // Descending maturity on a descending grid.
  EXPECT_EQ(Aligned(Aligner({3, 2.5F, 0}, false), {30, 20, 10, 0}, {3, 2, 1, 0}),
            (Floats{30, 25, 0}));
  // A grid of one point.
  EXPECT_EQ(Aligned(Aligner({1.5F}), {0, 10, 20}, {0, 1, 2}), (Floats{15}));
}

TEST(BatchAligner, RefusesMaturityThatTurnsBack) {
  const BatchAligner up = Aligner({1, 2, 3});
  EXPECT_EQ(Aligned(up, {1, 2, 3, 4}, {1, 2, 2, 3}), (Floats{1, 2, 4}));  // equal neighbours
  EXPECT_THROW(Aligned(up, {1, 2, 3}, {1, 3, 2}), NCError);
  EXPECT_THROW(Aligned(Aligner({3, 2, 1}, false), {1, 2, 3}, {3, 1, 2}), NCError);
  try {
    Aligned(up, {1, 2, 3}, {3, 2, 1});
    FAIL();
  } catch (const NCError& error) {
    EXPECT_EQ(error.GetLevel(), NCError::Error);
    EXPECT_STREQ(error.what(), "Data can not be aligned since the maturity isn't monotone.");
  }
}

TEST(BatchAligner, EndsAreCutHeldOnceOrExtended) {
  const Floats grid{0, 1, 2, 3, 4};
  // A short batch ends in missing values, except that when the batch ends between two grid
  // points and the point before its end met a maturity exactly, the next point holds the end.
  EXPECT_EQ(Aligned(Aligner(grid), {5, 6, 7}, {0, 1, 2}), (Floats{5, 6, 7, M, M}));
  EXPECT_EQ(Aligned(Aligner(grid), {5, 6, 7}, {0, 1, 1.5F}), (Floats{5, 6, 7, M, M}));
  EXPECT_EQ(Aligned(Aligner(grid), {5, M, 6, 7}, {0, 0.5F, 1, 1.5F}), (Floats{5, 6, 7, M, M}));
  EXPECT_EQ(Aligned(Aligner(grid), {5, 6, 7}, {0, 0.5F, 1.5F}), (Floats{5, 6.5F, M, M, M}));
  // Extended, the end value is held to the end of the grid, and before the start too.
  EXPECT_EQ(Aligned(Aligner(grid, true, true), {5, 6, 7}, {0, 1, 2}), (Floats{5, 6, 7, 7, 7}));
  EXPECT_EQ(Aligned(Aligner(grid, true, true), {6, 7}, {1, 2}), (Floats{6, 6, 7, 7, 7}));
  // A long batch is cut at the grid's end.
  EXPECT_EQ(Aligned(Aligner({0, 1}), {1, 2, 3, 4}, {0, 1, 2, 3}), (Floats{1, 2}));

  EXPECT_EQ(BatchAligner::CompareTolerant(1.0, 1.0 + 1e-7), 0);
  EXPECT_EQ(BatchAligner::CompareTolerant(1.0, 1.0 + 3e-7), -1);
  EXPECT_EQ(BatchAligner::CompareTolerant(1e6, 1e6 - 0.05), 0);
  EXPECT_EQ(BatchAligner::CompareTolerant(1e6, 1e6 - 0.2), 1);
  EXPECT_EQ(BatchAligner::CompareTolerant(0.0, 0.0), 0);
}

TEST(BatchAligner, MatrixColumnsMatchAlignedVectorsAndCopiesAreDeep) {
  BatchAligner aligner = Aligner({0.5F, 1.5F, 2.5F, 3.5F});
  NCDataMatrix<float> data(4, 3);
  const Floats maturity{0, 1, 2, 3};
  const std::vector<Floats> columns{{1, 2, 3, 4}, {M, 2, M, 8}, {4, 3, M, M}};
  for (std::size_t c = 0; c < columns.size(); ++c) {
    for (std::size_t r = 0; r < 4; ++r) data(r, c) = columns[c][r];
  }
  const auto out = aligner.Align(data, Vector(maturity));
  ASSERT_EQ(out->SizeRows(), 4U);
  for (std::size_t c = 0; c < columns.size(); ++c) {
    const Floats expected = Aligned(aligner, columns[c], maturity);
    for (std::size_t r = 0; r < 4; ++r) EXPECT_EQ((*out)(r, c), expected[r]) << r << "," << c;
  }
  NCDataMatrix<float> wrong(4, 2);
  EXPECT_THROW(aligner.Align(data, Vector(maturity), wrong), InvalidArgument);

  const BatchAligner copy(aligner);
  aligner.SetTimeMaturityVector(nullptr);
  aligner.SetExtraPolateShortCutLongBatches(true);
  ASSERT_TRUE(copy.GetTimeMaturityVector());
  EXPECT_EQ(copy.GridSize(), 4U);
  EXPECT_FALSE(copy.GetExtraPolateShortCutLongBatches());
  aligner = copy;
  EXPECT_EQ(*aligner.GetTimeMaturityVector(), *copy.GetTimeMaturityVector());
  EXPECT_NE(aligner.GetTimeMaturityVector(), copy.GetTimeMaturityVector());
}

TEST(BatchAligner, StreamsRoundTripReadVersionTwoAndRefuseDamage) {
  const BatchAligner aligner = Aligner({4, 3, 2}, false, true);
  const std::string valid = WriteToString(aligner);
  BatchAligner read;
  ASSERT_TRUE(ReadFromString(valid, read));
  EXPECT_EQ(*read.GetTimeMaturityVector(), *aligner.GetTimeMaturityVector());
  EXPECT_FALSE(read.IsAscending());
  EXPECT_TRUE(read.GetExtraPolateShortCutLongBatches());
  EXPECT_EQ(WriteToString(read), valid);

  // Version 2 has no extension flag: the reader's own value stays.
  BatchAligner plain = Aligner({1, 2});
  std::string old = WriteToString(plain);
  const std::size_t version = std::string("Aligner").size() + 1;
  ASSERT_EQ(old[version], 3);
  old[version] = 2;
  BatchAligner extended = Aligner({}, true, true);
  ASSERT_TRUE(ReadFromString(old, extended));
  EXPECT_TRUE(extended.GetExtraPolateShortCutLongBatches());
  old[version] = 4;
  EXPECT_FALSE(ReadFromString(old, extended));
  // Without a grid nothing is written for it, and such a stream does not read.
  EXPECT_FALSE(ReadFromString(WriteToString(BatchAligner()), extended));

  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    BatchAligner damaged;
    if (!ReadFromString(bytes, damaged)) return;
    const std::string again = WriteToString(damaged);
    BatchAligner second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(WriteToString(second), again);
  });
}

}  // namespace
