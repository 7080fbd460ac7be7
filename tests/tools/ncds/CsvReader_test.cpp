#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "ncds/foundations/Exception.h"
#include "support/TestSupport.h"
#include "tools/ncds/CsvReader.h"

using ncds::tool::CsvReader;
using ncds::tool::CsvRow;

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows ReadAll(std::string_view text, char separator = ',') {
  CsvReader reader(text, "f.csv", separator);
  CsvRow row;
  Rows rows;
  while (reader.ReadRow(row)) {
    rows.emplace_back();
    for (std::size_t j = 0; j < row.size(); ++j) rows.back().emplace_back(row[j]);
  }
  return rows;
}

// The message of the error reading `text` throws; empty when it reads.
std::string ErrorOf(std::string_view text) {
  try {
    ReadAll(text);
  } catch (const NCError& e) {
    return e.what();
  }
  return std::string();
}

}  // namespace

TEST(CsvReader, QuotingSeparatorsAndLineEnds) {
  // Quoted fields keep separators, line breaks and doubled quotes; LF, CRLF and a lone CR end
  // rows, and the last row needs no line end.
  EXPECT_EQ(ReadAll("a,\"b,1\",\"say \"\"hi\"\"\"\r\n\"x\ny\",,\"\"\rlast,\"\",z"),
            (Rows{{"a", "b,1", "say \"hi\""}, {"x\ny", "", ""}, {"last", "", "z"}}));
  // Other separators; a separator at the very end leaves an empty last field.
  EXPECT_EQ(ReadAll("a;b;\n1;2;", ';'), (Rows{{"a", "b", ""}, {"1", "2", ""}}));
  EXPECT_EQ(ReadAll("a\tb,c\n\"1\t\"\t2\n", '\t'), (Rows{{"a", "b,c"}, {"1\t", "2"}}));
  // A byte order mark at the start and empty lines anywhere are no data; blanks are.
  EXPECT_EQ(ReadAll("\xEF\xBB\xBFh1,h2\n\n\r\n1,2\n\n"), (Rows{{"h1", "h2"}, {"1", "2"}}));
  EXPECT_EQ(ReadAll("h\n \n\xEF\xBB\xBF\n"), (Rows{{"h"}, {" "}, {"\xEF\xBB\xBF"}}));
  // A quote inside an unquoted field is text.
  EXPECT_EQ(ReadAll("5\" pipe,x"), (Rows{{"5\" pipe", "x"}}));
  EXPECT_TRUE(ReadAll("").empty());

  // Many fields with doubled quotes in one row: each keeps its own text although the row's
  // buffer for them grows meanwhile.
  std::string line;
  Rows expected(1);
  for (int k = 0; k < 200; ++k) {
    const std::string field =
        std::string(static_cast<std::size_t>(k % 7), 'x') + "\"" + std::to_string(k);
    line += (k ? "," : "") + std::string("\"") + field.substr(0, field.find('"')) + "\"\"" +
            field.substr(field.find('"') + 1) + "\"";
    expected[0].push_back(field);
  }
  EXPECT_EQ(ReadAll(line), expected);
}

TEST(CsvReader, LineNumbersFollowQuotedLineBreaks) {
  CsvReader reader("h1,h2\n\"a\r\nb\nc\rd\",x\n\n1,\"2\"\n", "f.csv", ',');
  CsvRow row;
  ASSERT_TRUE(reader.ReadRow(row));
  EXPECT_EQ(row.GetLine(0), 1U);
  ASSERT_TRUE(reader.ReadRow(row));
  EXPECT_EQ(row[0], "a\r\nb\nc\rd");
  EXPECT_EQ(row.GetLine(0), 2U);
  EXPECT_EQ(row.GetLine(1), 5U) << "after three line breaks inside the quotes";
  ASSERT_TRUE(reader.ReadRow(row));
  EXPECT_EQ(row.GetLine(0), 7U) << "the empty line 6 is skipped";
  EXPECT_EQ(reader.GetWidth(), 2U);
  EXPECT_FALSE(reader.ReadRow(row));
  EXPECT_TRUE(row.empty());
}

TEST(CsvReader, MalformedTextIsRefusedWithItsPlace) {
  EXPECT_EQ(ErrorOf("a,b\n1,2\n1,2,3\n"),
            "f.csv, line 3: the row has 3 fields where the first row has 2.");
  EXPECT_EQ(ErrorOf("a,b\n\"1\n\",2\n3\n"),
            "f.csv, line 4: the row has 1 fields where the first row has 2.");
  EXPECT_EQ(ErrorOf("a,b\n1,\"open,\n\n"),
            "f.csv, line 2, column 2: a quoted field is not closed.");
  EXPECT_EQ(ErrorOf("a,b\n1,\"\"\"\n"), "f.csv, line 2, column 2: a quoted field is not closed.");
  EXPECT_EQ(ErrorOf("a,b\n\"x\ny\"z,2\n"),
            "f.csv, line 3, column 1: there is text after the closing quote.");
  EXPECT_THROW(CsvReader("a", "f.csv", '"'), InvalidArgument);
  EXPECT_THROW(CsvReader("a", "f.csv", '\n'), InvalidArgument);
}

TEST(CsvReader, AnyBytesGiveRectangularRowsOrAnError) {
  const std::string valid =
      "\xEF\xBB\xBFid,\"a \"\"b\"\"\",c\r\n1,\"x,\ny\",2.5\n\n2,,\"\"\r3,\"q\",-1e3";
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    CsvReader reader(bytes, "f.csv", ',');
    CsvRow row;
    try {
      while (reader.ReadRow(row)) {
        ASSERT_EQ(row.size(), reader.GetWidth());
        for (std::size_t j = 0; j < row.size(); ++j) {
          // Every field lies within the text or within the row.
          ASSERT_LE(row[j].size(), bytes.size());
          ASSERT_GE(row.GetLine(j), row.GetLine(0));
        }
      }
      ASSERT_EQ(reader.GetOffset(), bytes.size());
    } catch (const NCError&) {
    }
  });
}
