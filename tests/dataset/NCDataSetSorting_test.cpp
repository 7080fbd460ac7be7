#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using Columns = std::vector<std::vector<float>>;

// Dataset 2 of `project`: a column per entry of `columns` (variables 101, 102, ...), a row per
// value, with observations 1, 2, ... whose series 2 holds `labels[row]` when given.
boost::shared_ptr<NCDataSet> MakeDataSet(const boost::shared_ptr<NCProject>& project,
                                         const Columns& columns,
                                         const std::vector<std::string>& labels = {}) {
  NCObservations& observations = project->GetObservations();
  observations.AddSecondaryID("Label");
  const std::size_t rows = columns.empty() ? labels.size() : columns[0].size();
  VarObsInfoVector<ObservationInfo> infos;
  for (std::size_t i = 0; i < rows; ++i) {
    std::vector<std::string> ids{"O" + std::to_string(i)};
    if (i < labels.size()) ids.push_back(labels[i]);
    infos.push_back(observations.Add(std::make_unique<ObservationInfo>(ids, 1 + i)));
  }
  NCIntegralVector<unsigned long, 0> varIDs;
  for (std::size_t j = 0; j < columns.size(); ++j) {
    project->GetVariables().Add(
        std::make_unique<QuantitativeVariableInfo>("V" + std::to_string(j), 101 + j));
    varIDs.push_back(101 + j);
  }
  auto data = NCDataSet::Create(project, 2);
  data->AddVariables(&varIDs, 0, false);
  data->AddObservationInfos(infos, 0, false);
  for (std::size_t j = 0; j < columns.size() && rows != 0; ++j) {
    EXPECT_TRUE(data->SetColValues(columns[j].data(), static_cast<int>(j + 1)));
  }
  return data;
}

bool IsMissing(float value) { return value == -99.0F || std::isnan(value); }

// The reference order: std::stable_sort by the keys in turn, missing values (and NaN) last.
std::vector<int> Reference(const Columns& keys, bool ascending) {
  std::vector<int> order(keys[0].size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
    for (const auto& key : keys) {
      if (IsMissing(key[a]) || IsMissing(key[b])) {
        if (IsMissing(key[a]) != IsMissing(key[b])) return IsMissing(key[b]);
      } else if (key[a] != key[b]) {
        return ascending ? key[a] < key[b] : key[a] > key[b];
      }
    }
    return false;
  });
  return order;
}

// The rows as former row numbers, read from their records, after checking that each row's
// values are still those that `columns` give the row its record came from.
std::vector<int> FormerRows(const NCDataSet& data, const Columns& columns) {
  std::vector<int> former;
  for (const ObservationInfo* info : data.GetObservationInfoVector()) {
    const int row = static_cast<int>(info->GetUniqueID()) - 1;
    former.push_back(row);
    for (std::size_t j = 0; j < columns.size(); ++j) {
      const float value = data.GetValue(static_cast<int>(former.size()), static_cast<int>(j + 1));
      EXPECT_TRUE(std::isnan(value) ? std::isnan(columns[j][row]) : value == columns[j][row])
          << "row " << former.size() << " came from " << row;
    }
  }
  return former;
}

std::vector<int> AsStd(const NCIntegralVector<int, -99>& order) {
  return std::vector<int>(order.begin(), order.end());
}

NCIntegralVector<int, -99> Order(const std::vector<int>& rows) {
  NCIntegralVector<int, -99> order;
  for (const int row : rows) order.push_back(row);
  return order;
}

// The text of the NCError that `call` throws.
std::string ErrorText(const std::function<void()>& call) {
  try {
    call();
  } catch (const NCError& error) {
    return error.GetMessages().GetMessages().front().GetText();
  }
  return "(nothing thrown)";
}

class RecordingUserComm : public UserComm {
 public:
  void ShowMessages(const ExceptionMessageList& messages, const std::string& caption) override {
    log += caption + "|" + messages.str() + ";";
  }
  int AskQuestion(const ExceptionMessageList&, const std::string&, bool) override { return kNo; }
  std::string log;
};

}  // namespace

TEST(NCDataSetSorting, ValueOrdersMatchAStableReference) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  // Few distinct values so that ties abound; both zeros compare equal and keep their order.
  const float pool[] = {-99.0F, std::nanf(""), -kInf, kInf, -0.0F, 0.0F,
                        -1e30F, 1e-30F,        1,     2,    3,     -2.5F};
  std::mt19937 random(7);
  // 40 rows sort by comparison, 3000 by radix.
  for (const std::size_t rows : {std::size_t{0}, std::size_t{40}, std::size_t{3000}}) {
    Columns columns(3, std::vector<float>(rows));
    for (auto& column : columns) {
      for (float& value : column) value = pool[random() % std::size(pool)];
    }
    for (const bool ascending : {true, false}) {
      SCOPED_TRACE(testing::Message() << rows << " rows, ascending " << ascending);
      const auto project = NCProject::Create();
      const auto data = MakeDataSet(project, columns);
      for (int column = 1; column <= 3; ++column) {
        EXPECT_EQ(AsStd(data->GetSortOrder(column, true, ascending, false)),
                  Reference({columns[column - 1]}, ascending));
      }
      // By the third variable, then the first; naming one twice changes nothing.
      NCIntegralVector<unsigned long, 0> ids;
      for (const unsigned long id : {103UL, 101UL, 103UL}) ids.push_back(id);
      ASSERT_TRUE(data->SortDataset(ids, ascending));
      EXPECT_EQ(FormerRows(*data, columns), Reference({columns[2], columns[0]}, ascending));
    }
  }
}

TEST(NCDataSetSorting, IDOrdersCompareTextIgnoringCaseOrAsNumbers) {
  const auto project = NCProject::Create();
  const auto data = MakeDataSet(project, {},
                                {"b", "A", "", "a", "B", "observation_B", "Observation_a",
                                 "abcdefghi", "ABCDEFGH", "10", "9", "-3", "x1", " 2 ", "1e1"});
  const auto order = [&](bool ascending, bool numeric) {
    return AsStd(data->GetSortOrder(2, false, ascending, numeric));
  };
  // As text, ignoring case; IDs that agree keep their order, the row without an ID goes last.
  EXPECT_EQ(order(true, false),
            (std::vector<int>{13, 11, 9, 14, 10, 1, 3, 8, 7, 0, 4, 6, 5, 12, 2}));
  EXPECT_EQ(order(false, false),
            (std::vector<int>{12, 5, 6, 0, 4, 7, 8, 1, 3, 10, 14, 9, 11, 13, 2}));
  // As numbers ("1e1" is 10 too); the rest last in their own order.
  EXPECT_EQ(order(true, true),
            (std::vector<int>{11, 13, 10, 9, 14, 0, 1, 2, 3, 4, 5, 6, 7, 8, 12}));
  EXPECT_EQ(order(false, true),
            (std::vector<int>{9, 14, 10, 13, 11, 0, 1, 2, 3, 4, 5, 6, 7, 8, 12}));
}

TEST(NCDataSetSorting, RowsRecordsValuesAndTrimRecordsMoveTogether) {
  const auto project = NCProject::Create();
  const Columns columns = {{3, -99, 1, 2}, {30, 40, 10, 20}};
  const auto data = MakeDataSet(project, columns);
  // O1's 40 is trimmed to 99. A trim of O0 in column 1, undone at once, has the sort flags
  // computed while the rows are still in ID order.
  for (const int column : {1, 2}) {
    ASSERT_TRUE(data->SetValue(column, column, 99.0F, true, false, false));
    data->SetTrimValues(column, 99.0F);
  }
  ASSERT_TRUE(data->ResetDatasetFromTrimming(false, 1));
  int deleted = 0;
  const boost::signals2::scoped_connection connection =
      NCSignals::ConnectVarObsDeleted([&](NCDataSet* which) { deleted += which == data.get(); });

  ASSERT_TRUE(data->SortDataset(1, true, false, false, nullptr));
  Columns trimmed = columns;
  trimmed[1][1] = 99.0F;
  EXPECT_EQ(FormerRows(*data, trimmed), (std::vector<int>{0, 3, 2, 1}));
  EXPECT_EQ(deleted, 1);
  EXPECT_TRUE(data->IsBatchInfoVecDirty());
  // Out of ID order now, O1 is found by its ID and gets its value back.
  ASSERT_TRUE(data->ResetDatasetFromTrimming(true, 0));
  EXPECT_EQ(FormerRows(*data, columns), (std::vector<int>{0, 3, 2, 1}));

  // A given order: row i becomes former row order[i].
  const NCIntegralVector<int, -99> order = Order({3, 0, 2, 1});
  ASSERT_TRUE(data->SortDataset(1, true, true, false, &order));
  EXPECT_EQ(FormerRows(*data, columns), (std::vector<int>{1, 0, 2, 3}));
  EXPECT_EQ(deleted, 2);
}

TEST(NCDataSetSorting, RefusalsAndUnresolvableKeysChangeNothing) {
  auto project = NCProject::Create();
  const Columns columns = {{2, 1, 3}, {5, 6, 4}};
  const auto data = MakeDataSet(project, columns, {"c", "b", "a"});
  const NCIntegralVector<unsigned long, 0> byFirst(1, 101);
  RecordingUserComm user;
  const ScopedUserComm installed(&user);

  const std::string refusal = "Sort Dataset|Sorting of batch datasets are not allowed;";
  project->GetObservations().SetBatchID(2);
  EXPECT_FALSE(data->SortDataset(1, true, true, false, nullptr));
  EXPECT_FALSE(data->SortDataset(byFirst, true));
  // An unknown key is refused the same way: the batch refusal comes first.
  EXPECT_FALSE(data->SortDataset(NCIntegralVector<unsigned long, 0>(1, 999), true));
  EXPECT_EQ(user.log, refusal + refusal + refusal);
  project->GetObservations().SetBatchID(0);

  // While models depend on the project, the change check decides; it refuses twice here.
  int asked = 0;
  project->SetChangeCheck([&](int number, const NCIntegralVector<unsigned long, 0>&) {
    EXPECT_EQ(number, 2);
    return ++asked > 2;
  });
  project->SetDependencyCount(1);
  EXPECT_FALSE(data->SortDataset(1, true, true, false, nullptr));
  EXPECT_FALSE(data->SortDataset(byFirst, true));
  project->SetDependencyCount(0);

  const auto orderOf = [&](int key, bool byVariable) {
    return [&data, key, byVariable] { data->GetSortOrder(key, byVariable, true, false); };
  };
  EXPECT_EQ(ErrorText(orderOf(0, true)), "Invalid variable number");
  EXPECT_EQ(ErrorText(orderOf(3, true)), "Invalid variable number");
  EXPECT_EQ(ErrorText(orderOf(0, false)), "Invalid observation ID");
  EXPECT_EQ(ErrorText(orderOf(3, false)), "Invalid observation ID") << "two series only";
  NCIntegralVector<unsigned long, 0> ids(1, 102);
  ids.push_back(999);
  EXPECT_EQ(ErrorText([&] { data->SortDataset(ids, true); }), "Invalid variable ID");
  for (const std::vector<int>& rows :
       std::vector<std::vector<int>>{{0, 1}, {0, 1, 1}, {0, 1, 3}, {-1, 0, 1}, {2, 1, 0, 3}}) {
    const NCIntegralVector<int, -99> order = Order(rows);
    EXPECT_EQ(ErrorText([&] { data->SortDataset(1, true, true, false, &order); }),
              "Invalid observation number");
  }
  EXPECT_EQ(FormerRows(*data, columns), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(user.log, refusal + refusal + refusal) << "only batch data is refused with a message";

  EXPECT_TRUE(data->SortDataset(byFirst, true));
  EXPECT_EQ(asked, 2) << "nothing depends on the project: nobody is asked";
  project->SetDependencyCount(1);
  EXPECT_TRUE(data->SortDataset(2, true, true, false, nullptr));
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(FormerRows(*data, columns), (std::vector<int>{2, 0, 1}));

  project.reset();  // the ID series cannot be resolved without the project
  EXPECT_EQ(ErrorText(orderOf(1, false)), "Invalid observation ID");
}
