#include "tools/ncds/Cli.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

struct Outcome {
  int code = -1;
  std::string out;
  std::string err;
};

Outcome RunNcds(std::vector<std::string> args) {
  args.insert(args.begin(), "ncds");
  std::vector<const char*> argv;
  for (const std::string& arg : args) argv.push_back(arg.c_str());
  std::ostringstream out;
  std::ostringstream err;
  Outcome outcome;
  outcome.code = ncds::tool::RunCli(static_cast<int>(argv.size()), argv.data(), out, err);
  outcome.out = out.str();
  outcome.err = err.str();
  return outcome;
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// What listing the project shows, as one comparable text.
std::string Listing(const std::string& project) {
  std::string text;
  for (const NCProjectFile::DataSetSummary& s : NCProjectFile::ListDataSets(project)) {
    text += std::to_string(s.number) + ' ' + s.name + ' ' + std::to_string(s.observations) + ' ' +
            std::to_string(s.variables) + ' ' + std::to_string(s.dataType) + '\n';
  }
  return text;
}

// An error is one line on err and nothing on out.
void ExpectOneLineError(const Outcome& outcome, int code, const std::string& part) {
  EXPECT_EQ(outcome.code, code);
  EXPECT_TRUE(outcome.out.empty()) << outcome.out;
  EXPECT_NE(outcome.err.find(part), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
}

const char kData[] =
    "ObsID,Grade,Start,Temp\n"
    "a1,g1,2024-03-05,1.5\n"
    "a2,g2,2024-03-06,NA\n"
    "a3,g3,2024-03-08,-2.25\n"
    "a4,g4,2024-03-08,3\n"
    "a5,g5,2024-03-09,1e-3\n"
    "a6,g6,2024-03-10,7\n"
    "a7,g1,2024-03-11,8\n";

TEST(Cli, ImportListShowExportReimportKeepsTheDataset) {
  const ncds::test::TempFile data("cli_data.csv");
  const ncds::test::TempFile project("cli_project.ncds");
  const ncds::test::TempFile exported("cli_export.csv");
  const ncds::test::TempFile again("cli_again.ncds");
  WriteText(data.path(), kData);

  Outcome o = RunNcds({"import", data.path(), project.path(), "--id", "ObsID", "--name", "first",
                       "--missing", "NA"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Added dataset 1 \"first\""), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("7 observations, 3 variables"), std::string::npos) << o.out;
  // A second import takes the next number; the name defaults to the file's.
  ASSERT_EQ(
      RunNcds({"import", data.path(), project.path(), "--id", "ObsID", "--missing", "NA"}).code, 0);

  o = RunNcds({"compact", project.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out.rfind("Compacted " + project.path() + ": ", 0), 0u) << o.out;
  o = RunNcds({"list", project.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            "No.  Name          Observations  Variables  Kind\n"
            "1    first         7             3          ordinary\n"
            "2    tmp_cli_data  7             3          ordinary\n");

  // By name, with the variables' kinds, blocks and abbreviated levels, and two rows.
  o = RunNcds({"show", project.path(), "first", "--rows", "2"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(
      o.out.find("1    Grade     qualitative   X            g1, g2, g3, g4, g5, ... (6 levels)"),
      std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("Start     date-time"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("Temp      quantitative  X"), std::string::npos) << o.out;
  // The ID column's header names its series; the primary IDs equal it and are not repeated.
  EXPECT_NE(o.out.find("\na2     g2     2024-03-06\n"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find("a3"), std::string::npos) << o.out;
  // By number, rows 0: no table of values.
  o = RunNcds({"show", project.path(), "2", "--rows", "0"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Dataset 2 \"tmp_cli_data\""), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find("a1"), std::string::npos) << o.out;

  const Outcome toStdout = RunNcds({"export", project.path(), "1"});
  ASSERT_EQ(toStdout.code, 0) << toStdout.err;
  EXPECT_EQ(toStdout.out.substr(0, toStdout.out.find('\n')), "ObsID,Grade,Start,Temp");
  EXPECT_NE(toStdout.out.find("a2,g2,2024-03-06,\n"), std::string::npos) << toStdout.out;
  o = RunNcds({"export", project.path(), "first", "-o", exported.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_TRUE(o.out.empty());
  EXPECT_NE(o.err.find("import it with: --id ObsID\n"), std::string::npos) << o.err;
  EXPECT_EQ(ReadText(exported.path()), toStdout.out);

  // The exported file, imported with the suggested option, gives the same dataset back.
  ASSERT_EQ(RunNcds({"import", exported.path(), again.path(), "--id", "ObsID"}).code, 0);
  o = RunNcds({"export", again.path(), "1"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out, toStdout.out);
  const boost::shared_ptr<NCProjectFile> first = NCProjectFile::Open(project.path(), false);
  const boost::shared_ptr<NCProjectFile> second = NCProjectFile::Open(again.path(), false);
  const boost::shared_ptr<NCDataSet> a = first->LoadDataSet(1);
  const boost::shared_ptr<NCDataSet> b = second->LoadDataSet(1);
  ASSERT_TRUE(a && b);
  ASSERT_EQ(a->SizeObservations(), b->SizeObservations());
  ASSERT_EQ(a->SizeVariables(), b->SizeVariables());
  for (int i = 1; i <= a->SizeObservations(); ++i) {
    for (int j = 1; j <= a->SizeVariables(); ++j) {
      EXPECT_EQ(a->GetValue(i, j), b->GetValue(i, j)) << i << ", " << j;
    }
  }

  o = RunNcds({"delete", project.path(), "first"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Deleted dataset 1 \"first\""), std::string::npos) << o.out;
  EXPECT_EQ(Listing(project.path()), "2 tmp_cli_data 7 3 1\n");
}

TEST(Cli, FailuresLeaveTheProjectAsItWas) {
  const ncds::test::TempFile data("cli_fail_data.csv");
  const ncds::test::TempFile ragged("cli_fail_ragged.csv");
  const ncds::test::TempFile project("cli_fail_project.ncds");
  const ncds::test::TempFile fresh("cli_fail_fresh.ncds");
  const ncds::test::TempFile text("cli_fail_text.ncds");
  WriteText(data.path(), kData);
  WriteText(ragged.path(), "ObsID,Temp\na1,1\na2,2,3\n");
  WriteText(text.path(), "not a project\n");
  ASSERT_EQ(RunNcds({"import", data.path(), project.path(), "--missing", "NA"}).code, 0);
  const std::string before = Listing(project.path());
  const std::string missing = data.path() + ".absent";

  // Missing and ragged files, an unknown ID column.
  ExpectOneLineError(RunNcds({"import", missing, project.path()}), 1, missing);
  ExpectOneLineError(RunNcds({"import", ragged.path(), project.path()}), 1, ragged.path());
  ExpectOneLineError(RunNcds({"import", data.path(), project.path(), "--id", "Nope"}), 1, "Nope");
  EXPECT_EQ(Listing(project.path()), before);
  // A failed import into a new project leaves no project behind.
  ExpectOneLineError(RunNcds({"import", ragged.path(), fresh.path()}), 1, ragged.path());
  EXPECT_FALSE(std::ifstream(fresh.path()).good());

  // Unknown datasets, by number and by name.
  const std::string unknown = "Project " + project.path() + " has no dataset 9.\n";
  for (const char* command : {"show", "export", "delete"}) {
    const Outcome o = RunNcds({command, project.path(), "9"});
    EXPECT_EQ(o.code, 1) << command;
    EXPECT_EQ(o.err, unknown) << command;
  }
  ExpectOneLineError(RunNcds({"delete", project.path(), "nameless"}), 1,
                     "has no dataset nameless.");
  EXPECT_EQ(Listing(project.path()), before);

  // Files that are no project: neither read nor changed, nor created by other commands.
  for (const char* command : {"list", "show", "compact"}) {
    std::vector<std::string> args = {command, text.path()};
    if (std::string(command) == "show") args.push_back("1");
    ExpectOneLineError(RunNcds(args), 1, text.path());
  }
  ExpectOneLineError(RunNcds({"import", data.path(), text.path()}), 1, text.path());
  EXPECT_EQ(ReadText(text.path()), "not a project\n");
  ExpectOneLineError(RunNcds({"list", fresh.path()}), 1, fresh.path());
  EXPECT_FALSE(std::ifstream(fresh.path()).good());

  // Usage errors exit with 2 and touch nothing.
  EXPECT_EQ(RunNcds({}).code, 2);
  EXPECT_EQ(RunNcds({"frobnicate"}).code, 2);
  EXPECT_EQ(RunNcds({"show", project.path()}).code, 2);
  EXPECT_EQ(RunNcds({"show", project.path(), "1", "--rows", "-1"}).code, 2);
  EXPECT_EQ(RunNcds({"import", data.path(), project.path(), "--sep", ";;"}).code, 2);
  EXPECT_EQ(RunNcds({"import", data.path(), project.path(), "--bogus"}).code, 2);
  EXPECT_EQ(Listing(project.path()), before);
}

// Rows of three batches, not grouped by batch in the file.
const char kBatchData[] =
    "Time,Batch,Phase,Temp\n"
    "0,B1,Growth,30\n"
    "0,B2,Growth,31\n"
    "1,B1,Growth,32\n"
    "2,B1,Feed,33\n"
    "1,B2,Feed,34\n"
    "0,B3,Growth,35\n"
    "3,B1,Feed,36\n";

// Imports kBatchData as the batch dataset "runs".
void ImportRuns(const std::string& data, const std::string& project) {
  WriteText(data, kBatchData);
  ASSERT_EQ(
      RunNcds({"import", data, project, "--batch", "Batch", "--phase", "Phase", "--name", "runs"})
          .code,
      0);
}

TEST(Cli, BatchDatasetsImportEditExportAndImportAgain) {
  const ncds::test::TempFile data("cli_batch.csv");
  const ncds::test::TempFile project("cli_batch.ncds");
  const ncds::test::TempFile exported("cli_batch_export.csv");
  const ncds::test::TempFile again("cli_batch_again.ncds");
  WriteText(data.path(), kBatchData);
  Outcome o = RunNcds({"import", data.path(), project.path(), "--batch", "Batch", "--phase",
                       "Phase", "--name", "runs"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("7 observations, 2 variables"), std::string::npos) << o.out;

  o = RunNcds({"batches", project.path(), "runs"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            "Batch  Included  Observations  Phases\n"
            "B1     yes       4             Growth 2, Feed 2\n"
            "B2     yes       2             Growth 1, Feed 1\n"
            "B3     yes       1             Growth 1\n");
  o = RunNcds({"show", project.path(), "runs", "--rows", "3"});
  EXPECT_NE(o.out.find("batch, 3 batches, 2 phases."), std::string::npos) << o.out;
  // Grouped by batch, named by batch and position.
  EXPECT_NE(o.out.find("B1     Growth  1     32"), std::string::npos) << o.out;
  EXPECT_EQ(NCProjectFile::Open(project.path(), false)
                ->LoadDataSet(1)
                ->GetObservationInfo(5)
                ->GetUserID(1),
            "B2_001");

  // Refusals change nothing.
  const std::string before = Listing(project.path());
  ExpectOneLineError(RunNcds({"delete-batches", project.path(), "runs", "--batch", "b1"}), 1,
                     "has no batch \"b1\"");
  ExpectOneLineError(
      RunNcds({"delete-batches", project.path(), "runs", "--phase", "Feed", "--in", "B3"}), 1,
      "Batch \"B3\" has no phase \"Feed\".");
  ExpectOneLineError(RunNcds({"delete-batches", project.path(), "runs", "--batch", "B1", "--batch",
                              "B2", "--phase", "Growth", "--in", "B3"}),
                     1, "every batch");
  ExpectOneLineError(RunNcds({"rename-phase", project.path(), "runs", "Lag", "X"}), 1,
                     "has no phase \"Lag\"");
  EXPECT_EQ(RunNcds({"delete-batches", project.path(), "runs", "--in", "B1"}).code, 2);
  EXPECT_EQ(Listing(project.path()), before);

  o = RunNcds(
      {"delete-batches", project.path(), "runs", "--batch", "B3", "--phase", "Feed", "--in", "B1"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            "Phase Feed in batch B1 was deleted.\nBatch B3 was deleted.\n"
            "Dataset 1 \"runs\": 4 observations, 2 batches, 2 phases.\n");
  o = RunNcds({"rename-phase", project.path(), "runs", "Growth", "Grow"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            "Phase Growth was renamed Grow.\nDataset 1 \"runs\": 4 observations, 2 batches, "
            "2 phases.\n");
  // Renaming onto another phase merges the two.
  o = RunNcds({"rename-phase", project.path(), "runs", "Feed", "Grow"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("2 batches, 1 phases."), std::string::npos) << o.out;
  EXPECT_EQ(RunNcds({"batches", project.path(), "1"}).out,
            "Batch  Included  Observations  Phases\n"
            "B1     yes       2             Grow 2\n"
            "B2     yes       2             Grow 2\n");

  o = RunNcds({"export", project.path(), "runs", "-o", exported.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.err.find("import it with: --batch Batch --phase Phase\n"), std::string::npos)
      << o.err;
  EXPECT_EQ(ReadText(exported.path()),
            "Batch,Phase,Time,Temp\nB1,Grow,0,30\nB1,Grow,1,32\nB2,Grow,0,31\nB2,Grow,1,34\n");
  ASSERT_EQ(
      RunNcds({"import", exported.path(), again.path(), "--batch", "Batch", "--phase", "Phase"})
          .code,
      0);
  EXPECT_EQ(RunNcds({"export", again.path(), "1"}).out, ReadText(exported.path()));
  EXPECT_EQ(RunNcds({"batches", again.path(), "1"}).out,
            RunNcds({"batches", project.path(), "1"}).out);
}

TEST(Cli, BatchesAlignIntoANewDataset) {
  const ncds::test::TempFile data("cli_align.csv");
  const ncds::test::TempFile project("cli_align.ncds");
  ImportRuns(data.path(), project.path());
  Outcome o = RunNcds({"align", project.path(), "runs", "--maturity", "Time", "--points", "4"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(
      o.out,
      "Aligned 3 batches onto 4 points each; 1 short batches end in missing values; 1 "
      "batches left missing (fewer than two maturities).\nAdded dataset 2 \"runs aligned\".\n");
  o = RunNcds({"export", project.path(), "2"});
  EXPECT_NE(o.out.find("B1@004,B1,Feed,3,36\nB2@001,B2,Growth,0,31\nB2@002,B2,Feed,1,34\n"
                       "B2@003,B2,Feed,,\n"),
            std::string::npos)
      << o.out;

  // Refusals add nothing: a maturity that turns back (with the hint), no such variable, a
  // phase count that is not one.
  const ncds::test::TempFile turning("cli_align_turning.csv");
  const ncds::test::TempFile other("cli_align_turning.ncds");
  WriteText(turning.path(), "Time,Batch,Temp\n0,B1,1\n2,B1,2\n1,B1,3\n0,B2,4\n1,B2,5\n");
  ASSERT_EQ(RunNcds({"import", turning.path(), other.path(), "--batch", "Batch"}).code, 0);
  const std::string before = Listing(project.path()) + Listing(other.path());
  ExpectOneLineError(RunNcds({"align", other.path(), "1", "--maturity", "Time"}), 1,
                     "The maturity of batch B1 is not monotone. Use --smooth");
  ExpectOneLineError(RunNcds({"align", project.path(), "runs", "--maturity", "Pressure"}), 1,
                     "has no variable Pressure");
  EXPECT_EQ(
      RunNcds({"align", project.path(), "runs", "--maturity", "Time", "--phase-points", "Growth"})
          .code,
      2);
  EXPECT_EQ(Listing(project.path()) + Listing(other.path()), before);
  o = RunNcds({"align", other.path(), "1", "--maturity", "Time", "--smooth", "--name", "ok"});
  EXPECT_EQ(o.code, 0) << o.err;
  // "$Time" is made for the source first: each batch's position from its start.
  o = RunNcds({"align", project.path(), "runs", "--maturity", "$Time", "--relative", "--points",
               "2", "--name", "by time"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(RunNcds({"show", project.path(), "runs"}).out.find("$Time"), std::string::npos);
}

TEST(Cli, DeriveCenterExportCenteredAndFingerprint) {
  const ncds::test::TempFile data("cli_derive.csv");
  const ncds::test::TempFile project("cli_derive.ncds");
  const ncds::test::TempFile centers("cli_derive_centers.csv");
  const ncds::test::TempFile xml("cli_derive_centers.xml");
  ImportRuns(data.path(), project.path());
  const std::string imported = RunNcds({"fingerprint", project.path(), "runs"}).out;
  EXPECT_EQ(imported.size(), 33U) << imported;

  // A lag never reaches into the batch before.
  Outcome o =
      RunNcds({"derive", project.path(), "runs", "--name", "TempLag", "--formula", "Lag(Temp, 1)"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out.rfind("Added generated variable \"TempLag\" as column 3 of dataset 1", 0), 0U);
  o = RunNcds({"export", project.path(), "runs"});
  EXPECT_NE(o.out.find("Temp,TempLag\nB1,Growth,0,30,\nB1,Growth,1,32,30\nB1,Feed,2,33,32\n"
                       "B1,Feed,3,36,33\nB2,Growth,0,31,\nB2,Feed,1,34,31\nB3,Growth,0,35,\n"),
            std::string::npos)
      << o.out;
  EXPECT_NE(RunNcds({"show", project.path(), "runs"}).out.find("TempLag  =  Lag(Temp, 1)"),
            std::string::npos);
  EXPECT_NE(RunNcds({"fingerprint", project.path(), "runs"}).out, imported);
  o = RunNcds({"derive", project.path(), "runs", "--update"});
  EXPECT_EQ(o.out.rfind("Recomputed 1 generated variables", 0), 0U) << o.out;

  // Centers by batch and phase, in any column order; groups without one take their phase's mean.
  WriteText(centers.path(),
            "variable,batch,center,phase\nTemp,B1,30,Growth\nTemp,B1,35,Feed\nTemp,B2,31,Growth\n");
  o = RunNcds({"center", project.path(), "runs", "--centers", centers.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out.rfind("Stored 3 centers of 1 variables in 2 batches", 0), 0U) << o.out;
  o = RunNcds({"export", project.path(), "runs", "--centered"});
  EXPECT_NE(o.out.find("B1,Growth,0,0,\nB1,Growth,1,2,30\nB1,Feed,2,-2,32\nB1,Feed,3,1,33\n"
                       "B2,Growth,0,0,\nB2,Feed,1,-1,31\nB3,Growth,0,4.5,\n"),
            std::string::npos)
      << o.out;
  WriteText(xml.path(),
            "<Configuration><LocalCentering><LCData Batch=\"B3\" Phase=\"Growth\" Center=\"5\" "
            "Variable=\"temp\"/></LocalCentering></Configuration>");
  EXPECT_EQ(RunNcds({"center", project.path(), "runs", "--centers", xml.path()}).code, 0);
  EXPECT_NE(RunNcds({"export", project.path(), "runs", "--centered"}).out.find("B3,Growth,0,30,"),
            std::string::npos);

  // Refusals name what is wrong and change nothing.
  const std::string before = RunNcds({"export", project.path(), "runs", "--centered"}).out;
  ExpectOneLineError(
      RunNcds({"derive", project.path(), "runs", "--name", "X", "--formula", "Temp + Nope"}), 1,
      "Nope at position 8");
  ExpectOneLineError(
      RunNcds({"derive", project.path(), "runs", "--name", "X", "--formula", "log((Temp)"}), 1,
      "position 4");
  WriteText(centers.path(), "batch,phase,variable,center\nB1,Growth,Pressure,1\n");
  ExpectOneLineError(RunNcds({"center", project.path(), "runs", "--centers", centers.path()}), 1,
                     "has no variable \"Pressure\"");
  WriteText(centers.path(), "batch,phase,variable,center\nB1,Growth,Temp,1\nB2,Feed,Temp,x\n");
  ExpectOneLineError(RunNcds({"center", project.path(), "runs", "--centers", centers.path()}), 1,
                     "line 3: the center \"x\" is not a number");
  WriteText(centers.path(), "batch,variable,value\nB1,Temp,1\n");
  ExpectOneLineError(RunNcds({"center", project.path(), "runs", "--centers", centers.path()}), 1,
                     "no column \"center\"");
  EXPECT_EQ(RunNcds({"export", project.path(), "runs", "--centered"}).out, before);
  EXPECT_EQ(RunNcds({"derive", project.path(), "runs"}).code, 2);
  ASSERT_EQ(RunNcds({"align", project.path(), "runs", "--maturity", "Time", "--name", "a"}).code,
            0);
  ExpectOneLineError(RunNcds({"export", project.path(), "a", "--centered"}), 1,
                     "has no local centers");
}

TEST(Cli, RowsWhoseRecordsAreGoneArePointedOutAndDropped) {
  const ncds::test::TempFile data("cli_lost.csv");
  const ncds::test::TempFile project("cli_lost.ncds");
  WriteText(data.path(), kBatchData);
  ASSERT_EQ(
      RunNcds({"import", data.path(), project.path(), "--batch", "Batch", "--phase", "Phase"}).code,
      0);
  {
    // Another program deletes two observation records of the first batch.
    const auto file = NCProjectFile::Open(project.path(), false);
    const auto dataSet = file->LoadDataSet(1);
    NCIntegralVector<unsigned long, 0> gone;
    gone.push_back(dataSet->GetObservationIDs()[1]);
    gone.push_back(dataSet->GetObservationIDs()[2]);
    file->GetObservations().DeleteVarObsInfos(gone);
    file->SaveMetadata();
  }
  Outcome o = RunNcds({"show", project.path(), "1", "--rows", "0"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.err.find("2 observations of dataset 1 have lost their records"), std::string::npos)
      << o.err;
  o = RunNcds({"drop-lost", project.path(), "1"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            "Removed 2 observations without a record.\nDataset 1 \"tmp_cli_lost\": 5 "
            "observations, 3 batches, 2 phases.\n");
  o = RunNcds({"batches", project.path(), "1"});
  EXPECT_TRUE(o.err.empty()) << o.err;
  EXPECT_NE(o.out.find("B1     yes       2             Growth 1, Feed 1"), std::string::npos)
      << o.out;

  // A dataset whose description is damaged is still listed, found by number or name, named
  // as damaged by every command, and can be deleted.
  ASSERT_EQ(RunNcds({"import", data.path(), project.path(), "--batch", "Batch", "--phase", "Phase",
                     "--name", "second"})
                .code,
            0);
  o = RunNcds({"check", project.path()});
  EXPECT_EQ(o.code, 0);
  EXPECT_EQ(o.out, "No damage found in " + project.path() + ".\n");
  ASSERT_TRUE(ncds::test::DamageChunk(project.path(), "info/2", 0));
  o = RunNcds({"check", project.path()});
  EXPECT_EQ(o.code, 1);
  EXPECT_EQ(o.out,
            "The description of dataset 2 \"second\" is damaged: the dataset cannot be read; "
            "`ncds delete` removes it.\n");
  EXPECT_NE(RunNcds({"list", project.path()}).out.find("2    second"), std::string::npos);
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"show", project.path(), "2"},
                                             {"export", project.path(), "second"},
                                             {"fingerprint", project.path(), "second"},
                                             {"combine", project.path(), "1", "2", "--name", "c"},
                                             {"derive", project.path(), "2", "--update"}}) {
    ExpectOneLineError(RunNcds(command), 1, "Dataset 2 in the project file");
  }
  // A salvage writes what reads into a new file: the damaged dataset stays behind.
  const ncds::test::TempFile salvaged("cli_salvaged.ncds");
  o = RunNcds({"salvage", project.path(), salvaged.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out, "Left out dataset 2 \"second\": damaged.\nSalvaged " + project.path() +
                       " into " + salvaged.path() + ".\n");
  EXPECT_EQ(RunNcds({"check", salvaged.path()}).code, 0);
  EXPECT_EQ(RunNcds({"fingerprint", salvaged.path(), "1"}).out,
            RunNcds({"fingerprint", project.path(), "1"}).out);
  ExpectOneLineError(RunNcds({"salvage", project.path(), salvaged.path()}), 1, "exists already");
  o = RunNcds({"delete", project.path(), "second"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Deleted dataset 2 \"second\""), std::string::npos) << o.out;
  EXPECT_EQ(RunNcds({"list", project.path()}).out.find("second"), std::string::npos);
}

// Every chunk of a project holding every kind of dataset, damaged in turn: `check` names the
// damage, and only what the chunk holds is lost.
TEST(Cli, EachDamagedChunkCostsOnlyWhatItHolds) {
  const ncds::test::TempFile data("cli_chunks.csv");
  const ncds::test::TempFile centers("cli_chunks_centers.csv");
  const ncds::test::TempFile project("cli_chunks.ncds");
  const ncds::test::TempFile copy("cli_chunks_copy.ncds");
  ImportRuns(data.path(), project.path());
  WriteText(centers.path(), "batch,phase,variable,center\nB1,Growth,Temp,31\nB2,Feed,Temp,34\n");
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"derive", project.path(), "runs", "--name", "Hot", "--formula", "Temp > 32"},
           {"center", project.path(), "runs", "--centers", centers.path()},
           {"align", project.path(), "runs", "--maturity", "Time", "--points", "3", "--relative"},
           {"summarize", project.path(), "runs", "--name", "levels"},
           {"combine", project.path(), "1", "3", "--name", "both"}}) {
    ASSERT_EQ(RunNcds(command).code, 0) << command[0];
  }
  std::map<std::string, std::string> prints;
  for (const char* number : {"1", "2", "3"}) {
    prints[number] = RunNcds({"fingerprint", project.path(), number}).out;
  }
  const std::string intact = ReadText(project.path());
  std::vector<std::pair<std::string, int>> chunks;
  {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open_v2(project.path().c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    sqlite3_stmt* query = nullptr;
    sqlite3_prepare_v2(db, "SELECT stream, seq FROM ncds_chunk ORDER BY stream, seq", -1, &query,
                       nullptr);
    while (sqlite3_step(query) == SQLITE_ROW) {
      chunks.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(query, 0)),
                          sqlite3_column_int(query, 1));
    }
    sqlite3_finalize(query);
    sqlite3_close(db);
  }
  ASSERT_GE(chunks.size(), 12u);
  for (const auto& [stream, seq] : chunks) {
    WriteText(copy.path(), intact);
    ASSERT_TRUE(ncds::test::DamageChunk(copy.path(), stream, seq));
    const Outcome checked = RunNcds({"check", copy.path()});
    EXPECT_EQ(checked.code, 1) << stream;
    EXPECT_FALSE(checked.out.empty()) << stream;
    const bool ofDataSets = stream.rfind("info/", 0) == 0 || stream.rfind("dataset/", 0) == 0 ||
                            stream.rfind("observations/", 0) == 0;
    for (const auto& [number, print] : prints) {
      const Outcome read = RunNcds({"fingerprint", copy.path(), number});
      if (!ofDataSets) {
        ExpectOneLineError(read, 1, "is damaged: its");
      } else if (stream == "info/" + number || stream == "dataset/" + number) {
        ExpectOneLineError(read, 1, "Dataset " + number + " in the project file");
      } else {
        EXPECT_EQ(read.out, print) << stream << " " << number;
      }
    }
  }
}

TEST(Cli, BatchFilesThatCannotBeImported) {
  const ncds::test::TempFile data("cli_bad_batch.csv");
  const ncds::test::TempFile project("cli_bad_batch.ncds");
  const auto refused = [&](const std::string& text, const std::string& message) {
    WriteText(data.path(), text);
    ExpectOneLineError(
        RunNcds({"import", data.path(), project.path(), "--batch", "Batch", "--phase", "Phase"}), 1,
        message);
    EXPECT_FALSE(std::ifstream(project.path()).good());
  };
  refused("Batch,Phase,T\nB1,A,1\nB1,B,2\nB2,A,3\nB1,A,4\n",
          "line 5: phase \"A\" of batch \"B1\" starts again after another phase");
  refused("Batch,Phase,T\nB1,A,1\n,A,2\n", "line 3: the batch column \"Batch\" is empty.");
  refused("Batch,Phase,T\nB1,A,1\nB1,,2\n", "line 3: the phase column \"Phase\" is empty.");
  refused("Batch,T\nB1,1\n", "no column named \"Phase\"");
  // One-row batches and names that differ only in case are batches of their own.
  WriteText(data.path(), "Batch,Phase,T\nb1,A,1\nB1,A,2\nB2,A,3\n");
  ASSERT_EQ(
      RunNcds({"import", data.path(), project.path(), "--batch", "Batch", "--phase", "Phase"}).code,
      0);
  EXPECT_NE(RunNcds({"show", project.path(), "1"}).out.find("3 batches, 1 phases"),
            std::string::npos);
}

TEST(Cli, BatchesAppendedIntoADatasetOrRefusedWithTheProjectUnchanged) {
  const ncds::test::TempFile data("cli_append.csv");
  const ncds::test::TempFile more("cli_append_more.csv");
  const ncds::test::TempFile project("cli_append.ncds");
  ImportRuns(data.path(), project.path());
  ASSERT_EQ(RunNcds({"align", project.path(), "runs", "--maturity", "Time", "--points", "3",
                     "--relative", "--name", "aligned"})
                .code,
            0);
  WriteText(more.path(), "batch_id,Phase,Temp,Time,Stir\nB4,Growth,40,0,1\nB4,Feed,41,1,2\n");
  Outcome o =
      RunNcds({"import", more.path(), project.path(), "--into", "runs", "--batch", "batch_id"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            "Appended 1 batches, 2 observations.\n"
            "The column \"batch_id\" names the batches of the series \"Batch\".\n"
            "New variables, missing in the earlier observations: Stir.\n"
            "Dataset 1 \"runs\": 9 observations, 4 batches, 2 phases.\n");
  // The aligned dataset lacks the new batch until it is brought up to date, once.
  EXPECT_NE(RunNcds({"list", project.path()}).out.find("batch, lacks 1 batches of its source"),
            std::string::npos);
  // A damaged entry of the listing's table, or none (a file from before it), shows no lag.
  for (const char* sql :
       {"UPDATE ncds_batches SET made_from = x'05', batches = x''", "DROP TABLE ncds_batches"}) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(project.path().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    o = RunNcds({"list", project.path()});
    EXPECT_EQ(o.code, 0);
    EXPECT_NE(o.out.find("aligned"), std::string::npos);
    EXPECT_EQ(o.out.find("lacks"), std::string::npos);
  }
  o = RunNcds({"update", project.path(), "aligned"});
  EXPECT_EQ(o.out,
            "Brought dataset 2 \"aligned\" up to date with dataset 1 \"runs\": 1 batches added, 0 "
            "made again, 0 removed.\nDataset 2 \"aligned\": 12 observations, 4 batches, 2 "
            "phases.\n");
  EXPECT_EQ(RunNcds({"list", project.path()}).out.find("lacks"), std::string::npos);
  EXPECT_EQ(RunNcds({"update", project.path(), "aligned"}).out, "up to date\n");

  // Refusals, each in one sentence, leave every dataset's values as they were.
  ASSERT_EQ(RunNcds({"import", data.path(), project.path(), "--name", "plain"}).code, 0);
  const auto fingerprints = [&] {
    return RunNcds({"fingerprint", project.path(), "runs"}).out +
           RunNcds({"fingerprint", project.path(), "plain"}).out + Listing(project.path());
  };
  const std::string before = fingerprints();
  const auto refused = [&](std::vector<std::string> args, const std::string& message) {
    args.insert(args.begin(), {"import", more.path(), project.path()});
    ExpectOneLineError(RunNcds(args), 1, message);
    EXPECT_EQ(fingerprints(), before);
  };
  refused({"--into", "runs", "--batch", "batch_id"},
          "Dataset 1 \"runs\" holds the batch \"B4\" already: import with --replace");
  refused({"--into", "runs"}, "there is no column named \"Batch\"");
  refused({"--into", "nothing", "--batch", "batch_id"}, "nothing");
  refused({"--into", "plain", "--batch", "batch_id"}, "is not a batch dataset");
  WriteText(more.path(), "batch_id,Phase,Temp\nB5,Growth,warm\n");
  refused({"--into", "runs", "--batch", "batch_id"},
          "The column \"Temp\" is qualitative, but the project's variable \"Temp\" is "
          "quantitative");
  EXPECT_EQ(RunNcds({"import", more.path(), project.path(), "--replace"}).code, 2);

  // --replace takes the old rows of B4 out first.
  WriteText(more.path(), "Batch,Phase,Temp\nB4,Growth,50\n");
  o = RunNcds({"import", more.path(), project.path(), "--into", "runs", "--replace"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Dataset 1 \"runs\": 8 observations, 4 batches"), std::string::npos)
      << o.out;
}

TEST(Cli, SummarizeBatchesAndMergeSummaries) {
  const ncds::test::TempFile data("cli_summary.csv");
  const ncds::test::TempFile project("cli_summary.ncds");
  ImportRuns(data.path(), project.path());
  Outcome o = RunNcds({"summarize", project.path(), "runs", "--by-phase", "--stats", "mean, n",
                       "--variables", "temp", "--maturity", "Time", "--name", "levels"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out, "Summarized 3 batches into 4 columns.\nAdded dataset 2 \"levels\".\n");
  o = RunNcds({"export", project.path(), "levels"});
  EXPECT_EQ(o.out,
            "Primary ID,Batch,Temp_Growth_Mean,Temp_Growth_N,Temp_Feed_Mean,Temp_Feed_N\n"
            "B1,B1,31,2,34.5,2\nB2,B2,31,1,34,1\nB3,B3,35,1,,0\n");

  // Last values of whole batches merge into the phase summaries by batch name.
  ASSERT_EQ(RunNcds({"summarize", project.path(), "runs", "--stats", "Last,Mean", "--variables",
                     "Temp", "--name", "last"})
                .code,
            0);
  o = RunNcds({"merge", project.path(), "levels", "last", "--keep"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Variables added: 2\nObservations added: 0\nObservations matched by "
                       "primary ID: 3\n"),
            std::string::npos)
      << o.out;
  const std::string merged =
      "Primary ID,Batch,Temp_Growth_Mean,Temp_Growth_N,Temp_Feed_Mean,Temp_Feed_N,Temp_Last,"
      "Temp_Mean\nB1,B1,31,2,34.5,2,36,32.75\nB2,B2,31,1,34,1,34,32.5\nB3,B3,35,1,,0,35,35\n";
  EXPECT_EQ(RunNcds({"export", project.path(), "levels"}).out, merged);

  // A compound of the two summaries shows and exports their rows one after the other; once a
  // member is deleted it says so.
  o = RunNcds({"combine", project.path(), "levels", "3", "--name", "both"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out, "Compound dataset 4 \"both\" of datasets 2, 3: 6 observations, 6 variables.\n");
  o = RunNcds({"list", project.path()});
  EXPECT_NE(o.out.find("compound of 2, 3"), std::string::npos) << o.out;
  EXPECT_EQ(RunNcds({"export", project.path(), "both"}).out,
            merged + "B1,B1,,,,,36,32.75\nB2,B2,,,,,34,32.5\nB3,B3,,,,,35,35\n");
  ExpectOneLineError(RunNcds({"derive", project.path(), "both", "--update"}), 1,
                     "is a compound dataset");
  ASSERT_EQ(RunNcds({"delete", project.path(), "last"}).code, 0);
  ExpectOneLineError(RunNcds({"show", project.path(), "both"}), 1,
                     "Compound dataset 4 \"both\" is empty: its member datasets 3 are no longer");
  EXPECT_NE(RunNcds({"list", project.path()}).out.find("members missing"), std::string::npos);
  ASSERT_EQ(RunNcds({"delete", project.path(), "both"}).code, 0);

  // Refusals add and change nothing.
  const std::string before = Listing(project.path());
  ExpectOneLineError(RunNcds({"summarize", project.path(), "runs", "--stats", "Mode"}), 1,
                     "Mode is not a statistic");
  ExpectOneLineError(RunNcds({"summarize", project.path(), "levels"}), 1, "is not a batch dataset");
  ExpectOneLineError(RunNcds({"summarize", project.path(), "runs", "--variables", "Pressure"}), 1,
                     "has no variable Pressure");
  ExpectOneLineError(RunNcds({"merge", project.path(), "levels", "levels"}), 1,
                     "cannot be merged into itself");
  ExpectOneLineError(RunNcds({"merge", project.path(), "levels", "nothing"}), 1,
                     "has no dataset nothing");
  EXPECT_EQ(Listing(project.path()), before);
}

TEST(Cli, EveryCommandExplainsItself) {
  const std::vector<std::pair<std::string, std::string>> commands = {
      {"import", "--missing"},     {"list", "PROJECT"},     {"show", "--rows"},
      {"export", "--output"},      {"delete", "DATASET"},   {"batches", "DATASET"},
      {"delete-batches", "--in"},  {"rename-phase", "NEW"}, {"align", "--phase-points"},
      {"derive", "--update"},      {"center", "--centers"}, {"fingerprint", "DATASET"},
      {"summarize", "--by-phase"}, {"merge", "--keep"},     {"combine", "--name"}};
  for (const auto& [command, option] : commands) {
    const Outcome o = RunNcds({command, "--help"});
    EXPECT_EQ(o.code, 0) << command;
    EXPECT_TRUE(o.err.empty()) << o.err;
    EXPECT_NE(o.out.find(option), std::string::npos) << o.out;
  }
  const Outcome o = RunNcds({"--help"});
  EXPECT_EQ(o.code, 0);
  for (const auto& command : commands) {
    EXPECT_NE(o.out.find(command.first), std::string::npos) << o.out;
  }
}

}  // namespace
