#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "dataset/DataSetFixture.h"
#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

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

TEST(NCProject, SavedDataSetsAreKeptAsStreamAndDescription) {
  ncds::test::BatchDataSet fixture;
  NCProject& project = *fixture.project;
  ASSERT_TRUE(project.SaveDataSet(fixture.dataSet));
  EXPECT_FALSE(fixture.dataSet->IsDirty());
  EXPECT_TRUE(project.IsDataSetLoaded(5));
  EXPECT_EQ(project.GetDataContainer(5), fixture.dataSet);
  const std::string saved = *project.GetDataSetStream(5);
  EXPECT_EQ(saved, ncds::test::WriteToString(*fixture.dataSet));

  // Unloaded, its description stands in for it, without values.
  fixture.dataSet->SetName("changed after saving");
  ASSERT_TRUE(project.UnloadDataSet(5));
  EXPECT_FALSE(project.UnloadDataSet(5));
  const auto container = project.GetDataContainer(5);
  ASSERT_NE(container, nullptr);
  EXPECT_EQ(container, project.GetDataSetInfo(5));
  EXPECT_EQ(container->SizeObservations(), ncds::test::BatchDataSet::kRows);
  EXPECT_EQ(NCDataSet::GetVariableIDs(project, 5), fixture.dataSet->GetVarIDs());
  EXPECT_EQ(NCDataSet::GetMutableBatchInfoVector(project, 5), nullptr);

  // Loaded again: the saved state, not the later change, and the project's dataset again.
  const auto loaded = project.LoadDataSet(5);
  ASSERT_NE(loaded, nullptr);
  EXPECT_STREQ(loaded->GetName(), "Fermentation");
  EXPECT_EQ(project.GetDataContainer(5), loaded);
  EXPECT_NE(NCDataSet::GetMutableBatchInfoVector(project, 5), nullptr);
  EXPECT_EQ(ncds::test::WriteToString(*loaded), saved);
  EXPECT_EQ(project.LoadDataSet(4), nullptr);

  EXPECT_TRUE(project.RemoveDataSet(5));
  EXPECT_EQ(project.GetDataContainer(5), nullptr);
  EXPECT_EQ(project.GetDataSetStream(5), nullptr);
  EXPECT_EQ(project.LoadDataSet(5), nullptr);
}

TEST(NCProject, RestoredDataSetsLoadOnDemand) {
  ncds::test::BatchDataSet source;
  const std::string stream = ncds::test::WriteToString(*source.dataSet);
  const std::string infoStream = ncds::test::WriteToString(NCDataSetInfo(source.dataSet));

  // A project file read into a project with the same records: listed from the description.
  ncds::test::BatchDataSet target;
  NCProject& project = *target.project;
  auto info = boost::make_shared<NCDataSetInfo>(target.project);
  ASSERT_TRUE(ncds::test::ReadFromString(infoStream, *info));
  EXPECT_FALSE(project.RestoreDataSet(stream, nullptr));
  ASSERT_TRUE(project.RestoreDataSet(stream, info));
  EXPECT_FALSE(project.IsDataSetLoaded(5));
  EXPECT_EQ(project.GetDataContainer(5), info);
  const auto loaded = project.LoadDataSet(5);
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(ncds::test::WriteToString(*loaded), stream);

  // A damaged stream loads nothing and changes nothing.
  ASSERT_TRUE(project.RestoreDataSet(stream.substr(0, stream.size() / 2), info));
  EXPECT_EQ(project.LoadDataSet(5), nullptr);
  EXPECT_EQ(project.GetDataContainer(5), info);

  // Observations the project no longer holds: the dataset loads, its rows without records.
  const auto bare = NCProject::Create();
  ASSERT_TRUE(bare->RestoreDataSet(stream, info));
  const auto orphans = bare->LoadDataSet(5);
  ASSERT_NE(orphans, nullptr);
  EXPECT_EQ(orphans->SizeObservations(), loaded->SizeObservations());
  EXPECT_EQ(orphans->GetObservationInfo(1), nullptr);
  EXPECT_EQ(bare->GetObservations().size(), 0U);
}

TEST(NCProject, CompoundsAndAuxiliaryDataKeepTheirNumbersAndNames) {
  auto project = NCProject::Create();
  NCDataSet::Create(project, 1)->Save();
  NCDataSet::Create(project, 2)->Save();

  // Datasets and compounds share one number space.
  EXPECT_THROW(project->SetCompoundDataset(CompoundDataset(project, "C", 2, {1})), NCError);
  project->SetCompoundDataset(CompoundDataset(project, "C", 3, {1, 2, 8}));
  EXPECT_FALSE(project->SaveDataSet(NCDataSet::Create(project, 3)));
  auto info = boost::make_shared<NCDataSetInfo>(NCDataSet::Create(project, 3));
  EXPECT_FALSE(project->RestoreDataSet("", info));
  EXPECT_FALSE(project->RemoveDataSet(3));
  EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{1, 2}));
  EXPECT_EQ(project->GetDataContainer(3), project->GetCompoundDataset(3));
  EXPECT_EQ(project->GetCompoundDataset(3)->GetMissingMembers(), std::vector<int>{8});
  // No compound of compounds, and none of another project.
  EXPECT_THROW(project->SetCompoundDataset(CompoundDataset(project, "D", 4, {1, 3})), NCError);
  EXPECT_THROW(project->SetCompoundDataset(CompoundDataset(project, "D", 4, {4})), NCError);
  EXPECT_THROW(project->SetCompoundDataset(CompoundDataset(NCProject::Create(), "D", 4, {1})),
               InvalidArgument);
  // Replaced as a copy: the caller's object is not the project's.
  CompoundDataset replacement(project, "C2", 3, {2});
  project->SetCompoundDataset(replacement);
  replacement.SetMembers({1});
  EXPECT_EQ(project->GetCompoundDataset(3)->GetName(), "C2");
  EXPECT_EQ(project->GetCompoundDataset(3)->GetMembers(), std::vector<int>{2});
  EXPECT_EQ(project->GetCompoundDatasetNumbers(), std::vector<int>{3});
  EXPECT_TRUE(project->RemoveCompoundDataset(3));
  EXPECT_FALSE(project->RemoveCompoundDataset(3));
  EXPECT_EQ(project->GetDataContainer(3), nullptr);
  EXPECT_TRUE(project->SaveDataSet(NCDataSet::Create(project, 3)));

  // Auxiliary data by name: replaced, listed sorted, forgotten.
  NCDataMatrix<float> values(1, 1, 2.0F);
  const AuxiliaryData first(values, NCIntegralVector<unsigned long, 0>(1, 5), "first");
  project->SetAuxiliaryData("weights", first);
  project->SetAuxiliaryData("loadings", AuxiliaryData());
  const auto kept = project->GetAuxiliaryData("weights");
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(*kept, first);
  project->SetAuxiliaryData("weights", AuxiliaryData());
  EXPECT_EQ(*kept, first) << "a copy handed out stays as it was";
  EXPECT_EQ(*project->GetAuxiliaryData("weights"), AuxiliaryData());
  EXPECT_EQ(project->GetAuxiliaryDataNames(), (std::vector<std::string>{"loadings", "weights"}));
  EXPECT_THROW(project->SetAuxiliaryData("", first), NCError);
  EXPECT_EQ(project->GetAuxiliaryData("scores"), nullptr);
  EXPECT_TRUE(project->RemoveAuxiliaryData("loadings"));
  EXPECT_FALSE(project->RemoveAuxiliaryData("loadings"));
  EXPECT_EQ(project->GetAuxiliaryDataNames(), std::vector<std::string>{"weights"});
}
