#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "dataset/DataSetFixture.h"
#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/FullCompoundDataset.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

constexpr float M = -99.0F;

// The fixture's batch dataset 5 (X, Y; six rows in B1 and B2) with local centers, a batch
// dataset 7 over Z and Y (three rows in B3) and an ordinary dataset 9 over X (one row), all
// saved and unloaded.
struct Members {
  static constexpr unsigned long kX = ncds::test::BatchDataSet::kX;
  static constexpr unsigned long kY = ncds::test::BatchDataSet::kY;
  static constexpr unsigned long kZ = 12;

  Members() {
    LocalCenteringInfo centers;
    centers.AddData("B1", "P1", "X", 1.5F);
    fixture.dataSet->ImportLocalCenters(centers);
    project.GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("Z", kZ));
    VarObsInfoVector<ObservationInfo> rows;
    NCDataMatrix<float> values(3, 2);
    for (int i = 0; i < 3; ++i) {
      const std::vector<std::string> ids{"p" + std::to_string(i + 1), "B3", "P1"};
      rows.push_back(project.GetObservations().Add(
          std::make_unique<ObservationInfo>(ids, 200 + static_cast<unsigned long>(i))));
      values(i, 0) = 100.0F + static_cast<float>(i);
      values(i, 1) = 200.0F + static_cast<float>(i);
    }
    BatchInfoVector batches;
    batches.push_back(boost::make_shared<BatchInfo>("B3"));
    NCIntegralVector<unsigned long, 0> columns;
    columns.push_back(kZ);
    columns.push_back(kY);
    second = NCDataSet::Create(fixture.project, "Second", 7, &values, std::move(rows), &columns,
                               {1, 2}, {1}, "", &batches, nullptr);
    NCDataMatrix<float> one(1, 1, 7.0F);
    VarObsInfoVector<ObservationInfo> row;
    row.push_back(project.GetObservations().Add(std::make_unique<ObservationInfo>("q1", 300)));
    NCIntegralVector<unsigned long, 0> x(1, kX);
    ordinary = NCDataSet::Create(fixture.project, "Ordinary", 9, &one, std::move(row), &x, {1}, {1},
                                 "", nullptr, nullptr);
    for (const auto& dataSet : {fixture.dataSet, second, ordinary}) {
      EXPECT_TRUE(project.SaveDataSet(dataSet));
      EXPECT_TRUE(project.UnloadDataSet(dataSet->GetNumber()));
    }
  }

  bool AnyLoaded() const {
    return project.IsDataSetLoaded(5) || project.IsDataSetLoaded(7) || project.IsDataSetLoaded(9);
  }

  ncds::test::BatchDataSet fixture;
  NCProject& project = *fixture.project;
  boost::shared_ptr<NCDataSet> second;
  boost::shared_ptr<NCDataSet> ordinary;
};

std::vector<float> Column(const NCDataMatrix<float>& matrix, std::size_t column, std::size_t first,
                          std::size_t count) {
  const float* data = matrix.ColumnData(column);
  return std::vector<float>(data + first, data + first + count);
}

TEST(CompoundDataset, PresentsItsMembersAsOneWithoutLoadingThem) {
  Members members;
  CompoundDataset compound(members.fixture.project, "Both", 20, {7, 5});
  EXPECT_EQ(compound.SizeObservations(), 9);
  NCIntegralVector<unsigned long, 0> columns;
  for (const unsigned long id : {Members::kZ, Members::kY, Members::kX}) columns.push_back(id);
  EXPECT_EQ(compound.GetVarIDs(), columns) << "in order of first appearance";
  EXPECT_EQ(compound.GetVariableID(3, 1), "X");
  EXPECT_EQ(compound.GetVarID(4), 0U);
  EXPECT_EQ(compound.GetObservationInfo(1)->GetUniqueID(), 200U);
  EXPECT_EQ(compound.GetObservationInfo(4)->GetUniqueID(), 100U);
  EXPECT_EQ(compound.GetObservationInfo(10), nullptr);
  EXPECT_EQ(compound.GetObservationID(9, 1), "o6");
  int member = 0;
  int row = 0;
  ASSERT_TRUE(compound.LocateRow(4, member, row));
  EXPECT_EQ(std::make_pair(member, row), std::make_pair(5, 1));
  ASSERT_TRUE(compound.LocateRow(3, member, row));
  EXPECT_EQ(std::make_pair(member, row), std::make_pair(7, 3));
  EXPECT_FALSE(compound.LocateRow(0, member, row));
  EXPECT_FALSE(compound.LocateRow(10, member, row));
  EXPECT_EQ(compound.GetMemberColumn(7, 2), 2);
  EXPECT_EQ(compound.GetMemberColumn(7, 3), 0) << "dataset 7 has no X";
  EXPECT_EQ(compound.GetMemberColumn(5, 3), 1);
  EXPECT_EQ(compound.GetMemberColumn(9, 1), 0) << "not a member";
  EXPECT_EQ(compound.GetUsedObsAliases(), (std::vector<int>{1, 2, 3}));
  // Batch data throughout: the batches of the members in member order.
  EXPECT_TRUE(compound.GetDataType() & NCDataSet::kBatchBit);
  EXPECT_EQ(compound.GetBatchNames(), NCStringVector(std::vector<std::string>{"B3", "B1", "B2"}));
  EXPECT_FALSE(members.AnyLoaded());

  // An ordinary member makes the compound ordinary, without batches.
  compound.SetMembers({7, 5, 9});
  EXPECT_EQ(compound.SizeObservations(), 10);
  EXPECT_EQ(compound.GetDataType(), NCDataSet::kOrdinary);
  EXPECT_EQ(compound.GetBatchInfoVector(), nullptr);
  EXPECT_THROW(compound.SetMembers({5, 9, 5}), NCError);
  EXPECT_EQ(compound.GetMembers(), (std::vector<int>{7, 5, 9}));
  EXPECT_THROW(CompoundDataset(members.fixture.project, "Twice", 21, {7, 7}), NCError);

  // A removed member leaves the compound empty and named as missing, until it is back.
  ASSERT_TRUE(members.project.RemoveDataSet(9));
  compound.Refresh();
  EXPECT_EQ(compound.GetMissingMembers(), std::vector<int>{9});
  EXPECT_EQ(compound.SizeObservations(), 0);
  EXPECT_EQ(compound.SizeVariables(), 0);
  EXPECT_FALSE(compound.LocateRow(1, member, row));
  EXPECT_TRUE(members.project.SaveDataSet(members.ordinary));
  compound.Refresh();
  EXPECT_TRUE(compound.GetMissingMembers().empty());
  EXPECT_EQ(compound.SizeObservations(), 10);
}

TEST(FullCompoundDataset, StacksTheMembersValuesWhenAsked) {
  Members members;
  NCProject& project = members.project;
  project.SetCompoundDataset(CompoundDataset(members.fixture.project, "Both", 20, {7, 5}));
  const auto full = project.MakeFullCompoundDataset(20);
  ASSERT_NE(full, nullptr);
  EXPECT_EQ(project.MakeFullCompoundDataset(5), nullptr);
  EXPECT_EQ(full->SizeObservations(), 9);
  EXPECT_EQ(full->SizeVariables(), 3);
  EXPECT_FALSE(members.AnyLoaded());

  // One cell loads the one member that holds it.
  EXPECT_EQ(full->GetStrValue(2, 1), members.second->GetStrValue(2, 1));
  EXPECT_EQ(full->GetStrValue(2, 3), "") << "dataset 7 has no X";
  EXPECT_EQ(full->GetStrValue(10, 1), "");
  EXPECT_TRUE(project.IsDataSetLoaded(7));
  EXPECT_FALSE(project.IsDataSetLoaded(5));

  const NCDataMatrix<float> values = full->GetData(false, nullptr);
  ASSERT_EQ(values.SizeRows(), 9U);
  ASSERT_EQ(values.SizeColumns(), 3U);
  EXPECT_TRUE(project.IsDataSetLoaded(5));
  const NCDataMatrix<float> five = members.fixture.dataSet->GetData(false, nullptr);
  EXPECT_EQ(Column(values, 0, 0, 3), (std::vector<float>{100, 101, 102}));
  EXPECT_EQ(Column(values, 0, 3, 6), std::vector<float>(6, M));
  EXPECT_EQ(Column(values, 1, 0, 3), (std::vector<float>{200, 201, 202}));
  EXPECT_EQ(Column(values, 1, 3, 6), Column(five, 1, 0, 6));
  EXPECT_EQ(Column(values, 2, 0, 3), std::vector<float>(3, M));
  EXPECT_EQ(Column(values, 2, 3, 6), Column(five, 0, 0, 6));

  // Centered: each member by its own centers.
  const NCDataMatrix<float> centeredFive = members.fixture.dataSet->GetData(true, nullptr);
  ASSERT_NE(Column(centeredFive, 0, 0, 6), Column(five, 0, 0, 6)) << "the centers must count";
  const NCDataMatrix<float> centered = full->GetData(true, nullptr);
  EXPECT_EQ(Column(centered, 2, 3, 6), Column(centeredFive, 0, 0, 6));
  EXPECT_EQ(Column(centered, 0, 0, 3), Column(values, 0, 0, 3));

  // An edit of a loaded member in place reaches the values, rows and columns together.
  const auto loaded = boost::const_pointer_cast<NCDataSet>(
      boost::dynamic_pointer_cast<NCDataSet const>(project.GetDataContainer(5)));
  ASSERT_NE(loaded, nullptr);
  ASSERT_TRUE(loaded->AddObservationInfos(1));
  const NCDataMatrix<float> grown = full->GetData(false, nullptr);
  EXPECT_EQ(grown.SizeRows(), 10U);
  EXPECT_EQ(full->SizeObservations(), 10);
  EXPECT_EQ(grown(9, 2), M);

  // A member removed: the compound stays, empty, and names it.
  ASSERT_TRUE(project.RemoveDataSet(7));
  const auto stored = project.GetCompoundDataset(20);
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(stored->GetMissingMembers(), std::vector<int>{7});
  EXPECT_EQ(full->SizeObservations(), 0);
  EXPECT_EQ(full->GetData(false, nullptr).SizeRows(), 0U);
  EXPECT_EQ(full->GetStrValue(1, 1), "");
  ASSERT_TRUE(project.SaveDataSet(members.second));
  EXPECT_EQ(full->GetData(false, nullptr).SizeRows(), 10U);

  // A loader that cannot hand out a member is an error, not a silent gap.
  const FullCompoundDataset failing(members.fixture.project, stored,
                                    [](int) { return boost::shared_ptr<NCDataSet const>(); });
  EXPECT_THROW(failing.GetData(false, nullptr), NCError);
  EXPECT_THROW(FullCompoundDataset(members.fixture.project, nullptr, project.GetDataSetLoader()),
               InvalidArgument);
}

TEST(CompoundDataset, StreamRoundTripsRefusesOtherVersionsAndSurvivesDamage) {
  const auto project = NCProject::Create();
  const CompoundDataset compound(project, "Runs \"A\"", -3, {4, 12, -1});
  const std::string valid = WriteToString(compound);
  CompoundDataset read(project);
  ASSERT_TRUE(ReadFromString(valid, read));
  EXPECT_EQ(read.GetName(), compound.GetName());
  EXPECT_EQ(read.GetNumber(), -3);
  EXPECT_EQ(read.GetMembers(), compound.GetMembers());
  EXPECT_EQ(WriteToString(read), valid);

  const auto unchanged = [](const CompoundDataset& c) {
    return c.GetName().empty() && c.GetNumber() == 0 && c.GetMembers().empty();
  };
  std::string other = valid;
  const std::size_t version = std::string("NCCOMPDS").size() + 1;
  ASSERT_EQ(other[version], 1);
  other[version] = 2;
  CompoundDataset refused(project);
  EXPECT_FALSE(ReadFromString(other, refused));
  EXPECT_TRUE(unchanged(refused));
  // Members 12 and -1 turned into 12 and 12.
  std::string repeated = valid;
  const std::size_t at = repeated.find(std::string("\x0c\0\0\0\xff\xff\xff\xff", 8));
  ASSERT_NE(at, std::string::npos);
  repeated.replace(at + 4, 4, std::string("\x0c\0\0\0", 4));
  EXPECT_FALSE(ReadFromString(repeated, refused));
  EXPECT_TRUE(unchanged(refused));

  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    CompoundDataset damaged(project);
    if (!ReadFromString(bytes, damaged)) {
      EXPECT_TRUE(unchanged(damaged));
      return;
    }
    const std::string again = WriteToString(damaged);
    CompoundDataset second(project);
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(WriteToString(second), again);
  });
}

TEST(AuxiliaryData, KeepsOneIDPerColumnAndRoundTrips) {
  NCDataMatrix<float> matrix(2, 3);
  matrix(0, 0) = 1.5F;
  matrix(1, 2) = std::numeric_limits<float>::quiet_NaN();
  NCIntegralVector<unsigned long, 0> ids;
  for (const unsigned long id : {7UL, 9UL, 4UL}) ids.push_back(id);
  const AuxiliaryData data(matrix, ids, "loadings of model M3");
  EXPECT_EQ(data, AuxiliaryData(data)) << "a NaN cell equals itself";
  AuxiliaryData changed = data;
  changed.SetText("other");
  EXPECT_NE(changed, data);
  EXPECT_THROW(AuxiliaryData(matrix, NCIntegralVector<unsigned long, 0>(2, 1), ""),
               InvalidArgument);
  EXPECT_THROW(changed.SetData(NCDataMatrix<float>(1, 1), ids), InvalidArgument);
  EXPECT_EQ(changed.GetData().SizeColumns(), 3U);
  changed = data;
  changed.SetData(NCDataMatrix<float>(2, 3), ids);
  EXPECT_NE(changed, data) << "cells differ";

  const std::string valid = WriteToString(data);
  AuxiliaryData read;
  ASSERT_TRUE(ReadFromString(valid, read));
  EXPECT_EQ(read, data);
  EXPECT_EQ(WriteToString(read), valid);
  std::string other = valid;
  const std::size_t version = std::string("AUXDATA").size() + 1;
  ASSERT_EQ(other[version], 1);
  other[version] = 2;
  AuxiliaryData refused;
  EXPECT_FALSE(ReadFromString(other, refused));
  EXPECT_EQ(refused, AuxiliaryData());

  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    AuxiliaryData damaged;
    if (!ReadFromString(bytes, damaged)) {
      EXPECT_EQ(damaged, AuxiliaryData());
      return;
    }
    EXPECT_EQ(damaged.GetVariableIDs().size(), damaged.GetData().SizeColumns());
    const std::string again = WriteToString(damaged);
    AuxiliaryData second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(second, damaged);
  });
}

}  // namespace
