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

// Reads `bytes` as the records of one directory entry, as containers store them; the records
// there may be decoded straight from the entry's buffer.
bool ReadInsideEntry(const std::string& bytes, std::vector<ObservationInfo>& records) {
  std::ostringstream os;
  {
    OutputStreamDirectory directory(os, 1);
    directory.GetOutput(0).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  std::istringstream is(os.str());
  InputStreamDirectory directory(is);
  std::istream* entry = directory.GetInput(0);
  for (ObservationInfo& record : records) {
    if (!entry || !(*entry >> record)) return false;
  }
  return true;
}

TEST(ObservationInfo, SmallAndLargeRecordsWriteTheSameLayout) {
  // Small records are encoded in one piece, large ones through directories: both must give
  // the bytes of the record's parts written one after another.
  for (const Strings& ids : {Strings{}, Strings{"O1", "B7"}, Strings(3, std::string(600, 'x'))}) {
    ObservationInfo obs(ids, 4000000000UL);
    obs.SetDefaultClass(-3);
    obs.SetBatch(12);
    std::ostringstream expected;
    VStreamLight::WriteMagicStringAndVersionNumber(expected, 1, "OI");
    expected << VarObsInfo(ids, 4000000000UL);
    {
      OutputStreamDirectory directory(expected, 2);
      WriteToStreamDir(std::int32_t{-3}, directory, 0);
      WriteToStreamDir(std::uint32_t{12}, directory, 1);
    }
    EXPECT_EQ(WriteToString(obs), expected.str()) << ids.size();
  }
}

TEST(ObservationInfo, RecordsInsideEntriesReadAsAlone) {
  ObservationInfo tagged(Strings{"O1", "B1"}, 77);
  tagged.SetBatch(5);
  tagged.SetDefaultClass(-2);
  const std::vector<ObservationInfo> originals{
      tagged, ObservationInfo(), ObservationInfo(Strings{"", "x", std::string(300, 'y')}, 8),
      // Longer than a record decoded in place may be.
      ObservationInfo(Strings(40, std::string(20, 'z')), 9), ObservationInfo("last", 4294967295UL)};
  std::string all;
  for (const ObservationInfo& record : originals) all += WriteToString(record);
  std::vector<ObservationInfo> read(originals.size());
  ASSERT_TRUE(ReadInsideEntry(all, read));
  for (std::size_t k = 0; k < originals.size(); ++k) {
    EXPECT_EQ(read[k].GetUserIDs(), originals[k].GetUserIDs()) << k;
    EXPECT_EQ(read[k].GetUniqueID(), originals[k].GetUniqueID()) << k;
    EXPECT_EQ(read[k].GetBatch(), originals[k].GetBatch()) << k;
    EXPECT_EQ(read[k].GetDefaultClass(), originals[k].GetDefaultClass()) << k;
  }

  // Whatever the damage, both ways agree on whether a record reads and on what it holds.
  const auto agree = [](const std::string& bytes) {
    ObservationInfo alone;
    const bool aloneOk = ReadFromString(bytes, alone);
    std::vector<ObservationInfo> inside(1);
    ASSERT_EQ(ReadInsideEntry(bytes, inside), aloneOk);
    if (aloneOk) {
      EXPECT_EQ(WriteToString(inside[0]), WriteToString(alone));
    }
  };
  const std::string valid = WriteToString(tagged);
  ncds::test::ForEachCorruption(valid, agree);
  for (std::size_t length = 0; length <= valid.size(); ++length) agree(valid.substr(0, length));
  // A directory declaring more entries than written, and one with an entry more.
  std::ostringstream roomy;
  VStreamLight::WriteMagicStringAndVersionNumber(roomy, 1, "OI");
  roomy << VarObsInfo("x", 1);
  {
    OutputStreamDirectory directory(roomy, 3);
    WriteToStreamDir(std::int32_t{3}, directory, 0);
    WriteToStreamDir(std::uint32_t{44}, directory, 1);
  }
  agree(roomy.str());
  std::ostringstream extra;
  VStreamLight::WriteMagicStringAndVersionNumber(extra, 1, "OI");
  extra << VarObsInfo("x", 1);
  {
    OutputStreamDirectory directory(extra, 3);
    WriteToStreamDir(std::uint32_t{44}, directory, 1);
    WriteToStreamDir(std::int32_t{3}, directory, 0);
    WriteToStreamDir(std::int32_t{9}, directory, 2);
  }
  agree(extra.str());
}

}  // namespace
