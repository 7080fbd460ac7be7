#ifndef NCDS_TOOLS_NCDS_CSVCELLPARSER_H
#define NCDS_TOOLS_NCDS_CSVCELLPARSER_H

// What the text of one CSV cell holds: nothing (missing), a number, an ISO 8601 date-time, a
// malformed number, or other text. Import decides the kind of each column from the kinds of
// its cells.
//
// - Cells are trimmed of blanks (space, tab, CR, LF, FF, VT) at both ends first.
// - Missing: empty, or equal to one of the missing texts.
// - Number: the whole text is a decimal number with the chosen decimal character, an optional
//   sign and exponent ("-1.5e3", "+.5", "1,5" with decimal ','), within the range of a
//   single-precision float; it reads as the nearest float. "inf" and "nan" are text.
// - Date-time: ISO 8601 as `VxTimeUtl::DateTimeFormatter` reads it ("2024-03-05",
//   "2024-03-05T14:30:15.25", "20240305T1430", ...), as microseconds since 1970-01-01.
// - Malformed number: made of number characters only (digits, signs, '.', ',', 'e', 'E') with
//   at least one digit, yet neither a number nor a date-time: "1,5" when the decimal
//   character is '.', "1.2.3", "1e400". Such cells are the typing errors that make import
//   fail in a column of numbers.
//
// Const operations are safe from several threads; nothing allocates. The common short
// decimals are read inline, the rest by fast_float.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ncds/foundations/DateTimeFormatter.h"

namespace ncds::tool {

class CsvCellParser {
 public:
  enum class NumberResult { eNumber, eNotANumber, eOutOfRange };

  CsvCellParser(char decimal, std::vector<std::string> missingTexts);

  // `text` without blanks at either end.
  static std::string_view Trim(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && IsBlank(text[begin])) ++begin;
    while (end > begin && IsBlank(text[end - 1])) --end;
    return text.substr(begin, end - begin);
  }

  // For trimmed texts.
  bool IsMissing(std::string_view text) const {
    if (text.empty()) return true;
    for (const std::string& missing : mMissingTexts) {
      if (text == missing) return true;
    }
    return false;
  }
  NumberResult ParseNumber(std::string_view text, float& value) const {
    const char* first = text.data();
    if (ParsePlainDecimal(first, first + text.size(), mDecimal, value))
      return NumberResult::eNumber;
    return ParseOtherNumber(text, value);
  }
  bool ParseDateTime(std::string_view text, std::int64_t& microseconds) const;
  // True for a text made of number characters only with at least one digit.
  static bool LooksLikeNumber(std::string_view text);

  char GetDecimal() const { return mDecimal; }

 private:
  // Powers of ten a float holds exactly, and their inverses rounded to double.
  static const float kPowersOfTen[8];
  static const double kInversePowersOfTen[8];

  // The `length` (1..8) bytes at `p` in the low bytes of a word, the first lowest, read with
  // fixed-size loads that stay within the bytes (overlapping where the length is odd).
  static std::uint64_t LoadShort(const char* p, std::size_t length) {
    if (length >= 4) {
      std::uint32_t low = 0;
      std::uint32_t high = 0;
      std::memcpy(&low, p, 4);
      std::memcpy(&high, p + length - 4, 4);
      return low | (static_cast<std::uint64_t>(high) << (8 * (length - 4)));
    }
    if (length >= 2) {
      std::uint16_t low = 0;
      std::uint16_t high = 0;
      std::memcpy(&low, p, 2);
      std::memcpy(&high, p + length - 2, 2);
      return low | (static_cast<std::uint64_t>(high) << (8 * (length - 2)));
    }
    return static_cast<unsigned char>(*p);
  }

  // The common case of CSV numbers, read without the general machinery: an optional '-', then
  // at most eight characters, digits with at most one decimal character among them, no
  // exponent, and at most 2^24 as the integer of all digits. Both that integer and the power of ten
  // are exact floats then, so one division gives the nearest float to the decimal, the same float
  // the general reader gives. The digits are checked and converted eight at a time in one 64-bit
  // word (little-endian: the first character in the lowest byte). False, with `value` untouched,
  // for anything else.
  static bool ParsePlainDecimal(const char* p, const char* last, char decimal, float& value) {
    constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
    constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
    constexpr std::uint64_t kZeros = 0x3030303030303030ULL;  // eight '0'
    constexpr std::uint32_t kExactLimit = std::uint32_t{1} << 24;
    if (p == last) return false;
    const bool negative = *p == '-';
    p += negative;
    const auto length = static_cast<std::size_t>(last - p);
    if (length == 0 || length > 8) return false;
    const std::uint64_t word = LoadShort(p, length);
    // The first decimal character, if any: a zero byte of word ^ decimal within the text.
    const std::uint64_t marked = word ^ (kOnes * static_cast<unsigned char>(decimal));
    const std::uint64_t zeroBytes = (marked - kOnes) & ~marked & kHighBits;
    std::uint64_t digitWord = word;
    std::size_t digits = length;
    int fractionDigits = 0;
    if (zeroBytes != 0) {
      const auto at = static_cast<std::size_t>(__builtin_ctzll(zeroBytes) / 8);
      if (at < length) {
        // Take the decimal character out: the bytes after it move down by one.
        const std::uint64_t below = at == 0 ? 0 : word & (~std::uint64_t{0} >> (64 - 8 * at));
        const std::uint64_t above = at == 7 ? 0 : (word >> (8 * (at + 1))) << (8 * at);
        digitWord = below | above;
        digits = length - 1;
        fractionDigits = static_cast<int>(length - at - 1);
      }
    }
    if (digits == 0) return false;
    // Right-align the digits behind leading '0' characters, then check all eight are digits.
    std::uint64_t eight = digitWord;
    if (digits < 8) eight = (eight << (8 * (8 - digits))) | (kZeros >> (8 * digits));
    if ((((eight + 0x4646464646464646ULL) | (eight - kZeros)) & kHighBits) != 0) return false;
    // Eight digits to an integer in three steps of pairs.
    std::uint64_t number = eight - kZeros;
    number = (number * 10 + (number >> 8)) & 0x00FF00FF00FF00FFULL;
    number = (number * 100 + (number >> 16)) & 0x0000FFFF0000FFFFULL;
    const auto mantissa =
        static_cast<std::uint32_t>((number * 10000 + (number >> 32)) & 0xFFFFFFFFULL);
    if (mantissa > kExactLimit) return false;
    // Dividing is slow; multiplying by the inverse in double precision comes within three
    // units of the double's last place of the quotient, so it rounds to the same float unless
    // it lies that close to a midpoint between two floats (the 29 bits below a float's
    // precision near 2^28); only then the division decides.
    const double quotient = static_cast<double>(mantissa) * kInversePowersOfTen[fractionDigits];
    std::uint64_t quotientBits = 0;
    std::memcpy(&quotientBits, &quotient, sizeof quotientBits);
    const auto belowFloat = static_cast<std::uint32_t>(quotientBits & 0x1FFFFFFFU);
    const float result = belowFloat - (0x10000000U - 3) <= 6
                             ? static_cast<float>(mantissa) / kPowersOfTen[fractionDigits]
                             : static_cast<float>(quotient);
    // The sign goes in without a branch: signs vary at random, a branch would guess wrong.
    std::uint32_t bits = 0;
    std::memcpy(&bits, &result, sizeof bits);
    bits |= static_cast<std::uint32_t>(negative) << 31;
    std::memcpy(&value, &bits, sizeof bits);
    return true;
  }

  // Every number that `ParsePlainDecimal` leaves, and the texts that are none.
  NumberResult ParseOtherNumber(std::string_view text, float& value) const;

  static bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
  }

  char mDecimal;
  std::vector<std::string> mMissingTexts;
  VxTimeUtl::DateTimeFormatter mIso;
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_CSVCELLPARSER_H
