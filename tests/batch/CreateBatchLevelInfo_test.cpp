#include <gtest/gtest.h>

#include <string>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

TEST(CreateBatchLevelInfo, RoundTripsRefusesOtherVersionsAndSurvivesDamage) {
  CreateBatchLevelInfo info;
  info.SetVariableIDs({12, 7, 40});
  info.SetStatistics({"Mean", "Median", "Slope"});
  info.SetByPhase(true);
  info.SetPhases({"Growth", "", "Feed \"2\""});
  info.SetBatchConditions(true);
  info.SetSourceNumber(3);
  info.SetMaturityID(9);
  info.SetSourceBatches(SourceBatches({{"B1", 42}, {"", 0}, {"B\xC3\xBC", ~0ULL}}));
  const std::string valid = WriteToString(info);
  CreateBatchLevelInfo read;
  ASSERT_TRUE(ReadFromString(valid, read));
  EXPECT_EQ(read, info);
  EXPECT_EQ(WriteToString(read), valid);
  CreateBatchLevelInfo empty;
  ASSERT_TRUE(ReadFromString(WriteToString(CreateBatchLevelInfo()), read));
  EXPECT_EQ(read, empty);

  // Another version is refused and the description stays as it was.
  std::string other = valid;
  const std::size_t version = std::string("CBLI").size() + 1;
  ASSERT_EQ(other[version], 1);
  other[version] = 2;
  EXPECT_FALSE(ReadFromString(other, read));
  EXPECT_EQ(read, empty);

  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    CreateBatchLevelInfo damaged;
    if (!ReadFromString(bytes, damaged)) {
      EXPECT_EQ(damaged, CreateBatchLevelInfo());
      return;
    }
    const std::string again = WriteToString(damaged);
    CreateBatchLevelInfo second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(second, damaged);
  });
}

}  // namespace
