#include "tools/ncds/Cli.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
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
  EXPECT_NE(o.out.find("\na2          g2     2024-03-06\n"), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find("a3"), std::string::npos) << o.out;
  // By number, rows 0: no table of values.
  o = RunNcds({"show", project.path(), "2", "--rows", "0"});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("Dataset 2 \"tmp_cli_data\""), std::string::npos) << o.out;
  EXPECT_EQ(o.out.find("a1"), std::string::npos) << o.out;

  const Outcome toStdout = RunNcds({"export", project.path(), "1"});
  ASSERT_EQ(toStdout.code, 0) << toStdout.err;
  EXPECT_EQ(toStdout.out.substr(0, toStdout.out.find('\n')), "Primary ID,Grade,Start,Temp");
  EXPECT_NE(toStdout.out.find("a2,g2,2024-03-06,\n"), std::string::npos) << toStdout.out;
  o = RunNcds({"export", project.path(), "first", "-o", exported.path()});
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_TRUE(o.out.empty());
  EXPECT_NE(o.err.find("--id \"Primary ID\""), std::string::npos) << o.err;
  EXPECT_EQ(ReadText(exported.path()), toStdout.out);

  // The exported file, imported with the suggested option, gives the same dataset back.
  ASSERT_EQ(RunNcds({"import", exported.path(), again.path(), "--id", "Primary ID"}).code, 0);
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
  for (const char* command : {"list", "show"}) {
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

TEST(Cli, EveryCommandExplainsItself) {
  const std::vector<std::pair<std::string, std::string>> commands = {{"import", "--missing"},
                                                                     {"list", "PROJECT"},
                                                                     {"show", "--rows"},
                                                                     {"export", "--output"},
                                                                     {"delete", "DATASET"}};
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
