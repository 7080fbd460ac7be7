#include <gtest/gtest.h>

#include <set>
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
                           std::uint16_t version = 4) {
  return ncds::test::Rewritten(bytes, "NCDS", 19, version, omitted);
}

TEST(NCDataSetStream, EveryFieldSurvivesWriteAndRead) {
  BatchDataSet fixture;
  const NCDataSet& source = *fixture.dataSet;
  ASSERT_TRUE(source.IsDirty());
  const std::string bytes = WriteToString(source);
  ASSERT_FALSE(bytes.empty());
  EXPECT_FALSE(source.IsDirty());

  const auto read = NCDataSet::Create(fixture.project, 5);
  read->SetName("changed before reading");
  ASSERT_TRUE(ReadFromString(bytes, *read));
  EXPECT_FALSE(read->IsDirty());
  EXPECT_EQ(NCDataSet::GetVStreamVersionNumber(), 4);
  EXPECT_STREQ(read->GetName(), "Fermentation");
  EXPECT_EQ(read->GetImportLog(), "read from run.csv");
  EXPECT_EQ(read->GetObservationInfoVector(), source.GetObservationInfoVector());
  EXPECT_EQ(read->GetObservationIDs(), source.GetObservationInfoVector().GetUniqueIDs());
  EXPECT_EQ(read->GetVarIDs(), source.GetVarIDs());
  for (int obs = 1; obs <= BatchDataSet::kRows; ++obs) {
    for (int var = 1; var <= 2; ++var)
      EXPECT_EQ(read->GetValue(obs, var), source.GetValue(obs, var));
  }
  ASSERT_TRUE(read->GetBatchInfoVector() && read->GetPhaseInfoVector());
  EXPECT_EQ(*read->GetBatchInfoVector(), *source.GetBatchInfoVector());
  EXPECT_EQ(*read->GetPhaseInfoVector(), *source.GetPhaseInfoVector());
  ASSERT_NE(read->GetLocalCenteringInfo(), nullptr);
  EXPECT_EQ(*read->GetLocalCenteringInfo(), *source.GetLocalCenteringInfo());
  EXPECT_EQ(read->GetDataType(), NCDataSet::kBatchBit | 2);
  EXPECT_EQ(read->GetSourceID(), 77U);
  EXPECT_EQ(read->GetUsedObsAliases(), (std::vector<int>{1, 3}));
  EXPECT_EQ(read->GetUsedVarAliases(), (std::vector<int>{1}));

  // The trim record, in the order the variables were trimmed (Y first).
  float before = 0.0F;
  EXPECT_TRUE(read->GetPreTrimValue(BatchDataSet::kY, BatchDataSet::kFirstRow + 4, before));
  EXPECT_EQ(before, 40.0F);
  EXPECT_TRUE(read->GetPreTrimValue(BatchDataSet::kX, BatchDataSet::kFirstRow + 1, before));
  EXPECT_EQ(before, 1.0F);
  ASSERT_EQ(read->GetTrimRecords().size(), 2U);
  EXPECT_EQ(read->GetTrimRecords()[0]->GetTrimValues(), std::set<float>{15.0F});
  EXPECT_EQ(read->GetTrimRecords()[1]->GetTrimValues(), std::set<float>{0.5F});
  // The flags show in the bytes: written again, the stream is the same.
  EXPECT_EQ(WriteToString(*read), bytes);
  // The read record works: resetting Y restores Y alone, and then X's record still holds.
  ASSERT_TRUE(read->ResetDatasetFromTrimming(false, 2));
  EXPECT_EQ(read->GetValue(5, 2), 40.0F);
  EXPECT_EQ(read->GetValue(2, 1), 0.5F);
  ASSERT_TRUE(read->ResetDatasetFromTrimming(true, 0));
  EXPECT_EQ(read->GetValue(2, 1), 1.0F);
}

TEST(NCDataSetStream, OptionalEntriesTakeTheirDefaults) {
  BatchDataSet fixture;
  const std::string full = WriteToString(*fixture.dataSet);
  const std::string old = WithoutEntries(full, {2, 3, 14, 15, 16, 17, 18});

  // A batch project without a description of dataset 5: a batch dataset with the fixed
  // source, every ID series in use, and no batches, phases or centers.
  auto read = NCDataSet::Create(fixture.project, 5);
  ASSERT_TRUE(ReadFromString(old, *read));
  EXPECT_EQ(read->GetDataType(), NCDataSet::kBatchBit);
  EXPECT_EQ(read->GetSourceID(), NCUniqueIDs::kNone);
  EXPECT_EQ(read->GetUsedObsAliases(), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(read->GetUsedVarAliases(), (std::vector<int>{1}));
  EXPECT_FALSE(read->GetBatchInfoVector() || read->GetPhaseInfoVector());
  EXPECT_EQ(read->GetLocalCenteringInfo(), nullptr);

  // The project's description of the dataset gives the aliases.
  fixture.dataSet->Save();
  read = NCDataSet::Create(fixture.project, 5);
  ASSERT_TRUE(ReadFromString(old, *read));
  EXPECT_EQ(read->GetUsedObsAliases(), (std::vector<int>{1, 3}));

  // Outside a batch project the kind stays what it was.
  fixture.project->GetObservations().SetBatchID(0);
  read = NCDataSet::Create(fixture.project, 6);
  ASSERT_TRUE(ReadFromString(old, *read));
  EXPECT_EQ(read->GetDataType(), NCDataSet::kOrdinary);

  // Entries 0, 1 and 4 to 13 are required; only version 4 and "NCDS" are read.
  for (const int tag : {0, 1, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}) {
    read = NCDataSet::Create(fixture.project, 5);
    EXPECT_FALSE(ReadFromString(WithoutEntries(full, {tag}), *read)) << tag;
    EXPECT_EQ(read->SizeObservations(), 0) << "a failed read changes nothing";
  }
  EXPECT_FALSE(ReadFromString(WithoutEntries(full, {}, 3), *read));
  EXPECT_FALSE(ReadFromString(WithoutEntries(full, {}, 5), *read));
  EXPECT_FALSE(ReadFromString(WriteToString(NCDataSetInfo(fixture.dataSet)), *read));
}

TEST(NCDataSetStream, PlainDataSetWritesNoOptionalObjectsAndReadingDropsThem) {
  BatchDataSet fixture;
  const std::string bytes = WriteToString(*NCDataSet::Create(fixture.project, 6));
  EXPECT_EQ(bytes, WithoutEntries(bytes, {2, 3, 14})) << "no batches, phases or centers";
  EXPECT_NE(bytes, WithoutEntries(bytes, {15}));

  NCDataSet& full = *fixture.dataSet;
  ASSERT_TRUE(ReadFromString(bytes, full));
  EXPECT_FALSE(full.GetBatchInfoVector() || full.GetPhaseInfoVector());
  EXPECT_EQ(full.GetLocalCenteringInfo(), nullptr);
  EXPECT_FALSE(full.GetIsTrimmed());
  EXPECT_EQ(full.SizeObservations() + full.SizeVariables(), 0);
  EXPECT_EQ(full.GetSourceID(), NCUniqueIDs::kNone);
}

TEST(NCDataSetStream, RowsWhoseObservationsAreGoneReadAsRowsWithoutRecord) {
  BatchDataSet fixture;
  const std::string bytes = WriteToString(*fixture.dataSet);
  // A project that lacks the last two observations: the dataset is still read, whole.
  const auto other = NCProject::Create();
  for (unsigned long k = 0; k < 4; ++k) {
    other->GetObservations().Add(
        std::make_unique<ObservationInfo>("o", BatchDataSet::kFirstRow + k));
  }
  const auto read = NCDataSet::Create(other, 5);
  ASSERT_TRUE(ReadFromString(bytes, *read));
  EXPECT_EQ(other->GetObservations().size(), 4U);
  ASSERT_EQ(read->SizeObservations(), BatchDataSet::kRows);
  EXPECT_STREQ(read->GetName(), "Fermentation");
  EXPECT_NE(read->GetObservationInfo(4), nullptr);
  EXPECT_EQ(read->GetObservationInfo(5), nullptr);
  EXPECT_EQ(read->GetValue(6, 2), 50.0F);
  // Such a row keeps its ID, so that writing it again loses nothing; asked for its ID it says
  // that the ID is gone.
  EXPECT_EQ(read->GetObservationIDs()[5], BatchDataSet::kFirstRow + 5);
  EXPECT_EQ(WriteToString(*read), bytes);
  EXPECT_THROW(read->GetObservationID(5, 1), NCError);
}

TEST(NCDataSetStream, DamagedStreamsFailOrReadWhole) {
  BatchDataSet fixture;
  const std::string valid = WriteToString(*fixture.dataSet);
  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    const auto read = NCDataSet::Create(fixture.project, 5);
    bool ok = false;
    ok = ReadFromString(bytes, *read);
    if (!ok) {
      EXPECT_EQ(read->SizeObservations() + read->SizeVariables(), 0);
      return;
    }
    EXPECT_EQ(read->GetMatrix().SizeRows(), static_cast<std::size_t>(read->SizeObservations()));
    EXPECT_EQ(read->GetMatrix().SizeColumns(), static_cast<std::size_t>(read->SizeVariables()));
    const std::string again = WriteToString(*read);
    const auto second = NCDataSet::Create(fixture.project, 5);
    ASSERT_TRUE(ReadFromString(again, *second));
    EXPECT_EQ(WriteToString(*second), again);
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    const auto read = NCDataSet::Create(fixture.project, 5);
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), *read)) << length;
  }
}

}  // namespace
