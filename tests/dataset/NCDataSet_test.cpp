#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using IDs = NCIntegralVector<unsigned long, 0>;
using Positions = NCIntegralVector<int, -99>;

Positions Of(std::initializer_list<int> values) {
  Positions positions;
  for (const int value : values) positions.push_back(value);
  return positions;
}

IDs IDsOf(std::initializer_list<unsigned long> values) {
  IDs ids;
  for (const unsigned long value : values) ids.push_back(value);
  return ids;
}

// Counts the notifications a dataset raises.
struct Listener {
  Listener() {
    added = NCSignals::ConnectVarObsAdded([this](NCDataSet*) { ++adds; });
    deleted = NCSignals::ConnectVarObsDeleted([this](NCDataSet*) { ++deletes; });
    changed = NCSignals::ConnectDataSetValueChanged(
        [this](NCDataSet*, unsigned long obs, unsigned long var) {
          ++changes;
          lastObs = obs;
          lastVar = var;
        });
  }
  int adds = 0, deletes = 0, changes = 0;
  unsigned long lastObs = 0, lastVar = 0;
  boost::signals2::scoped_connection added, deleted, changed;
};

// A project with three variables of the three kinds and four observations in two batches.
struct Import {
  Import() {
    NCVariables& variables = project->GetVariables();
    variables.Add(std::make_unique<QuantitativeVariableInfo>("Temp", kTemp));
    auto lot = std::make_unique<QualitativeVariableInfo>("Lot", kLot, nullptr);
    lot->AppendSetting("A");
    lot->AppendSetting("B");
    variables.Add(std::move(lot));
    variables.Add(std::make_unique<DateTimeVariableInfo>(
        "When", kWhen, VxTimeUtl::eParseISO8601, "", "", VxTimeUtl::SimpDateTime(2024, 1, 1),
        VxTimeUtl::eSecond));
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    observations.SetBatchID(2);
    for (unsigned long k = 0; k < 4; ++k) {
      rows.push_back(observations.Add(std::make_unique<ObservationInfo>(
          std::vector<std::string>{"o" + std::to_string(k + 1), k < 2 ? "B1" : "B2"}, 100 + k)));
    }
  }
  static constexpr unsigned long kTemp = 10, kLot = 11, kWhen = 12;
  boost::shared_ptr<NCProject> project = NCProject::Create();
  VarObsInfoVector<ObservationInfo> rows;
};

}  // namespace

TEST(NCDataSet, TypicalImportReadsBackThroughTheContainerInterface) {
  Import import;
  Listener listener;
  const auto dataSet = NCDataSet::Create(import.project, 7);
  dataSet->SetName("Fermentation");
  const IDs columns = IDsOf({Import::kTemp, Import::kLot, Import::kWhen});
  ASSERT_TRUE(dataSet->AddVariables(&columns, 0, true));
  ASSERT_TRUE(dataSet->AddObservationInfos(import.rows, 0, true));
  EXPECT_EQ(listener.adds, 2);
  ASSERT_EQ(dataSet->SizeObservations(), 4);
  ASSERT_EQ(dataSet->SizeVariables(), 3);
  EXPECT_EQ(dataSet->GetValue(4, 3), -99.0F) << "new cells are missing";

  const char* temps[] = {"20.5", "21", "", "19.25"};
  const char* lots[] = {"A", "b", "B", ""};
  const char* times[] = {"2024-01-01T00:00:00", "2024-01-01T00:00:30", "2024-01-02T12:00:00",
                         "not a date"};
  for (int row = 1; row <= 4; ++row) {
    EXPECT_TRUE(dataSet->SetValue(row, 1, temps[row - 1], false, false, false));
    EXPECT_TRUE(dataSet->SetValue(row, 2, lots[row - 1], false, false, false));
    EXPECT_TRUE(dataSet->SetValue(row, 3, times[row - 1], false, false, false));
  }
  EXPECT_EQ(listener.changes, 12);
  EXPECT_EQ(listener.lastObs, 103U);
  EXPECT_EQ(listener.lastVar, Import::kWhen);

  BatchInfoVector batches;
  batches.push_back(boost::make_shared<BatchInfo>("B1"));
  batches.push_back(boost::make_shared<BatchInfo>("B2"));
  dataSet->SetBatchInfoVector(&batches);
  EXPECT_EQ(dataSet->GetDataType(), 1 | 32);

  // Everything back through the interface every container offers.
  const NCDataContainer& container = *dataSet;
  EXPECT_EQ(container.GetStrValue(1, 1), "20.5");
  EXPECT_EQ(container.GetStrValue(3, 1), "") << "an empty cell is missing";
  EXPECT_EQ(container.GetStrValue(2, 2), "B") << "levels match ignoring case";
  EXPECT_EQ(container.GetStrValue(4, 2), "");
  EXPECT_EQ(container.GetStrValue(2, 3), "2024-01-01T00:00:30");
  EXPECT_EQ(container.GetStrValue(4, 3), "");
  EXPECT_EQ(container.GetObservationID(3, 1), "o3");
  EXPECT_EQ(container.GetObservationID(3, 2), "B2");
  EXPECT_EQ(container.GetVariableID(2, 1), "Lot");
  EXPECT_EQ(container.GetVarID(3), Import::kWhen);
  EXPECT_EQ(container.GetVariableInfo(2)->GetUserID(1), "Lot");
  EXPECT_EQ(container.GetObservationInfo(4), import.rows[3]);
  EXPECT_EQ(container.GetBatchNames()[1], "B2");
  const NCDataMatrix<float> values = container.GetData(false, nullptr);
  ASSERT_EQ(values.SizeRows(), 4U);
  EXPECT_EQ(values(3, 0), 19.25F);
  EXPECT_EQ(values(0, 1), 1.0F);
  EXPECT_EQ(values(1, 2) - values(0, 2), 30.0F);

  // Out of range: empty texts and missing values, never a crash.
  EXPECT_EQ(dataSet->GetStrValue(0, 1), "");
  EXPECT_EQ(dataSet->GetStrValue(5, 1), "");
  EXPECT_EQ(dataSet->GetObservationID(5, 1), "");
  EXPECT_EQ(dataSet->GetVariableID(4, 1), "");
  EXPECT_EQ(dataSet->GetValue(1, 4), -99.0F);
  EXPECT_EQ(dataSet->GetObservationInfo(0), nullptr);
  EXPECT_FALSE(dataSet->SetValue(5, 1, 1.0F, false, false, false));

  // Saved into the project, found again by number.
  dataSet->Save();
  EXPECT_EQ(import.project->GetDataContainer(7), dataSet);
  EXPECT_EQ(NCDataSet::GetVariableIDs(*import.project, 7), columns);
  const auto stored = NCDataSet::GetMutableBatchInfoVector(*import.project, 7);
  ASSERT_NE(stored, nullptr);
  stored->front()->SetIncluded(false);
  EXPECT_FALSE(dataSet->GetBatchInfoVector()->front()->IsIncluded()) << "edited in place";
  EXPECT_EQ(NCDataSet::GetMutableBatchInfoVector(*import.project, 8), nullptr);
}

TEST(NCDataSet, RemovalKeepsRowsAndColumnsTogetherAndRefusesBadLists) {
  Import import;
  const auto dataSet = NCDataSet::Create(import.project, 2);
  const IDs columns = IDsOf({Import::kTemp, Import::kLot, Import::kWhen});
  dataSet->AddVariables(&columns, 0, false);
  dataSet->AddObservationInfos(import.rows, 0, false);
  for (int row = 1; row <= 4; ++row) {
    for (int column = 1; column <= 3; ++column) {
      dataSet->SetValue(row, column, float(10 * row + column), false, false, false);
    }
  }

  // Unsorted, repeated, out of range or missing lists are refused before anything changes.
  for (Positions bad : {Of({2, 1}), Of({2, 2}), Of({0}), Of({5}), Of({1, 9})}) {
    EXPECT_THROW(dataSet->RemoveObservation(&bad, false, false), InvalidArgument);
  }
  Positions badColumns = Of({4});
  EXPECT_THROW(dataSet->RemoveVariable(&badColumns, false, false), InvalidArgument);
  EXPECT_THROW(dataSet->RemoveVariable(nullptr, false, false), InvalidArgument);
  EXPECT_EQ(dataSet->SizeObservations(), 4);
  EXPECT_EQ(dataSet->SizeVariables(), 3);

  // A refused change check leaves everything but the two flags.
  int asked = 0;
  import.project->SetChangeCheck([&](int number, const IDs& ids) {
    ++asked;
  EXPECT_EQ(number, 2);
  return ids.Find(Import::kLot) < 0;
});
Positions lot = Of({2});
EXPECT_FALSE(dataSet->RemoveVariable(&lot, false, false));
EXPECT_TRUE(lot.empty()) << "the refused list is cleared";
EXPECT_TRUE(dataSet->IsDirty());
EXPECT_TRUE(dataSet->IsBatchInfoVecDirty());
EXPECT_EQ(dataSet->SizeVariables(), 3);
EXPECT_FALSE(dataSet->SetValue(1, 2, 5.0F, false, false, true)) << "checked quietly";
EXPECT_TRUE(dataSet->SetValue(1, 2, 5.0F, false, false, false)) << "not checked";
EXPECT_EQ(asked, 2);
import.project->SetChangeCheck(nullptr);

Positions rows = Of({1, 3});
ASSERT_TRUE(dataSet->RemoveObservation(&rows, false, false));
Positions middle = Of({2});
ASSERT_TRUE(dataSet->RemoveVariable(&middle, false, true));
ASSERT_EQ(dataSet->SizeObservations(), 2);
ASSERT_EQ(dataSet->SizeVariables(), 2);
EXPECT_EQ(dataSet->GetObservationID(1, 1), "o2");
EXPECT_EQ(dataSet->GetObservationID(2, 1), "o4");
EXPECT_EQ(dataSet->GetVarID(2), Import::kWhen);
EXPECT_EQ(dataSet->GetValue(1, 1), 21.0F);
EXPECT_EQ(dataSet->GetValue(2, 2), 43.0F);
EXPECT_NE(import.project->GetObservations()[100], nullptr) << "records stay with the project";
}

TEST(NCDataSet, NewRowsAndColumnsGetUniqueDefaultNames) {
  Import import;
  auto observation = std::make_unique<ObservationInfo>("New_Obs", 50);
  import.project->GetObservations().Add(std::move(observation));
  const auto dataSet = NCDataSet::Create(import.project, 3);
  ASSERT_TRUE(dataSet->AddObservationInfos(3));
  ASSERT_TRUE(dataSet->AddVariables(2, nullptr, false, false));
  ASSERT_TRUE(dataSet->AddVariables(1, "Temp", false, false));
  EXPECT_EQ(dataSet->GetObservationID(1, 1), "New_Obs_1");
  EXPECT_EQ(dataSet->GetObservationID(3, 1), "New_Obs_3");
  EXPECT_EQ(dataSet->GetVariableID(1, 1), "New_Var");
  EXPECT_EQ(dataSet->GetVariableID(2, 1), "New_Var_1");
  EXPECT_EQ(dataSet->GetVariableID(3, 1), "Temp_1");
  // Every new record has an ID of its own, and the matrix grew with them.
  EXPECT_NE(dataSet->GetObservationInfo(1)->GetUniqueID(), 50U);
  EXPECT_NE(dataSet->GetVarID(1), dataSet->GetVarID(2));
  EXPECT_EQ(dataSet->GetMatrix().SizeRows(), 3U);
  EXPECT_EQ(dataSet->GetMatrix().SizeColumns(), 3U);

  // Inserting before a column, and a project that has no such variable.
  const IDs lot = IDsOf({Import::kLot});
  ASSERT_TRUE(dataSet->AddVariables(&lot, 1, false));
  EXPECT_EQ(dataSet->GetVarID(1), Import::kLot);
  const IDs unknown = IDsOf({999});
  EXPECT_THROW(dataSet->AddVariables(&unknown, 0, false), InvalidArgument);
  VarObsInfoVector<ObservationInfo> foreign;
  ObservationInfo stray("stray", 77);
  foreign.push_back(&stray);
  EXPECT_THROW(dataSet->AddObservationInfos(foreign, 0, false), InvalidArgument);

  // Whole-matrix and column replacement.
  NCDataMatrix<float> values(3, 4, 1.5F);
  ASSERT_TRUE(dataSet->SetValues(&values));
  EXPECT_EQ(dataSet->GetValue(3, 4), 1.5F);
  NCDataMatrix<float> wrong(2, 4);
  EXPECT_THROW(dataSet->SetValues(&wrong), InvalidArgument);
  Positions levels = Of({1, -99, 2});
  ASSERT_TRUE(dataSet->SetColValues(levels, 1));
  EXPECT_EQ(dataSet->GetStrValue(1, 1), "A");
  EXPECT_EQ(dataSet->GetStrValue(2, 1), "");
  EXPECT_FALSE(dataSet->SetColValues(values.ColumnData(0), 5));

  dataSet->clear();
  EXPECT_EQ(dataSet->SizeObservations(), 0);
  EXPECT_EQ(dataSet->SizeVariables(), 0);
}

TEST(NCDataSet, ModelRolesAndGeneratedVariables) {
  Import import;
  NCVariables& variables = import.project->GetVariables();
  variables[Import::kLot]->SetVariableBlock(VariableInfo::eY);
  variables[Import::kWhen]->SetVariableBlock(VariableInfo::eExcludedX);
  variables.Add(std::make_unique<QuantitativeVariableInfo>("Twice", 13, "2*v1"));
  const auto dataSet = NCDataSet::Create(import.project, 4);
  const IDs columns = IDsOf({Import::kTemp, Import::kLot, Import::kWhen, 13});
  dataSet->AddVariables(&columns, 0, false);
  EXPECT_EQ(dataSet->GetXVariables(nullptr), IDsOf({Import::kTemp, 13}));
  EXPECT_EQ(dataSet->GetYVariables(nullptr), IDsOf({Import::kLot}));

  ClassInfoVector phases;
  phases.push_back(boost::make_shared<ClassInfo>("P1"));
  phases.front()->SetIncluded(Import::kTemp, false);
  dataSet->SetPhaseInfoVector(&phases);
  EXPECT_EQ(dataSet->GetXVariables("P1"), IDsOf({13}));
  EXPECT_EQ(dataSet->GetXVariables("no such phase"), IDsOf({Import::kTemp, 13}));

  EXPECT_TRUE(NCDataSet::HasGeneratedVariables(*import.project, columns));
  EXPECT_FALSE(NCDataSet::HasGeneratedVariables(*import.project, IDsOf({Import::kTemp})));
  const auto generated = NCDataSet::GetGenVarList(*import.project, columns);
  ASSERT_EQ(generated->size(), 1U);
  EXPECT_EQ(generated->front(), DSGenVarData("2*v1", 13));

  dataSet->ChangeVarID(Import::kLot, 1);
  EXPECT_EQ(dataSet->GetVarID(1), Import::kLot);
  const auto primary = NCDataSet::Create(import.project, 1);
  primary->AddVariables(&columns, 0, false);
  primary->ChangeVarID(Import::kLot, 1);
  EXPECT_EQ(primary->GetVarID(1), Import::kTemp) << "dataset 1 keeps its variable IDs";
}

TEST(NCDataSet, NewDataSetAndItsSourceAndStructure) {
  auto project = NCProject::Create();
  const auto dataSet = NCDataSet::Create(project, 2);
  EXPECT_EQ(dataSet->SizeVariables(), 0);
  EXPECT_EQ(dataSet->SizeObservations(), 0);
  EXPECT_EQ(dataSet->GetDataType(), 1);
  EXPECT_EQ(dataSet->GetSourceID(), NCUniqueIDs::kNone);
  EXPECT_EQ(dataSet->GetUsedObsAliases(), std::vector<int>{1});
  EXPECT_EQ(dataSet->GetUsedVarAliases(), std::vector<int>{1});
  EXPECT_FALSE(dataSet->IsDirty());
  EXPECT_EQ(dataSet->GetStrValue(1, 1), "");
  EXPECT_EQ(dataSet->GetVariableID(1, 1), "");

  dataSet->SetSource(1, 5);
  EXPECT_EQ(dataSet->GetSourceID(), NCUniqueIDs::kNone) << "an ordinary dataset has no source";
  EXPECT_TRUE(dataSet->IsDirty());
  dataSet->SetSource(2, 5);
  EXPECT_EQ(dataSet->GetSourceID(), 5U);
  dataSet->SetSource(16, 5);
  dataSet->SetSource(2, 6);
  EXPECT_EQ(dataSet->GetDataType(), 18) << "the kind bit is kept";

  // Batches make a batch dataset, a copy of what was given; none make it ordinary again.
  auto plain = NCDataSet::Create(project, 3);
  BatchInfoVector batches;
  batches.push_back(boost::make_shared<BatchInfo>("B1"));
  plain->SetBatchInfoVecDirty();
  plain->SetBatchInfoVector(&batches);
  EXPECT_FALSE(plain->IsBatchInfoVecDirty());
  EXPECT_EQ(plain->GetDataType(), 1 | 32);
  batches.push_back(boost::make_shared<BatchInfo>("B2"));
  EXPECT_EQ(plain->GetBatchInfoVector()->size(), 1U);
  plain->SetBatchInfoVector(nullptr);
  EXPECT_EQ(plain->GetBatchInfoVector(), nullptr);
  EXPECT_EQ(plain->GetDataType(), 1);

  ClassInfoVector phases;
  phases.push_back(boost::make_shared<ClassInfo>("P1"));
  plain->SetPhaseInfoVector(&phases);
  phases.front()->SetPhaseName("renamed");
  EXPECT_EQ(plain->GetPhaseInfoVector()->front()->GetPhaseName(), "P1");
  plain->SetPhaseInfoVector(nullptr);
  EXPECT_EQ(plain->GetPhaseInfoVector(), nullptr);

  // A dataset outlives its project without harm: saving does nothing.
  project.reset();
  plain->Save();
  EXPECT_EQ(plain->GetProject(), nullptr);
}
