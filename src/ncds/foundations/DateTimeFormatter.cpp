#include "ncds/foundations/DateTimeFormatter.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/detail/Calendar.h"

namespace ncds::detail {
namespace {

// The fields a parser collects; defaults for the ones the text lacks.
struct Fields {
  int year = 1900;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int microsecond = 0;
};

constexpr const char kMonthNames[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int kPowersOfTen[7] = {1, 10, 100, 1000, 10000, 100000, 1000000};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

const char* SkipSpace(const char* p) {
  while (IsSpace(*p)) ++p;
  return p;
}

// The text ends here, but for white space.
bool AtEnd(const char* p) { return *SkipSpace(p) == '\0'; }

// Steps over `c` when it comes next.
bool Take(const char*& p, char c) {
  if (*p != c) return false;
  ++p;
  return true;
}

// Reads `minDigits` to `maxDigits` decimal digits (as many as there are).
bool ReadNumber(const char*& p, int minDigits, int maxDigits, int& value) {
  int digits = 0;
  int result = 0;
  for (; digits < maxDigits && IsDigit(*p); ++digits, ++p) result = result * 10 + (*p - '0');
  if (digits < minDigits) return false;
  value = result;
  return true;
}

// One to six digits after the decimal separator, as microseconds.
bool ReadFraction(const char*& p, int& microsecond) {
  const char* start = p;
  int value = 0;
  if (!ReadNumber(p, 1, 6, value)) return false;
  microsecond = value * kPowersOfTen[6 - (p - start)];
  return true;
}

// "AM" or "PM" in any case; `pm` tells which.
bool ReadAmPm(const char*& p, bool& pm) {
  const char first = LowerAscii(p[0]);
  if ((first != 'a' && first != 'p') || LowerAscii(p[1]) != 'm') return false;
  pm = first == 'p';
  p += 2;
  return true;
}

// "Jan".."Dec" in any case.
bool ReadMonthName(const char*& p, int& month) {
  for (int i = 0; i < 12; ++i) {
    const char* name = kMonthNames[i];
    if (LowerAscii(p[0]) == LowerAscii(name[0]) && LowerAscii(p[1]) == name[1] &&
        LowerAscii(p[2]) == name[2]) {
      month = i + 1;
      p += 3;
      return true;
    }
  }
  return false;
}

// 70..99 are the years 1970..1999, 00..69 the years 2000..2069.
int YearOfTwoDigits(int yy) { return yy >= 70 ? 1900 + yy : 2000 + yy; }

// Turns an hour of a 12-hour clock (1..12) into 0..23; false for other hours.
bool FromTwelveHours(int& hour, bool pm) {
  if (hour < 1 || hour > 12) return false;
  hour = hour % 12 + (pm ? 12 : 0);
  return true;
}

bool MakeDateTime(const Fields& f, VxTimeUtl::SimpDateTime& out) {
  const VxTimeUtl::SimpDateTime value(f.year, f.month, f.day, f.hour, f.minute, f.second,
                                      f.microsecond);
  if (!value.IsValid()) return false;
  out = value;
  return true;
}

bool ParseIso(const char* p, Fields& f) {
  p = SkipSpace(p);
  if (!ReadNumber(p, 4, 4, f.year)) return false;
  const bool extended = Take(p, '-');
  if (!ReadNumber(p, 2, 2, f.month) || (extended && !Take(p, '-')) || !ReadNumber(p, 2, 2, f.day)) {
    return false;
  }
  if ((*p == 'T' || *p == 't' || *p == ' ') && IsDigit(p[1])) {
    ++p;
    if (!ReadNumber(p, 2, 2, f.hour) || (extended && !Take(p, ':')) ||
        !ReadNumber(p, 2, 2, f.minute)) {
      return false;
    }
    if (extended ? Take(p, ':') : IsDigit(*p)) {
      if (!ReadNumber(p, 2, 2, f.second)) return false;
      if ((Take(p, '.') || Take(p, ',')) && !ReadFraction(p, f.microsecond)) return false;
    }
  }
  if (*p == 'Z' || *p == 'z') ++p;
  return AtEnd(p);
}

bool ParseDayMonth(const char* p, bool dayFirst, Fields& f) {
  p = SkipSpace(p);
  int first = 0;
  int second = 0;
  if (!ReadNumber(p, 1, 2, first)) return false;
  const char separator = *p;
  if (separator != '/' && separator != '.' && separator != '-') return false;
  ++p;
  if (!ReadNumber(p, 1, 2, second) || !Take(p, separator)) return false;
  const char* yearStart = p;
  if (!ReadNumber(p, 2, 4, f.year)) return false;
  if (p - yearStart == 2) {
    f.year = YearOfTwoDigits(f.year);
  } else if (p - yearStart != 4) {
    return false;
  }
  f.day = dayFirst ? first : second;
  f.month = dayFirst ? second : first;

  const char* clock = SkipSpace(p);
  if (clock == p || !IsDigit(*clock)) return AtEnd(p);
  p = clock;
  if (!ReadNumber(p, 1, 2, f.hour) || !Take(p, ':') || !ReadNumber(p, 2, 2, f.minute)) {
    return false;
  }
  if (Take(p, ':')) {
    if (!ReadNumber(p, 2, 2, f.second)) return false;
    if ((Take(p, '.') || Take(p, ',')) && !ReadFraction(p, f.microsecond)) return false;
  }
  const char* suffix = SkipSpace(p);
  bool pm = false;
  if (ReadAmPm(suffix, pm)) {
    if (!FromTwelveHours(f.hour, pm)) return false;
    p = suffix;
  }
  return AtEnd(p);
}

// Writes `value` (non-negative, below 10^width) as `width` digits, zero-padded.
char* PutDigits(char* p, int value, int width) {
  for (int i = width - 1; i >= 0; --i, value /= 10) p[i] = static_cast<char>('0' + value % 10);
  return p + width;
}

// One or two digits, without padding.
char* PutNumber(char* p, int value) {
  return value < 10 ? PutDigits(p, value, 1) : PutDigits(p, value, 2);
}

// "dd/MM/yyyy HH:mm:ss[.fff]" or "MM/dd/yyyy HH:mm:ss[.fff]".
std::string FormatDayMonth(const VxTimeUtl::SimpDateTime& value, bool dayFirst) {
  const CivilTime c = SplitMicroseconds(value.GetEpochMicroseconds());
  char buf[32];
  char* p = PutDigits(buf, dayFirst ? c.day : c.month, 2);
  *p++ = '/';
  p = PutDigits(p, dayFirst ? c.month : c.day, 2);
  *p++ = '/';
  p = PutDigits(p, c.year, 4);
  *p++ = ' ';
  p = PutDigits(p, c.hour, 2);
  *p++ = ':';
  p = PutDigits(p, c.minute, 2);
  *p++ = ':';
  p = PutDigits(p, c.second, 2);
  if (c.microsecond >= 1000) {
    *p++ = '.';
    p = PutDigits(p, c.microsecond / 1000, 3);
  }
  return std::string(buf, p);
}

bool StartsToken(char c) {
  switch (c) {
    case 'y':
    case 'M':
    case 'd':
    case 'H':
    case 'h':
    case 'm':
    case 's':
    case 'f':
    case 't':
      return true;
    default:
      return false;
  }
}

// The longest form of token letter `c` that is at most `run` letters long; 0 when there is
// none (a lone 'y' or 't' is literal).
int TokenLength(char c, std::size_t run) {
  switch (c) {
    case 'y':
      return run >= 4 ? 4 : run >= 2 ? 2 : 0;
    case 'M':
      return run >= 3 ? 3 : static_cast<int>(run);
    case 'f':
      return run >= 6 ? 6 : static_cast<int>(run);
    case 't':
      return run >= 2 ? 2 : 0;
    default:
      return run >= 2 ? 2 : 1;
  }
}

}  // namespace
}  // namespace ncds::detail

namespace VxTimeUtl {

struct DateTimeFormatter::Token {
  enum Kind : std::uint8_t {
    kLiteral,
    kYear4,
    kYear2,
    kMonth,  // width 1 or 2
    kMonthName,
    kDay,
    kHour24,
    kHour12,
    kMinute,
    kSecond,
    kFraction,  // width 1..6
    kAmPm
  };

  Kind kind;
  int width;
  // Literals: the text Format writes and the part of it that Parse matches (without white
  // space at the start of the pattern and at its end), as ranges of mLiterals.
  std::size_t offset;
  std::size_t length;
  std::size_t parseOffset;
  std::size_t parseLength;
};

DateTimeFormatter::DateTimeFormatter(int mode, const std::string& pattern)
    : mMode(mode), mPattern(pattern) {
  if (mode != eParseISO8601 && mode != eParseDayFirst && mode != eParseFormat &&
      mode != eParseMonthFirst) {
    throw InvalidArgument("DateTimeFormatter: unknown parse mode " + std::to_string(mode));
  }
  mUsesPattern = mode == eParseFormat && !pattern.empty();
  if (!mUsesPattern) return;

  auto addLiteral = [this](char c) {
    if (mTokens.empty() || mTokens.back().kind != Token::kLiteral) {
      mTokens.push_back({Token::kLiteral, 0, mLiterals.size(), 0, 0, 0});
    }
    mLiterals += c;
    ++mTokens.back().length;
  };
  const std::size_t n = pattern.size();
  for (std::size_t i = 0; i < n;) {
    const char c = pattern[i];
    if (c == '\'') {
      // Quoted text; '' is a quote, inside quotes and outside.
      if (i + 1 < n && pattern[i + 1] == '\'') {
        addLiteral('\'');
        i += 2;
        continue;
      }
      for (++i; i < n; ++i) {
        if (pattern[i] == '\'') {
          if (i + 1 < n && pattern[i + 1] == '\'') {
            addLiteral('\'');
            ++i;
            continue;
          }
          ++i;
          break;
        }
        addLiteral(pattern[i]);
      }
      continue;
    }
    if (!ncds::detail::StartsToken(c)) {
      addLiteral(c);
      ++i;
      continue;
    }
    std::size_t run = 1;
    while (i + run < n && pattern[i + run] == c) ++run;
    for (std::size_t done = 0; done < run;) {
      const int length = ncds::detail::TokenLength(c, run - done);
      if (length == 0) {
        addLiteral(c);
        ++done;
        continue;
      }
      Token token{Token::kLiteral, length, 0, 0, 0, 0};
      switch (c) {
        case 'y':
          token.kind = length == 4 ? Token::kYear4 : Token::kYear2;
          break;
        case 'M':
          token.kind = length == 3 ? Token::kMonthName : Token::kMonth;
          break;
        case 'd':
          token.kind = Token::kDay;
          break;
        case 'H':
          token.kind = Token::kHour24;
          break;
        case 'h':
          token.kind = Token::kHour12;
          break;
        case 'm':
          token.kind = Token::kMinute;
          break;
        case 's':
          token.kind = Token::kSecond;
          break;
        case 'f':
          token.kind = Token::kFraction;
          break;
        default:
          token.kind = Token::kAmPm;
          break;
      }
      mTokens.push_back(token);
      done += static_cast<std::size_t>(length);
    }
    i += run;
  }

  mShowsFractions = false;
  for (Token& token : mTokens) {
    switch (token.kind) {
      case Token::kLiteral:
        mFormatLength += token.length;
        token.parseOffset = token.offset;
        token.parseLength = token.length;
        break;
      case Token::kMonth:
      case Token::kDay:
      case Token::kHour24:
      case Token::kHour12:
      case Token::kMinute:
      case Token::kSecond:
        mFormatLength += 2;  // one or two digits, whatever the width of the token
        break;
      case Token::kFraction:
        mShowsFractions = true;
        mFormatLength += static_cast<std::size_t>(token.width);
        break;
      default:  // years, month names and AM/PM are as wide as their tokens
        mFormatLength += static_cast<std::size_t>(token.width);
        break;
    }
  }
  // White space that surrounds the text is skipped anyway; the pattern's own must not
  // demand more.
  if (!mTokens.empty() && mTokens.front().kind == Token::kLiteral) {
    Token& first = mTokens.front();
    while (first.parseLength > 0 && ncds::detail::IsSpace(mLiterals[first.parseOffset])) {
      ++first.parseOffset;
      --first.parseLength;
    }
  }
  if (!mTokens.empty() && mTokens.back().kind == Token::kLiteral) {
    Token& last = mTokens.back();
    while (last.parseLength > 0 &&
           ncds::detail::IsSpace(mLiterals[last.parseOffset + last.parseLength - 1])) {
      --last.parseLength;
    }
  }
}

DateTimeFormatter::DateTimeFormatter(const DateTimeFormatter& other) = default;
DateTimeFormatter::DateTimeFormatter(DateTimeFormatter&& other) noexcept = default;
DateTimeFormatter& DateTimeFormatter::operator=(const DateTimeFormatter& other) = default;
DateTimeFormatter& DateTimeFormatter::operator=(DateTimeFormatter&& other) noexcept = default;
DateTimeFormatter::~DateTimeFormatter() = default;

bool DateTimeFormatter::Parse(const char* text, SimpDateTime& out) const {
  if (!text) return false;
  if (mUsesPattern) return ParsePattern(text, out);
  ncds::detail::Fields fields;
  bool parsed = false;
  switch (mMode) {
    case eParseDayFirst:
      parsed = ncds::detail::ParseDayMonth(text, true, fields);
      break;
    case eParseMonthFirst:
      parsed = ncds::detail::ParseDayMonth(text, false, fields);
      break;
    default:
      parsed = ncds::detail::ParseIso(text, fields);
      break;
  }
  return parsed && ncds::detail::MakeDateTime(fields, out);
}

bool DateTimeFormatter::ParsePattern(const char* p, SimpDateTime& out) const {
  using ncds::detail::ReadNumber;
  ncds::detail::Fields f;
  int twelveHour = -1;
  bool pm = false;
  p = ncds::detail::SkipSpace(p);
  for (const Token& token : mTokens) {
    const int minDigits = token.width == 2 ? 2 : 1;
    bool matched = true;
    switch (token.kind) {
      case Token::kLiteral: {
        const char* literal = mLiterals.data() + token.parseOffset;
        for (std::size_t i = 0; matched && i < token.parseLength; ++i) {
          matched = *p != '\0' && *p == literal[i];
          if (matched) ++p;
        }
        break;
      }
      case Token::kYear4:
        matched = ReadNumber(p, 4, 4, f.year);
        break;
      case Token::kYear2:
        matched = ReadNumber(p, 2, 2, f.year);
        if (matched) f.year = ncds::detail::YearOfTwoDigits(f.year);
        break;
      case Token::kMonth:
        matched = ReadNumber(p, minDigits, 2, f.month);
        break;
      case Token::kMonthName:
        matched = ncds::detail::ReadMonthName(p, f.month);
        break;
      case Token::kDay:
        matched = ReadNumber(p, minDigits, 2, f.day);
        break;
      case Token::kHour24:
        matched = ReadNumber(p, minDigits, 2, f.hour);
        break;
      case Token::kHour12:
        matched = ReadNumber(p, minDigits, 2, twelveHour);
        break;
      case Token::kMinute:
        matched = ReadNumber(p, minDigits, 2, f.minute);
        break;
      case Token::kSecond:
        matched = ReadNumber(p, minDigits, 2, f.second);
        break;
      case Token::kFraction:
        matched = ncds::detail::ReadFraction(p, f.microsecond);
        break;
      case Token::kAmPm:
        matched = ncds::detail::ReadAmPm(p, pm);
        break;
    }
    if (!matched) return false;
  }
  if (!ncds::detail::AtEnd(p)) return false;
  if (twelveHour >= 0) {
    if (!ncds::detail::FromTwelveHours(twelveHour, pm)) return false;
    f.hour = twelveHour;
  }
  return ncds::detail::MakeDateTime(f, out);
}

std::string DateTimeFormatter::Format(const SimpDateTime& value) const {
  if (!value.IsValid()) return std::string();
  if (mUsesPattern) return FormatPattern(value);
  switch (mMode) {
    case eParseDayFirst:
      return ncds::detail::FormatDayMonth(value, true);
    case eParseMonthFirst:
      return ncds::detail::FormatDayMonth(value, false);
    default:
      return value.ToISOString();
  }
}

std::string DateTimeFormatter::FormatPattern(const SimpDateTime& value) const {
  using ncds::detail::PutDigits;
  const ncds::detail::CivilTime c = ncds::detail::SplitMicroseconds(value.GetEpochMicroseconds());
  // Room for the longest text, written through a pointer and cut to size at the end.
  std::string text(mFormatLength, '\0');
  char* const begin = text.data();
  char* p = begin;
  for (const Token& token : mTokens) {
    switch (token.kind) {
      case Token::kLiteral:
        p = std::copy_n(mLiterals.data() + token.offset, token.length, p);
        break;
      case Token::kYear4:
        p = PutDigits(p, c.year, 4);
        break;
      case Token::kYear2:
        p = PutDigits(p, c.year % 100, 2);
        break;
      case Token::kMonthName:
        p = std::copy_n(ncds::detail::kMonthNames[c.month - 1], 3, p);
        break;
      case Token::kFraction:
        p = PutDigits(p, c.microsecond / ncds::detail::kPowersOfTen[6 - token.width], token.width);
        break;
      case Token::kAmPm:
        *p++ = c.hour < 12 ? 'A' : 'P';
        *p++ = 'M';
        break;
      default: {
        int number = 0;
        switch (token.kind) {
          case Token::kMonth:
            number = c.month;
            break;
          case Token::kDay:
            number = c.day;
            break;
          case Token::kHour24:
            number = c.hour;
            break;
          case Token::kHour12:
            number = c.hour % 12 == 0 ? 12 : c.hour % 12;
            break;
          case Token::kMinute:
            number = c.minute;
            break;
          default:
            number = c.second;
            break;
        }
        p = token.width == 2 ? PutDigits(p, number, 2) : ncds::detail::PutNumber(p, number);
        break;
      }
    }
  }
  text.resize(static_cast<std::size_t>(p - begin));
  return text;
}

}  // namespace VxTimeUtl
