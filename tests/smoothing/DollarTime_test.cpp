#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <memory>
#include <string>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"

namespace {

using ncds::test::BatchRows;
using Floats = std::vector<float>;
constexpr float kMissing = -99.0F;

// Appends a column for `info`, a new variable of the dataset's project, holding `values`.
unsigned long AddColumn(NCDataSet& dataSet, std::unique_ptr<VariableInfo> info,
                        const Floats& values) {
  const unsigned long id = info->GetUniqueID();
  dataSet.GetProject()->GetVariables().Add(std::move(info));
  const NCIntegralVector<unsigned long, 0> ids(1, id);
  EXPECT_TRUE(dataSet.AddVariables(&ids, 0, false));
  EXPECT_TRUE(dataSet.SetColValues(values.data(), dataSet.SizeVariables()));
  return id;
}

Floats Column(const NCDataSet& dataSet, int column) {
  Floats values;
  for (int row = 1; row <= dataSet.SizeObservations(); ++row)
    values.push_back(dataSet.GetValue(row, column));
  return values;
}

const VariableInfo& LastVariable(const NCDataSet& dataSet) {
  return *dataSet.GetProject()->GetVariables()[dataSet.GetVarID(dataSet.SizeVariables())];
}

TEST(DollarTime, NumericTimeStartsAtZeroInEachBatchAndUpdatesInPlace) {
  BatchRows rows({{"B1", "P", 4}, {"B2", "P", 3}}, false);
  auto time = std::make_unique<QuantitativeVariableInfo>("time", rows.project->CreateUniqueID());
  time->SetUnit("min");
  const unsigned long timeID =
      AddColumn(*rows.dataSet, std::move(time), {kMissing, 10, 12, 15, 40, 41.5F, 43});
  BatchImportSettings settings;

  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(rows.dataSet, &settings));
  ASSERT_EQ(rows.dataSet->SizeVariables(), 3);
  const VariableInfo& dollarTime = LastVariable(*rows.dataSet);
  EXPECT_EQ(dollarTime.GetPrimaryAlias(), "$Time");
  EXPECT_EQ(dollarTime.GetUnit(), "min");
  EXPECT_EQ(Column(*rows.dataSet, 3), (Floats{kMissing, 0, 2, 5, 0, 1.5F, 3}));
  EXPECT_EQ(settings.GetSourceVar(dollarTime.GetUniqueID(), nullptr), timeID);

  // A changed first time moves the whole batch; the column is recomputed, not added again.
  ASSERT_TRUE(rows.dataSet->SetValue(5, 2, 30.0F, false, false, false));
  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(rows.dataSet, nullptr));
  EXPECT_EQ(rows.dataSet->SizeVariables(), 3);
  EXPECT_EQ(Column(*rows.dataSet, 3), (Floats{kMissing, 0, 2, 5, 0, 11.5F, 13}));
}

TEST(DollarTime, PositionsWithoutTimeVariableAndOneVariableAcrossDataSets) {
  BatchRows rows({{"B1", "P", 2}, {"B2", "Q", 2}, {"B2", "P", 1}});
  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(rows.dataSet, nullptr));
  EXPECT_EQ(Column(*rows.dataSet, 2), (Floats{0, 1, 0, 1, 2}));
  EXPECT_TRUE(LastVariable(*rows.dataSet).IsY());

  // Another dataset over the same rows takes the project's $Time rather than a second one.
  NCDataMatrix<float> values(5, 0);
  auto copy = NCDataSet::Create(
      rows.project, "copy", 2, &values,
      VarObsInfoVector<ObservationInfo>(rows.dataSet->GetObservationInfoVector()), nullptr, {1},
      {1}, nullptr, rows.dataSet->GetBatchInfoVector().get(), nullptr);
  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(copy, nullptr));
  ASSERT_EQ(copy->SizeVariables(), 1);
  EXPECT_EQ(copy->GetVarID(1), rows.dataSet->GetVarID(2));

  // The rows tell their batches even when the batch records are out of date.
  NCIntegralVector<int, -99> first(1, 1);
  ASSERT_TRUE(rows.dataSet->RemoveObservation(&first, false, false));
  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(rows.dataSet, nullptr));
  EXPECT_EQ(Column(*rows.dataSet, 2), (Floats{0, 0, 1, 2}));
}

TEST(DollarTime, DateTimeWinsOverTimeAndGivesHours) {
  BatchRows rows({{"B1", "P", 3}, {"B2", "P", 2}}, false);
  AddColumn(*rows.dataSet,
            std::make_unique<QuantitativeVariableInfo>("TIME", rows.project->CreateUniqueID()),
            {1, 2, 3, 4, 5});
  // Minutes since the offset.
  AddColumn(*rows.dataSet,
            std::make_unique<DateTimeVariableInfo>(
                "stamp", rows.project->CreateUniqueID(), VxTimeUtl::eParseISO8601, "", "",
                VxTimeUtl::SimpDateTime(2024, 1, 1), VxTimeUtl::eMinute),
            {600, 630, 720, 1000, 1090});
  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(rows.dataSet, nullptr));
  EXPECT_EQ(Column(*rows.dataSet, 4), (Floats{0, 0.5F, 2, 0, 1.5F}));
  EXPECT_EQ(LastVariable(*rows.dataSet).GetUnit(), "h");
}

TEST(DollarTime, RefusesWhatIsNotBatchDataAndFollowsBatchCounts) {
  EXPECT_FALSE(Smooth::CreateAndInsert_DollarTime(nullptr, nullptr));
  const auto project = NCProject::Create();
  VarObsInfoVector<ObservationInfo> infos;
  for (int k = 0; k < 5; ++k) {
    infos.push_back(project->GetObservations().Add(
        std::make_unique<ObservationInfo>("o" + std::to_string(k), project->CreateUniqueID())));
  }
  NCDataMatrix<float> values(5, 0);
  auto dataSet = NCDataSet::Create(project, "plain", 1, &values, std::move(infos), nullptr, {1},
                                   {1}, nullptr, nullptr, nullptr);
  EXPECT_FALSE(Smooth::CreateAndInsert_DollarTime(dataSet, nullptr));
  EXPECT_EQ(dataSet->SizeVariables(), 0);
  EXPECT_TRUE(project->GetVariables().empty());

  // The rows carry no batch names: the batch records' counts divide them, and the row beyond
  // the counts forms a batch of its own.
  BatchInfoVector batches;
  for (const char* name : {"B1", "B2"}) {
    batches.push_back(boost::make_shared<BatchInfo>(name));
    batches[batches.size() - 1]->SetNumObs(2);
  }
  dataSet->SetBatchInfoVector(&batches);
  project->SetChangeCheck([](int, const NCIntegralVector<unsigned long, 0>&) { return false; });
  EXPECT_FALSE(Smooth::CreateAndInsert_DollarTime(dataSet, nullptr));
  EXPECT_EQ(dataSet->SizeVariables(), 0);
  EXPECT_TRUE(project->GetVariables().empty());

  project->SetChangeCheck({});
  ASSERT_TRUE(Smooth::CreateAndInsert_DollarTime(dataSet, nullptr));
  EXPECT_EQ(Column(*dataSet, 1), (Floats{0, 1, 0, 1, 0}));
}

}  // namespace
