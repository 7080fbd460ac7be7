#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "dataset/DataSetFixture.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::BatchDataSet;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

std::string WithoutEntries(const std::string& bytes, const std::set<int>& omitted,
                           std::uint16_t version = 3) {
  return ncds::test::Rewritten(bytes, "NCDSI", 14, version, omitted);
}

// What an info answers, the same for one made from a dataset and one read back.
void ExpectDescribes(const NCDataSetInfo& info, const NCDataSet& dataSet) {
  EXPECT_EQ(info.SizeObservations(), BatchDataSet::kRows);
  EXPECT_EQ(info.SizeVariables(), 2);
  EXPECT_EQ(info.GetNumber(), 5);
  EXPECT_STREQ(info.GetName(), "Fermentation");
  EXPECT_EQ(info.GetNumberOfYVariables(), 1);
  EXPECT_EQ(info.GetDataType(), NCDataSet::kBatchBit | 2);
  EXPECT_EQ(info.GetSourceID(), 77U);
  EXPECT_EQ(info.GetObservationInfoVector(), dataSet.GetObservationInfoVector());
  EXPECT_EQ(info.GetVarIDs(), dataSet.GetVarIDs());
  EXPECT_EQ(info.GetVarID(2), BatchDataSet::kY);
  EXPECT_EQ(info.GetUsedObsAliases(), (std::vector<int>{1, 3}));
  EXPECT_EQ(info.GetObservationID(3, 3), "P2");
  EXPECT_EQ(info.GetVariableID(2, 1), "Y");
  EXPECT_EQ(info.GetObservationInfo(BatchDataSet::kRows + 1), nullptr);
  ASSERT_TRUE(info.GetBatchInfoVector() && info.GetPhaseInfoVector());
  EXPECT_EQ(*info.GetBatchInfoVector(), *dataSet.GetBatchInfoVector());
  EXPECT_NE(info.GetBatchInfoVector(), dataSet.GetBatchInfoVector()) << "a copy";
  EXPECT_EQ(*info.GetPhaseInfoVector(), *dataSet.GetPhaseInfoVector());
  EXPECT_EQ(info.GetBatchNames().GetVector(), (std::vector<std::string>{"B1", "B2"}));
}

TEST(NCDataSetInfo, DescribesTheDatasetAndSurvivesItsStream) {
  BatchDataSet fixture;
  const NCDataSetInfo info(fixture.dataSet);
  ExpectDescribes(info, *fixture.dataSet);
  fixture.dataSet->SetName("Renamed");
  EXPECT_STREQ(info.GetName(), "Fermentation") << "a snapshot";
  ExpectDescribes(NCDataSetInfo(info), *fixture.dataSet);

  const std::string bytes = WriteToString(info);
  NCDataSetInfo read(fixture.project);
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(NCDataSetInfo::GetVStreamVersionNumber(), 3);
  ExpectDescribes(read, *fixture.dataSet);
  EXPECT_EQ(WriteToString(read), bytes);

  // Entry 5 is one zero byte that nothing reads.
  std::istringstream is(bytes);
  std::uint16_t version = 0;
  ASSERT_TRUE(VStreamLight::CheckMagicStringAndVersionNumber(is, version, "NCDSI"));
  InputStreamDirectory directory(is);
  ASSERT_TRUE(directory.HasTag(5));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*directory.GetInput(5)), {}),
            std::string(1, '\0'));
  NCDataSetInfo withoutIt(fixture.project);
  EXPECT_TRUE(ReadFromString(WithoutEntries(bytes, {5}), withoutIt));

  // Without batches and phases neither entry is written, and reading drops them.
  const std::string plain = WriteToString(NCDataSetInfo(NCDataSet::Create(fixture.project, 2)));
  EXPECT_EQ(plain, WithoutEntries(plain, {12, 13}));
  ASSERT_TRUE(ReadFromString(plain, read));
  EXPECT_FALSE(read.GetBatchInfoVector() || read.GetPhaseInfoVector());
  EXPECT_EQ(read.GetNumber(), 2);
}

TEST(NCDataSetInfo, DefaultsRefusalsAndDamage) {
  BatchDataSet fixture;
  const std::string valid = WriteToString(NCDataSetInfo(fixture.dataSet));

  NCDataSetInfo read(fixture.project);
  ASSERT_TRUE(ReadFromString(WithoutEntries(valid, {6, 7}), read));
  EXPECT_EQ(read.GetDataType(), NCDataSet::kOrdinary);
  EXPECT_EQ(read.GetSourceID(), NCUniqueIDs::kNone);
  for (const int tag : {0, 1, 2, 3, 4, 8, 9, 10, 11}) {
    NCDataSetInfo info(fixture.project);
    EXPECT_FALSE(ReadFromString(WithoutEntries(valid, {tag}), info)) << tag;
    EXPECT_EQ(info.SizeObservations(), 0);
  }
  EXPECT_FALSE(ReadFromString(WithoutEntries(valid, {}, 2), read));
  EXPECT_FALSE(ReadFromString(WriteToString(*fixture.dataSet), read));

  const auto bare = NCProject::Create();
  NCDataSetInfo elsewhere(bare);
  // Rows whose observations the project lacks are rows without a record.
  ASSERT_TRUE(ReadFromString(valid, elsewhere));
  EXPECT_EQ(elsewhere.SizeObservations(), BatchDataSet::kRows);
  EXPECT_EQ(elsewhere.GetObservationInfo(1), nullptr);

  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    NCDataSetInfo info(fixture.project);
    try {
      if (!ReadFromString(bytes, info)) return;
    } catch (const NCError&) {
      return;
    }
    EXPECT_EQ(info.GetObservationInfoVector().size(),
              static_cast<std::size_t>(info.SizeObservations()));
    EXPECT_EQ(info.GetVarIDs().size(), static_cast<std::size_t>(info.SizeVariables()));
    const std::string again = WriteToString(info);
    NCDataSetInfo second(fixture.project);
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(WriteToString(second), again);
  });
}

}  // namespace
