#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"
#include "tools/ncds/CsvImport.h"

using ncds::tool::CsvImportOptions;
namespace CsvImport = ncds::tool::CsvImport;

namespace {

boost::shared_ptr<NCDataSet> Import(const boost::shared_ptr<NCProject>& project,
                                    const std::string& text, const CsvImportOptions& options = {}) {
  return CsvImport::ImportText(project, text, "dir/data.csv", options);
}

// The message of the error the import throws; empty when it succeeds.
std::string ImportError(const boost::shared_ptr<NCProject>& project, const std::string& text,
                        const CsvImportOptions& options = {}) {
  try {
    Import(project, text, options);
  } catch (const NCError& e) {
    return e.what();
  }
  return std::string();
}

std::vector<float> Column(const NCDataSet& data, int var) {
  std::vector<float> values;
  for (int obs = 1; obs <= data.SizeObservations(); ++obs)
    values.push_back(data.GetValue(obs, var));
  return values;
}

std::vector<std::string> PrimaryIDs(const NCDataSet& data, int series = 1) {
  std::vector<std::string> ids;
  for (int obs = 1; obs <= data.SizeObservations(); ++obs) {
    ids.push_back(data.GetObservationInfo(obs)->GetUserID(series));
  }
  return ids;
}

// Everything a failed import must leave as it was: the containers' streams and dirty flags
// (one of each, as writing clears them) and the datasets.
struct Snapshot {
  explicit Snapshot(NCProject& project)
      : variables(ncds::test::WriteToString(project.GetVariables())),
        observations(ncds::test::WriteToString(project.GetObservations())),
        dataSets(project.GetDataSetNumbers()) {
    project.GetVariables().SetIsDirty(true);
  }
  std::string variables;
  std::string observations;
  std::vector<int> dataSets;
};

void ExpectUnchanged(const Snapshot& before, NCProject& project) {
  EXPECT_TRUE(project.GetVariables().IsDirty());
  EXPECT_FALSE(project.GetObservations().IsDirty());
  EXPECT_EQ(ncds::test::WriteToString(project.GetVariables()), before.variables);
  EXPECT_EQ(ncds::test::WriteToString(project.GetObservations()), before.observations);
  EXPECT_EQ(project.GetDataSetNumbers(), before.dataSets);
}

// A project that does not store datasets.
class RefusingProject : public NCProject {
 public:
  static boost::shared_ptr<RefusingProject> Create() {
    return boost::shared_ptr<RefusingProject>(new RefusingProject());
  }
  bool SaveDataSet(boost::shared_ptr<NCDataSet const>) override { return false; }
};

}  // namespace

TEST(CsvImport, ColumnKindsFollowTheirCells) {
  const auto project = NCProject::Create();
  CsvImportOptions options;
  options.missingTexts = {"NA"};
  // Lot turns qualitative and Day a date-time only after cells of another kind, which
  // takes the second pass over the file.
  const auto data = Import(project,
                           "Num,Level,When,Empty,Lot,Day\n"
                           "1.5, high ,2024-03-05T10:00:00,,2301,20240305\n"
                           "NA,Low,2024-03-05T10:30:00,,2302,2024-03-06\n"
                           "-2e3,HIGH,\"\",NA,A17, \n",
                           options);
  ASSERT_EQ(data->SizeVariables(), 6);
  ASSERT_EQ(data->SizeObservations(), 3);
  EXPECT_EQ(data->GetNumber(), 1);
  EXPECT_STREQ(data->GetName(), "data");
  EXPECT_EQ(project->GetDataContainer(1), data);

  EXPECT_TRUE(data->GetVariableInfo(1)->AsQuantitativeVariableInfo());
  EXPECT_EQ(Column(*data, 1), (std::vector<float>{1.5F, -99.0F, -2000.0F}));

  const QualitativeVariableInfo* level = data->GetVariableInfo(2)->AsQualitativeVariableInfo();
  ASSERT_TRUE(level);
  EXPECT_EQ(level->GetSettings().GetVector(), (std::vector<std::string>{"high", "Low"}))
      << "levels trimmed, in order of first appearance, equal ignoring case";
  EXPECT_EQ(Column(*data, 2), (std::vector<float>{1.0F, 2.0F, 1.0F}));

  const DateTimeVariableInfo* when = data->GetVariableInfo(3)->AsDateTimeVariableInfo();
  ASSERT_TRUE(when);
  EXPECT_EQ(when->GetTimeAccuracy(), VxTimeUtl::eMinute);
  EXPECT_EQ(when->GetDateTimeOffset(), VxTimeUtl::SimpDateTime(2024, 3, 5, 10));
  EXPECT_EQ(Column(*data, 3), (std::vector<float>{0.0F, 30.0F, -99.0F}));
  EXPECT_EQ(data->GetStrValue(2, 3), "2024-03-05T10:30:00");

  EXPECT_TRUE(data->GetVariableInfo(4)->AsQuantitativeVariableInfo()) << "no values at all";
  EXPECT_EQ(Column(*data, 4), (std::vector<float>{-99.0F, -99.0F, -99.0F}));

  const QualitativeVariableInfo* lot = data->GetVariableInfo(5)->AsQualitativeVariableInfo();
  ASSERT_TRUE(lot);
  EXPECT_EQ(lot->GetSettings().GetVector(), (std::vector<std::string>{"2301", "2302", "A17"}));
  EXPECT_EQ(Column(*data, 5), (std::vector<float>{1.0F, 2.0F, 3.0F}));

  const DateTimeVariableInfo* day = data->GetVariableInfo(6)->AsDateTimeVariableInfo();
  ASSERT_TRUE(day);
  EXPECT_EQ(day->GetTimeAccuracy(), VxTimeUtl::eDay);
  EXPECT_EQ(day->GetDatasetFormat(), "yyyy-MM-dd");
  EXPECT_EQ(Column(*data, 6), (std::vector<float>{0.0F, 1.0F, -99.0F}));
  EXPECT_EQ(data->GetStrValue(2, 6), "2024-03-06");

  // Without ID columns the primary IDs are the row numbers.
  EXPECT_EQ(PrimaryIDs(*data), (std::vector<std::string>{"1", "2", "3"}));

  // Separator ';', decimal comma, a byte order mark and CRLF.
  CsvImportOptions european;
  european.separator = ';';
  european.decimal = ',';
  european.name = "EU";
  const auto eu = Import(project, "\xEF\xBB\xBFx;\"y;z\"\r\n1,25;\"a;b\"\r\n-0,5;c\r\n", european);
  EXPECT_STREQ(eu->GetName(), "EU");
  EXPECT_EQ(eu->GetNumber(), 2);
  EXPECT_EQ(Column(*eu, 1), (std::vector<float>{1.25F, -0.5F}));
  EXPECT_EQ(eu->GetVariableInfo(2)->GetUserID(1), "y;z");
  EXPECT_EQ(eu->GetStrValue(1, 2), "a;b");
  EXPECT_NE(eu->GetImportLog().find("dir/data.csv"), std::string::npos);
}

TEST(CsvImport, IDSeriesAndUniqueNames) {
  const auto project = NCProject::Create();
  CsvImportOptions options;
  options.idColumns = {"ID", "Batch"};
  const auto first = Import(project, "ID,Batch,x\na,B1,1\n", options);
  const int batchSeries = project->GetObservations().SizeAliases();
  EXPECT_EQ(project->GetObservations().GetIDLabelRaw(batchSeries), "Batch");

  // Primary IDs are made unique within the dataset, ignoring case (the first import's "a" does
  // not count); an empty one is the row number first. The Batch series is found again.
  const auto data =
      Import(project,
             "x,ID,Batch,x,\n"
             "1,a,B1,2,3\n2,A,B2,3,4\n3,a_1,B2,4,5\n4,,,5,6\n5,b,B3,6,7\n6,b,B3,7,8\n",
             options);
  EXPECT_EQ(project->GetObservations().SizeAliases(), batchSeries);
  EXPECT_EQ(PrimaryIDs(*data), (std::vector<std::string>{"a", "A_1", "a_1_1", "4", "b", "b_1"}));
  EXPECT_EQ(PrimaryIDs(*data, batchSeries),
            (std::vector<std::string>{"B1", "B2", "B2", "", "B3", "B3"}));
  // The ID column keeps its values, as they were, in a series of its header's name.
  EXPECT_EQ(data->GetUsedObsAliases(), (std::vector<int>{1, batchSeries - 1, batchSeries}));
  EXPECT_EQ(project->GetObservations().GetIDLabelRaw(batchSeries - 1), "ID");
  EXPECT_EQ(PrimaryIDs(*data, batchSeries - 1),
            (std::vector<std::string>{"a", "A", "a_1", "", "b", "b"}));
  EXPECT_EQ(data->GetObservationID(2, 3), "B2");

  // Exactly the names the container's own rule gives, one record after the other.
  const auto check = NCProject::Create();
  NCObservations& observations = check->GetObservations();
  const auto lookup = observations.GetInfosByUserID(1);
  for (const char* wanted : {"a", "A", "a_1", "4", "b", "b"}) {
    observations.Add(
        std::make_unique<ObservationInfo>(VarObs::GetUniquePrimaryID(wanted, *lookup, nullptr),
                                          check->CreateUniqueID()),
        lookup.get());
  }
  std::vector<std::string> expected;
  for (const auto& entry : observations) expected.push_back(entry.second->GetUserID(1));
  EXPECT_EQ(PrimaryIDs(*data), expected);

  // Variables: the first "x" is the project's, the repeated header a new one; an empty header
  // gets the default name. Values stay with their columns.
  std::vector<std::string> names;
  for (int var = 1; var <= data->SizeVariables(); ++var) {
    names.push_back(data->GetVariableInfo(var)->GetUserID(1));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"x", "x_1", "New_Var"}));
  EXPECT_EQ(data->GetVarID(1), first->GetVarID(1));
  EXPECT_EQ(Column(*data, 2), (std::vector<float>{2, 3, 4, 5, 6, 7}));

  // Many equal IDs stay cheap and come out numbered in order.
  std::string many = "ID\n";
  for (int k = 0; k < 20000; ++k) many += "same\n";
  CsvImportOptions primaryOnly;
  primaryOnly.idColumns = {"ID"};
  const auto same = Import(project, many, primaryOnly);
  EXPECT_EQ(same->GetObservationInfo(1)->GetUserID(1), "same");
  EXPECT_EQ(same->GetObservationInfo(20000)->GetUserID(1), "same_19999");
}

TEST(CsvImport, ASecondFileSharesTheProjectsVariables) {
  const auto project = NCProject::Create();
  const auto first = Import(project, "t,Grade,Temp\n2024-01-01,low,1\n2024-01-02,high,2\n");
  const std::size_t variableCount = project->GetVariables().size();

  // Names match ignoring case; levels merge (HIGH is high, medium is new); date-times count
  // from the variable's offset in its unit (days).
  const auto second =
      Import(project, "temp,grade,T2,t\n3,HIGH,5,2024-01-03\n4,medium,6,2024-01-01T12:00\n");
  EXPECT_EQ(project->GetVariables().size(), variableCount + 1);  // T2 only
  EXPECT_EQ(second->GetVarIDs()[0], first->GetVarIDs()[2]);
  EXPECT_EQ(second->GetVarIDs()[1], first->GetVarIDs()[1]);
  EXPECT_EQ(second->GetVarIDs()[3], first->GetVarIDs()[0]);
  const auto* grade = second->GetVariableInfo(2)->AsQualitativeVariableInfo();
  EXPECT_EQ(grade->GetSettings().GetVector(), (std::vector<std::string>{"low", "high", "medium"}));
  EXPECT_EQ(Column(*second, 2), (std::vector<float>{2, 3}));
  EXPECT_EQ(Column(*first, 2), (std::vector<float>{1, 2}));
  EXPECT_EQ(Column(*second, 4), (std::vector<float>{2, 0.5F}));
  EXPECT_EQ(project->GetVariables()[second->GetVarIDs()[3]]->Decode(2), "2024-01-03");

  // A kind clash is refused, naming the column and both kinds, and changes nothing, also when
  // an earlier column's levels would merge; a refusal after the merge takes the levels back.
  for (const char* text : {"Grade\n1\n", "grade,Temp\nnew,1\nnewer,x\n"}) {
    const Snapshot before(*project);
    EXPECT_NE(ImportError(project, text), "") << text;
    ExpectUnchanged(before, *project);
  }
  EXPECT_EQ(ImportError(project, "Grade\n1\n"),
            "The column \"Grade\" is quantitative, but the project's variable \"Grade\" is "
            "qualitative: rename the column, or import with --rename-clashes.");
  project->SetChangeCheck([](int, const NCIntegralVector<unsigned long, 0>&) { return false; });
  {
    const Snapshot before(*project);
    EXPECT_NE(ImportError(project, "Grade,new\nnewest,1\n"), "");
    ExpectUnchanged(before, *project);
    EXPECT_EQ(grade->SizeSettings(), 3);
  }
  project->SetChangeCheck(nullptr);
  CsvImportOptions rename;
  rename.renameClashes = true;
  const auto renamed = Import(project, "Grade,Temp\n1,2\n", rename);
  EXPECT_EQ(renamed->GetVariableInfo(1)->GetUserID(1), "Grade_1");
  EXPECT_EQ(renamed->GetVarIDs()[1], first->GetVarIDs()[2]);
}

TEST(CsvImport, BatchFilesOfOneProcessShareSeriesAndRowNames) {
  const auto project = NCProject::Create();
  CsvImportOptions options;
  options.batchColumn = "BATCH NUMBER";
  options.phaseColumn = "Phase";
  const auto first = Import(project, "BATCH NUMBER,Phase,x\nB1,P1,1\nB1,P2,2\n", options);
  const NCObservations& observations = project->GetObservations();
  const int series = observations.SizeAliases();

  // Another header for the batch (and phase) column fills the project's series, and says so.
  options.batchColumn = "batch_id";
  options.phaseColumn = "step";
  CsvImport::Notes notes;
  const auto second = CsvImport::ImportText(project, "x,batch_id,step\n3,B1,P1\n4,B2,P3\n",
                                            "dir/data.csv", options, &notes);
  EXPECT_EQ(observations.SizeAliases(), series);
  EXPECT_EQ(notes, (CsvImport::Notes{
                       "The column \"batch_id\" names the batches of the series \"BATCH NUMBER\".",
                       "The column \"step\" names the phases of the series \"Phase\"."}));
  EXPECT_EQ(second->GetUsedObsAliases(), first->GetUsedObsAliases());
  EXPECT_EQ(PrimaryIDs(*second, observations.GetBatchIDRaw()),
            (std::vector<std::string>{"B1", "B2"}));
  EXPECT_EQ(PrimaryIDs(*second, observations.GetPhaseIDRaw()),
            (std::vector<std::string>{"P1", "P3"}));
  // Rows keep the names their batches give them, as in the first file.
  EXPECT_EQ(PrimaryIDs(*first), (std::vector<std::string>{"B1_001", "B1_002"}));
  EXPECT_EQ(PrimaryIDs(*second), (std::vector<std::string>{"B1_001", "B2_001"}));
  EXPECT_EQ(second->GetVarIDs()[0], first->GetVarIDs()[0]);

  // An ID column that would fill the batch series as well is refused.
  options.idColumns = {"BATCH NUMBER"};
  const Snapshot before(*project);
  EXPECT_EQ(ImportError(project, "BATCH NUMBER,batch_id,step,x\na,B1,P1,1\n", options),
            "The columns \"BATCH NUMBER\" and \"batch_id\" would both fill the ID series "
            "\"BATCH NUMBER\".");
  ExpectUnchanged(before, *project);
}

TEST(CsvImport, AppendedBatchesEqualOneImportOfBothFiles) {
  const auto project = NCProject::Create();
  CsvImportOptions options;
  options.batchColumn = "Batch";
  options.phaseColumn = "Phase";
  const auto data =
      Import(project, "Batch,Phase,x,y\nB1,P1,1,10\nB1,P2,2,20\nB2,P1,3,30\n", options);
  const auto append = [&](const std::string& text, const CsvImportOptions& o, bool replace) {
    CsvImport::Notes notes;
    CsvImport::AppendText(*data, text, "dir/more.csv", o, replace, &notes);
    return notes;
  };
  const auto appendError = [&](const std::string& text, const CsvImportOptions& o) {
    const Snapshot before(*project);
    const std::vector<float> x = Column(*data, 1);
    std::string message;
    try {
      append(text, o, false);
    } catch (const NCError& e) {
      message = e.what();
    }
    ExpectUnchanged(before, *project);
    EXPECT_EQ(Column(*data, 1), x);
    return message;
  };

  // Another batch header, a new column and one missing; the phase column is the project's.
  CsvImportOptions other;
  other.batchColumn = "batch_id";
  EXPECT_EQ(append("batch_id,Phase,z,x\nB3,P1,5,4\nB3,P3,7,6\n", other, false),
            (CsvImport::Notes{"Appended 1 batches, 2 observations.",
                              "The column \"batch_id\" names the batches of the series \"Batch\".",
                              "New variables, missing in the earlier observations: z.",
                              "Not in the file, missing in the new observations: y."}));
  const auto whole = Import(project,
                            "Batch,Phase,x,y,z\nB1,P1,1,10,\nB1,P2,2,20,\nB2,P1,3,30,\n"
                            "B3,P1,4,,5\nB3,P3,6,,7\n",
                            options);
  ASSERT_EQ(data->SizeObservations(), whole->SizeObservations());
  EXPECT_EQ(data->GetVarIDs(), whole->GetVarIDs());
  for (int var = 1; var <= 3; ++var) EXPECT_EQ(Column(*data, var), Column(*whole, var)) << var;
  EXPECT_EQ(PrimaryIDs(*data), PrimaryIDs(*whole));
  EXPECT_EQ(data->GetBatchInfoVector()->GetBatchNames(),
            whole->GetBatchInfoVector()->GetBatchNames());
  EXPECT_EQ(data->GetPhaseInfoVector()->size(), 3U);

  // Refusals change nothing.
  EXPECT_EQ(appendError("Batch,Phase,x\nB4,P1,1\nB2,P1,2\n", options),
            "Dataset 1 \"data\" holds the batch \"B2\" already: import with --replace to "
            "replace it.");
  EXPECT_EQ(appendError("Phase,x\nP1,1\n", CsvImportOptions()),
            "dir/more.csv: there is no column named \"Batch\".");
  EXPECT_EQ(appendError("Batch,Phase,x\nB4,P1,a\n", options),
            "The column \"x\" is qualitative, but the project's variable \"x\" is quantitative: "
            "rename the column, or import with --rename-clashes.");
  const auto plain = Import(project, "x\n1\n");
  try {
    CsvImport::AppendText(*plain, "Batch,x\nB1,1\n", "dir/more.csv", options, false);
    ADD_FAILURE() << "appended to an ordinary dataset";
  } catch (const NCError& e) {
    EXPECT_STREQ(e.what(),
                 "Dataset 3 \"data\" is not a batch dataset: batches can only be appended to a "
                 "batch dataset.");
  }

  // --replace: the old rows of B1 go, the new ones take their names.
  append("Batch,Phase,x\nB1,P1,9\n", options, true);
  EXPECT_EQ(data->GetBatchInfoVector()->GetBatchNames().GetVector(),
            (std::vector<std::string>{"B2", "B3", "B1"}));
  EXPECT_EQ(PrimaryIDs(*data), (std::vector<std::string>{"B2_001", "B3_001", "B3_002", "B1_001"}));
  EXPECT_EQ(Column(*data, 1), (std::vector<float>{3, 4, 6, 9}));
}

TEST(CsvImport, ErrorsNameTheirPlaceAndChangeNothing) {
  const auto project = NCProject::Create();
  Import(project, "ID,x\na,1\n");
  CsvImportOptions semicolon;
  semicolon.separator = ';';
  CsvImportOptions ids;
  ids.idColumns = {"ID", "ID"};
  CsvImportOptions taken;
  taken.number = 1;
  CsvImportOptions same;
  same.separator = ',';
  same.decimal = ',';
  const struct {
    std::string text;
    CsvImportOptions options;
    std::string message;
  } cases[] = {
      {"a,b\n1,2\n3,1.5.1\n", {}, "dir/data.csv, line 3, column 2 (b): \"1.5.1\" is not a number."},
      {"a;b\n1,5;2\n", semicolon, "dir/data.csv, line 2, column 1 (a): \"1,5\" is not a number."},
      // The earliest bad cell of the file, whatever its column.
      {"a,b\n1,2\n2,3\n3,1-2\n4e,5\n",
       {},
       "dir/data.csv, line 4, column 2 (b): \"1-2\" is not a number."},
      {"a\n1\n\"\n1e39\"\n",
       {},
       "dir/data.csv, line 3, column 1 (a): 1e39 is beyond the range of single-precision numbers."},
      {"t\n2024-03-05\n2024-13-05\n",
       {},
       "dir/data.csv, line 3, column 1 (t): \"2024-13-05\" is not an ISO 8601 date-time."},
      // Numbers and date-times in one column: the first cell of the other kind.
      {"n\n1\n2024-03-06T10:00\n",
       {},
       "dir/data.csv, line 3, column 1 (n): \"2024-03-06T10:00\" is not a number."},
      {"t\n2024-03-06\n\n5\n",
       {},
       "dir/data.csv, line 4, column 1 (t): \"5\" is not an ISO 8601 date-time."},
      {"a,b\n1,2\n3\n",
       {},
       "dir/data.csv, line 3: the row has 1 fields where the first row has 2."},
      {"a\n\"1\n", {}, "dir/data.csv, line 2, column 1: a quoted field is not closed."},
      {"\n\r\n", {}, "dir/data.csv: the file is empty."},
      {"a\n1\n",
       [] {
         CsvImportOptions o;
         o.idColumns = {"Name"};
         return o;
       }(),
       "dir/data.csv: there is no column named \"Name\"."},
      {"ID\n1\n", ids, "dir/data.csv: the column \"ID\" is named more than once as an ID column."},
      {"a\n1\n", taken, "Dataset number 1 is in use."},
      {"a\n1\n", same, "The field separator and the decimal character must differ."},
  };
  for (const auto& c : cases) {
    const Snapshot before(*project);
    EXPECT_EQ(ImportError(project, c.text, c.options), c.message) << c.text;
    ExpectUnchanged(before, *project);
  }

  // A word among malformed numbers makes the column text; it is no error.
  const auto words = Import(project, "a\n1\n\"1,5\"\nabc\n");
  EXPECT_TRUE(words->GetVariableInfo(1)->IsQualitative());
}

TEST(CsvImport, AProjectThatRefusesKeepsWhatItHad) {
  const std::string text = "ID,Batch,x,lvl\no1,B1,1,p\no2,B2,2,q\n";
  CsvImportOptions options;
  options.idColumns = {"ID", "Batch"};

  // The change check refuses: the new variables, observations and the Batch series go again.
  const auto project = NCProject::Create();
  Import(project, "ID,y\nkept,1\n", [] {
    CsvImportOptions o;
    o.idColumns = {"ID"};
    return o;
  }());
  project->SetChangeCheck([](int, const NCIntegralVector<unsigned long, 0>&) { return false; });
  const Snapshot before(*project);
  EXPECT_EQ(ImportError(project, text, options), "The project refused the new dataset \"data\".");
  ExpectUnchanged(before, *project);
  EXPECT_EQ(project->GetObservations().SizeAliases(), 2);  // the first import's "ID"

  // Allowed again, the same import succeeds.
  project->SetChangeCheck(nullptr);
  const auto data = Import(project, text, options);
  EXPECT_EQ(PrimaryIDs(*data), (std::vector<std::string>{"o1", "o2"}));
  EXPECT_EQ(data->GetNumber(), 2);

  // A project that does not store the dataset.
  const auto refusing = RefusingProject::Create();
  const Snapshot empty(*refusing);
  EXPECT_EQ(ImportError(refusing, text, options), "The project refused the new dataset \"data\".");
  ExpectUnchanged(empty, *refusing);
  EXPECT_EQ(refusing->GetVariables().size(), 0U);
  EXPECT_EQ(refusing->GetObservations().size(), 0U);
}

TEST(CsvImport, AnyBytesImportOrFailCleanly) {
  const std::string valid =
      "ID,Batch,x,\"l,v\",t\r\nA,B1,1.5,lo,2024-03-05T10:00\nA,B1,-2e3,\"h\"\"i\",\n"
      "b,,NA,lo,2024-03-05T10:01:30\n";
  CsvImportOptions options;
  options.idColumns = {"ID", "Batch"};
  options.missingTexts = {"NA"};
  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    const auto project = NCProject::Create();
    try {
      const auto data = Import(project, bytes, options);
      ASSERT_EQ(project->GetDataContainer(data->GetNumber()), data);
      ASSERT_EQ(static_cast<std::size_t>(data->SizeObservations()),
                project->GetObservations().size());
    } catch (const NCError&) {
      ASSERT_EQ(project->GetObservations().size(), 0U);
      ASSERT_EQ(project->GetVariables().size(), 0U);
    }
  });
}

TEST(CsvImport, RowsBeyondTheFirstRowsEstimate) {
  // The first data row is long, so the room first made for the values is far too small.
  std::string text = "n,note\n0,\"" + std::string(20000, 'x') + "\"\n";
  for (int i = 1; i < 5000; ++i) text += std::to_string(i) + (i % 2 ? ",odd\n" : ",\n");
  const auto project = NCProject::Create();
  const auto data = Import(project, text);
  ASSERT_EQ(data->SizeObservations(), 5000);
  for (int i = 0; i < 5000; ++i) {
    ASSERT_EQ(data->GetValue(i + 1, 1), static_cast<float>(i));
    ASSERT_EQ(data->GetValue(i + 1, 2), i == 0 ? 1.0F : i % 2 ? 2.0F : -99.0F) << i;
  }
}
