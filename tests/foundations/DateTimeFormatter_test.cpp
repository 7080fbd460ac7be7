#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using VxTimeUtl::DateTimeFormatter;
using VxTimeUtl::SimpDateTime;

DateTimeFormatter Iso() { return DateTimeFormatter(VxTimeUtl::eParseISO8601, ""); }
DateTimeFormatter DayFirst() { return DateTimeFormatter(VxTimeUtl::eParseDayFirst, ""); }
DateTimeFormatter MonthFirst() { return DateTimeFormatter(VxTimeUtl::eParseMonthFirst, ""); }
DateTimeFormatter Pattern(const std::string& p) {
  return DateTimeFormatter(VxTimeUtl::eParseFormat, p);
}

// The parsed value, or not-a-date-time when the text does not parse. The text is copied to a
// buffer of its exact size, so that reading past its end trips the address sanitizer.
SimpDateTime Parsed(const DateTimeFormatter& formatter, const std::string& text) {
  const auto buffer = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(buffer.get(), text.c_str(), text.size() + 1);
  const SimpDateTime sentinel(1401, 2, 3, 4, 5, 6, 7);
  SimpDateTime out = sentinel;
  if (formatter.Parse(buffer.get(), out)) {
    EXPECT_TRUE(out.IsValid()) << text;
    return out;
  }
  EXPECT_EQ(out, sentinel) << "a refused parse changed its output: " << text;
  return SimpDateTime();
}

SimpDateTime Parsed(const std::string& pattern, const std::string& text) {
  return Parsed(Pattern(pattern), text);
}

void ExpectRefused(const DateTimeFormatter& f, std::initializer_list<const char*> texts) {
  for (const char* text : texts) EXPECT_FALSE(Parsed(f, text).IsValid()) << text;
}

TEST(DateTimeFormatter, IsoAcceptsExtendedAndBasicForms) {
  const SimpDateTime day(2024, 3, 5);
  const SimpDateTime minute(2024, 3, 5, 14, 30);
  const struct {
    const char* text;
    SimpDateTime expected;
  } accepted[] = {{"  2024-03-05Z\t\r\n", day},
                  {"20240305", day},
                  {"2024-03-05t14:30", minute},
                  {"2024-03-05 14:30Z", minute},
                  {"20240305T1430", minute},
                  {"20240305T143015Z", SimpDateTime(2024, 3, 5, 14, 30, 15)},
                  {"2024-03-05T14:30:15,25", SimpDateTime(2024, 3, 5, 14, 30, 15, 250000)},
                  {"2024-03-05T14:30:15.000001Z", SimpDateTime(2024, 3, 5, 14, 30, 15, 1)},
                  {"9999-12-31T23:59:59.999999Z", SimpDateTime(9999, 12, 31, 23, 59, 59, 999999)}};
  for (const auto& c : accepted) EXPECT_EQ(Parsed(Iso(), c.text), c.expected) << c.text;

  // One of each: incomplete, mixed basic and extended, malformed times, stray text, impossible.
  ExpectRefused(Iso(), {"", "2024-03", "2024-3-05", "02024-03-05", "2024/03/05", "2024-0305",
                        "202403-05", "20240305T14:30", "2024-03-05T1430", "2024-03-05T",
                        "2024-03-05T14", "2024-03-05T14:3", "2024-03-05T14:30:"});
  ExpectRefused(Iso(), {"2024-03-05T14:30:15.", "20240305T14301", "2024-03-05T14:30:15+01:00",
                        "2024-03-05T14:30ZZ", "2024-03-05T14:30:15.1234567", "2024-03-05  14:30",
                        "x2024-03-05", "2024-13-01", "2023-02-29", "2024-04-31", "2024-03-05T24:00",
                        "2024-03-05T23:59:60", "1399-12-31"});
  EXPECT_EQ(Iso().Format(SimpDateTime()), "");
}

TEST(DateTimeFormatter, DayFirstAndMonthFirstForms) {
  const struct {
    const char* text;
    SimpDateTime dayFirst;
  } accepted[] = {{"5/3/2024", SimpDateTime(2024, 3, 5)},
                  {" 5.3.2024 ", SimpDateTime(2024, 3, 5)},
                  {"05-03-2024", SimpDateTime(2024, 3, 5)},
                  {"05/03/69", SimpDateTime(2069, 3, 5)},
                  {"05/03/70", SimpDateTime(1970, 3, 5)},
                  {"05/03/2024\t 4:30", SimpDateTime(2024, 3, 5, 4, 30)},
                  {"05.03.2024 14:30:15,123", SimpDateTime(2024, 3, 5, 14, 30, 15, 123000)},
                  {"05/03/2024 2:30:01pm", SimpDateTime(2024, 3, 5, 14, 30, 1)},
                  {"05/03/2024 12:00 AM", SimpDateTime(2024, 3, 5, 0, 0)},
                  {"05/03/2024 12:00 PM", SimpDateTime(2024, 3, 5, 12, 0)}};
  for (const auto& c : accepted) EXPECT_EQ(Parsed(DayFirst(), c.text), c.dayFirst) << c.text;
  ExpectRefused(DayFirst(),
                {"", "05/03", "05/03-2024", "05/03/202", "05/03/20245", "005/03/2024", "05 03 2024",
                 "2024-03-05", "05/03/2024T14:30", "05/03/2024 14", "05/03/2024 14:3"});
  ExpectRefused(DayFirst(),
                {"05/03/2024 144:30", "05/03/2024 14:30:15.", "05/03/2024 14:30 x",
                 "05/03/2024 13:00 PM", "05/03/2024 0:30 AM", "05/03/2024 2:30 XM", "31/04/2024",
                 "29/02/2023", "05/13/2024", "05/03/2024 24:00", "05/03/1399"});
  ExpectRefused(MonthFirst(), {"13/05/2024"});

  // Milliseconds are cut, and left out when zero.
  const SimpDateTime t(2024, 3, 5, 4, 3, 2, 1500);
  EXPECT_EQ(DayFirst().Format(t), "05/03/2024 04:03:02.001");
  EXPECT_EQ(MonthFirst().Format(t), "03/05/2024 04:03:02.001");
  EXPECT_EQ(DayFirst().Format(SimpDateTime(2024, 3, 5, 0, 0, 0, 999)), "05/03/2024 00:00:00");
}

TEST(DateTimeFormatter, PatternTokens) {
  const SimpDateTime t(2024, 3, 5, 14, 7, 9, 123456);
  const struct {
    const char* pattern;
    const char* text;
  } cases[] = {{"yy/M/d H:m:s", "24/3/5 14:7:9"},
               {"dd MMM yyyy hh:mm tt", "05 Mar 2024 02:07 PM"},
               {"h:mm:ss.fff tt", "2:07:09.123 PM"},
               {"ss.f|ss.ff|fffff|ffffff", "09.1|09.12|12345|123456"},
               {"TDZ 'Date:' yyyy 'at' HH'h'", "TDZ Date: 2024 at 14h"},
               {"'It''s' yyyy, ''MMM''", "It's 2024, 'Mar'"},
               {"y yyy yyyyy MMMM ttt", "y 24y 2024y Mar3 PMt"},
               {"'unterminated yyyy", "unterminated yyyy"}};
  for (const auto& c : cases) EXPECT_EQ(Pattern(c.pattern).Format(t), c.text) << c.pattern;
  // Single-letter fields take two digits where the value needs them.
  EXPECT_EQ(Pattern("M/d H:m:s h").Format(SimpDateTime(2024, 12, 31, 23, 59, 58)),
            "12/31 23:59:58 11");

  // Parsing reads back what the fields show; fields the pattern lacks take 1900-01-01 00:00.
  EXPECT_EQ(Parsed("dd MMM yyyy hh:mm tt", "05 mAR 2024 02:07 pm"),
            SimpDateTime(2024, 3, 5, 14, 7));
  EXPECT_EQ(Parsed("hh:mm", "12:15"), SimpDateTime(1900, 1, 1, 0, 15));         // AM without tt
  EXPECT_EQ(Parsed("tt HH:mm", "AM 14:15"), SimpDateTime(1900, 1, 1, 14, 15));  // tt needs h
  EXPECT_EQ(Parsed("d/M/yyyy H:m:s", "05/3/2024 4:07:9"), SimpDateTime(2024, 3, 5, 4, 7, 9));
  EXPECT_EQ(Parsed("ss.fff", "09.5"), SimpDateTime(1900, 1, 1, 0, 0, 9, 500000));
  EXPECT_EQ(Parsed("ss.f", "09.123456"), SimpDateTime(1900, 1, 1, 0, 0, 9, 123456));
  EXPECT_EQ(Parsed("abc", "abc"), SimpDateTime(1900, 1, 1));
  // White space around the text is skipped, and so is the pattern's own at its ends.
  EXPECT_EQ(Parsed(" yyyy-MM-dd ", "2024-03-05"), SimpDateTime(2024, 3, 5));
  EXPECT_EQ(Parsed("yyyy-MM-dd", " \t2024-03-05\n"), SimpDateTime(2024, 3, 5));

  ExpectRefused(Pattern("yyyy-MM-dd"),
                {"2024-3-05", "24-03-05", "2024-03-05x", "", "2023-02-29", "1399-12-31"});
  ExpectRefused(Pattern("yy-MM-dd"), {"2024-03-05"});
  ExpectRefused(Pattern("yyyy-MM-dd HH"), {"2024-03-05  14"});
  ExpectRefused(Pattern("d/M/yyyy"), {"123/1/2024"});
  ExpectRefused(Pattern("dd MMM yyyy"), {"05 Mrz 2024"});
  ExpectRefused(Pattern("hh:mm tt"), {"13:00 PM", "00:00 AM", "11:00 XM"});
  ExpectRefused(Pattern("ss.fff"), {"09.", "09.1234567"});
  ExpectRefused(Pattern("abc"), {"abd", "ab"});
  ExpectRefused(Pattern("HH:mm:ss"), {"23:59:60"});

  // An empty pattern is ISO 8601; the other modes keep their pattern without using it.
  EXPECT_EQ(Pattern("").Format(t), "2024-03-05T14:07:09.123456");
  EXPECT_EQ(Parsed(Pattern(""), "20240305T140709"), SimpDateTime(2024, 3, 5, 14, 7, 9));
  const DateTimeFormatter iso(VxTimeUtl::eParseISO8601, "dd/MM/yyyy");
  EXPECT_EQ(iso.Format(t), "2024-03-05T14:07:09.123456");
  EXPECT_TRUE(Pattern("").ShowsFractions());
  EXPECT_TRUE(Pattern("ss.ff").ShowsFractions());
  EXPECT_FALSE(Pattern("'ff' ss").ShowsFractions());
  EXPECT_TRUE(DayFirst().ShowsFractions());
  EXPECT_THROW(DateTimeFormatter(4, ""), InvalidArgument);
  EXPECT_THROW(DateTimeFormatter(-1, "yyyy"), InvalidArgument);
}

TEST(DateTimeFormatter, FormatsParseBackAcrossTheRange) {
  const struct {
    DateTimeFormatter formatter;
    std::int64_t resolution;  // microseconds the format shows
  } formats[] = {{Iso(), 1},
                 {DayFirst(), 1000},
                 {MonthFirst(), 1000},
                 {Pattern("d MMM yyyy h:m:s.fff tt"), 1000},
                 {Pattern("yyyyMMddHHmmssf"), 100000},
                 {Pattern("M/d/yyyy H:mm"), 60000000},
                 {Pattern("'on' dd.MM.yyyy 'at' hh tt"), 3600000000}};
  const std::int64_t first = SimpDateTime(1400, 1, 1).GetEpochMicroseconds();
  const std::int64_t span =
      SimpDateTime(9999, 12, 31, 23, 59, 59, 999999).GetEpochMicroseconds() - first + 1;
  std::uint64_t state = 0x9E3779B97F4A7C15u;
  std::vector<SimpDateTime> values{SimpDateTime(1400, 1, 1),
                                   SimpDateTime(9999, 12, 31, 23, 59, 59, 999999),
                                   SimpDateTime(2024, 2, 29, 12, 0)};
  for (int i = 0; i < 20000; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    values.push_back(SimpDateTime::FromEpochMicroseconds(
        first + static_cast<std::int64_t>((state >> 1) % static_cast<std::uint64_t>(span))));
  }
  for (const auto& f : formats) {
    for (const SimpDateTime& t : values) {
      const std::int64_t us = t.GetEpochMicroseconds();
      const SimpDateTime shown =
          SimpDateTime::FromEpochMicroseconds(us - (us - first) % f.resolution);
      const std::string text = f.formatter.Format(t);
      SimpDateTime back;
      ASSERT_TRUE(f.formatter.Parse(text.c_str(), back)) << f.formatter.GetPattern() << " " << text;
      ASSERT_EQ(back, shown) << f.formatter.GetPattern() << " " << text;
      ASSERT_EQ(f.formatter.Format(back), text);
    }
  }
  // Two-digit years round-trip within their century window.
  const DateTimeFormatter shortYear = Pattern("dd/MM/yy HH:mm");
  for (const int year : {1970, 2069}) {
    const SimpDateTime t(year, 6, 15, 8, 45);
    EXPECT_EQ(Parsed(shortYear, shortYear.Format(t)), t);
  }
  EXPECT_EQ(Parsed(shortYear, shortYear.Format(SimpDateTime(2070, 6, 15))),
            SimpDateTime(1970, 6, 15));
}

TEST(DateTimeFormatter, AnyTextFailsCleanly) {
  // A buffer holds a date, its terminating NUL and more text that must not be read.
  const char buffer[] = "2024-03-05\0T14:30:00";
  SimpDateTime out;
  ASSERT_TRUE(Iso().Parse(buffer, out));
  EXPECT_EQ(out, SimpDateTime(2024, 3, 5));
  EXPECT_FALSE(Iso().Parse(nullptr, out));
  // A literal NUL in a pattern never matches the end of the text.
  const char nulThenMonth[] =
      "2024\0"
      "03";
  EXPECT_FALSE(Pattern(std::string("yyyy\0MM", 7)).Parse(nulThenMonth, out));

  // Every prefix of valid texts, and odd bytes, in every mode: no crash, no read past the end
  // (see Parsed), no exception.
  const std::vector<DateTimeFormatter> formatters{Iso(), DayFirst(), MonthFirst(),
                                                  Pattern("dd MMM yyyy hh:mm:ss.ffffff tt"),
                                                  Pattern("'x' d/M/yy H:m:s.f 'y'")};
  std::vector<std::string> texts;
  for (const std::string valid :
       {"2024-03-05T14:30:15.123456Z", "20240305T143015.5", "05/03/2024 2:30:15.25 PM",
        "05 Mar 2024 02:30:15.000001 PM", "x 5/3/24 4:7:9.1 y"}) {
    for (std::size_t n = 0; n <= valid.size(); ++n) texts.push_back(valid.substr(0, n));
  }
  for (int c = 1; c < 256; ++c) texts.push_back(std::string(1, static_cast<char>(c)) + "2024");
  texts.push_back(std::string(10000, '9'));
  texts.push_back(std::string(10000, ' '));
  for (const DateTimeFormatter& formatter : formatters) {
    for (const std::string& text : texts) {
      const SimpDateTime t = Parsed(formatter, text);
      if (t.IsValid()) {
        EXPECT_TRUE(Parsed(formatter, formatter.Format(t)).IsValid()) << text;
      }
    }
  }
}

}  // namespace
