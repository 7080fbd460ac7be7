#include <fast_float/fast_float.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "ncds/foundations/SimpDateTime.h"
#include "tools/ncds/CsvCellParser.h"

using ncds::tool::CsvCellParser;
using Result = CsvCellParser::NumberResult;

namespace {

// The number `text` reads as, or NaN when it reads as none.
float Number(const CsvCellParser& parser, const std::string& text) {
  float value = 0.0F;
  return parser.ParseNumber(text, value) == Result::eNumber ? value : NAN;
}

}  // namespace

TEST(CsvCellParser, NumbersMissingTextsAndTrimming) {
  const CsvCellParser dot('.', {"NA", "-"});
  EXPECT_EQ(Number(dot, "-1.5e3"), -1500.0F);
  EXPECT_EQ(Number(dot, "+.5"), 0.5F);
  EXPECT_EQ(Number(dot, "7."), 7.0F);
  EXPECT_EQ(Number(dot, "0.1"), 0.1F) << "the nearest float, not a rounded double";
  EXPECT_EQ(Number(dot, "3.4028235e38"), FLT_MAX);
  EXPECT_EQ(Number(dot, "1e-46"), 0.0F);
  EXPECT_TRUE(std::signbit(Number(dot, "-0")));
  for (const char* text : {"", "+", "+-1", "1,5", "1e", "0x10", "inf", "-nan", "Infinity", "1 2"}) {
    float value = 0.0F;
    EXPECT_EQ(dot.ParseNumber(text, value), Result::eNotANumber) << text;
  }
  float value = 0.0F;
  EXPECT_EQ(dot.ParseNumber("3.5e38", value), Result::eOutOfRange);
  EXPECT_EQ(dot.ParseNumber("-1e400", value), Result::eOutOfRange);

  const CsvCellParser comma(',', {});
  EXPECT_EQ(Number(comma, "-1,25"), -1.25F);
  EXPECT_TRUE(std::isnan(Number(comma, "1.25")));

  EXPECT_EQ(CsvCellParser::Trim(" \t a b \r\n\f\v"), "a b");
  EXPECT_EQ(CsvCellParser::Trim("   "), "");
  EXPECT_TRUE(dot.IsMissing(""));
  EXPECT_TRUE(dot.IsMissing("NA"));
  EXPECT_TRUE(dot.IsMissing("-"));
  EXPECT_FALSE(dot.IsMissing("na")) << "missing texts match exactly";
  EXPECT_FALSE(comma.IsMissing("NA"));

  for (const char* text : {"1,5", "1.2.3", "-3e+-", "1-2"}) {
    EXPECT_TRUE(CsvCellParser::LooksLikeNumber(text)) << text;
  }
  for (const char* text : {"-", ".", "e", "12abc", "A17", "1 2"}) {
    EXPECT_FALSE(CsvCellParser::LooksLikeNumber(text)) << text;
  }
}

TEST(CsvCellParser, EveryDecimalReadsAsTheNearestFloat) {
  // Short plain decimals take a shortcut past the general reader; both must give the same
  // float, including at the edges of the shortcut (2^24, ten decimals, leading zeros).
  const CsvCellParser dot('.', {});
  const CsvCellParser comma(',', {});
  std::mt19937 random(3);
  for (int k = 0; k < 100000; ++k) {
    std::string text = random() % 2 ? "-" : "";
    const int digits = 1 + static_cast<int>(random() % 12);
    const int point = static_cast<int>(random() % static_cast<unsigned>(digits + 2));
    for (int d = 0; d < digits; ++d) {
      if (d == point) text += '.';
      text += static_cast<char>('0' + (k % 3 == 0 && d < 3 ? 0 : random() % 10));
    }
    if (point == digits) text += '.';
    float expected = 0.0F;
    fast_float::from_chars(text.data(), text.data() + text.size(), expected);
    std::uint32_t want = 0;
    std::uint32_t got = 0;
    const float read = Number(dot, text);
    std::memcpy(&want, &expected, 4);
    std::memcpy(&got, &read, 4);
    ASSERT_EQ(got, want) << text;
    std::string withComma = text;
    if (withComma.find('.') != std::string::npos) withComma[withComma.find('.')] = ',';
    const float readComma = Number(comma, withComma);
    std::memcpy(&got, &readComma, 4);
    ASSERT_EQ(got, want) << withComma;
  }
  EXPECT_EQ(Number(dot, "16777216"), 16777216.0F);
  EXPECT_EQ(Number(dot, "16777217"), 16777216.0F) << "ties to even";
  EXPECT_EQ(Number(dot, "0.00000000001"), 1e-11F);
  EXPECT_TRUE(std::isnan(Number(dot, "1..5")));
  EXPECT_TRUE(std::isnan(Number(dot, ".")));
}

TEST(CsvCellParser, IsoDateTimes) {
  const CsvCellParser parser('.', {});
  std::int64_t us = 0;
  ASSERT_TRUE(parser.ParseDateTime("2024-03-05", us));
  EXPECT_EQ(us, VxTimeUtl::SimpDateTime(2024, 3, 5).GetEpochMicroseconds());
  ASSERT_TRUE(parser.ParseDateTime("2024-03-05T14:30:15.25", us));
  EXPECT_EQ(us, VxTimeUtl::SimpDateTime(2024, 3, 5, 14, 30, 15, 250000).GetEpochMicroseconds());
  ASSERT_TRUE(parser.ParseDateTime("20240305T1430", us));
  EXPECT_EQ(us, VxTimeUtl::SimpDateTime(2024, 3, 5, 14, 30).GetEpochMicroseconds());
  ASSERT_TRUE(parser.ParseDateTime("1400-01-01", us));
  EXPECT_EQ(us, VxTimeUtl::SimpDateTime(1400, 1, 1).GetEpochMicroseconds());

  const std::int64_t before = us;
  for (const std::string& text :
       {std::string("2023-02-29"), std::string("05/03/2024"), std::string("2024-03-05+01:00"),
        std::string("T2024"), std::string("2024-03-05") + std::string(40, ' ') + "x",
        std::string("2024-03-05\0junk", 15), std::string()}) {
    EXPECT_FALSE(parser.ParseDateTime(text, us)) << text;
  }
  EXPECT_EQ(us, before) << "a refused text leaves the result alone";
}
