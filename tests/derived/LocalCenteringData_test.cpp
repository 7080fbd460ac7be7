#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <string>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::BatchRows;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using Floats = std::vector<float>;
constexpr float M = -99.0F;
constexpr unsigned long kVar = 7;

TEST(LocalCenteringData, LooksUpCentersAndMeansAndRoundTrips) {
  LocalCenteringData data;
  data.AddInfo(1, kVar, 2, "B1", 3, "P1");
  data.AddInfo(3, kVar, 2, "B1", 3, "P2");
  data.AddInfo(8, kVar, 2, "B2", 3, "P1");
  data.AddInfo(5, kVar, 2, "B2", 0, "P1");  // no second key: the empty one
  data.AddInfo(2, kVar, 2, "B1", 3, "P1");  // replaces 1
  EXPECT_EQ(data.GetInfo(kVar, 2, "B1", 3, "P1"), 2);
  EXPECT_EQ(data.GetInfo(kVar, 2, "B1", 3, "P3"), M);
  EXPECT_EQ(data.GetInfo(kVar, 2, "B1", 0, nullptr), 2.5F);     // mean under B1
  EXPECT_EQ(data.GetInfo(kVar, 2, "B9", 3, "P1"), 4.5F);        // mean of all
  EXPECT_EQ(data.GetInfo(kVar, 2, "B2", -5, "ignored"), 6.5F);  // mean under B2
  EXPECT_EQ(data.GetInfo(kVar + 1, 2, "B1", 3, "P1"), M);
  EXPECT_EQ(data.GetIDNames(),
            (std::map<std::string, int>{{"B1", 0}, {"B2", 1}, {"P1", 2}, {"P2", 3}}));
  const std::map<std::string, int> names = data.GetIDNames();
  const NCDataMatrix<float> matrix = data.GetLocalCenteringDataAsMat(&names);
  EXPECT_EQ(matrix(0, 0), 2.5F);
  EXPECT_EQ(matrix(3, 0), 3);
  EXPECT_THROW(data.GetLocalCenteringDataAsMat(nullptr), NCInternalError);

  LocalCenteringData more;
  more.AddInfo(9, kVar, 2, "B1", 3, "P2");
  more.AddInfo(4, kVar + 1, -1, "", -1, "");
  data.Add(more);
  EXPECT_EQ(data.GetInfo(kVar, 2, "B1", 3, "P2"), 9);
  EXPECT_EQ(data.SizeVars(), 2U);

  const std::string valid = WriteToString(data);
  LocalCenteringData read;
  ASSERT_TRUE(ReadFromString(valid, read));
  EXPECT_EQ(read, data);
  std::string other = valid;
  other[4] = 2;  // the version
  EXPECT_FALSE(ReadFromString(other, read));
  EXPECT_EQ(read.SizeVars(), 0U);
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    LocalCenteringData damaged;
    if (!ReadFromString(bytes, damaged)) return;
    const std::string again = WriteToString(damaged);
    LocalCenteringData second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(second, damaged);
  });
}

// Two batches in phases; column 1 is the row's position, column 2 a copy of it.
struct Centered : BatchRows {
  Centered() : BatchRows({{"B1", "P1", 2}, {"B1", "P2", 2}, {"B2", "P1", 2}, {"B3", "P1", 1}}) {
    EXPECT_TRUE(dataSet->AddVariables(1, "Y", false, true));
    const Floats copy{0, 1, M, 3, 4, 5, 6};
    EXPECT_TRUE(dataSet->SetColValues(copy.data(), 2));
  }
  NCIntegralVector<unsigned long, 0> varIDs() const { return dataSet->GetVarIDs(); }
};

Floats ColumnOf(const NCDataMatrix<float>& matrix, std::size_t column) {
  return Floats(matrix.ColumnData(column), matrix.ColumnData(column) + matrix.SizeRows());
}

TEST(LocalCenteringData, ImportedCentersCenterTheDatasetsValues) {
  Centered rows;
  LocalCenteringInfo info;
  info.AddData("B1", "P1", "Y", 10);
  info.AddData("B1", "P2", "y", 20);  // names ignore case
  info.AddData("B2", "P1", "Y", 30);
  info.AddData("B1", "P1", "X", 1);
  info.AddData("B2", "P1", "X", M);  // missing: the row takes a default
  rows.dataSet->ImportLocalCenters(info);
  ASSERT_NE(rows.dataSet->GetLocalCenteringInfo(), nullptr);
  EXPECT_EQ(*rows.dataSet->GetLocalCenteringInfo(), info);

  // B3 has no centers and P2 none for X: the means of their phase (else of all) stand in.
  const NCDataMatrix<float> centered = rows.dataSet->GetData(true, nullptr);
  EXPECT_EQ(ColumnOf(centered, 0), (Floats{-1, 0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(ColumnOf(centered, 1), (Floats{-10, -9, M, -17, -26, -25, -14}));
  EXPECT_EQ(ColumnOf(rows.dataSet->GetData(false, nullptr), 1), (Floats{0, 1, M, 3, 4, 5, 6}));

  // A name that is no column is refused and the centers stay as they were.
  const LocalCenteringData before = *rows.dataSet->GetLocalCenteringData();
  LocalCenteringInfo unknown;
  unknown.AddData("B1", "P1", "Z", 5);
  EXPECT_THROW(rows.dataSet->ImportLocalCenters(unknown), Exception);
  EXPECT_EQ(*rows.dataSet->GetLocalCenteringData(), before);
  EXPECT_EQ(*rows.dataSet->GetLocalCenteringInfo(), info);
}

TEST(LocalCenteringData, SubtractsRunsWithDefaultsKeepingMissingCells) {
  Centered rows;
  const NCIntegralVector<unsigned long, 0> ids = rows.varIDs();
  LocalCenteringData data;
  data.AddInfo(10, ids[1], 2, "B1", 3, "P1");
  data.AddInfo(20, ids[1], 2, "B1", 3, "P2");
  data.AddInfo(30, ids[1], 2, "B2", 3, "P1");
  data.AddInfo(0, ids[0], 2, "B1", 3, "P1");  // only zeros: no column
  auto defaults = boost::make_shared<DefaultCenterValues>();
  defaults->SetRules(ids[1], {{-1, "", 100.0F}});

  // B3 has no center: 0, unless the centers are keyed on the batch-identifier series, which
  // is the series naming the batches unless the project designates another.
  rows.project->SetBatchIdentifierSeries(4);
  NCDataMatrix<float> centers;
  NCIntegralVector<unsigned long, 0> centerIDs;
  data.GetSubtractionMatrix(centers, centerIDs, rows.dataSet->GetObservationInfoVector(), ids,
                            *rows.project, defaults);
  ASSERT_EQ(centerIDs.size(), 1U);
  EXPECT_EQ(centerIDs[0], ids[1]);
  EXPECT_EQ(ColumnOf(centers, 0), (Floats{10, 10, 20, 20, 30, 30, 0}));
  rows.project->SetBatchIdentifierSeries(0);
  EXPECT_EQ(rows.project->GetBatchIdentifierSeries(), 2);
  NCDataMatrix<float> keyed;
  NCIntegralVector<unsigned long, 0> keyedIDs;
  data.GetSubtractionMatrix(keyed, keyedIDs, rows.dataSet->GetObservationInfoVector(), ids,
                            *rows.project, defaults);
  EXPECT_EQ(ColumnOf(keyed, 0), (Floats{10, 10, 20, 20, 30, 30, 100}));

  NCDataMatrix<float> values = rows.dataSet->GetMatrix();
  data.Subtract(values, rows.dataSet->GetObservationInfoVector(), ids, *rows.project, defaults);
  EXPECT_EQ(ColumnOf(values, 0), (Floats{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(ColumnOf(values, 1), (Floats{-10, -9, M, -17, -26, -25, -94}));
  // Subtracting the matrix itself gives the same values.
  NCDataMatrix<float> viaMatrix = rows.dataSet->GetMatrix();
  LocalCenteringData::SubtractMatrix(viaMatrix, ids, keyed, keyedIDs);
  EXPECT_EQ(ColumnOf(viaMatrix, 0), ColumnOf(values, 0));
  EXPECT_EQ(ColumnOf(viaMatrix, 1), ColumnOf(values, 1));

  // An empty store without defaults hands back new empty defaults and changes nothing.
  NCDataMatrix<float> untouched(2, 2);
  NCIntegralVector<unsigned long, 0> none;
  const auto fresh = LocalCenteringData().GetSubtractionMatrix(
      untouched, none, rows.dataSet->GetObservationInfoVector(), ids, *rows.project, nullptr);
  ASSERT_TRUE(fresh);
  EXPECT_EQ(fresh->SizeVars(), 0U);
  EXPECT_EQ(untouched.SizeRows(), 2U);

  // Only defaults: the variable takes them everywhere.
  NCDataMatrix<float> byDefault = rows.dataSet->GetMatrix();
  LocalCenteringData().Subtract(byDefault, rows.dataSet->GetObservationInfoVector(), ids,
                                *rows.project, defaults);
  EXPECT_EQ(ColumnOf(byDefault, 1), (Floats{-100, -99, M, -97, -96, -95, -94}));

  std::list<unsigned long> asked{ids[0]};
  EXPECT_TRUE(data.HasLocalCenteringData(asked, rows.dataSet->GetObservationInfoVector(), nullptr));
  EXPECT_FALSE(LocalCenteringData().HasLocalCenteringData(
      asked, rows.dataSet->GetObservationInfoVector(), defaults.get()));
  EXPECT_TRUE(LocalCenteringData().HasLocalCenteringData(ids, {"B1"}, defaults.get()));

  // The dataset keeps its centers through its stream.
  rows.dataSet->SetLocalCenteringData(&data);
  const auto read = NCDataSet::Create(rows.project, rows.dataSet->GetNumber());
  ASSERT_TRUE(ReadFromString(WriteToString(*rows.dataSet), *read));
  ASSERT_TRUE(read->GetLocalCenteringData());
  EXPECT_EQ(*read->GetLocalCenteringData(), data);

  // Centers of a variable the project no longer has go.
  data.AddInfo(1, 424242, 2, "B1", -1, "");
  EXPECT_THROW(data.GetUsedVarAliases(rows.project->GetVariables()), NCInternalError);
  data.PurgeUnUsedVars(rows.project->GetVariables());
  EXPECT_EQ(data.SizeVars(), 2U);
  EXPECT_TRUE(data.GetUsedVarAliases(rows.project->GetVariables()).empty());
}

}  // namespace
