#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

TEST(ObservationInfo, DefaultsCopiesAndStreams) {
  for (const ObservationInfo& fresh :
       {ObservationInfo(), ObservationInfo("O1", 1), ObservationInfo(Strings{"O1", "B"}, 2)}) {
    EXPECT_EQ(fresh.GetBatch(), NCUniqueIDs::kNone);
    EXPECT_EQ(fresh.GetDefaultClass(), 0);
    EXPECT_EQ(fresh.AsObservationInfo(), &fresh);
    EXPECT_EQ(fresh.AsVariableInfo(), nullptr);
  }

  ObservationInfo obs(Strings{"O1", "Batch 7", "Phase A"}, 123456);
  obs.SetBatch(3262240000UL);
  obs.SetDefaultClass(-4);
  const std::unique_ptr<ObservationInfo> copy(obs.Clone());
  EXPECT_EQ(copy->GetBatch(), 3262240000UL);
  EXPECT_EQ(copy->GetDefaultClass(), -4);
  EXPECT_EQ(copy->GetUserIDs(), obs.GetUserIDs());

  ObservationInfo read("other", 9);
  ASSERT_TRUE(ReadFromString(WriteToString(obs), read));
  EXPECT_EQ(read.GetUserIDs(), obs.GetUserIDs());
  EXPECT_EQ(read.GetUniqueID(), 123456u);
  EXPECT_EQ(read.GetBatch(), 3262240000UL);
  EXPECT_EQ(read.GetDefaultClass(), -4);
  // The object can be written and read again in a new pass.
  ASSERT_TRUE(ReadFromString(WriteToString(read), read));
  EXPECT_EQ(read.GetUniqueID(), 123456u);
}

TEST(ObservationInfo, VersionsAndOlderIdentityParts) {
  const std::string valid = WriteToString(ObservationInfo("O1", 5));
  ObservationInfo obs;
  std::string newer = valid;
  newer[3] = 2;  // "OI" version 2
  EXPECT_FALSE(ReadFromString(newer, obs));

  // An identity part of version 2 reads nothing; the observation's own part still does.
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, 1, "OI");
  VStreamLight::WriteMagicStringAndVersionNumber(os, 2, "VOI");
  {
    OutputStreamDirectory directory(os, 2);
    WriteToStreamDir(std::int32_t{3}, directory, 0);
    WriteToStreamDir(std::uint32_t{44}, directory, 1);
  }
  ObservationInfo old;
  ASSERT_TRUE(ReadFromString(os.str(), old));
  EXPECT_EQ(old.GetNumIDs(), 0);
  EXPECT_EQ(old.GetUniqueID(), 0u);
  EXPECT_EQ(old.GetDefaultClass(), 3);
  EXPECT_EQ(old.GetBatch(), 44u);

  // The batch entry is required.
  std::ostringstream missing;
  VStreamLight::WriteMagicStringAndVersionNumber(missing, 1, "OI");
  missing << VarObsInfo("x", 1);
  {
    OutputStreamDirectory directory(missing, 2);
    WriteToStreamDir(std::int32_t{3}, directory, 0);
  }
  EXPECT_FALSE(ReadFromString(missing.str(), old));
}

TEST(ObservationInfo, DamagedStreamsFailCleanly) {
  ObservationInfo obs(Strings{"O1", "B1"}, 77);
  obs.SetBatch(5);
  const std::string valid = WriteToString(obs);
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    ObservationInfo read;
    if (ReadFromString(bytes, read)) {
      EXPECT_FALSE(WriteToString(read).empty());
    }
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    ObservationInfo read;
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), read)) << length;
  }
}

}  // namespace
