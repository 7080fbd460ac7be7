#include <gtest/gtest.h>

#include <memory>

#include "ncds/ncds.h"

namespace {

std::unique_ptr<ObservationInfo> Observation(const char* id, unsigned long uniqueID) {
  return std::make_unique<ObservationInfo>(id, uniqueID);
}

}  // namespace

TEST(NCProject, UniqueIDsAreFreshAndNeverReserved) {
  auto project = NCProject::Create();
  // Records already held (as after reading a project) are never handed out again, and new
  // IDs go on after the highest of them.
  project->GetObservations().Add(Observation("a", 7));
  project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("v", 12UL));
  EXPECT_EQ(project->CreateUniqueID(), 13U);
  EXPECT_EQ(project->CreateUniqueID(), 14U);

  // Next to the reserved IDs: they are skipped, and so are IDs held above them.
  auto edge = NCProject::Create();
  edge->GetObservations().Add(Observation("last", NCUniqueIDs::kNone - 1));
  EXPECT_EQ(edge->CreateUniqueID(), NCUniqueIDs::kConstant + 1);
  edge->GetObservations().Add(Observation("top", 0xFFFFFFFFUL));
  EXPECT_EQ(edge->CreateUniqueID(), NCUniqueIDs::kConstant + 2);
  edge->GetObservations().Add(Observation("next", NCUniqueIDs::kConstant + 3));
  EXPECT_EQ(edge->CreateUniqueID(), NCUniqueIDs::kConstant + 4);
}

TEST(NCProject, ChangeCheckSettingsAndDataSets) {
  auto project = NCProject::Create();
  const NCIntegralVector<unsigned long, 0> ids(1, 5);
  EXPECT_TRUE(project->CanChangeVariables(1, ids)) << "allowed unless a check says otherwise";
  int asked = 0;
  project->SetChangeCheck([&](int number, const NCIntegralVector<unsigned long, 0>& asking) {
    ++asked;
    return number != 2 && asking.Find(99) < 0;
  });
  EXPECT_TRUE(project->CanChangeVariables(1, ids));
  EXPECT_FALSE(project->CanChangeVariables(2, ids));
  EXPECT_FALSE(project->CanChangeVariables(1, NCIntegralVector<unsigned long, 0>(1, 99)));
  EXPECT_EQ(asked, 3);

  BatchImportSettings settings;
  settings.SetBatchID(2);
  project->SetBatchImportSettings(settings);
  settings.SetBatchID(3);
  EXPECT_EQ(project->GetBatchImportSettings().GetBatchID(), 2) << "the project keeps a copy";
  project->SetBatchImportSettings(project->GetBatchImportSettings());
  EXPECT_TRUE(project->GetBatchImportSettings().IsBatch());

  // Datasets by number: stored, replaced, listed, forgotten.
  const auto first = NCDataSet::Create(project, 3);
  const auto second = NCDataSet::Create(project, 1);
  first->Save();
  second->Save();
  EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{1, 3}));
  EXPECT_EQ(project->GetDataContainer(3), first);
  EXPECT_EQ(project->GetDataContainer(2), nullptr);
  const auto replacement = NCDataSet::Create(project, 3);
  EXPECT_TRUE(project->SaveDataSet(replacement));
  EXPECT_EQ(project->GetDataContainer(3), replacement);
  EXPECT_FALSE(project->SaveDataSet(nullptr));
  EXPECT_TRUE(project->RemoveDataSet(1));
  EXPECT_FALSE(project->RemoveDataSet(1));
  EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{3}));
}
