#include <gtest/gtest.h>

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ncds/ncds.h"

namespace {

int Sign(int value) { return (value > 0) - (value < 0); }

TEST(VxStdString, CompareOrdersBytesLikeStrcmp) {
  EXPECT_EQ(VxStdString::Compare("abc", "abc"), 0);
  EXPECT_LT(VxStdString::Compare("abc", "abd"), 0);
  EXPECT_GT(VxStdString::Compare("abd", "abc"), 0);
  EXPECT_LT(VxStdString::Compare("ab", "abc"), 0);  // a prefix sorts first
  EXPECT_GT(VxStdString::Compare("abc", ""), 0);
  EXPECT_LT(VxStdString::Compare("Zeta", "alpha"), 0);
  EXPECT_GT(VxStdString::Compare("\xC3\xA4", "z"), 0);  // bytes compare unsigned
  EXPECT_GT(VxStdString::Compare(std::string("a\0b", 3), "a"), 0);
}

TEST(VxStdString, CompareNoCaseFoldsAsciiLettersOnly) {
  EXPECT_EQ(VxStdString::CompareNoCase("Batch_01", "bATCH_01"), 0);
  EXPECT_GT(VxStdString::CompareNoCase("Zeta", "alpha"), 0);
  EXPECT_LT(VxStdString::CompareNoCase("abc", "ABD"), 0);
  EXPECT_LT(VxStdString::CompareNoCase("AB", "abc"), 0);
  // Neighbours of the letters are not letters: '[' is not '{', '@' is not '`'.
  EXPECT_NE(VxStdString::CompareNoCase("[", "{"), 0);
  EXPECT_NE(VxStdString::CompareNoCase("@", "`"), 0);
  EXPECT_NE(VxStdString::CompareNoCase("\xC3\x84", "\xC3\xA4"), 0);  // no folding beyond ASCII
  // Consistent with the case-sensitive order once case is out of the way.
  EXPECT_EQ(Sign(VxStdString::CompareNoCase("Obs_2", "OBS_10")),
            Sign(VxStdString::Compare("obs_2", "obs_10")));
}

TEST(VxStdString, HashAgreesWithCompareNoCaseInLookupTables) {
  EXPECT_EQ(VxStdString::ComputeCompareNoCaseHash("Batch_01"),
            VxStdString::ComputeCompareNoCaseHash("BATCH_01"));
  EXPECT_NE(VxStdString::ComputeCompareNoCaseHash("["), VxStdString::ComputeCompareNoCaseHash("{"));
  EXPECT_NE(VxStdString::ComputeCompareNoCaseHash("ab"),
            VxStdString::ComputeCompareNoCaseHash("ba"));

  std::unordered_map<std::string, int, VxStdString::NoCaseHash, VxStdString::NoCaseEqual> ids;
  std::unordered_set<std::size_t> hashes;
  const int count = 100000;
  for (int i = 0; i < count; ++i) {
    const std::string id = "Obs" + std::to_string(i);
    ids.emplace(id, i);
    hashes.insert(VxStdString::ComputeCompareNoCaseHash(id));
  }
  EXPECT_EQ(hashes.size(), static_cast<std::size_t>(count));  // no collisions on typical IDs
  EXPECT_FALSE(ids.emplace("OBS17", -1).second);
  for (const int i : {0, 17, 99999}) {
    const auto found = ids.find("oBs" + std::to_string(i));
    ASSERT_NE(found, ids.end());
    EXPECT_EQ(found->second, i);
  }
  EXPECT_EQ(ids.count("Obs100000"), 0u);
  EXPECT_EQ(ids.count("Obs1 "), 0u);
}

TEST(VxStdString, FormatsVectorsAndSharesOneEmptyString) {
  EXPECT_EQ(VxStdString::FormatStringVector({}), "");
  EXPECT_EQ(VxStdString::FormatStringVector({"a"}), "a");
  EXPECT_EQ(VxStdString::FormatStringVector({"a", "b", "c"}), "a, b, c");
  EXPECT_EQ(VxStdString::FormatStringVector({"", ""}), ", ");
  EXPECT_EQ(VxStdString::FormatStringVector({"x", "y"}, "\n"), "x\ny");
  EXPECT_EQ(VxStdString::FormatStringVector({"x", "y"}, ""), "xy");
  EXPECT_TRUE(VxStdString::Empty().empty());
  EXPECT_EQ(&VxStdString::Empty(), &VxStdString::Empty());
}

}  // namespace
