#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::WriteToString;
using Values = std::vector<float>;
using UIDs = std::vector<unsigned long>;

// A project with observations `names` (unique IDs 1, 2, ...) and variables 101..110.
boost::shared_ptr<NCProject> Project(const std::vector<std::string>& names) {
  auto project = NCProject::Create();
  for (std::size_t k = 0; k < names.size(); ++k)
    project->GetObservations().Add(std::make_unique<ObservationInfo>(names[k], k + 1));
  for (unsigned long id = 101; id <= 110; ++id)
    project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(std::to_string(id), id));
  return project;
}

// Dataset `number` ("D<number>") with the observations `rows`, variables `vars` and a column of
// values per variable.
boost::shared_ptr<NCDataSet> MakeDataSet(const boost::shared_ptr<NCProject>& project, int number,
                                         const UIDs& rows, const UIDs& vars,
                                         const std::vector<Values>& columns) {
  VarObsInfoVector<ObservationInfo> infos;
  for (const unsigned long id : rows) infos.push_back(project->GetObservations()[id]);
  NCDataMatrix<float> values(rows.size(), vars.size());
  NCIntegralVector<unsigned long, 0> ids;
  for (std::size_t j = 0; j < vars.size(); ++j) {
    ids.push_back(vars[j]);
    for (std::size_t i = 0; i < rows.size(); ++i) values(i, j) = columns[j][i];
  }
  return NCDataSet::Create(project, ("D" + std::to_string(number)).c_str(), number, &values,
                           std::move(infos), &ids, {1}, {1}, nullptr, nullptr, nullptr);
}

Values Column(const NCDataSet& data, int var) {
  Values values;
  for (int obs = 1; obs <= data.SizeObservations(); ++obs)
    values.push_back(data.GetValue(obs, var));
  return values;
}

// The rows' unique IDs, checked against their records.
UIDs RowIDs(const NCDataSet& data) {
  EXPECT_EQ(data.GetObservationIDs(), data.GetObservationInfoVector().GetUniqueIDs());
  return UIDs(data.GetObservationIDs().begin(), data.GetObservationIDs().end());
}

UIDs VarIDs(const NCDataSet& data) {
  const auto ids = data.GetVarIDs();
  return UIDs(ids.begin(), ids.end());
}

class AnsweringUserComm : public UserComm {
 public:
  explicit AnsweringUserComm(int answer) : answer(answer) {}
  void ShowMessages(const ExceptionMessageList&, const std::string&) override {}
  int AskQuestion(const ExceptionMessageList& messages, const std::string& caption, bool) override {
    asked += caption + ":";
    for (const auto& message : messages.GetMessages()) asked += message.GetText() + "|";
    return answer;
  }
  int answer;
  std::string asked;
};

}  // namespace

TEST(NCDataSetMerge, MatchesRowsByIDThenByNameAndReportsWhatItDid) {
  // Observation 5 is another record named like o1, ignoring case.
  const auto project = Project({"o1", "o2", "o3", "o4", "O1", "o6"});
  const auto data = MakeDataSet(project, 2, {1, 2, 3}, {101, 102}, {{1, 2, 3}, {10, 20, 30}});
  const auto other =
      MakeDataSet(project, 3, {3, 5, 4, 2}, {103, 102}, {{300, 100, 400, -99}, {31, 11, 41, -99}});
  int raised = 0;
  const boost::signals2::scoped_connection connection =
      NCSignals::ConnectDatasetMerged([&](NCDataSet* which, DatasetMergeInfo& info) {
        raised += which == data.get();
        info.messages.push_back("seen");
      });
  WriteToString(*data);  // clears the dirty flag
  DatasetMergeInfo info;
  ASSERT_TRUE(data->Merge(*other, false, false, &info));
  EXPECT_TRUE(data->IsDirty());
  EXPECT_EQ(RowIDs(*data), (UIDs{1, 2, 3, 4}));
  EXPECT_EQ(VarIDs(*data), (UIDs{101, 102, 103}));
  EXPECT_EQ(Column(*data, 1), (Values{1, 2, 3, -99}));
  EXPECT_EQ(Column(*data, 2), (Values{10, 20, 30, 41}));
  EXPECT_EQ(Column(*data, 3), (Values{100, -99, 300, 400}));
  EXPECT_EQ(raised, 1);
  EXPECT_EQ(info.mergedDatasetName, "D3");
  EXPECT_EQ(std::make_pair(info.variablesAdded, info.observationsAdded), std::make_pair(1UL, 1UL));
  EXPECT_NE(std::find(info.messages.begin(), info.messages.end(),
                      "Observations matched by primary ID: 1"),
            info.messages.end());
  EXPECT_EQ(info.messages.back(), "seen") << "the caller receives what subscribers added";

  // Again, overwriting: nothing is added, cells take other's values but for its missing one.
  ASSERT_TRUE(data->Merge(*other, true, false, &info));
  EXPECT_EQ(RowIDs(*data), (UIDs{1, 2, 3, 4}));
  EXPECT_EQ(data->SizeVariables(), 3);
  EXPECT_EQ(Column(*data, 2), (Values{11, 20, 31, 41}));
  EXPECT_EQ(std::make_pair(info.variablesAdded, info.observationsAdded), std::make_pair(0UL, 0UL));

  // The same rows in the same order and one more.
  const auto more =
      MakeDataSet(project, 4, {1, 2, 3, 4, 6}, {104, 101}, {{1, 2, 3, 4, 5}, {-99, 7, -99, 8, 9}});
  ASSERT_TRUE(data->Merge(*more, true, false));
  EXPECT_EQ(RowIDs(*data), (UIDs{1, 2, 3, 4, 6}));
  EXPECT_EQ(VarIDs(*data), (UIDs{101, 102, 103, 104}));
  EXPECT_EQ(Column(*data, 1), (Values{1, 7, 3, 8, 9}));
  EXPECT_EQ(Column(*data, 2), (Values{11, 20, 31, 41, -99}));
  EXPECT_EQ(Column(*data, 4), (Values{1, 2, 3, 4, 5}));

  // Keeping fills missing cells and keeps the others.
  const auto gaps = MakeDataSet(project, 5, {2, 1}, {103}, {{5, 6}});
  ASSERT_TRUE(data->Merge(*gaps, false, false));
  EXPECT_EQ(Column(*data, 3), (Values{100, 5, 300, 400, -99}));
}

TEST(NCDataSetMerge, RefusalsChangeNothing) {
  const auto project = Project({"a", "b", "c"});
  const auto data = MakeDataSet(project, 2, {1, 2}, {101}, {{1, 2}});
  const auto other = MakeDataSet(project, 3, {2, 3}, {102}, {{5, 6}});
  const auto foreign = MakeDataSet(Project({"a"}), 2, {1}, {101}, {{7}});
  EXPECT_THROW(data->Merge(*data, true, false), InvalidArgument);
  EXPECT_THROW(data->Merge(*foreign, true, false), InvalidArgument);

  // The change check refuses; it reaches the user only with `confirm`.
  AnsweringUserComm user(UserComm::kNo);
  const ScopedUserComm installed(&user);
  int checks = 0;
  project->SetChangeCheck([&](int number, const NCIntegralVector<unsigned long, 0>& ids) {
    EXPECT_TRUE(number == 2 && ids.empty()) << "the whole dataset";
    ++checks;
    UserComm::GetUserComm()->AskQuestion(ExceptionMessageList(), "check", true);
    return false;
  });
  const std::string before = WriteToString(*data);
  EXPECT_FALSE(data->Merge(*other, true, false));
  EXPECT_EQ(user.asked, "") << "muted";
  EXPECT_FALSE(data->Merge(*other, true, true));
  EXPECT_EQ(user.asked, "check:");
  EXPECT_FALSE(data->IsDirty());
  EXPECT_EQ(WriteToString(*data), before);

  // Trimmed: the user is asked first, and "no" aborts before the change check.
  ASSERT_TRUE(data->SetValue(1, 1, 9.0F, true, false, false));
  data->SetTrimValues(1, 9.0F);
  const std::string trimmed = WriteToString(*data);
  user.asked.clear();
  try {
    data->Merge(*other, true, false);
    ADD_FAILURE() << "not aborted";
  } catch (const NCError& error) {
    EXPECT_EQ(error.GetLevel(), NCError::Error);
    EXPECT_STREQ(error.what(), "Merge of datasets aborted.");
  }
  EXPECT_EQ(user.asked,
            "Merge Datasets:Dataset trimming cannot be undone after merging.|Do you which to "
            "continue?|");
  EXPECT_EQ(checks, 2);
  EXPECT_EQ(WriteToString(*data), trimmed);

  // "Yes" and an accepting check: merged, and the trim record is gone.
  user.answer = UserComm::kYes;
  project->SetChangeCheck(nullptr);
  ASSERT_TRUE(data->Merge(*other, false, false));
  EXPECT_FALSE(data->GetIsTrimmed());
  EXPECT_TRUE(data->GetTrimRecords().empty());
  EXPECT_EQ(Column(*data, 1), (Values{9, 2, -99}));
  EXPECT_EQ(Column(*data, 2), (Values{-99, 5, 6}));
}

TEST(NCDataSetMerge, BatchRowsJoinTheirBatchesAndTheStructureSurvivesAStream) {
  ncds::test::BatchRows batch({{"B1", "P1", 2}, {"B1", "P2", 1}, {"B2", "P1", 2}});
  NCDataSet& data = *batch.dataSet;
  BatchInfoVector excluded = *data.GetBatchInfoVector();
  excluded[1]->SetIncluded(false);
  data.SetBatchInfoVector(&excluded);
  UIDs rows = {data.GetObservationIDs()[0]};  // o1, already here
  for (const std::vector<std::string>& ids : std::vector<std::vector<std::string>>{
           {"n1", "B2", "P2"}, {"n2", "B3", "P1"}, {"n3", "B1", "P2"}, {"n4", "B3", "P3"}}) {
    rows.push_back(batch.project->CreateUniqueID());
    batch.project->GetObservations().Add(std::make_unique<ObservationInfo>(ids, rows.back()));
  }
  const auto other =
      MakeDataSet(batch.project, 2, rows, {data.GetVarID(1)}, {{99, 50, 60, 70, 80}});
  ASSERT_TRUE(data.Merge(*other, false, false));
  // o1 keeps its 0; n3 follows B1, n1 follows B2, the new batch B3 comes last.
  EXPECT_EQ(batch.Values(), (Values{0, 1, 2, 70, 3, 4, 50, 60, 80}));

  const auto describe = [](const NCDataSet& dataSet) {
    std::string text;
    for (const auto& b : *dataSet.GetBatchInfoVector()) {
      text += b->GetBatchName() + (b->IsIncluded() ? "" : "(excluded)") + ":";
      for (const auto& phase : *b->GetClassVector())
        text += phase->GetPhaseName() + " " + std::to_string(phase->GetNumObs()) + " ";
    }
    for (const auto& phase : *dataSet.GetPhaseInfoVector()) text += phase->GetPhaseName();
    return text;
  };
  const std::string expected = "B1:P1 2 P2 2 B2(excluded):P1 2 P2 1 B3:P1 1 P3 1 P1P2P3";
  EXPECT_EQ(describe(data), expected);
  EXPECT_FALSE(data.IsBatchInfoVecDirty());
  const auto read = NCDataSet::Create(batch.project, 1);
  ASSERT_TRUE(ncds::test::ReadFromString(WriteToString(data), *read));
  EXPECT_EQ(describe(*read), expected);
  EXPECT_EQ(RowIDs(*read), RowIDs(data));
  EXPECT_EQ(Column(*read, 1), batch.Values());
}
