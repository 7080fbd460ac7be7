#include "ncds/derived/LocalCenteringInfo.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/derived/AVGLocalCenteringInfo.h"
#include "ncds/derived/IndexTrippel.h"
#include "ncds/foundations/ConfigurationSection.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

std::string TrippelBytes(const IndexTrippel& triple) {
  std::ostringstream os;
  EXPECT_TRUE(triple.Write(os));
  return os.str();
}

// Two batches, two phases, two variables; one center missing, names with odd bytes.
LocalCenteringInfo Sample() {
  LocalCenteringInfo info(17, true);
  info.AddData("B1", "P1", "Temp", 1.0F);
  info.AddData("B2", "P1", "Temp", 3.0F);
  info.AddData("B1", "P2", "Temp", -99.0F);
  info.AddData("B2", "P2", "Temp", 5.0F);
  info.AddData("B1", "P1", "Pressure", -2.5F);
  info.AddData("B\x01x", "", "Pressure\n&<>", 7.0F);
  return info;
}

TEST(IndexTrippel, StreamsItsThreeNamesInOrder) {
  const IndexTrippel triple("batch", std::string("ph\0se", 5), "");
  const std::string bytes = TrippelBytes(triple);
  EXPECT_EQ(bytes.substr(0, 15), std::string("\x0CIndexTrippel\x01\x00", 15));
  EXPECT_EQ(bytes.size(), 15u + 4 + 5 + 4 + 5 + 4);

  IndexTrippel read("old", "old", "old");
  std::istringstream is(bytes);
  ASSERT_TRUE(read.Read(is));
  EXPECT_EQ(read, triple);
  EXPECT_EQ(read.GetPhase().size(), 5u);

  // Another version, a foreign magic and every truncation fail and keep the triple.
  for (std::size_t at : {std::size_t{13}, std::size_t{1}}) {
    std::string damaged = bytes;
    damaged[at] ^= 0x02;
    std::istringstream bad(damaged);
    EXPECT_FALSE(read.Read(bad)) << at;
  }
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    std::istringstream bad(bytes.substr(0, length));
    EXPECT_FALSE(read.Read(bad)) << length;
  }
  EXPECT_EQ(read, triple);
}

TEST(LocalCenteringInfo, KeepsOneCenterPerTriple) {
  LocalCenteringInfo info = Sample();
  EXPECT_EQ(info.SizeTrippel(), 6u);
  EXPECT_EQ(info.GetData("B2", "P1", "Temp"), 3.0F);
  EXPECT_EQ(info.GetData("B2", "P1", "temp"), -99.0F) << "names are exact";
  EXPECT_EQ(info.GetData("B3", "P1", "Temp"), -99.0F);
  info.AddData("B2", "P1", "Temp", 4.0F);
  EXPECT_EQ(info.GetData("B2", "P1", "Temp"), 4.0F);
  EXPECT_EQ(info.SizeTrippel(), 6u);
  info.AddData(nullptr, nullptr, "V", 9.0F);
  EXPECT_EQ(info.GetData("", "", "V"), 9.0F);
}

TEST(LocalCenteringInfo, SavesAndLoadsThroughAConfigurationFile) {
  const LocalCenteringInfo original = Sample();
  ConfigurationSection root;
  root.AddSubSection("LocalCentering").AddSubSection("LCData").SetString("Batch", "stale");
  root.AddSubSection("Unrelated");
  original.Save(&root);
  original.Save(&root);
  ASSERT_EQ(root.CountSubSections("LocalCentering"), 1u) << "a save replaces the earlier one";
  EXPECT_EQ(root.CountSubSections("Unrelated"), 1u);
  const ConfigurationSection* entries = root.OpenSubSection("LocalCentering");
  ASSERT_EQ(entries->CountSubSections("LCData"), original.SizeTrippel());
  const ConfigurationSection* last = entries->OpenSubSection("LCData", original.SizeTrippel());
  EXPECT_EQ(last->GetString("Batch", ""), "B2");
  EXPECT_EQ(last->GetString("Phase", ""), "P2");
  EXPECT_EQ(last->GetFloat("Center", 0.0F), 5.0F);

  // Through the XML text and back, control characters and markup in names included.
  ConfigurationSection reread;
  reread.LoadString(root.SaveString(), "centers");
  LocalCenteringInfo loaded(17, true);
  loaded.AddData("gone", "gone", "gone", 1.0F);
  loaded.Load(&reread);
  EXPECT_EQ(loaded, original);

  // No "LocalCentering": empty. Missing keys: an empty name and a missing center.
  ConfigurationSection none;
  loaded.Load(&none);
  EXPECT_EQ(loaded.SizeTrippel(), 0u);
  none.AddSubSection("LocalCentering").AddSubSection("LCData").SetString("Variable", "V");
  none.OpenSubSection("LocalCentering")->AddSubSection("LCData").SetString("Center", "x");
  loaded.Load(&none);
  ASSERT_EQ(loaded.SizeTrippel(), 2u);
  EXPECT_EQ(loaded.GetData("", "", "V"), -99.0F);
  EXPECT_EQ(loaded.GetData("", "", ""), -99.0F);
  loaded.Load(nullptr);
  EXPECT_EQ(loaded.SizeTrippel(), 0u);
}

TEST(LocalCenteringInfo, AveragesCentersPerPhaseAndVariable) {
  QuantitativeVariableInfo temp("TEMP", 101);
  QuantitativeVariableInfo pressure("Pressure\n&<>", 102);
  QuantitativeVariableInfo lower("pressure", 103);
  QuantitativeVariableInfo upper("PRESSURE", 104);
  const std::vector<VariableInfo*> variables{nullptr, &temp, &pressure, &lower, &upper};

  LocalCenteringInfo info = Sample();
  info.AddData("B1", "P3", "temp", -99.0F);
  info.AddData("B2", "P3", "Temp", -99.0F);
  info.AddData("B1", "P4", "Pressure", 1.0F);
  const std::unique_ptr<AVGLocalCenteringInfo> averages =
      info.BuildDefLocalCenteringInfo(&variables);
  ASSERT_NE(averages, nullptr);
  EXPECT_TRUE(averages->HasPhases());
  EXPECT_EQ(averages->GetData("P1", 101), 2.0F);  // (1 + 3) / 2
  EXPECT_EQ(averages->GetData("P2", 101), 5.0F) << "missing centers do not count";
  EXPECT_EQ(averages->GetData("P3", 101), -99.0F) << "all missing";
  EXPECT_EQ(averages->GetData("P1", 103), -2.5F) << "first variable of a name, any case";
  EXPECT_EQ(averages->GetData("P4", 103), 1.0F);
  EXPECT_EQ(averages->GetData("", 102), 7.0F);
  EXPECT_EQ(averages->GetData("P1", 104), -99.0F);
  EXPECT_EQ(averages->Size(), 6u);

  // A variable the list lacks: the exact message, and nothing built.
  info.AddData("B1", "P1", "Unknown", 1.0F);
  try {
    (void)info.BuildDefLocalCenteringInfo(&variables);
    FAIL() << "built averages for an unknown variable";
  } catch (const Exception& error) {
    EXPECT_STREQ(error.what(),
                 "Local centering information was found for an unknown variable.\n"
                 "Re-importing the local centering information might solve the problem.");
  }
  EXPECT_THROW((void)info.BuildDefLocalCenteringInfo(nullptr), Exception);
  EXPECT_EQ(LocalCenteringInfo().BuildDefLocalCenteringInfo(nullptr)->Size(), 0u);
}

TEST(LocalCenteringInfo, StreamsRoundTripAndRefuseOtherVersions) {
  const LocalCenteringInfo original = Sample();
  const std::string bytes = WriteToString(original);
  EXPECT_EQ(bytes.substr(0, 9), std::string("\x08"
                                            "FULL_LCI",
                                            9));
  LocalCenteringInfo read(3, false);
  read.AddData("x", "y", "z", 1.0F);
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, original);
  EXPECT_EQ(read.GetCenterID(), 17);
  EXPECT_TRUE(read.HasPhases());
  EXPECT_EQ(WriteToString(read), bytes);
  EXPECT_EQ(LocalCenteringInfo::GetVStreamVersionNumber(), 1);

  const LocalCenteringInfo before(5, false);
  for (const char version : {'\x00', '\x02'}) {
    std::string other = bytes;
    other[9] = version;
    LocalCenteringInfo refused(before);
    EXPECT_FALSE(ReadFromString(other, refused)) << int{version};
    EXPECT_EQ(refused, before);
  }

  // Triples out of order (the first two swapped) mark a damaged stream.
  const std::string first = TrippelBytes(IndexTrippel("B1", "P1", "Pressure"));
  const std::string second = TrippelBytes(IndexTrippel("B1", "P1", "Temp"));
  std::string swapped = bytes;
  const std::size_t at = swapped.find(first);
  ASSERT_NE(at, std::string::npos);
  swapped.replace(swapped.find(second), second.size(), first);
  swapped.replace(at, first.size(), second);
  LocalCenteringInfo refused(before);
  EXPECT_FALSE(ReadFromString(swapped, refused));
  EXPECT_EQ(refused, before);
}

TEST(AVGLocalCenteringInfo, StreamsRoundTripAndReadOnlyVersionTwo) {
  AVGLocalCenteringInfo original(true);
  original.AddData("P1", 4000000000UL, 1.5F);
  original.AddData("", 7, -99.0F);
  original.AddData(nullptr, 8, 2.0F);
  original.AddData("P1", 7, 3.0F);
  original.AddData("P1", 7, 4.0F);
  EXPECT_EQ(original.GetData("P1", 7), 4.0F);
  EXPECT_EQ(original.GetData("P2", 7), -99.0F);
  EXPECT_EQ(original.Size(), 4u);
  EXPECT_EQ(original.Begin()->first, AVGLocalCenteringInfo::Key("", 7));

  const std::string bytes = WriteToString(original);
  EXPECT_EQ(bytes.substr(0, 6), std::string("\x03LCI\x02\x00", 6));
  AVGLocalCenteringInfo read;
  read.AddData("stale", 1, 1.0F);
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, original);
  EXPECT_EQ(WriteToString(read), bytes);

  const AVGLocalCenteringInfo before(false);
  for (const char version : {'\x01', '\x03'}) {
    std::string other = bytes;
    other[4] = version;
    AVGLocalCenteringInfo refused(before);
    EXPECT_FALSE(ReadFromString(other, refused)) << int{version};
    EXPECT_EQ(refused, before);
  }

  // Entries out of key order mark a damaged stream: ("", 8) patched to ("", 6) follows
  // ("", 7); patched to ("", 9) it is in order still, which shows the patch hit.
  const std::string eight("\x00\x00\x00\x00\x08\x00\x00\x00", 8);
  const std::size_t at = bytes.find(eight);
  ASSERT_NE(at, std::string::npos);
  std::string patched = bytes;
  patched[at + 4] = '\x06';
  AVGLocalCenteringInfo refused(before);
  EXPECT_FALSE(ReadFromString(patched, refused));
  EXPECT_EQ(refused, before);
  patched[at + 4] = '\x09';
  ASSERT_TRUE(ReadFromString(patched, refused));
  EXPECT_EQ(refused.GetData("", 9), 2.0F);
}

template <class T>
void ExpectDamagedStreamsFailOrRoundTrip(const T& valid, const T& before) {
  const std::string bytes = WriteToString(valid);
  ncds::test::ForEachCorruption(bytes, [&](const std::string& damaged) {
    T read(before);
    if (ReadFromString(damaged, read)) {
      const std::string again = WriteToString(read);
      T second;
      ASSERT_TRUE(ReadFromString(again, second));
      EXPECT_EQ(WriteToString(second), again);
    } else {
      EXPECT_EQ(read, before) << "a failed read keeps the object";
    }
  });
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    T read;
    EXPECT_FALSE(ReadFromString(bytes.substr(0, length), read)) << length;
  }
}

TEST(LocalCenteringInfo, DamagedStreamsFailCleanly) {
  LocalCenteringInfo before(9, false);
  before.AddData("kept", "kept", "kept", 1.0F);
  ExpectDamagedStreamsFailOrRoundTrip(Sample(), before);

  AVGLocalCenteringInfo averages(true);
  averages.AddData("P1", 1, 1.0F);
  averages.AddData("P2", 1, 2.0F);
  AVGLocalCenteringInfo kept(false);
  kept.AddData("kept", 2, 3.0F);
  ExpectDamagedStreamsFailOrRoundTrip(averages, kept);
}

}  // namespace
