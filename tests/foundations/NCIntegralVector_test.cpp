#include <gtest/gtest.h>

#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using IndexVector = NCIntegralVector<int, -99>;
using IdVector = NCIntegralVector<unsigned long, 0>;
using FlagVector = NCIntegralVector<bool, 0>;

using ncds::test::NonSeekableBuf;

template <class T>
std::string Bytes(const T& object) {
  std::ostringstream os;
  os << object;
  EXPECT_TRUE(os.good());
  return os.str();
}

template <class T>
bool ReadInto(const std::string& bytes, T& object) {
  std::istringstream is(bytes);
  return static_cast<bool>(is >> object);
}

IndexVector Of(std::initializer_list<int> values) {
  IndexVector v;
  for (int value : values) v.push_back(value);
  return v;
}

std::vector<int> Values(const IndexVector& v) { return std::vector<int>(v.begin(), v.end()); }

// Magic length byte, "NCIntegralVector", version, element width, count.
constexpr std::size_t kHeaderBytes = 1 + 16 + 2 + 1 + 8;

TEST(NCIntegralVector, EditsKeepOrderAndRefuseBadPositions) {
  IndexVector v;
  for (int i = 0; i < 1000; ++i) v.push_back(i);  // several capacity growths
  ASSERT_EQ(v.size(), 1000u);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(v[i], i);

  v = Of({1, 2, 3});
  v.InsertValues(0, 2, 7);
  v.InsertValues(5, 1, 8);
  v.InsertValues(3, Of({-1, -2}));
  EXPECT_EQ(Values(v), (std::vector<int>{7, 7, 1, -1, -2, 2, 3, 8}));
  v.InsertValues(1, v);  // inserting itself
  EXPECT_EQ(v.size(), 16u);
  EXPECT_EQ(Values(v).front(), 7);
  EXPECT_EQ(v[1], 7);
  EXPECT_EQ(v[8], 8);
  EXPECT_EQ(v[9], 7);
  v.RemoveValues(1, 8);
  EXPECT_EQ(Values(v), (std::vector<int>{7, 7, 1, -1, -2, 2, 3, 8}));

  const IndexVector before = v;
  EXPECT_THROW(v.InsertValues(9, 1, 0), InvalidArgument);
  EXPECT_THROW(v.InsertValues(9, Of({1})), InvalidArgument);
  EXPECT_THROW(v.RemoveValues(7, 2), InvalidArgument);
  EXPECT_THROW(v.RemoveValues(9, 0), InvalidArgument);
  EXPECT_EQ(v, before);
  v.RemoveValues(8, 0);
  EXPECT_EQ(v, before);

  EXPECT_EQ(v[8], -99);
  EXPECT_EQ(IdVector()[0], 0u);
  v(0) = 42;
  EXPECT_EQ(v[0], 42);
  EXPECT_NE(v, before);

  v.SetAllValues(5);
  EXPECT_EQ(Values(v), std::vector<int>(8, 5));
  v.SetNumValues(3, 4);
  EXPECT_EQ(Values(v), std::vector<int>(3, 4));
  EXPECT_EQ(Values(IndexVector(2)), std::vector<int>(2, -99));
  v.Clear();
  EXPECT_TRUE(v.empty());
  EXPECT_EQ(v.begin(), v.end());
}

TEST(NCIntegralVector, SearchesAndSorts) {
  const IndexVector ascending = Of({1, 3, 3, 5, 9});
  EXPECT_EQ(ascending.Find(3, SortType::Ascending), 1);
  EXPECT_EQ(ascending.Find(3, SortType::NotSorted, 2), 2);
  EXPECT_EQ(ascending.Find(4, SortType::Ascending), -1);
  EXPECT_EQ(ascending.Find(9, SortType::Ascending, 0, 4), -1);  // `to` excluded
  EXPECT_EQ(ascending.Find(9, SortType::Ascending, 4, 100), 4);
  EXPECT_EQ(ascending.Find(1, SortType::NotSorted, 3, 2), -1);
  EXPECT_EQ(ascending.Find(1, SortType::Ascending, 5), -1);
  EXPECT_EQ(ascending.LowerBound(4), 3u);
  EXPECT_EQ(ascending.LowerBound(10), 5u);
  EXPECT_TRUE(ascending.IsSorted(true));
  EXPECT_FALSE(ascending.IsSorted(false));

  const IndexVector descending = Of({9, 5, 3, 3, 1});
  EXPECT_EQ(descending.Find(3, SortType::Descending), 2);
  EXPECT_EQ(descending.Find(4, SortType::Descending), -1);
  EXPECT_EQ(descending.LowerBound(4, false), 2u);
  EXPECT_TRUE(descending.IsSorted(false));
  EXPECT_TRUE(IndexVector().IsSorted(true));

  IndexVector v = Of({4, -99, 4, 1, 7, 1});
  v.Sort(false, true);
  EXPECT_EQ(Values(v), (std::vector<int>{7, 4, 1, -99}));
  v = Of({4, -99, 4, 1});
  v.Sort(true, false);
  EXPECT_EQ(Values(v), (std::vector<int>{-99, 1, 4, 4}));

  // Stable: equal values keep their former order.
  v = Of({2, 1, 2, 1, 0});
  std::vector<int> original;
  v.SortWithOriginalIndex(false, original);
  EXPECT_EQ(Values(v), (std::vector<int>{2, 2, 1, 1, 0}));
  EXPECT_EQ(original, (std::vector<int>{0, 2, 1, 3, 4}));
  v.SortWithOriginalIndex(true, original);
  EXPECT_EQ(original, (std::vector<int>{4, 2, 3, 0, 1}));

  IdVector ids;
  for (unsigned long id : {30ul, 10ul, 20ul}) ids.push_back(id);
  ids.Reduce(Of({2, 0, 2}));
  EXPECT_EQ(std::vector<unsigned long>(ids.begin(), ids.end()),
            (std::vector<unsigned long>{20, 30, 20}));
  const IdVector kept = ids;
  EXPECT_THROW(ids.Reduce(Of({0, 3})), InvalidArgument);
  EXPECT_THROW(ids.Reduce(Of({-99})), InvalidArgument);
  EXPECT_EQ(ids, kept);
  ids.Reduce(IndexVector());
  EXPECT_TRUE(ids.empty());
}

TEST(NCIntegralVector, StreamsWithFixedWidths) {
  IndexVector indices = Of({0, -99, 2147483647, -2147483647 - 1});
  IdVector ids;
  ids.push_back(0);
  ids.push_back(3262240001ul);
  ids.push_back(0xFFFFFFFFFFFFFFFFul);
  FlagVector flags;
  for (bool flag : {true, false, true}) flags.push_back(flag);

  const std::string indexBytes = Bytes(indices);
  const std::string idBytes = Bytes(ids);
  const std::string flagBytes = Bytes(flags);
  EXPECT_EQ(indexBytes.size(), kHeaderBytes + 4 * 4);
  EXPECT_EQ(idBytes.size(), kHeaderBytes + 3 * 8);
  EXPECT_EQ(flagBytes.size(), kHeaderBytes + 3);

  IndexVector indicesRead = Of({5});
  IdVector idsRead;
  FlagVector flagsRead;
  ASSERT_TRUE(ReadInto(indexBytes, indicesRead));
  ASSERT_TRUE(ReadInto(idBytes, idsRead));
  ASSERT_TRUE(ReadInto(flagBytes, flagsRead));
  EXPECT_EQ(indicesRead, indices);
  EXPECT_EQ(idsRead, ids);
  EXPECT_EQ(flagsRead, flags);

  for (const IndexVector& edge : {IndexVector(), Of({1})}) {
    IndexVector read = Of({9, 9});
    ASSERT_TRUE(ReadInto(Bytes(edge), read));
    EXPECT_EQ(read, edge);
  }

  // A vector of another element type is refused, and the target stays as it was.
  EXPECT_FALSE(ReadInto(indexBytes, idsRead));
  EXPECT_FALSE(ReadInto(idBytes, flagsRead));
  EXPECT_EQ(idsRead, ids);
  std::string badFlag = flagBytes;
  badFlag.back() = 2;
  EXPECT_FALSE(ReadInto(badFlag, flagsRead));
  EXPECT_EQ(flagsRead, flags);

  // Vectors inside a directory, beside other entries.
  std::stringstream ss;
  {
    OutputStreamDirectory dir(ss, 3);
    WriteToStreamDir(ids, dir, 0);
    WriteToStreamDir(std::string("between"), dir, 1);
    WriteToStreamDir(indices, dir, 2);
  }
  IdVector nestedIds;
  IndexVector nestedIndices;
  InputStreamDirectory dir(ss);
  EXPECT_TRUE(ReadFromStreamDir(nestedIds, dir, 0, true));
  EXPECT_TRUE(ReadFromStreamDir(nestedIndices, dir, 2, true));
  EXPECT_EQ(nestedIds, ids);
  EXPECT_EQ(nestedIndices, indices);
}

TEST(NCIntegralVector, DamagedStreamsFailCleanly) {
  IndexVector valid;
  for (int i = 0; i < 40; ++i) valid.push_back(i * 7 - 99);
  const IndexVector sentinel = Of({1, 2, 3});
  int succeeded = 0;
  ncds::test::ForEachCorruption(Bytes(valid), [&](const std::string& bytes) {
    IndexVector read = sentinel;
    if (!ReadInto(bytes, read)) {
      EXPECT_EQ(read, sentinel);
      return;
    }
    ++succeeded;
    IndexVector again;
    ASSERT_TRUE(ReadInto(Bytes(read), again));
    EXPECT_EQ(again, read);
  });
  EXPECT_GT(succeeded, 0);  // flips inside the values still give a readable vector

  // A count of four billion in a short stream fails at once, seekable or not.
  std::string huge = Bytes(Of({1, 2}));
  const std::uint64_t count = 4000000000ull;
  std::ostringstream countBytes;
  WriteEightBytes(&count, 1, countBytes);
  huge.replace(kHeaderBytes - 8, 8, countBytes.str());
  IndexVector read;
  EXPECT_FALSE(ReadInto(huge, read));
  NonSeekableBuf buf(huge);
  std::istream unseekable(&buf);
  EXPECT_FALSE(unseekable >> read);
  EXPECT_TRUE(read.empty());

  // A long vector still reads from a stream that cannot tell its size.
  IndexVector longer;
  longer.SetNumValues(200000, 3);
  longer(199999) = -7;
  NonSeekableBuf longBuf(Bytes(longer));
  std::istream longStream(&longBuf);
  ASSERT_TRUE(longStream >> read);
  EXPECT_EQ(read, longer);
}

TEST(BoolVector, FlagsAndRefusals) {
  BoolVector flags(5, true);
  EXPECT_EQ(flags.size(), 5u);
  EXPECT_EQ(flags.count(), 5u);
  flags.set(2, false);
  EXPECT_FALSE(flags[2]);
  EXPECT_TRUE(flags[4]);
  EXPECT_FALSE(flags[5]);
  EXPECT_EQ(flags.count(), 4u);
  EXPECT_THROW(flags.set(5, true), InvalidArgument);
  EXPECT_EQ(BoolVector(0, true).count(), 0u);
}

}  // namespace
