#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;

std::string Bytes(const NCStringVector& v) {
  std::ostringstream os;
  os << v;
  EXPECT_TRUE(os.good());
  return os.str();
}

bool ReadInto(const std::string& bytes, NCStringVector& v) {
  std::istringstream is(bytes);
  return static_cast<bool>(is >> v);
}

TEST(NCStringVector, EditsReadsAndConversions) {
  NCStringVector v(Strings{"a", "b"});
  v.InsertStrings(1);
  v.InsertStrings(3, 2);
  v(1) = "x";
  EXPECT_EQ(v.GetVector(), (Strings{"a", "x", "b", "", ""}));
  v.RemoveStrings(3, 2);
  EXPECT_EQ(v.Size(), 3u);

  const NCStringVector before = v;
  EXPECT_THROW(v.InsertStrings(4), InvalidArgument);
  EXPECT_THROW(v.RemoveStrings(1, 3), InvalidArgument);
  EXPECT_EQ(v, before);

  const std::string fallback = "none";
  EXPECT_EQ(v[2], "b");
  EXPECT_EQ(v[3], "");
  EXPECT_EQ(&v(3, fallback), &fallback);
  EXPECT_EQ(v(0, fallback), "a");

  Strings out{"old"};
  NCStringVector::Convert(v, out);
  EXPECT_EQ(out, (Strings{"a", "x", "b"}));
  EXPECT_EQ(NCStringVector(3).GetVector(), Strings(3));
  v.Clear();
  EXPECT_EQ(v.size(), 0u);
}

TEST(NCStringVector, FindAndSortWithCaseFolding) {
  NCStringVector v(Strings{"Obs1", "obs2", "OBS1", "\xC4rger", "\xE4rger", "Obs10"});
  EXPECT_EQ(v.FindString("obs1"), -1);
  EXPECT_EQ(v.FindString("obs1", true), 0);
  EXPECT_EQ(v.FindString("obs1", true, 1), 2);
  EXPECT_EQ(v.FindString("obs1", true, 3), -1);
  EXPECT_EQ(v.FindString("obs1", true, 99), -1);
  EXPECT_EQ(v.FindString("Obs", true), -1);      // whole strings only
  EXPECT_EQ(v.FindString("\xE4RGER", true), 4);  // only ASCII letters fold

  v.Sort(true, true, false);
  EXPECT_EQ(v.GetVector(),
            (Strings{"Obs1", "OBS1", "Obs10", "obs2", "\xC4rger", "\xE4rger"}));  // stable
  v.Sort(false, false, false);
  EXPECT_EQ(v.GetVector(), (Strings{"\xE4rger", "\xC4rger", "obs2", "Obs10", "Obs1", "OBS1"}));
  v.Sort(true, true, true);
  EXPECT_EQ(v.GetVector(), (Strings{"Obs1", "Obs10", "obs2", "\xC4rger", "\xE4rger"}));

  NCStringVector repeats(Strings{"b", "a", "b", "a"});
  repeats.Sort(true, false, true);
  EXPECT_EQ(repeats.GetVector(), (Strings{"a", "b"}));
}

TEST(NCStringVector, StreamRoundTripsAndDamage) {
  const std::string nul("a\0b", 3);
  for (const NCStringVector& v : {NCStringVector(), NCStringVector(Strings{""}),
                                  NCStringVector(Strings{"x", nul, std::string(1000, 'z'), ""})}) {
    NCStringVector read(Strings{"old"});
    ASSERT_TRUE(ReadInto(Bytes(v), read));
    EXPECT_EQ(read, v);
  }

  const NCStringVector valid(Strings{"Batch1", "", "ObservationName", "x"});
  const NCStringVector sentinel(Strings{"keep"});
  ncds::test::ForEachCorruption(Bytes(valid), [&](const std::string& bytes) {
    NCStringVector read = sentinel;
    if (!ReadInto(bytes, read)) {
      EXPECT_EQ(read, sentinel);
      return;
    }
    NCStringVector again;
    ASSERT_TRUE(ReadInto(Bytes(read), again));
    EXPECT_EQ(again, read);
  });

  // Four billion strings cannot fit in a short stream: refused before anything is reserved.
  std::string huge = Bytes(valid);
  const std::uint64_t count = 4000000000ull;
  std::ostringstream countBytes;
  WriteEightBytes(&count, 1, countBytes);
  huge.replace(1 + 14 + 2, 8, countBytes.str());
  NCStringVector read;
  EXPECT_FALSE(ReadInto(huge, read));
}

}  // namespace
