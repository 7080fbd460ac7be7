#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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
  return Parsed(DateTimeFormatter(VxTimeUtl::eParseFormat, pattern), text);
}

std::string Formatted(const std::string& pattern, const SimpDateTime& value) {
  return DateTimeFormatter(VxTimeUtl::eParseFormat, pattern).Format(value);
}

TEST(DateTimeFormatter, IsoAcceptsExtendedAndBasicForms) {
  const SimpDateTime day(2024, 3, 5);
  const SimpDateTime minute(2024, 3, 5, 14, 30);
  const SimpDateTime second(2024, 3, 5, 14, 30, 15);
  const struct {
    const char* text;
    SimpDateTime expected;
  } accepted[] = {{"2024-03-05", day},
                  {"  2024-03-05\t\r\n", day},
                  {"2024-03-05Z", day},
                  {"2024-03-05 ", day},
                  {"20240305", day},
                  {"2024-03-05T14:30", minute},
                  {"2024-03-05t14:30", minute},
                  {"2024-03-05 14:30", minute},
                  {"2024-03-05T14:30Z", minute},
                  {"2024-03-05T14:30:15", second},
                  {"20240305T1430", minute},
                  {"20240305T143015", second},
                  {"20240305T143015Z", second},
                  {"2024-03-05T14:30:15.5", SimpDateTime(2024, 3, 5, 14, 30, 15, 500000)},
                  {"2024-03-05T14:30:15,25", SimpDateTime(2024, 3, 5, 14, 30, 15, 250000)},
                  {"2024-03-05T14:30:15.000001Z", SimpDateTime(2024, 3, 5, 14, 30, 15, 1)},
                  {"20240305T143015.123456", SimpDateTime(2024, 3, 5, 14, 30, 15, 123456)},
                  {"1400-01-01T00:00:00", SimpDateTime(1400, 1, 1)},
                  {"9999-12-31T23:59:59.999999", SimpDateTime(9999, 12, 31, 23, 59, 59, 999999)},
                  {"2024-02-29", SimpDateTime(2024, 2, 29)}};
  for (const auto& c : accepted) EXPECT_EQ(Parsed(Iso(), c.text), c.expected) << c.text;

  // Incomplete or malformed dates.
  for (const char* text : {"", "   ", "2024", "2024-03", "2024-3-05", "2024-03-5", "24-03-05",
                           "02024-03-05", "2024/03/05"}) {
    EXPECT_FALSE(Parsed(Iso(), text).IsValid()) << text;
  }
  // Mixed basic and extended forms.
  for (const char* text : {"2024-0305", "202403-05", "20240305T14:30", "2024-03-05T1430"}) {
    EXPECT_FALSE(Parsed(Iso(), text).IsValid()) << text;
  }
  // Incomplete or malformed times.
  for (const char* text : {"2024-03-05T", "2024-03-05T14", "2024-03-05T14:3",
                           "2024-03-05T14:30:", "2024-03-05T14:30:1", "2024-03-05T14:30:15.",
                           "20240305T143", "20240305T14301"}) {
    EXPECT_FALSE(Parsed(Iso(), text).IsValid()) << text;
  }
  // Offsets, excess digits and stray text.
  for (const char* text :
       {"2024-03-05T14:30:15+01:00", "2024-03-05T14:30ZZ", "2024-03-05T14:30:15.1234567",
        "2024-03-05  14:30", "2024-03-05T14:30:15 .5", "2024-03-05x", "x2024-03-05",
        "2024-03-05\x01", "\357\273\2772024-03-05"}) {
    EXPECT_FALSE(Parsed(Iso(), text).IsValid()) << text;
  }
  // Impossible dates and times, years out of range.
  for (const char* text :
       {"2024-13-01", "2024-00-10", "2023-02-29", "2024-02-30", "2024-04-31", "2024-03-05T24:00",
        "2024-03-05T23:60", "2024-03-05T23:59:60", "1399-12-31", "0000-01-01", "-2024-03-05"}) {
    EXPECT_FALSE(Parsed(Iso(), text).IsValid()) << text;
  }
  EXPECT_EQ(Iso().Format(SimpDateTime(2024, 3, 5, 14, 30, 0, 250000)), "2024-03-05T14:30:00.25");
  EXPECT_EQ(Iso().Format(SimpDateTime()), "");
}

TEST(DateTimeFormatter, DayFirstAndMonthFirstForms) {
  const struct {
    const char* text;
    SimpDateTime dayFirst;
  } accepted[] = {{"05/03/2024", SimpDateTime(2024, 3, 5)},
                  {"5/3/2024", SimpDateTime(2024, 3, 5)},
                  {" 5.3.2024 ", SimpDateTime(2024, 3, 5)},
                  {"05-03-2024", SimpDateTime(2024, 3, 5)},
                  {"05/03/24", SimpDateTime(2024, 3, 5)},
                  {"05/03/69", SimpDateTime(2069, 3, 5)},
                  {"05/03/70", SimpDateTime(1970, 3, 5)},
                  {"05/03/99", SimpDateTime(1999, 3, 5)},
                  {"05/03/00", SimpDateTime(2000, 3, 5)},
                  {"05/03/2024 14:30", SimpDateTime(2024, 3, 5, 14, 30)},
                  {"05/03/2024\t 4:30", SimpDateTime(2024, 3, 5, 4, 30)},
                  {"05/03/2024 14:30:15", SimpDateTime(2024, 3, 5, 14, 30, 15)},
                  {"05/03/2024 14:30:15.5", SimpDateTime(2024, 3, 5, 14, 30, 15, 500000)},
                  {"05.03.2024 14:30:15,123", SimpDateTime(2024, 3, 5, 14, 30, 15, 123000)},
                  {"05/03/2024 2:30 PM", SimpDateTime(2024, 3, 5, 14, 30)},
                  {"05/03/2024 2:30:01pm", SimpDateTime(2024, 3, 5, 14, 30, 1)},
                  {"05/03/2024 12:00 AM", SimpDateTime(2024, 3, 5, 0, 0)},
                  {"05/03/2024 12:00 PM", SimpDateTime(2024, 3, 5, 12, 0)},
                  {"29/02/2024", SimpDateTime(2024, 2, 29)}};
  for (const auto& c : accepted) {
    EXPECT_EQ(Parsed(DayFirst(), c.text), c.dayFirst) << c.text;
    // Month-first reads the same text with day and month swapped, where that is a date.
    const SimpDateTime swapped(c.dayFirst.GetYear(), c.dayFirst.GetDay(), c.dayFirst.GetMonth(),
                               c.dayFirst.GetHour(), c.dayFirst.GetMinute(), c.dayFirst.GetSecond(),
                               c.dayFirst.GetMicrosecond());
    EXPECT_EQ(Parsed(MonthFirst(), c.text), swapped) << c.text;
  }
  EXPECT_EQ(Parsed(MonthFirst(), "12/31/2023 11:59:59 PM"), SimpDateTime(2023, 12, 31, 23, 59, 59));

  // Incomplete or malformed dates, ISO text.
  for (const char* text :
       {"", "05/03", "05/03/", "05/03-2024", "05/03/202", "05/03/20245", "05/03/2", "005/03/2024",
        "05/003/2024", "05 03 2024", "/03/2024", "2024-03-05"}) {
    EXPECT_FALSE(Parsed(DayFirst(), text).IsValid()) << text;
  }
  // Incomplete or malformed times.
  for (const char* text :
       {"05/03/2024T14:30", "05/03/2024 14", "05/03/2024 14:", "05/03/2024 14:3",
        "05/03/2024 144:30", "05/03/2024 14:30:", "05/03/2024 14:30:15.", "05/03/2024 14:30 x"}) {
    EXPECT_FALSE(Parsed(DayFirst(), text).IsValid()) << text;
  }
  // Twelve-hour clock out of range or misspelt.
  for (const char* text :
       {"05/03/2024 13:00 PM", "05/03/2024 0:30 AM", "05/03/2024 2:30 XM", "05/03/2024 2:30 P"}) {
    EXPECT_FALSE(Parsed(DayFirst(), text).IsValid()) << text;
  }
  // Impossible dates and times, years out of range.
  for (const char* text : {"31/04/2024", "29/02/2023", "30/02/2024", "05/13/2024",
                           "05/03/2024 24:00", "05/03/2024 23:60", "05/03/1399"}) {
    EXPECT_FALSE(Parsed(DayFirst(), text).IsValid()) << text;
  }
  EXPECT_FALSE(Parsed(MonthFirst(), "13/05/2024").IsValid());
  EXPECT_FALSE(Parsed(MonthFirst(), "02/30/2024").IsValid());

  const SimpDateTime t(2024, 3, 5, 4, 3, 2, 1500);
  EXPECT_EQ(DayFirst().Format(t), "05/03/2024 04:03:02.001");
  EXPECT_EQ(MonthFirst().Format(t), "03/05/2024 04:03:02.001");
  EXPECT_EQ(DayFirst().Format(SimpDateTime(2024, 3, 5)), "05/03/2024 00:00:00");
  EXPECT_EQ(DayFirst().Format(SimpDateTime(2024, 3, 5, 0, 0, 0, 999)), "05/03/2024 00:00:00");
  EXPECT_EQ(MonthFirst().Format(SimpDateTime()), "");
}

TEST(DateTimeFormatter, PatternTokens) {
  const SimpDateTime t(2024, 3, 5, 14, 7, 9, 123456);
  const struct {
    const char* pattern;
    const char* text;
  } cases[] = {{"yyyy-MM-dd HH:mm:ss", "2024-03-05 14:07:09"},
               {"yy/M/d H:m:s", "24/3/5 14:7:9"},
               {"dd MMM yyyy hh:mm tt", "05 Mar 2024 02:07 PM"},
               {"h:mm:ss.fff tt", "2:07:09.123 PM"},
               {"yyyyMMddHHmmssffffff", "20240305140709123456"},
               {"ss.f|ss.ff|ss.fffff", "09.1|09.12|09.12345"},
               {"'Date:' yyyy 'at' HH'h'", "Date: 2024 at 14h"},
               {"'It''s' yyyy, ''MMM''", "It's 2024, 'Mar'"},
               {"y yyy yyyyy MMMM ttt", "y 24y 2024y Mar3 PMt"},
               {"'unterminated yyyy", "unterminated yyyy"},
               {"TDZ D", "TDZ D"}};
  // Single-letter fields take two digits where the value needs them.
  EXPECT_EQ(Formatted("M/d H:m:s h, M/d H:m:s h", SimpDateTime(2024, 12, 31, 23, 59, 58)),
            "12/31 23:59:58 11, 12/31 23:59:58 11");
  for (const auto& c : cases) {
    EXPECT_EQ(Formatted(c.pattern, t), c.text) << c.pattern;
    EXPECT_EQ(DateTimeFormatter(VxTimeUtl::eParseFormat, c.pattern).Format(SimpDateTime()), "");
  }

  // Parsing reads back what the fields show; fields the pattern lacks take 1900-01-01 00:00.
  EXPECT_EQ(Parsed("yyyy-MM-dd HH:mm:ss", "2024-03-05 14:07:09"),
            SimpDateTime(2024, 3, 5, 14, 7, 9));
  EXPECT_EQ(Parsed("dd MMM yyyy hh:mm tt", "05 mAR 2024 02:07 pm"),
            SimpDateTime(2024, 3, 5, 14, 7));
  EXPECT_EQ(Parsed("dd MMM yyyy", "05 Sep 2024"), SimpDateTime(2024, 9, 5));
  EXPECT_EQ(Parsed("dd MMM yyyy", "05 DEC 2024"), SimpDateTime(2024, 12, 5));
  EXPECT_EQ(Parsed("h:mm tt", "12:15 AM"), SimpDateTime(1900, 1, 1, 0, 15));
  EXPECT_EQ(Parsed("h:mm tt", "12:15 PM"), SimpDateTime(1900, 1, 1, 12, 15));
  EXPECT_EQ(Parsed("hh:mm", "12:15"), SimpDateTime(1900, 1, 1, 0, 15));         // AM without tt
  EXPECT_EQ(Parsed("tt HH:mm", "AM 14:15"), SimpDateTime(1900, 1, 1, 14, 15));  // tt needs h
  EXPECT_EQ(Parsed("HH:mm", "14:15"), SimpDateTime(1900, 1, 1, 14, 15));
  EXPECT_EQ(Parsed("MMM yyyy", "Feb 2024"), SimpDateTime(2024, 2, 1));
  EXPECT_EQ(Parsed("yy", "69"), SimpDateTime(2069, 1, 1));
  EXPECT_EQ(Parsed("yy", "70"), SimpDateTime(1970, 1, 1));
  EXPECT_EQ(Parsed("d/M/yyyy H:m:s", "5/3/2024 4:7:9"), SimpDateTime(2024, 3, 5, 4, 7, 9));
  EXPECT_EQ(Parsed("d/M/yyyy H:m:s", "15/12/2024 14:07:09"), SimpDateTime(2024, 12, 15, 14, 7, 9));
  EXPECT_EQ(Parsed("ss.fff", "09.5"), SimpDateTime(1900, 1, 1, 0, 0, 9, 500000));
  EXPECT_EQ(Parsed("ss.f", "09.123456"), SimpDateTime(1900, 1, 1, 0, 0, 9, 123456));
  EXPECT_EQ(Parsed("yyyyMMddHHmmssfff", "20240305140709123"),
            SimpDateTime(2024, 3, 5, 14, 7, 9, 123000));
  EXPECT_EQ(Parsed("'It''s' yyyy", "It's 2024"), SimpDateTime(2024, 1, 1));
  EXPECT_EQ(Parsed("abc", "abc"), SimpDateTime(1900, 1, 1));
  // White space around the text is skipped, and so is the pattern's own at its ends.
  EXPECT_EQ(Parsed(" yyyy-MM-dd ", "2024-03-05"), SimpDateTime(2024, 3, 5));
  EXPECT_EQ(Parsed("yyyy-MM-dd", " \t2024-03-05\n"), SimpDateTime(2024, 3, 5));
  EXPECT_EQ(Parsed("  ", "  "), SimpDateTime(1900, 1, 1));

  for (const auto& [pattern, text] :
       std::vector<std::pair<const char*, const char*>>{{"yyyy-MM-dd", "2024-3-05"},
                                                        {"yyyy-MM-dd", "24-03-05"},
                                                        {"yy-MM-dd", "2024-03-05"},
                                                        {"yyyy-MM-dd", "2024-03-05x"},
                                                        {"yyyy-MM-dd", "2024-03-05 14"},
                                                        {"yyyy-MM-dd", "2024/03/05"},
                                                        {"yyyy-MM-dd HH", "2024-03-05  14"},
                                                        {"d/M/yyyy", "123/1/2024"},
                                                        {"dd MMM yyyy", "05 Mrz 2024"},
                                                        {"dd MMM yyyy", "05 Ma 2024"},
                                                        {"dd MMM yyyy", "05 03 2024"},
                                                        {"hh:mm tt", "13:00 PM"},
                                                        {"hh:mm tt", "00:00 AM"},
                                                        {"hh:mm tt", "11:00 XM"},
                                                        {"hh:mm tt", "11:00"},
                                                        {"ss.fff", "09."},
                                                        {"ss.fff", "09.1234567"},
                                                        {"abc", "abd"},
                                                        {"abc", "ab"},
                                                        {"yyyy-MM-dd", ""},
                                                        {"yyyy-MM-dd", "2023-02-29"},
                                                        {"yyyy-MM-dd", "2024-02-30"},
                                                        {"yyyy-MM-dd", "1399-12-31"},
                                                        {"HH:mm", "24:00"},
                                                        {"HH:mm", "23:60"},
                                                        {"HH:mm:ss", "23:59:60"},
                                                        {"d.M", "31.4"}}) {
    EXPECT_FALSE(Parsed(pattern, text).IsValid()) << pattern << " / " << text;
  }

  // An empty pattern is ISO 8601.
  const DateTimeFormatter empty(VxTimeUtl::eParseFormat, "");
  EXPECT_EQ(empty.Format(t), "2024-03-05T14:07:09.123456");
  EXPECT_EQ(Parsed(empty, "20240305T140709"), SimpDateTime(2024, 3, 5, 14, 7, 9));
  EXPECT_TRUE(empty.ShowsFractions());
  EXPECT_TRUE(DateTimeFormatter(VxTimeUtl::eParseFormat, "ss.ff").ShowsFractions());
  EXPECT_FALSE(DateTimeFormatter(VxTimeUtl::eParseFormat, "yyyy-MM-dd HH:mm:ss").ShowsFractions());
  EXPECT_FALSE(DateTimeFormatter(VxTimeUtl::eParseFormat, "'ff' ss").ShowsFractions());
  EXPECT_TRUE(DayFirst().ShowsFractions());

  // The other modes keep their pattern without using it; unknown modes are refused.
  const DateTimeFormatter iso(VxTimeUtl::eParseISO8601, "dd/MM/yyyy");
  EXPECT_EQ(iso.GetMode(), VxTimeUtl::eParseISO8601);
  EXPECT_EQ(iso.GetPattern(), "dd/MM/yyyy");
  EXPECT_EQ(iso.Format(t), "2024-03-05T14:07:09.123456");
  EXPECT_THROW(DateTimeFormatter(4, ""), InvalidArgument);
  EXPECT_THROW(DateTimeFormatter(-1, "yyyy"), InvalidArgument);
}

TEST(DateTimeFormatter, FormatsParseBackAcrossTheRange) {
  const struct {
    DateTimeFormatter formatter;
    std::int64_t resolution;  // microseconds the format shows
  } formats[] = {
      {Iso(), 1},
      {DayFirst(), 1000},
      {MonthFirst(), 1000},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, ""), 1},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "yyyy-MM-dd HH:mm:ss.ffffff"), 1},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "d MMM yyyy h:m:s.fff tt"), 1000},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "yyyyMMddHHmmssf"), 100000},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "M/d/yyyy H:mm"), 60000000},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "'on' dd.MM.yyyy 'at' hh tt"), 3600000000}};
  const std::int64_t first = SimpDateTime(1400, 1, 1).GetEpochMicroseconds();
  const std::int64_t span =
      SimpDateTime(9999, 12, 31, 23, 59, 59, 999999).GetEpochMicroseconds() - first + 1;
  std::uint64_t state = 0x9E3779B97F4A7C15u;
  std::vector<SimpDateTime> values{
      SimpDateTime(1400, 1, 1), SimpDateTime(9999, 12, 31, 23, 59, 59, 999999),
      SimpDateTime(2024, 2, 29, 12, 0), SimpDateTime(2023, 1, 1, 0, 59)};
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
  const DateTimeFormatter shortYear(VxTimeUtl::eParseFormat, "dd/MM/yy HH:mm");
  for (const int year : {1970, 1999, 2000, 2069}) {
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
  const DateTimeFormatter withNul(VxTimeUtl::eParseFormat, std::string("yyyy\0MM", 7));
  const char nulThenMonth[] =
      "2024\0"
      "03";
  EXPECT_FALSE(withNul.Parse(nulThenMonth, out));

  // Every prefix of valid texts, and odd bytes, in every mode: no crash, no read past the end
  // (see Parsed), no exception.
  const std::vector<DateTimeFormatter> formatters{
      Iso(), DayFirst(), MonthFirst(),
      DateTimeFormatter(VxTimeUtl::eParseFormat, "dd MMM yyyy hh:mm:ss.ffffff tt"),
      DateTimeFormatter(VxTimeUtl::eParseFormat, "'x' d/M/yy H:m:s.f 'y'")};
  std::vector<std::string> texts;
  for (const std::string& valid :
       {std::string("2024-03-05T14:30:15.123456Z"), std::string("20240305T143015.5"),
        std::string("05/03/2024 2:30:15.25 PM"), std::string("05 Mar 2024 02:30:15.000001 PM"),
        std::string("x 5/3/24 4:7:9.1 y")}) {
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
