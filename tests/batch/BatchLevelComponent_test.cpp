#include "ncds/batch/BatchLevelComponent.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::BatchRows;

constexpr float kMissing = -99.0F;

// B1 has both phases, B2 only P1, B3 only P2; X is the row position, T a maturity that runs
// twice as fast.
struct Summaries : BatchRows {
  Summaries() : BatchRows({{"B1", "P1", 3}, {"B1", "P2", 2}, {"B2", "P1", 2}, {"B3", "P2", 2}}) {
    time = AddColumn("T", {0, 2, 4, 6, 8, 0, 2, 0, 2});
    x = dataSet->GetVarID(1);
  }

  std::vector<std::string> ColumnNames(const NCDataSet& summary) const {
    std::vector<std::string> names;
    for (int c = 1; c <= summary.SizeVariables(); ++c) names.push_back(summary.GetVariableID(c, 1));
    return names;
  }

  unsigned long time = 0;
  unsigned long x = 0;
};

TEST(BatchLevelComponent, SummarizesPhasesIntoNamedColumnsAndKeepsTheDescription) {
  Summaries rows;
  CreateBatchLevelInfo info;
  info.SetVariableIDs({static_cast<std::uint32_t>(rows.x)});
  info.SetStatistics({"mean", "N", "Slope"});
  info.SetByPhase(true);
  info.SetMaturityID(static_cast<std::uint32_t>(rows.time));
  const BatchLevelComponent component(info);
  const auto summary = component.Create(*rows.dataSet, "levels", 2);

  const std::vector<std::string> names{"X_P1_Mean", "X_P1_N", "X_P1_Slope",
                                       "X_P2_Mean", "X_P2_N", "X_P2_Slope"};
  EXPECT_EQ(rows.ColumnNames(*summary), names);
  EXPECT_EQ(component.GetColumnNames(*rows.dataSet), names);
  ASSERT_EQ(summary->SizeObservations(), 3);
  EXPECT_EQ(summary->GetObservationID(2, 1), "B2");
  EXPECT_EQ(summary->GetObservationInfo(3)->GetBatchName(rows.project->GetObservations()), "B3");
  const std::vector<std::vector<float>> expected{{1, 3, 0.5F, 3.5F, 2, 0.5F},
                                                 {5.5F, 2, 0.5F, kMissing, 0, kMissing},
                                                 {kMissing, 0, kMissing, 7.5F, 2, 0.5F}};
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 6; ++c) {
      EXPECT_FLOAT_EQ(summary->GetValue(r + 1, c + 1), expected[r][c]) << r << "," << c;
    }
  }
  EXPECT_EQ(summary->GetDataType(), NCDataSet::kOrdinary);

  // The kept description names the phases and the source, and travels with the dataset.
  const CreateBatchLevelInfo* kept = summary->GetBatchLevelInfo();
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(kept->GetPhases(), (std::vector<std::string>{"P1", "P2"}));
  EXPECT_EQ(kept->GetStatistics(), (std::vector<std::string>{"Mean", "N", "Slope"}));
  EXPECT_EQ(kept->GetSourceNumber(), 1);
  const auto copy = NCDataSet::Create(rows.project, 3);
  ASSERT_TRUE(ncds::test::ReadFromString(ncds::test::WriteToString(*summary), *copy));
  ASSERT_NE(copy->GetBatchLevelInfo(), nullptr);
  EXPECT_EQ(*copy->GetBatchLevelInfo(), *kept);

  // The same summaries of the same batches land in the same variables; whole batches in new
  // ones, over row positions without a maturity.
  const auto again = BatchLevelComponent(*kept).Create(*rows.dataSet, "again", 4);
  EXPECT_EQ(again->GetVarIDs(), summary->GetVarIDs());
  CreateBatchLevelInfo whole;
  whole.SetStatistics({"Slope", "Duration"});
  const auto batches = BatchLevelComponent(whole).Create(*rows.dataSet, "whole", 5);
  EXPECT_EQ(rows.ColumnNames(*batches),
            (std::vector<std::string>{"X_Slope", "X_Duration", "T_Slope", "T_Duration"}));
  EXPECT_FLOAT_EQ(batches->GetValue(1, 1), 1);
  EXPECT_FLOAT_EQ(batches->GetValue(1, 2), 4);
  EXPECT_FLOAT_EQ(batches->GetValue(3, 3), 2);
}

TEST(BatchLevelComponent, SkipsExcludedBatchesAddsConditionsAndRefusesCleanly) {
  Summaries rows;
  const unsigned long feed = rows.project->CreateUniqueID();
  rows.project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("Feed", feed));
  BatchInfoVector batches = *rows.dataSet->GetBatchInfoVector();
  NCIntegralVector<unsigned long, 0> conditions;
  conditions.push_back(feed);
  batches.SetBCVariableIDs(conditions);
  for (std::size_t b = 0; b < batches.size(); ++b) {
    NCDataVector<float> values(1);
    values[0] = 10.0F * static_cast<float>(b + 1);
    batches[b]->SetBatchConditionValues(&values);
  }
  batches[1]->SetIncluded(false);
  rows.dataSet->SetBatchInfoVector(&batches);

  CreateBatchLevelInfo info;
  info.SetStatistics({"Max"});
  info.SetBatchConditions(true);
  const auto summary = BatchLevelComponent(info).Create(*rows.dataSet, "levels", 2);
  EXPECT_EQ(rows.ColumnNames(*summary), (std::vector<std::string>{"X_Max", "T_Max", "Feed"}));
  ASSERT_EQ(summary->SizeObservations(), 2);
  EXPECT_EQ(summary->GetObservationID(2, 1), "B3");
  EXPECT_FLOAT_EQ(summary->GetValue(2, 1), 8);
  EXPECT_FLOAT_EQ(summary->GetValue(1, 3), 10);
  EXPECT_FLOAT_EQ(summary->GetValue(2, 3), 30);

  // Refusals leave the project as it was.
  const std::size_t variables = rows.project->GetVariables().size();
  const std::size_t observations = rows.project->GetObservations().size();
  const auto refused = [&](CreateBatchLevelInfo wrong, const NCDataSet& source) {
    EXPECT_THROW(BatchLevelComponent(std::move(wrong)).Create(source, "bad", 9), NCError);
    EXPECT_EQ(rows.project->GetVariables().size(), variables);
    EXPECT_EQ(rows.project->GetObservations().size(), observations);
  };
  CreateBatchLevelInfo wrong = info;
  wrong.SetStatistics({"Mean", "Mode"});
  refused(wrong, *rows.dataSet);
  wrong.SetStatistics({});
  refused(wrong, *rows.dataSet);
  wrong = info;
  wrong.SetByPhase(true);
  wrong.SetPhases({"P3"});
  refused(wrong, *rows.dataSet);
  wrong = info;
  wrong.SetVariableIDs({static_cast<std::uint32_t>(feed)});
  refused(wrong, *rows.dataSet);
  wrong = info;
  wrong.SetMaturityID(static_cast<std::uint32_t>(feed));
  refused(wrong, *rows.dataSet);
  refused(info, *summary);  // not a batch dataset
}

}  // namespace
