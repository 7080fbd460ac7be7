#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Vector = NCDataVector<float>;
constexpr float kMissing = -99.0F;
const float kNaN = std::numeric_limits<float>::quiet_NaN();

using ncds::test::NonSeekableBuf;

Vector Of(std::initializer_list<float> values) {
  Vector v;
  for (float value : values) v.push_back(value);
  return v;
}

std::vector<float> Values(const Vector& v) { return std::vector<float>(v.begin(), v.end()); }
std::vector<int> Values(const NCIntegralVector<int, -99>& v) {
  return std::vector<int>(v.begin(), v.end());
}

std::string Bytes(const Vector& v) {
  std::ostringstream os;
  os << v;
  EXPECT_TRUE(os.good());
  return os.str();
}

bool ReadInto(const std::string& bytes, Vector& v) {
  std::istringstream is(bytes);
  return static_cast<bool>(is >> v);
}

TEST(NCDataVector, EditsAndRefusals) {
  Vector v(2);
  EXPECT_EQ(Values(v), (std::vector<float>{kMissing, kMissing}));
  v.SetAllValues(1.0F);
  v.SetSize(4);
  EXPECT_EQ(Values(v), (std::vector<float>{1, 1, kMissing, kMissing}));
  v.InsertValues(1, 2, 5.0F);
  v.InsertValues(6, 1, 6.0F);
  EXPECT_EQ(Values(v), (std::vector<float>{1, 5, 5, 1, kMissing, kMissing, 6}));
  v.RemoveValues(3, 3);
  EXPECT_EQ(Values(v), (std::vector<float>{1, 5, 5, 6}));

  const Vector before = v;
  EXPECT_THROW(v.InsertValues(5, 1, 0.0F), InvalidArgument);
  EXPECT_THROW(v.RemoveValues(2, 3), InvalidArgument);
  EXPECT_THROW(v.Reduce(NCIntegralVector<int, -99>(1, 4)), InvalidArgument);
  EXPECT_THROW(v.CopyVector(nullptr, 2), InvalidArgument);
  EXPECT_EQ(v, before);
  EXPECT_EQ(v(3, -1.0F), 6.0F);
  EXPECT_EQ(v(4, -1.0F), -1.0F);

  NCIntegralVector<int, -99> keep(1, 3);
  keep.push_back(0);
  keep.push_back(3);
  v.Reduce(keep);
  EXPECT_EQ(Values(v), (std::vector<float>{6, 1, 6}));

  const float raw[] = {2.0F, kMissing, -1.5F};
  v.CopyVector(raw, 3);
  v += 1.0F;  // missing cells stay missing
  EXPECT_EQ(Values(v), (std::vector<float>{3.0F, kMissing, -0.5F}));

  // NaN equals NaN, so a vector always equals its copy; sizes must agree.
  EXPECT_EQ(Of({kNaN, 1}), Of({kNaN, 1}));
  EXPECT_NE(Of({kNaN, 1}), Of({kNaN, 2}));
  EXPECT_NE(Of({1}), Of({1, 1}));
  v.Clear();
  EXPECT_TRUE(v.empty());
}

TEST(NCDataVector, StatisticsSkipMissingCells) {
  const Vector v = Of({4, kMissing, 1, kNaN, 10, 3});
  EXPECT_DOUBLE_EQ(v.GetMean(), 4.5);
  EXPECT_DOUBLE_EQ(v.GetMedian(), 3.5);  // middle of 1 3 4 10
  float min = 0;
  float max = 0;
  EXPECT_TRUE(v.GetMinMax(min, max));
  EXPECT_EQ(min, 1.0F);
  EXPECT_EQ(max, 10.0F);

  EXPECT_DOUBLE_EQ(Of({5, 2, kMissing, 9}).GetMedian(), 5.0);
  EXPECT_DOUBLE_EQ(Of({7}).GetMedian(), 7.0);
  // Extended precision: the float sum alone would lose the small values.
  Vector precise = Of({16777216.0F});
  for (int i = 0; i < 9; ++i) precise.push_back(1.0F);
  EXPECT_DOUBLE_EQ(precise.GetMean(), (16777216.0 + 9.0) / 10.0);

  for (const Vector& none : {Vector(), Of({kMissing, kNaN})}) {
    EXPECT_EQ(none.GetMean(), kMissing);
    EXPECT_EQ(none.GetMedian(), kMissing);
    EXPECT_FALSE(none.GetMinMax(min, max));
    EXPECT_EQ(min, kMissing);
    EXPECT_EQ(max, kMissing);
  }
}

TEST(NCDataVector, SortIsStableWithMissingLast) {
  Vector v = Of({3, kMissing, 1, 3, kNaN, 2, 1});
  const NCIntegralVector<int, -99> up = v.Sort(true);
  EXPECT_EQ(Values(up), (std::vector<int>{2, 6, 5, 0, 3, 1, 4}));
  EXPECT_EQ(Values(v)[3], 3.0F);
  EXPECT_EQ(Values(v)[5], kMissing);
  EXPECT_TRUE(std::isnan(Values(v)[6]));

  v = Of({3, kMissing, 1, 3, 2});
  const NCIntegralVector<int, -99> down = v.Sort(false);
  EXPECT_EQ(Values(down), (std::vector<int>{0, 3, 4, 2, 1}));
  EXPECT_EQ(Values(v), (std::vector<float>{3, 3, 2, 1, kMissing}));

  Vector empty;
  EXPECT_TRUE(empty.Sort(true).empty());
}

TEST(NCDataVector, StreamRoundTripsAndDamage) {
  for (const Vector& v : {Vector(), Of({kMissing}), Of({1.5F, kNaN, -0.0F, 3e38F})}) {
    const std::string bytes = Bytes(v);
    EXPECT_EQ(bytes.size(), 1 + 12 + 2 + 8 + 4 * v.size());
    Vector read = Of({9, 9, 9});
    ASSERT_TRUE(ReadInto(bytes, read));
    EXPECT_EQ(read, v);
    EXPECT_EQ(std::signbit(read(2, 0.0F)), std::signbit(v(2, 0.0F)));
  }

  Vector valid;
  for (int i = 0; i < 30; ++i) valid.push_back(static_cast<float>(i) * 0.25F);
  const Vector sentinel = Of({42});
  ncds::test::ForEachCorruption(Bytes(valid), [&](const std::string& bytes) {
    Vector read = sentinel;
    if (!ReadInto(bytes, read)) {
      EXPECT_EQ(read, sentinel);  // a failed read leaves the vector as it was
      return;
    }
    Vector again;
    ASSERT_TRUE(ReadInto(Bytes(read), again));
    EXPECT_EQ(again, read);
  });

  // A false count of four billion, from a stream that cannot tell its size: no huge
  // allocation, just a failed read.
  std::string huge = Bytes(Of({1, 2}));
  const std::uint64_t count = 4000000000ull;
  std::ostringstream countBytes;
  WriteEightBytes(&count, 1, countBytes);
  huge.replace(15, 8, countBytes.str());
  Vector read;
  EXPECT_FALSE(ReadInto(huge, read));
  NonSeekableBuf buf(huge);
  std::istream unseekable(&buf);
  EXPECT_FALSE(unseekable >> read);
  EXPECT_TRUE(read.empty());
}

}  // namespace
