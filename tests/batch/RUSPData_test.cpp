#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "batch/BatchRows.h"
#include "dataset/DataSetFixture.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::BatchRows;

std::string Write(const RUSPData& data) {
  std::ostringstream os;
  EXPECT_TRUE(data.WriteObject(os));
  return os.str();
}

bool Read(const std::string& bytes, RUSPData& data) {
  std::istringstream is(bytes);
  return data.ReadObject(is);
}

TEST(RUSPData, KeepsTheBatchesAndRowsOfEachDatasetAndReadsThemBack) {
  BatchRows rows({{"B1", "P1", 2}, {"B2", "P1", 3}});
  RUSPData& data = rows.project->GetRUSPData();
  EXPECT_TRUE(data.empty());
  ASSERT_TRUE(rows.project->SaveDataSet(rows.dataSet));
  data.Add(rows.dataSet);
  data.Add(rows.dataSet);  // one entry per number, the latest
  // The project's own dataset shares its batches with the snapshot.
  EXPECT_EQ(data.GetBatchInfoVector(1), NCDataSet::GetMutableBatchInfoVector(*rows.project, 1));
  EXPECT_FALSE(data.GetBatchInfoVector(2));
  // A dataset without batches gives row IDs only.
  const auto plain = NCDataSet::Create(rows.project, 4);
  data.Add(plain);
  EXPECT_FALSE(data.GetBatchInfoVector(4));
  ASSERT_TRUE(data.GetIDVector(4));
  EXPECT_EQ(data.GetIDVectors().size(), 2U);

  const std::string bytes = Write(data);
  RUSPData copy(*rows.project);
  ASSERT_TRUE(Read(bytes, copy));
  ASSERT_TRUE(copy.GetBatchInfoVector(1));
  EXPECT_EQ(*copy.GetBatchInfoVector(1), *data.GetBatchInfoVector(1));
  EXPECT_EQ(*copy.GetIDVector(1), rows.dataSet->GetObservationIDs());
  EXPECT_EQ(Write(copy), bytes);

  // A damaged batch entry leaves the batches out but keeps the row IDs.
  const std::string damaged =
      ncds::test::Rewritten(bytes, "RUSPDATA", 2, RUSPData::GetMyVStreamVersionNumber(), {0});
  RUSPData partial(*rows.project);
  ASSERT_TRUE(Read(damaged, partial));
  EXPECT_TRUE(partial.GetBatchInfoVectors().empty());
  EXPECT_EQ(partial.GetIDVectors().size(), 2U);
  const std::string newer = ncds::test::Rewritten(bytes, "RUSPDATA", 2, 2, {});
  EXPECT_FALSE(Read(newer, partial));

  // Damaged copies never crash, hang or allocate without bound.
  ncds::test::ForEachCorruption(bytes, [&](const std::string& bad) {
    RUSPData target(*rows.project);
    Read(bad, target);
  });
}

TEST(RUSPData, IsSavedWithTheProjectFile) {
  ncds::test::TempFile file("rusp.ncds");
  {
    const BatchRows rows({{"B1", "P1", 2}, {"B2", "P2", 1}}, true,
                         NCProjectFile::Open(file.path(), true));
    ASSERT_TRUE(rows.project->SaveDataSet(rows.dataSet));
    rows.project->GetRUSPData().Add(rows.dataSet);
    ASSERT_TRUE(rows.project->SaveDataSet(rows.dataSet));
  }
  const auto project = NCProjectFile::Open(file.path(), false);
  const auto batches = project->GetRUSPData().GetBatchInfoVector(1);
  ASSERT_TRUE(batches);
  EXPECT_EQ(batches->GetBatchNames().GetVector(), (std::vector<std::string>{"B1", "B2"}));
}

}  // namespace
