#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "ncds/ncds.h"

namespace {

using Cells = std::vector<std::pair<int, int>>;
using Column = std::vector<std::pair<unsigned long, float>>;  // (observation ID, value)
using IDs = std::vector<unsigned long>;
using Sets = std::vector<std::set<float>>;

// A dataset (number 2) with rows for the observations `obsIDs` and columns for the variables
// `varIDs`, in that order, holding `values` (one inner vector per row).
boost::shared_ptr<NCDataSet> MakeDataSet(const boost::shared_ptr<NCProject>& project,
                                         const IDs& obsIDs, const IDs& varIDs,
                                         const std::vector<std::vector<float>>& values) {
  NCIntegralVector<unsigned long, 0> columns;
  for (const unsigned long id : varIDs) {
    project->GetVariables().Add(
        std::make_unique<QuantitativeVariableInfo>("v" + std::to_string(id), id));
    columns.push_back(id);
  }
  VarObsInfoVector<ObservationInfo> rows;
  for (const unsigned long id : obsIDs) {
    rows.push_back(project->GetObservations().Add(
        std::make_unique<ObservationInfo>("o" + std::to_string(id), id)));
  }
  auto data = NCDataSet::Create(project, 2);
  EXPECT_TRUE(data->AddVariables(&columns, 0, false));
  EXPECT_TRUE(data->AddObservationInfos(rows, 0, false));
  for (std::size_t row = 0; row < values.size(); ++row) {
    for (std::size_t column = 0; column < values[row].size(); ++column) {
      EXPECT_TRUE(data->SetValue(static_cast<int>(row) + 1, static_cast<int>(column) + 1,
                                 values[row][column], false, false, false));
    }
  }
  return data;
}

// Trims cell (obs, var) to `value` the way trimming does: remember, write, record the value.
void Trim(NCDataSet& data, int obs, int var, float value) {
  EXPECT_TRUE(data.SetValue(obs, var, value, true, false, false));
  data.SetTrimValues(var, value);
}

Cells TrimmedCells(const NCDataSet& data) {
  NCIntegralVector<int, -99> rows;
  NCIntegralVector<int, -99> columns;
  data.GetTrimmedIndex(&rows, &columns);
  EXPECT_EQ(rows.size(), columns.size());
  Cells cells;
  for (std::size_t i = 0; i < rows.size(); ++i) cells.emplace_back(rows[i], columns[i]);
  return cells;
}

Column ColumnByID(const NCDataSet& data, int var) {
  Column column;
  for (int obs = 1; obs <= data.SizeObservations(); ++obs) {
    column.emplace_back(data.GetObservationInfo(obs)->GetUniqueID(), data.GetValue(obs, var));
  }
  return column;
}

Sets TrimValues(const NCDataSet& data) {
  Sets values;
  for (const auto& record : data.GetTrimRecords()) values.push_back(record->GetTrimValues());
  return values;
}

// The value before trimming, or -1 when none is recorded.
float PreTrim(const NCDataSet& data, unsigned long varID, unsigned long obsID) {
  float value = 0.0F;
  return data.GetPreTrimValue(varID, obsID, value) ? value : -1.0F;
}

TEST(NCDataSetTrimming, ResetRestoresOnlyCellsStillHoldingATrimValue) {
  auto project = NCProject::Create();
  auto data = MakeDataSet(project, {11, 12, 13, 14, 15}, {101, 102},
                          {{100, 1}, {200, 2}, {300, 3}, {4, 4}, {5, 5}});
  // Trim values for an untrimmed or absent column record nothing.
  data->SetTrimValues(1, 10.0F);
  data->SetTrimValues(3, 10.0F);
  EXPECT_TRUE(data->GetTrimRecords().empty());

  for (const int obs : {1, 2, 3}) Trim(*data, obs, 1, 10.0F);
  // Changed twice with bookkeeping: the value from before the first change is the one kept.
  ASSERT_TRUE(data->SetValue(4, 1, 7.0F, true, false, false));
  Trim(*data, 4, 1, 10.0F);
  EXPECT_EQ(TrimValues(*data), (Sets{{10.0F}}));
  EXPECT_EQ(PreTrim(*data, 101, 11), 100.0F);
  EXPECT_EQ(PreTrim(*data, 101, 14), 4.0F);
  EXPECT_EQ(PreTrim(*data, 101, 15), -1.0F);
  EXPECT_EQ(PreTrim(*data, 102, 11), -1.0F);

  // The user overwrites one trimmed cell with 12; another drifts to 10.0001, which still
  // counts as the trim value 10.
  ASSERT_TRUE(data->SetValue(1, 1, 12.0F, false, false, false));
  ASSERT_TRUE(data->SetValue(2, 1, 10.0001F, false, false, false));
  EXPECT_EQ(TrimmedCells(*data), (Cells{{2, 1}, {3, 1}, {4, 1}}));
  ASSERT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_EQ(ColumnByID(*data, 1), (Column{{11, 12}, {12, 200}, {13, 300}, {14, 4}, {15, 5}}));
  EXPECT_FALSE(data->GetIsTrimmed());
  EXPECT_TRUE(data->GetTrimRecords().empty());
  EXPECT_TRUE(TrimmedCells(*data).empty());
  EXPECT_EQ(PreTrim(*data, 101, 12), -1.0F);

  // Nothing trimmed any more: a reset succeeds and changes nothing. A column outside the
  // dataset is refused.
  EXPECT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_TRUE(data->ResetDatasetFromTrimming(false, 2));
  EXPECT_FALSE(data->ResetDatasetFromTrimming(false, 0));
  EXPECT_FALSE(data->ResetDatasetFromTrimming(false, 3));
  EXPECT_EQ(ColumnByID(*data, 1), (Column{{11, 12}, {12, 200}, {13, 300}, {14, 4}, {15, 5}}));
}

TEST(NCDataSetTrimming, ResetFindsRowsWhateverTheirIDOrder) {
  // Ascending IDs are searched by bisection, others through a lookup; both find every row,
  // and the trimmed cells come out in row order either way.
  for (const IDs& order : {IDs{11, 12, 13, 14}, IDs{14, 12, 13, 11}, IDs{30, 20, 10, 5}}) {
    auto project = NCProject::Create();
    auto data = MakeDataSet(project, order, {101}, {{1}, {2}, {3}, {4}});
    for (int obs = 4; obs >= 1; --obs) Trim(*data, obs, 1, 0.0F);
    EXPECT_EQ(TrimmedCells(*data), (Cells{{1, 1}, {2, 1}, {3, 1}, {4, 1}})) << order[0];
    ASSERT_TRUE(data->ResetDatasetFromTrimming(false, 1));
    EXPECT_EQ(ColumnByID(*data, 1),
              (Column{{order[0], 1}, {order[1], 2}, {order[2], 3}, {order[3], 4}}));
  }

  // Rows added after a reset has learnt that the IDs were ascending: the next reset must not
  // search them as if they still were.
  auto project = NCProject::Create();
  auto data = MakeDataSet(project, {11, 12, 13}, {101}, {{1}, {2}, {3}});
  Trim(*data, 1, 1, 0.0F);
  ASSERT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  VarObsInfoVector<ObservationInfo> more;
  more.push_back(project->GetObservations().Add(std::make_unique<ObservationInfo>("o5", 5)));
  more.push_back(project->GetObservations().Add(std::make_unique<ObservationInfo>("o20", 20)));
  ASSERT_TRUE(data->AddObservationInfos(more, 0, false));
  ASSERT_TRUE(data->SetValue(4, 1, 4.0F, false, false, false));
  ASSERT_TRUE(data->SetValue(5, 1, 5.0F, false, false, false));
  Trim(*data, 4, 1, 0.0F);
  Trim(*data, 5, 1, 0.0F);
  EXPECT_EQ(TrimmedCells(*data), (Cells{{4, 1}, {5, 1}}));
  ASSERT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_EQ(ColumnByID(*data, 1), (Column{{11, 1}, {12, 2}, {13, 3}, {5, 4}, {20, 5}}));
}

TEST(NCDataSetTrimming, OneColumnResetKeepsTheOtherVariablesInStep) {
  auto project = NCProject::Create();
  const std::vector<std::vector<float>> original{{11, 21, 31}, {12, 22, 32}, {13, 23, 33}};
  auto data = MakeDataSet(project, {11, 12, 13}, {101, 102, 103}, original);
  // Trimmed in the order 101, 102, 103, each to its own value.
  Trim(*data, 1, 1, 1.5F);
  Trim(*data, 2, 1, 1.5F);
  Trim(*data, 2, 2, 2.5F);
  Trim(*data, 3, 2, 2.5F);
  Trim(*data, 1, 3, 3.5F);
  Trim(*data, 3, 3, 3.5F);

  // Undo the first variable: the other two keep their records, values and cells.
  ASSERT_TRUE(data->ResetDatasetFromTrimming(false, 1));
  EXPECT_EQ(ColumnByID(*data, 1), (Column{{11, 11}, {12, 12}, {13, 13}}));
  EXPECT_EQ(TrimValues(*data), (Sets{{2.5F}, {3.5F}}));
  EXPECT_EQ(PreTrim(*data, 101, 11), -1.0F);
  EXPECT_EQ(PreTrim(*data, 102, 12), 22.0F);
  EXPECT_EQ(PreTrim(*data, 103, 11), 31.0F);
  EXPECT_EQ(TrimmedCells(*data), (Cells{{2, 2}, {3, 2}, {1, 3}, {3, 3}}));

  // New trim values reach the right records, and a variable trimmed anew comes last.
  data->SetTrimValues(2, 2.75F);
  data->SetTrimValues(3, 3.75F);
  Trim(*data, 3, 1, 1.25F);
  EXPECT_EQ(TrimValues(*data), (Sets{{2.5F, 2.75F}, {3.5F, 3.75F}, {1.25F}}));

  // Undo the middle one of the three records.
  ASSERT_TRUE(data->ResetDatasetFromTrimming(false, 3));
  EXPECT_EQ(ColumnByID(*data, 3), (Column{{11, 31}, {12, 32}, {13, 33}}));
  EXPECT_EQ(TrimValues(*data), (Sets{{2.5F, 2.75F}, {1.25F}}));
  EXPECT_EQ(TrimmedCells(*data), (Cells{{3, 1}, {2, 2}, {3, 2}}));
  EXPECT_EQ(PreTrim(*data, 102, 13), 23.0F);
  EXPECT_EQ(PreTrim(*data, 101, 13), 13.0F);

  ASSERT_TRUE(data->ResetDatasetFromTrimming(false, 2));
  EXPECT_EQ(TrimValues(*data), (Sets{{1.25F}}));
  EXPECT_EQ(TrimmedCells(*data), (Cells{{3, 1}}));
  ASSERT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_FALSE(data->GetIsTrimmed());
  for (int var = 1; var <= 3; ++var) {
    for (int obs = 1; obs <= 3; ++obs)
      EXPECT_EQ(data->GetValue(obs, var), original[obs - 1][var - 1]);
  }
}

TEST(NCDataSetTrimming, ChangeCheckGuardsTheResetWhileModelsDepend) {
  auto project = NCProject::Create();
  auto data = MakeDataSet(project, {11, 12}, {101, 102}, {{1, 10}, {2, 20}});
  Trim(*data, 1, 1, 0.0F);
  Trim(*data, 2, 2, 0.0F);
  bool allow = false;
  std::vector<std::pair<int, IDs>> asked;
  project->SetChangeCheck([&](int number, const NCIntegralVector<unsigned long, 0>& ids) {
    asked.emplace_back(number, IDs(ids.begin(), ids.end()));
    return allow;
  });

  // Models depend on the project: a refusal leaves values and records as they were.
  project->SetDependencyCount(1);
  EXPECT_FALSE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_FALSE(data->ResetDatasetFromTrimming(false, 2));
  EXPECT_EQ(asked, (std::vector<std::pair<int, IDs>>{{2, IDs{}}, {2, IDs{102}}}))
      << "the whole dataset, then the one variable";
  EXPECT_EQ(TrimmedCells(*data), (Cells{{1, 1}, {2, 2}}));
  EXPECT_EQ(data->GetTrimRecords().size(), 2U);

  allow = true;
  asked.clear();
  EXPECT_TRUE(data->ResetDatasetFromTrimming(false, 2));
  EXPECT_EQ(asked, (std::vector<std::pair<int, IDs>>{{2, IDs{102}}}));
  EXPECT_EQ(data->GetValue(2, 2), 20.0F);
  EXPECT_EQ(TrimmedCells(*data), (Cells{{1, 1}}));

  // Without dependants the check is not asked; with nothing left to undo, neither.
  allow = false;
  asked.clear();
  project->SetDependencyCount(0);
  EXPECT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_EQ(data->GetValue(1, 1), 1.0F);
  project->SetDependencyCount(1);
  EXPECT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_TRUE(asked.empty());
}

TEST(NCDataSetTrimming, RemovingAndSortingRowsAfterTrimmingKeepsResetsRight) {
  auto project = NCProject::Create();
  auto data = MakeDataSet(project, {11, 12, 13, 14, 15}, {101, 102},
                          {{1, 10}, {2, 20}, {3, 30}, {4, 40}, {5, 50}});
  Trim(*data, 2, 1, 0.0F);
  Trim(*data, 4, 1, 0.0F);
  for (const int obs : {1, 4, 5}) Trim(*data, obs, 2, 99.0F);

  // Observation 12 goes: its trimmed cell goes with it, the rows after it move up.
  NCIntegralVector<int, -99> removed(1, 2);
  ASSERT_TRUE(data->RemoveObservation(&removed, false, true));
  EXPECT_EQ(TrimmedCells(*data), (Cells{{3, 1}, {1, 2}, {3, 2}, {4, 2}}));

  // Rows 15, 13, 11, 14 after the sort, which the index above saw in ascending ID order: the
  // trimmed cells follow their observations.
  NCIntegralVector<int, -99> order;
  for (const int row : {3, 1, 0, 2}) order.push_back(row);
  ASSERT_TRUE(data->SortDataset(0, false, true, true, &order));
  EXPECT_EQ(TrimmedCells(*data), (Cells{{4, 1}, {1, 2}, {3, 2}, {4, 2}}));
  ASSERT_TRUE(data->ResetDatasetFromTrimming(false, 2));
  EXPECT_EQ(ColumnByID(*data, 2), (Column{{15, 50}, {13, 30}, {11, 10}, {14, 40}}));
  EXPECT_EQ(TrimmedCells(*data), (Cells{{4, 1}}));

  // The trimmed column goes: its records stay for a reset of the whole dataset, but no cell
  // of the dataset counts as trimmed any more.
  NCIntegralVector<int, -99> column(1, 1);
  ASSERT_TRUE(data->RemoveVariable(&column, false, true));
  EXPECT_EQ(PreTrim(*data, 101, 14), 4.0F);
  EXPECT_TRUE(TrimmedCells(*data).empty());
  ASSERT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_FALSE(data->GetIsTrimmed());
  EXPECT_EQ(ColumnByID(*data, 1), (Column{{15, 50}, {13, 30}, {11, 10}, {14, 40}}));
}

}  // namespace
