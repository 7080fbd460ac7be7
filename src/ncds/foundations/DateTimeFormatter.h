#ifndef NCDS_FOUNDATIONS_DATETIMEFORMATTER_H
#define NCDS_FOUNDATIONS_DATETIMEFORMATTER_H

// Turns text into SimpDateTime and back, in one of the EParseType modes:
//
//   eParseISO8601     "2024-03-05", "2024-03-05T14:30", "...T14:30:15", "...T14:30:15.5" (one
//                     to six fraction digits, '.' or ','), a single space instead of 'T', the
//                     basic forms "20240305", "20240305T1430", "20240305T143015[.f]"; a
//                     trailing 'Z' is ignored, offsets such as "+01:00" are refused. Formats as
//                     SimpDateTime::ToISOString.
//   eParseDayFirst    "5/3/2024", "05.03.2024 14:30", "05-03-2024 14:30:15.25": day and month
//                     of one or two digits, the same separator ('/', '.' or '-') twice, a year
//                     of four digits or of two (70..99 mean 1970..1999, 00..69 mean
//                     2000..2069), then optionally white space and H:mm[:ss[.f]] (one to six
//                     fraction digits, '.' or ','), optionally followed by AM or PM for a 12-hour
//                     clock. Formats as "dd/MM/yyyy HH:mm:ss" plus ".fff" when the milliseconds
//                     are not zero; finer fractions are cut off.
//   eParseMonthFirst  the same with day and month swapped: "MM/dd/yyyy HH:mm:ss[.fff]".
//   eParseFormat      the pattern below; an empty pattern behaves as eParseISO8601.
//
// Pattern tokens:
//   yyyy  four-digit year          yy    two-digit year (as above; formats the year mod 100)
//   MM    month 01..12             M     month 1..12 (one or two digits when parsing)
//   MMM   Jan..Dec (any case when parsing)
//   dd    day 01..31               d     day 1..31 (one or two digits when parsing)
//   HH    hour 00..23              H     hour 0..23 (one or two digits when parsing)
//   hh    hour 01..12              h     hour 1..12, with tt for AM/PM (AM when tt is absent)
//   tt    AM or PM (any case when parsing); read with H or HH, it does not change the hour
//   mm    minute 00..59            m     minute 0..59
//   ss    second 00..59            s     second 0..59
//   f..ffffff  as many fraction digits when formatting (cut off, not rounded); one to six
//         digits when parsing
// Numbers of two-letter tokens and years take exactly their width of digits when parsing.
// Longer runs of a token letter split from the left ("MMMM" is "MMM" then "M"); a lone 'y' or
// 't' is literal, as is every other character and text in single quotes, where two single
// quotes stand for one.
// Fields the pattern lacks default to 1900-01-01 00:00:00.
//
// Parsing accepts white space around the text and refuses anything else that does not match
// in full, as well as impossible dates and times (2023-02-29, hour 24, minute 60) and years
// outside 1400..9999. It never throws and never reads past the terminating NUL. Parse of
// Format gives the value back whenever the format shows all of it: every field, and as many
// fraction digits as the value needs (a single-letter field must not be followed directly by
// a digit field for that).
//
// Parse and Format are hand-written scanners that allocate nothing but the formatted string;
// a formatter may be shared between threads.

#include <cstddef>
#include <string>
#include <vector>

#include "ncds/foundations/SimpDateTime.h"
#include "ncds/foundations/VxTimeUtl.h"
#include "ncds/ncds_export.h"

namespace VxTimeUtl {

class NCDS_EXPORT DateTimeFormatter {
 public:
  // `mode` is an EParseType value; eParseFormat uses `pattern`, the other modes keep it
  // without using it. Throws InvalidArgument for any other mode.
  DateTimeFormatter(int mode, const std::string& pattern);
  DateTimeFormatter(const DateTimeFormatter& other);
  DateTimeFormatter(DateTimeFormatter&& other) noexcept;
  DateTimeFormatter& operator=(const DateTimeFormatter& other);
  DateTimeFormatter& operator=(DateTimeFormatter&& other) noexcept;
  ~DateTimeFormatter();

  // True with the value in `out`, or false with `out` untouched when `text` (which may be
  // null) does not parse or names an impossible date-time.
  bool Parse(const char* text, SimpDateTime& out) const;
  // "" for not-a-date-time.
  std::string Format(const SimpDateTime& value) const;

  int GetMode() const { return mMode; }
  const std::string& GetPattern() const { return mPattern; }
  // True when Format can show fractions of a second: the pattern has "f" tokens, or the mode
  // is one of the fixed forms, which show them when a value has them.
  bool ShowsFractions() const { return mShowsFractions; }

 private:
  struct Token;

  bool ParsePattern(const char* p, SimpDateTime& out) const;
  std::string FormatPattern(const SimpDateTime& value) const;

  int mMode;
  std::string mPattern;
  bool mUsesPattern = false;  // eParseFormat with a non-empty pattern
  bool mShowsFractions = true;
  std::vector<Token> mTokens;
  std::string mLiterals;          // the literal text of the tokens, one after the other
  std::size_t mFormatLength = 0;  // the longest text Format can give
};

}  // namespace VxTimeUtl

#endif  // NCDS_FOUNDATIONS_DATETIMEFORMATTER_H
