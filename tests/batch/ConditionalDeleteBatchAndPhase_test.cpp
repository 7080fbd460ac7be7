#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::BatchRows;
using Strings = std::vector<std::string>;
using Floats = std::vector<float>;

// Runs the deletion on the dataset of `rows` after `mark` has edited the working copies.
template <class Mark>
std::string Update(BatchRows& rows, Mark mark, bool* applied = nullptr) {
  DatasetComponents components(rows.dataSet);
  mark(components);
  std::string log;
  ConditionalDeleteBatchAndPhase(&components).UpdateDataAccordingToBatchAndPhaseInfo(&log);
  const bool done = components.Apply(false);
  if (applied) *applied = done;
  return log;
}

TEST(ConditionalDeleteBatchAndPhase, RemovesExcludedBatchesAndPhasesAndLogsThem) {
  BatchRows rows({{"B1", "P1", 2},
                  {"B1", "P2", 1},
                  {"B2", "P1", 1},
                  {"B2", "P2", 2},
                  {"B3", "P1", 1},
                  {"B3", "P2", 1},
                  {"B4", "P1", 2}});
  ncds::test::ProgressRecorder progress;
  const std::string log = Update(rows, [](DatasetComponents& components) {
    BatchInfoVector& batches = *components.GetBatchInfoVector();
    (*batches[0]->GetClassVector())[1]->SetIncluded(false);  // P2 of B1
    batches[1]->SetIncluded(false);                          // B2 with its phases
    for (const auto& phase : *batches[1]->GetClassVector()) phase->SetIncluded(false);
    (*batches[2]->GetClassVector())[0]->SetIncluded(false);  // P1 of B3
  });
  EXPECT_EQ(log,
            "Phase P2 in batch B1 was deleted.\nBatch B2 was deleted.\n"
            "Phase P1 in batch B3 was deleted.\n");
  EXPECT_EQ(rows.Values(), (Floats{0, 1, 7, 8, 9}));
  const BatchInfoVector& batches = *rows.dataSet->GetBatchInfoVector();
  EXPECT_EQ(batches.GetBatchNames().GetVector(), (Strings{"B1", "B3", "B4"}));
  EXPECT_EQ(batches[0]->GetNumObs(nullptr, true), 2);
  EXPECT_EQ(batches[1]->GetClassVector()->size(), 1U);
  EXPECT_EQ(batches[1]->GetNumObs(nullptr, true), 1);
  // The rows and the records agree again: building the structure anew gives the same.
  EXPECT_EQ(batches,
            *BatchUtilities::CreateBatchInfoVector(rows.project->GetObservations(),
                                                   rows.dataSet->GetObservationInfoVector()));
  ASSERT_EQ(progress.operations.size(), 1U);
  EXPECT_EQ(progress.operations[0].caption, "Deleting selected batches and phases...");
  EXPECT_EQ(progress.operations[0].last, 4.0F);
}

TEST(ConditionalDeleteBatchAndPhase, RenamedPhasesMergeAndCaseOnlyRenamesAreNotLogged) {
  BatchRows rows(
      {{"B1", "P1", 1}, {"B1", "P2", 2}, {"B1", "P3", 1}, {"B2", "P2", 1}, {"B2", "P3", 1}});
  const std::string log = Update(rows, [](DatasetComponents& components) {
    ClassInfoVector& phases = *components.GetPhaseInfoVector();
    phases[0]->SetPhaseName("p1");    // letter case only
    phases[2]->SetPhaseName("Feed");  // P3 ...
    phases[1]->SetPhaseName("Feed");  // ... and P2 become one phase
  });
  EXPECT_EQ(log, "Phase P2 was renamed Feed.\nPhase P3 was renamed Feed.\n");
  EXPECT_EQ(rows.PhaseNames(), (Strings{"p1", "Feed", "Feed", "Feed", "Feed", "Feed"}));
  EXPECT_EQ(BatchUtilities::GetPhaseNames(*rows.dataSet->GetPhaseInfoVector(), false)->GetVector(),
            (Strings{"p1", "Feed"}));
  const BatchInfoVector& batches = *rows.dataSet->GetBatchInfoVector();
  EXPECT_EQ(batches[0]->GetClassVector()->size(), 2U);
  EXPECT_EQ(batches[0]->GetNumObs("Feed", false), 3);
  EXPECT_EQ(batches[1]->GetNumObs("Feed", false), 2);
  EXPECT_EQ(rows.Values().size(), 6U);
}

TEST(ConditionalDeleteBatchAndPhase, LeavesDataAloneWhenNothingIsMarkedOrTheChangeIsRefused) {
  BatchRows rows({{"B1", "P1", 2}, {"B2", "P1", 2}});
  // A null log deletes the same, silently; a refusal changes nothing.
  rows.project->SetChangeCheck(
      [](int, const NCIntegralVector<unsigned long, 0>&) { return false; });
  bool applied = true;
  EXPECT_EQ(
      Update(
          rows, [](DatasetComponents& c) { (*c.GetBatchInfoVector())[0]->SetIncluded(false); },
          &applied),
      "Batch B1 was deleted.\n");
  EXPECT_FALSE(applied);
  EXPECT_EQ(rows.Values(), (Floats{0, 1, 2, 3}));
  EXPECT_EQ(rows.dataSet->GetBatchInfoVector()->size(), 2U);
  rows.project->SetChangeCheck(nullptr);
  {
    DatasetComponents components(rows.dataSet);
    (*components.GetBatchInfoVector())[0]->SetIncluded(false);
    ConditionalDeleteBatchAndPhase(&components).UpdateDataAccordingToBatchAndPhaseInfo(nullptr);
    EXPECT_TRUE(components.Apply(false));
  }
  EXPECT_EQ(rows.Values(), (Floats{2, 3}));
  EXPECT_EQ(Update(rows, [](DatasetComponents&) {}), "");
  EXPECT_EQ(rows.Values(), (Floats{2, 3}));
}

TEST(ConditionalDeleteBatchAndPhase, ExcludedClassesOfADatasetWithoutBatchesLoseTheirRows) {
  BatchRows rows({{"", "A", 2}, {"", "B", 1}, {"", "A", 1}, {"", "C", 1}});
  rows.project->GetObservations().SetBatchID(0);
  rows.dataSet->SetBatchInfoVector(nullptr);
  const std::string log = Update(rows, [](DatasetComponents& components) {
    (*components.GetPhaseInfoVector())[0]->SetIncluded(false);
  });
  EXPECT_EQ(log, "Class A was deleted.\n");
  EXPECT_EQ(rows.Values(), (Floats{2, 4}));
  EXPECT_EQ(BatchUtilities::GetPhaseNames(*rows.dataSet->GetPhaseInfoVector(), false)->GetVector(),
            (Strings{"B", "C"}));
}

TEST(ConditionalDeleteBatchAndPhase, DeletingManyBatchesKeepsTheRightRows) {
  std::vector<std::tuple<std::string, std::string, int>> runs;
  Floats expected;
  float row = 0;
  for (int b = 0; b < 300; ++b) {
    for (int p = 0; p < 2; ++p) {
      const int count = 1 + (b + p) % 5;
      runs.emplace_back("B" + std::to_string(b), p == 0 ? "P1" : "P2", count);
      for (int k = 0; k < count; ++k, ++row) {
        if (b % 3 != 0 && !(b % 7 == 0 && p == 1)) expected.push_back(row);
      }
    }
  }
  BatchRows rows(runs);
  Update(rows, [](DatasetComponents& components) {
    int b = 0;
    for (const auto& batch : *components.GetBatchInfoVector()) {
      if (b % 3 == 0) batch->SetIncluded(false);
      if (b % 7 == 0) (*batch->GetClassVector())[1]->SetIncluded(false);
      ++b;
    }
  });
  EXPECT_EQ(rows.Values(), expected);
  EXPECT_EQ(rows.dataSet->GetBatchInfoVector()->size(), 200U);
}

}  // namespace
