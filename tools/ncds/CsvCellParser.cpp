#include "tools/ncds/CsvCellParser.h"

#include <fast_float/fast_float.h>

#include <cmath>
#include <cstring>
#include <utility>

#include "ncds/foundations/SimpDateTime.h"
#include "ncds/foundations/VxTimeUtl.h"

namespace ncds::tool {
namespace detail {
namespace {

// The longest ISO 8601 text the formatter reads, with room for blanks around it.
constexpr std::size_t kMaxDateTimeLength = 48;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace
}  // namespace detail

CsvCellParser::CsvCellParser(char decimal, std::vector<std::string> missingTexts)
    : mDecimal(decimal),
      mMissingTexts(std::move(missingTexts)),
      mIso(VxTimeUtl::eParseISO8601, std::string()) {}

const float CsvCellParser::kPowersOfTen[8] = {1e0F, 1e1F, 1e2F, 1e3F, 1e4F, 1e5F, 1e6F, 1e7F};
const double CsvCellParser::kInversePowersOfTen[8] = {1e0,  1e-1, 1e-2, 1e-3,
                                                      1e-4, 1e-5, 1e-6, 1e-7};

CsvCellParser::NumberResult CsvCellParser::ParseOtherNumber(std::string_view text,
                                                            float& value) const {
  const char* first = text.data();
  const char* const last = first + text.size();
  // fast_float reads no leading '+'; a '+' must be followed by the number itself.
  if (first != last && *first == '+') {
    ++first;
    if (first == last || !(detail::IsDigit(*first) || *first == mDecimal)) {
      return NumberResult::eNotANumber;
    }
    if (ParsePlainDecimal(first, last, mDecimal, value)) return NumberResult::eNumber;
  }
  float parsed = 0.0F;
  const auto result = fast_float::from_chars_advanced(
      first, last, parsed, fast_float::parse_options(fast_float::chars_format::general, mDecimal));
  if (result.ec != std::errc() || result.ptr != last) return NumberResult::eNotANumber;
  if (!std::isfinite(parsed)) {
    // "inf" and "nan" are words; digits that overflow are a number out of range.
    const char* p = first;
    if (p != last && *p == '-') ++p;
    return p != last && (detail::IsDigit(*p) || *p == mDecimal) ? NumberResult::eOutOfRange
                                                                : NumberResult::eNotANumber;
  }
  value = parsed;
  return NumberResult::eNumber;
}

bool CsvCellParser::ParseDateTime(std::string_view text, std::int64_t& microseconds) const {
  // Every ISO 8601 form starts with the year; the formatter wants a terminated string.
  if (text.empty() || text.size() >= detail::kMaxDateTimeLength || !detail::IsDigit(text[0]) ||
      std::memchr(text.data(), '\0', text.size())) {
    return false;
  }
  char terminated[detail::kMaxDateTimeLength];
  std::memcpy(terminated, text.data(), text.size());
  terminated[text.size()] = '\0';
  VxTimeUtl::SimpDateTime value;
  if (!mIso.Parse(terminated, value)) return false;
  microseconds = value.GetEpochMicroseconds();
  return true;
}

bool CsvCellParser::LooksLikeNumber(std::string_view text) {
  bool digit = false;
  for (const char c : text) {
    if (detail::IsDigit(c)) {
      digit = true;
    } else if (c != '+' && c != '-' && c != '.' && c != ',' && c != 'e' && c != 'E') {
      return false;
    }
  }
  return digit;
}

}  // namespace ncds::tool
