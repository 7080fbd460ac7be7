#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"

namespace {

using ncds::test::BatchRows;
using Strings = std::vector<std::string>;

NCDataVector<float> Values(const std::vector<float>& values) {
  NCDataVector<float> vector(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) vector[i] = values[i];
  return vector;
}

ClassInfoVector PhaseList(const Strings& names) {
  ClassInfoVector phases;
  for (const std::string& name : names) phases.push_back(boost::make_shared<ClassInfo>(name));
  return phases;
}

TEST(BatchUtilities, LooksUpBatchesAndPhasesByNameWithTheirCaseRules) {
  ClassInfoVector phases = PhaseList({"P1", "Fed", "P1"});
  phases[1]->SetPhaseName("Feed");
  phases[2]->SetIncluded(false);
  // FindPhase compares exactly, FindPhaseIndex ignores case.
  EXPECT_FALSE(BatchUtilities::FindPhase(&phases, "p1", false));
  EXPECT_EQ(BatchUtilities::FindPhase(&phases, "P1", false), phases[0]);
  EXPECT_EQ(BatchUtilities::FindPhase(&phases, "Fed", true), phases[1]);
  EXPECT_FALSE(BatchUtilities::FindPhase(&phases, "Fed", false));
  EXPECT_FALSE(
      BatchUtilities::FindPhase(static_cast<const ClassInfoVector*>(nullptr), "P1", false));
  EXPECT_EQ(BatchUtilities::FindPhaseIndex(phases, "p1", false), 0);
  EXPECT_EQ(BatchUtilities::FindPhaseIndex(phases, "FEED", false), 1);
  EXPECT_EQ(BatchUtilities::FindPhaseIndex(phases, "fed", true), 1);
  EXPECT_EQ(BatchUtilities::FindPhaseIndex(ClassInfoVector(), "P1", false), -1);
  // Phase names are distinct; batch names keep duplicates.
  EXPECT_EQ(BatchUtilities::GetPhaseNames(phases, false)->GetVector(), (Strings{"P1", "Feed"}));
  EXPECT_EQ(BatchUtilities::GetPhaseNames(phases, true)->GetVector(), (Strings{"P1", "Feed"}));
  phases[0]->SetIncluded(false);
  EXPECT_EQ(BatchUtilities::GetPhaseNames(phases, true)->GetVector(), (Strings{"Feed"}));

  BatchInfoVector batches;
  for (const char* name : {"B1", "B2", "B1"})
    batches.push_back(boost::make_shared<BatchInfo>(name));
  batches[1]->SetIncluded(false);
  EXPECT_EQ(BatchUtilities::GetBatchNames(batches, false)->GetVector(),
            (Strings{"B1", "B2", "B1"}));
  EXPECT_EQ(BatchUtilities::GetBatchNames(batches, true)->GetVector(), (Strings{"B1", "B1"}));
  EXPECT_EQ(BatchUtilities::FindBatch(&batches, "B1"), batches[0]);
  EXPECT_FALSE(BatchUtilities::FindBatch(&batches, "b1"));
  EXPECT_FALSE(BatchUtilities::FindBatch(static_cast<BatchInfoVector*>(nullptr), "B1"));
}

TEST(BatchUtilities, DefaultClassesFollowInclusionAndTheYOfEachPhase) {
  ClassInfoVector phases = PhaseList({"P1", "P2", "P3", "P4"});
  const unsigned long kTemp = 40, kYield = 41;
  phases[0]->SetYVariableID(kYield);
  phases[1]->SetYVariableID(NCUniqueIDs::kConstant);
  phases[2]->SetIncluded(false);  // P3 takes no variable
  phases[3]->SetIncluded(kTemp, false);
  QuantitativeVariableInfo temp("Temp", kTemp);
  EXPECT_EQ(BatchUtilities::GetDefaultVarClasses(&phases, temp).GetVector(), (Strings{"P1", "P2"}));
  QuantitativeVariableInfo yield("Yield", kYield);
  yield.SetVariableBlock(VariableInfo::eExcludedY);
  EXPECT_EQ(BatchUtilities::GetDefaultVarClasses(&phases, yield).GetVector(), (Strings{"P1"}));
  QuantitativeVariableInfo time(BatchInfo::GetGeneratedTimeVariableName(), 42);
  time.SetVariableBlock(VariableInfo::eY);
  // P4 has no Y (the no-variable ID): "$Time" is its Y as well.
  EXPECT_EQ(BatchUtilities::GetDefaultVarClasses(&phases, time).GetVector(), (Strings{"P2", "P4"}));
  QuantitativeVariableInfo other("Other", 43);
  other.SetVariableBlock(VariableInfo::eY);
  EXPECT_TRUE(BatchUtilities::GetDefaultVarClasses(&phases, other).GetVector().empty());
  EXPECT_TRUE(BatchUtilities::GetDefaultVarClasses(nullptr, temp).GetVector().empty());
}

TEST(BatchUtilities, MonotonyAndDirectionOfMaturity) {
  const BatchRows rows({{"B1", "P", 4}, {"B2", "P", 4}, {"B3", "P", 4}});
  const NCObservations& observations = rows.project->GetObservations();
  const auto& infos = rows.dataSet->GetObservationInfoVector();
  const auto check = [&](std::vector<float> values) {
    const NCDataVector<float> maturity = Values(values);
    const int byRecords = BatchUtilities::IsMonotonic(observations, infos, maturity);
    EXPECT_EQ(byRecords, BatchUtilities::IsMonotonic(observations, infos.GetUniqueIDs(), maturity));
    return byRecords;
  };
  EXPECT_EQ(check({1, 2, 2, 3, 3, 2, 2, 1, 5, 5, 5, 5}), 0);
  EXPECT_EQ(check({1, 2, 2, 3, 1, 3, 2, 4, 1, 2, 3, 4}), 2);
  EXPECT_EQ(check({1, 2, 3, 4, 1, 2, 3, 4, 1, -99, 3, 4}), 3);  // missing counts as a value

  const NCDataVector<float> maturity = Values({-99, 5, 9, -99, 7, 6, 1, -99});
  EXPECT_TRUE(BatchUtilities::IsAscendingMaturity(maturity, {4}));
  EXPECT_FALSE(BatchUtilities::IsAscendingMaturity(maturity, {4, 4}));  // 5+7 > 9+1
  EXPECT_TRUE(BatchUtilities::IsAscendingMaturity(maturity, {}));
  EXPECT_TRUE(BatchUtilities::IsAscendingMaturity(Values({-99, 3, -99}), {3}));
}

// The next run start by looking at every row, to check the galloping search against.
int NaiveNext(const BatchRows& rows, int start, bool orPhase) {
  const NCObservations& observations = rows.project->GetObservations();
  const auto& infos = rows.dataSet->GetObservationInfoVector();
  const auto group = [&](int position) {
    const ObservationInfo& row = *infos[static_cast<std::size_t>(position - 1)];
    return row.GetBatchName(observations) + "|" + (orPhase ? row.GetPhaseName(observations) : "");
  };
  for (int i = start + 1; i <= static_cast<int>(infos.size()); ++i) {
    if (group(i) != group(start)) return i;
  }
  return -1;
}

TEST(BatchUtilities, GallopingFindsEveryRunBoundary) {
  std::vector<std::tuple<std::string, std::string, int>> runs;
  for (int b = 0; b < 12; ++b) {
    for (int p = 0; p < 3; ++p) {
      // Runs of 1 to about 400 rows, so that the search doubles, stops short of the end and
      // halves back.
      runs.emplace_back("B" + std::to_string(b), "P" + std::to_string(p),
                        1 + (b * 37 + p * 91) % 400);
    }
  }
  const BatchRows rows(runs);
  const NCObservations& observations = rows.project->GetObservations();
  const auto& infos = rows.dataSet->GetObservationInfoVector();
  const NCIntegralVector<unsigned long, 0> ids = infos.GetUniqueIDs();
  for (int start = 1; start <= static_cast<int>(infos.size()); ++start) {
    for (const bool orPhase : {false, true}) {
      const int expected = NaiveNext(rows, start, orPhase);
      ASSERT_EQ(BatchUtilities::FindNextBatchOrPhase(observations, infos, start, orPhase), expected)
          << start;
      ASSERT_EQ(BatchUtilities::FindNextBatchOrPhase(observations, ids, start, orPhase), expected);
    }
  }
  EXPECT_EQ(BatchUtilities::FindNextBatchOrPhase(observations, infos, 0, false), 1);
  EXPECT_EQ(BatchUtilities::FindNextBatchOrPhase(observations, VarObsInfoVector<ObservationInfo>(),
                                                 1, false),
            -1);
  NCIntegralVector<unsigned long, 0> unknown = ids;
  unknown(5) = 999999;  // a row without a record has no next run
  EXPECT_EQ(BatchUtilities::FindNextBatchOrPhase(observations, unknown, 6, false), -1);
  unknown(unknown.size() - 1) = 999999;  // nor is it in the group of any other row
  EXPECT_EQ(BatchUtilities::FindNextBatchOrPhase(observations, unknown, 1, true),
            NaiveNext(rows, 1, true));
}

TEST(BatchUtilities, BuildsTheBatchAndPhaseStructureFromTheRows) {
  const BatchRows single({{"A", "P1", 1}, {"B", "P1", 1}, {"C", "P2", 1}});
  const NCObservations& singleObservations = single.project->GetObservations();
  EXPECT_EQ(BatchUtilities::FindNextBatchOrPhase(
                singleObservations, single.dataSet->GetObservationInfoVector(), 2, false),
            3);

  const BatchRows rows({{"B1", "P1", 3}, {"B1", "P2", 2}, {"b1", "P1", 2}, {"B2", "P2", 4}});
  const NCObservations& observations = rows.project->GetObservations();
  const auto& infos = rows.dataSet->GetObservationInfoVector();
  const std::unique_ptr<BatchInfoVector> batches =
      BatchUtilities::CreateBatchInfoVector(observations, infos);
  ASSERT_TRUE(batches);
  EXPECT_EQ(*batches, *BatchUtilities::CreateBatchInfoVector(observations, infos.GetUniqueIDs()));
  // Names differing in case are different batches.
  EXPECT_EQ(batches->GetBatchNames().GetVector(), (Strings{"B1", "b1", "B2"}));
  const BatchInfo& first = *(*batches)[0];
  EXPECT_EQ(first.GetNumObs(nullptr, true), 5);
  ASSERT_EQ(first.GetClassVector()->size(), 2U);
  EXPECT_EQ((*first.GetClassVector())[1]->GetPhaseName(), "P2");
  EXPECT_EQ((*first.GetClassVector())[1]->GetNumObs(), 2);
  EXPECT_EQ((*batches)[2]->GetNumObs("P2", false), 4);
  EXPECT_EQ(BatchUtilities::CreatePhaseInfoVector(observations, infos)->size(), 2U);

  // The dataset got the same structure, its batch bit and the series in the settings.
  EXPECT_EQ(*rows.dataSet->GetBatchInfoVector(), *batches);
  EXPECT_TRUE(rows.dataSet->GetDataType() & NCDataSet::kBatchBit);
  EXPECT_EQ(rows.project->GetBatchImportSettings().GetBatchID(), 2);
  EXPECT_EQ(rows.project->GetBatchImportSettings().GetPhaseID(), 3);
  EXPECT_EQ(rows.dataSet->GetUsedObsAliases(), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(infos[4]->GetPhaseName(rows.project->GetBatchImportSettings()), "P2");

  // Without phases the batches have no phase lists; without batches there is nothing.
  const BatchRows noPhases({{"B1", "P1", 3}, {"B2", "P2", 2}}, false);
  EXPECT_EQ(noPhases.dataSet->GetBatchInfoVector()->front()->GetClassVector(), nullptr);
  EXPECT_FALSE(noPhases.dataSet->GetPhaseInfoVector());
  NCObservations plain;
  EXPECT_FALSE(BatchUtilities::CreateBatchInfoVector(plain, VarObsInfoVector<ObservationInfo>()));
  EXPECT_THROW(BatchUtilities::MakeBatchDataSet(*rows.dataSet, 9, 0), InvalidArgument);
}

// A batch vector as text: "name=count[phase:count ...]" per batch.
std::string Describe(const BatchInfoVector& batches) {
  std::string text;
  for (const auto& batch : batches) {
    text += batch->GetBatchName() + "=" + std::to_string(batch->GetNumObs(nullptr, false)) + "[";
    if (batch->GetClassVector()) {
      for (const auto& phase : *batch->GetClassVector()) {
        text += phase->GetPhaseName() + ":" + std::to_string(phase->GetNumObs()) + " ";
      }
    }
    text += "] ";
  }
  return text;
}

TEST(BatchUtilities, StructureMatchesTheRunsWhateverTheirLengths) {
  // Equal batches first (each run's length is guessed right and rows are fetched ahead), then
  // batches whose lengths change, a phase that comes back inside its batch, and more phase
  // names than the search keeps at hand.
  std::vector<std::tuple<std::string, std::string, int>> runs;
  std::string expected;
  for (int b = 0; b < 60; ++b) {
    const int scale = b < 30 ? 1 : 1 + b % 4;
    const std::string name = "B" + std::to_string(b);
    runs.emplace_back(name, "Heat", 5 * scale);
    runs.emplace_back(name, "React", 9 * scale);
    runs.emplace_back(name, "Cool", 4);
    expected += name + "=" + std::to_string(14 * scale + 4) + "[Heat:" + std::to_string(5 * scale) +
                " React:" + std::to_string(9 * scale) + " Cool:4 ] ";
  }
  runs.emplace_back("R", "Heat", 2);
  runs.emplace_back("R", "Cool", 3);
  runs.emplace_back("R", "Heat", 1);
  expected += "R=6[Heat:3 Cool:3 ] ";
  expected += "M=20[";
  for (int p = 0; p < 20; ++p) {
    runs.emplace_back("M", "S" + std::to_string(p), 1);
    expected += "S" + std::to_string(p) + ":1 ";
  }
  expected += "] N=1[S17:1 ] ";
  runs.emplace_back("N", "S17", 1);
  const BatchRows rows(runs);
  const NCObservations& observations = rows.project->GetObservations();
  const auto& infos = rows.dataSet->GetObservationInfoVector();
  EXPECT_EQ(Describe(*rows.dataSet->GetBatchInfoVector()), expected);
  EXPECT_EQ(Describe(*BatchUtilities::CreateBatchInfoVector(observations, infos.GetUniqueIDs())),
            expected);
  EXPECT_EQ(rows.dataSet->GetPhaseInfoVector()->size(), 23U);

  // A row without a record that the search meets is a batch of its own, with no name.
  const BatchRows small({{"A", "P", 3}, {"B", "P", 1}});
  NCIntegralVector<unsigned long, 0> ids = small.dataSet->GetObservationInfoVector().GetUniqueIDs();
  ids(2) = 999999;
  EXPECT_EQ(Describe(*BatchUtilities::CreateBatchInfoVector(small.project->GetObservations(), ids)),
            "A=2[P:2 ] =1[:1 ] B=1[P:1 ] ");
}

}  // namespace
