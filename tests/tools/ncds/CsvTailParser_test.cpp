#include "tools/ncds/CsvTailParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"
#include "tools/ncds/CsvImport.h"

using ncds::tool::CsvTailParser;
namespace CsvImport = ncds::tool::CsvImport;

namespace {

constexpr int kRows = 120000;
constexpr int kColumns = 6;

// Whether cell (row, column) is missing, row from 0: every 97th cell of a column.
bool IsMissingCell(int row, int column) { return (row + 13 * column) % 97 == 0; }

// A file of about 6 MB: an ID column and kColumns numeric columns, with `edit` applied to
// each line before it is added (row from 0).
template <typename Edit>
std::string MakeText(Edit edit) {
  std::string text = "ID";
  for (int j = 0; j < kColumns; ++j) text += ",V" + std::to_string(j);
  text += '\n';
  for (int i = 0; i < kRows; ++i) {
    std::string line = "R" + std::to_string(i);
    for (int j = 0; j < kColumns; ++j) {
      line += ',';
      if (!IsMissingCell(i, j)) line += std::to_string(i * 7 + j) + ".5";
    }
    text += edit(i, line) + '\n';
  }
  return text;
}

std::string Plain(int, const std::string& line) { return line; }

ncds::tool::CsvImportOptions WithID() {
  ncds::tool::CsvImportOptions options;
  options.idColumns = {"ID"};
  return options;
}

// The projects of the imports, kept alive with their datasets.
std::vector<boost::shared_ptr<NCProject>> gProjects;

boost::shared_ptr<NCDataSet> Import(const std::string& text) {
  gProjects.push_back(NCProject::Create());
  return CsvImport::ImportText(gProjects.back(), text, "big.csv", WithID());
}

std::string ImportError(const std::string& text) {
  try {
    Import(text);
  } catch (const NCError& error) {
    return error.what();
  }
  return std::string();
}

float Expected(int row, int column) {
  return IsMissingCell(row, column) ? -99.0F : static_cast<float>(row * 7 + column) + 0.5F;
}

TEST(CsvTailParser, SplitsOnlyLargeTextsWithoutQuotesAtALineStart) {
  const std::string text = MakeText(Plain);
  const std::size_t dataBegin = text.find('\n') + 1;
  const std::size_t split = CsvTailParser::FindSplit(text, dataBegin);
  ASSERT_GT(split, dataBegin + (text.size() - dataBegin) / 2);
  EXPECT_EQ(text[split - 1], '\n');
  EXPECT_LT(split, text.size());
  EXPECT_EQ(CsvTailParser::FindSplit(text.substr(0, 100000), dataBegin), 0u);
  std::string quoted = text;
  quoted[text.size() - 5] = '"';
  EXPECT_EQ(CsvTailParser::FindSplit(quoted, dataBegin), 0u);
  EXPECT_EQ(CsvTailParser::FindSplit(text, text.size()), 0u);
}

TEST(CsvTailParser, ImportOfASplitFileEqualsTheFile) {
  const std::string text = MakeText(Plain);
  ncds::test::ProgressRecorder progress;
  const auto data = Import(text);
  ASSERT_EQ(progress.operations.size(), 2u);  // reading, adding the observations
  EXPECT_FALSE(progress.operations[0].backwards);
  EXPECT_EQ(progress.operations[0].last, static_cast<float>(text.size()));
  ASSERT_EQ(data->SizeObservations(), kRows);
  ASSERT_EQ(data->SizeVariables(), kColumns);
  for (int i = 0; i < kRows; i += 7) {
    ASSERT_EQ(data->GetObservationInfo(i + 1)->GetUserID(1), "R" + std::to_string(i));
    for (int j = 0; j < kColumns; ++j) {
      ASSERT_EQ(data->GetValue(i + 1, j + 1), Expected(i, j)) << i << "," << j;
    }
  }
  EXPECT_EQ(data->GetObservationInfo(kRows)->GetUserID(1), "R" + std::to_string(kRows - 1));
  EXPECT_EQ(data->GetValue(kRows, kColumns), Expected(kRows - 1, kColumns - 1));
}

TEST(CsvTailParser, ATailThatIsNotAllNumbersIsReadAsOneFile) {
  // Text late in the file: the column is qualitative, its levels in order of appearance.
  const int last = kRows - 2;
  const auto withText = [&](int i, const std::string& line) {
    return i == last ? "R" + std::to_string(i) + ",x,1,1,1,1,1" : line;
  };
  const auto data = Import(MakeText(withText));
  ASSERT_EQ(data->SizeObservations(), kRows);
  VariableInfo* first = data->GetProject()->GetVariables()[data->GetVarID(1)];
  ASSERT_TRUE(first->AsQualitativeVariableInfo());
  EXPECT_EQ(first->Decode(data->GetValue(2, 1)), "7.5");
  int levelsBefore = 0;
  for (int i = 0; i < last; ++i) levelsBefore += IsMissingCell(i, 0) ? 0 : 1;
  EXPECT_EQ(data->GetValue(last + 1, 1), static_cast<float>(levelsBefore + 1));
  EXPECT_EQ(data->GetValue(last + 1, 2), 1.0F);
  EXPECT_EQ(data->GetValue(kRows, 2), Expected(kRows - 1, 1));

  // Errors in the tail name their line in the whole file.
  const auto ragged = [](int i, const std::string& line) {
    return i == kRows - 10 ? std::string("R,1") : line;
  };
  EXPECT_EQ(ImportError(MakeText(ragged)), "big.csv, line " + std::to_string(kRows - 10 + 2) +
                                               ": the row has 2 fields where the first row has 7.");
  const auto badNumber = [](int i, const std::string& line) {
    return i == kRows - 3 ? std::string("R,1,1,1,1,1,1-2") : line;
  };
  EXPECT_EQ(ImportError(MakeText(badNumber)), "big.csv, line " + std::to_string(kRows - 3 + 2) +
                                                  ", column 7 (V5): \"1-2\" is not a number.");
  // An error early in the file stops the other thread.
  const auto early = [](int i, const std::string& line) {
    return i == 5 ? std::string("R") : line;
  };
  EXPECT_NE(ImportError(MakeText(early)).find("line 7:"), std::string::npos);
}

TEST(CsvTailParser, AColumnEmptyInTheFirstHalfIsReadAsOneFile) {
  const auto emptyFirst = [](int i, const std::string& line) {
    if (i >= kRows / 2) return line;
    return line.substr(0, line.rfind(',') + 1);  // V5 missing
  };
  const auto data = Import(MakeText(emptyFirst));
  VariableInfo* last = data->GetProject()->GetVariables()[data->GetVarID(kColumns)];
  EXPECT_TRUE(last->AsQuantitativeVariableInfo());
  EXPECT_EQ(data->GetValue(1, kColumns), -99.0F);
  EXPECT_EQ(data->GetValue(kRows, kColumns), Expected(kRows - 1, kColumns - 1));
}

}  // namespace
