#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"
#include "tools/ncds/BatchCommands.h"
#include "tools/ncds/CombineCommands.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/DerivedCommands.h"
#include "tools/ncds/UpdateCommands.h"

namespace tool = ncds::tool;

namespace {

constexpr char kHeader[] = "Batch,Phase,Time,Temp\n";

// `length` rows of `batch`: the first half in phase Growth, then Feed (or `last` for the last
// row when given); Time 0, 1, ...; Temp rising from a level of the batch's own.
std::string Rows(const std::string& batch, int length, float level,
                 const std::string& last = std::string()) {
  std::string text;
  for (int k = 0; k < length; ++k) {
    const std::string phase = k == length - 1 && !last.empty() ? last
                              : k < length / 2                 ? "Growth"
                                                               : "Feed";
    text += batch + "," + phase + "," + std::to_string(k) + "," +
            std::to_string(level + 0.5F * static_cast<float>(k * k % 7)) + "\n";
  }
  return text;
}

boost::shared_ptr<NCDataSet> Import(const boost::shared_ptr<NCProject>& project,
                                    const std::string& text, const std::string& name) {
  tool::CsvImportOptions options;
  options.batchColumn = "Batch";
  options.phaseColumn = "Phase";
  options.name = name;
  return tool::CsvImport::ImportText(project, text, name + ".csv", options);
}

void Append(NCDataSet& dataSet, const std::string& text, bool replace) {
  tool::CsvImportOptions options;
  options.batchColumn = "Batch";
  options.phaseColumn = "Phase";
  tool::CsvImport::AppendText(dataSet, text, "more.csv", options, replace);
}

boost::shared_ptr<NCDataSet> Align(NCDataSet& source, const tool::BatchCommands::AlignChoice& c,
                                   int number) {
  boost::shared_ptr<NCDataSet> aligned;
  tool::BatchCommands::Align(source, c, "aligned", number, aligned);
  return aligned;
}

boost::shared_ptr<NCDataSet> Summarize(const NCDataSet& source, int number) {
  tool::CombineCommands::SummaryChoice choice;
  choice.byPhase = true;
  choice.statistics = "Mean,Last,Slope";
  choice.maturity = "Time";
  boost::shared_ptr<NCDataSet> summary;
  tool::CombineCommands::Summarize(source, choice, "summary", number, summary);
  return summary;
}

std::string Update(NCDataSet& derived, NCDataSet* source, bool expectChange) {
  bool changed = !expectChange;
  const std::string log = tool::UpdateCommands::Update(derived, source, changed);
  EXPECT_EQ(changed, expectChange) << log;
  return log;
}

// The cells of `a` and `b` are equal (missing included), as are their rows' names.
void ExpectSameCells(const NCDataSet& a, const NCDataSet& b) {
  ASSERT_EQ(a.SizeObservations(), b.SizeObservations());
  ASSERT_EQ(a.SizeVariables(), b.SizeVariables());
  for (int i = 1; i <= a.SizeObservations(); ++i) {
    ASSERT_EQ(a.GetObservationInfo(i)->GetUserID(1), b.GetObservationInfo(i)->GetUserID(1));
    for (int j = 1; j <= a.SizeVariables(); ++j) {
      ASSERT_EQ(a.GetValue(i, j), b.GetValue(i, j)) << "row " << i << ", column " << j;
    }
  }
}

}  // namespace

TEST(UpdateCommands, DerivedDatasetsFollowTheirSourceAsIfMadeAnew) {
  const auto project = NCProject::Create();
  const auto source =
      Import(project, kHeader + Rows("B1", 6, 30) + Rows("B2", 8, 31) + Rows("B3", 5, 29), "src");
  tool::DerivedCommands::Derive(*source, "Rise", "Delta(Temp, 1)");  // appended rows get it too
  tool::BatchCommands::AlignChoice relative;
  relative.maturity = "Time";
  relative.relative = true;
  relative.phasePoints = {{"Growth", 3}, {"Feed", 4}};
  const auto aligned = Align(*source, relative, 2);
  tool::DerivedCommands::Derive(*aligned, "Warm", "Temp - 30");
  const auto summary = Summarize(*source, 3);
  EXPECT_EQ(Update(*aligned, source.get(), false), "up to date\n");
  EXPECT_EQ(Update(*summary, source.get(), false), "up to date\n");

  // A new batch, a batch whose rows were replaced and a batch deleted.
  Append(*source, kHeader + Rows("B4", 7, 33) + Rows("B2", 4, 35), true);
  tool::BatchCommands::DeleteBatches(*source, {"B1"}, {});
  const tool::UpdateCommands::Lag lag = tool::UpdateCommands::Compare(*aligned, *source);
  EXPECT_EQ(lag.added, (std::vector<std::string>{"B4"}));
  EXPECT_EQ(lag.changed, (std::vector<std::string>{"B2"}));
  EXPECT_EQ(lag.gone, (std::vector<std::string>{"B1"}));
  EXPECT_EQ(Update(*aligned, source.get(), true),
            "Brought dataset 2 \"aligned\" up to date with dataset 1 \"src\": 1 batches added, 1 "
            "made again, 1 removed.\nRecomputed 1 generated variables.\n");
  Update(*summary, source.get(), true);
  EXPECT_TRUE(tool::UpdateCommands::Compare(*summary, *source).empty());
  EXPECT_EQ(Update(*aligned, source.get(), false), "up to date\n");

  // The same as deriving from the grown source anew.
  const auto whole =
      Import(project, kHeader + Rows("B3", 5, 29) + Rows("B4", 7, 33) + Rows("B2", 4, 35), "all");
  tool::DerivedCommands::Derive(*whole, "Rise", "Delta(Temp, 1)");
  EXPECT_EQ(whole->GetVarIDs(), source->GetVarIDs());  // the same formula: the same variable
  const auto again = Align(*whole, relative, 5);
  tool::DerivedCommands::Derive(*again, "Warm", "Temp - 30");
  ASSERT_EQ(aligned->SizeObservations(), 3 * 7);
  ExpectSameCells(*aligned, *again);
  ExpectSameCells(*summary, *Summarize(*whole, 6));
  tool::DerivedCommands::Derive(*whole, "Fall", "Delta(Temp, 1)");  // a new name, a new variable
  EXPECT_EQ(tool::DerivedCommands::Derive(*again, "rise", "-Delta(Temp, 1)"),
            "Added generated variable \"rise_1\" as column 5 of dataset 5 \"aligned\".");

  // The description with the source's batches reads back as it was written.
  DataSetAlignment read;
  ASSERT_TRUE(
      ncds::test::ReadFromString(ncds::test::WriteToString(*aligned->GetAlignment()), read));
  EXPECT_EQ(read, *aligned->GetAlignment());
  EXPECT_EQ(read.GetSourceBatches().Get().size(), 3U);
}

TEST(UpdateCommands, AbsoluteGridsStayWhereTheyWere) {
  const auto project = NCProject::Create();
  const auto source = Import(project, kHeader + Rows("B1", 6, 30) + Rows("B2", 8, 31), "src");
  tool::BatchCommands::AlignChoice absolute;
  absolute.maturity = "Time";
  absolute.points = 8;
  const auto aligned = Align(*source, absolute, 2);
  const NCDataVector<float> grid =
      *aligned->GetAlignment()->GetAligners().front().second.GetTimeMaturityVector();

  // A longer batch is cut to the grid, and named; one inside it equals a new alignment's rows.
  Append(*source, kHeader + Rows("B3", 11, 32) + Rows("B4", 5, 28), false);
  const std::string log = Update(*aligned, source.get(), true);
  EXPECT_NE(log.find("These batches run past the grids, which do not move, and were cut: B3."),
            std::string::npos)
      << log;
  EXPECT_EQ(*aligned->GetAlignment()->GetAligners().front().second.GetTimeMaturityVector(), grid);
  EXPECT_EQ(aligned->SizeObservations(), 4 * 8);
  const auto inside = Import(
      project, kHeader + Rows("B1", 6, 30) + Rows("B2", 8, 31) + Rows("B4", 5, 28), "inside");
  const auto expected = Align(*inside, absolute, 4);
  for (int j = 1; j <= 2; ++j) {
    for (int i = 1; i <= 8; ++i) {
      EXPECT_EQ(aligned->GetValue(24 + i, j), expected->GetValue(16 + i, j)) << i << "," << j;
    }
  }

  // A phase the phase-wise grids do not cover is refused, and nothing changes.
  tool::BatchCommands::AlignChoice phaseWise = absolute;
  phaseWise.phasePoints = {{"Growth", 3}, {"Feed", 3}};
  const auto byPhase = Align(*source, phaseWise, 5);
  const std::string before = DataSetPredictionData::Fingerprint(*byPhase);
  Append(*source, kHeader + Rows("B5", 6, 30, "Harvest"), false);
  bool changed = true;
  try {
    tool::UpdateCommands::Update(*byPhase, source.get(), changed);
    ADD_FAILURE() << "a phase outside the grids was aligned";
  } catch (const NCError& e) {
    EXPECT_STREQ(e.what(),
                 "Dataset 5 \"aligned\" cannot take the new batches as it was made: Phase Harvest "
                 "has no number of points.");
  }
  EXPECT_EQ(DataSetPredictionData::Fingerprint(*byPhase), before);
}
