#include "ncds/foundations/VxString.h"

#include <fast_float/fast_float.h>
#include <cerrno>
#include <cmath>
#include <limits>
#include <system_error>

namespace ncds::detail {
namespace {

// White space as the "C" locale knows it.
inline bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Characters that may belong to a number, "inf", "infinity" or "nan(...)": where the text
// that vxstrtod scans can end without measuring a long buffer to its terminating NUL.
inline bool MayBeInNumber(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
         c == '+' || c == '-' || c == '(' || c == ')' || c == '_';
}

// Parses a number at [first, last): an optional sign, then what fast_float reads (which
// refuses a '+' of its own, so "+-1" stays invalid). Returns the end of the number, or
// `first` when there is none.
template <class T>
const char* ParseNumber(const char* first, const char* last, T& value) {
  const char* p = first;
  if (p != last && *p == '+') {
    ++p;
    if (p != last && *p == '-') return first;
  }
  if (p == last) return first;
  const fast_float::from_chars_result result = fast_float::from_chars(p, last, value);
  if (result.ec != std::errc()) return first;
  return result.ptr;
}

// True when the mantissa of the number at [first, last) has a non-zero digit, i.e. a value
// that came out as zero underflowed.
bool HasNonZeroMantissa(const char* first, const char* last) {
  for (const char* p = first; p != last && *p != 'e' && *p != 'E'; ++p) {
    if (*p >= '1' && *p <= '9') return true;
  }
  return false;
}

}  // namespace
}  // namespace ncds::detail

namespace VxString {

bool ToFloat(const std::string& text, float& value) {
  const char* first = text.data();
  const char* last = first + text.size();
  while (first != last && ncds::detail::IsSpace(*first)) ++first;
  while (last != first && ncds::detail::IsSpace(last[-1])) --last;
  float parsed = 0;
  const char* end = ncds::detail::ParseNumber(first, last, parsed);
  if (end == first || end != last) return false;
  // Overflow gives infinity; "nan" and "inf" are refused with it.
  if (!std::isfinite(parsed)) return false;
  if (parsed == 0.0f && ncds::detail::HasNonZeroMantissa(first, end)) return false;
  value = parsed;
  return true;
}

}  // namespace VxString

double vxstrtod(const char* text, char** end) {
  const char* first = text;
  while (ncds::detail::IsSpace(*first)) ++first;
  const char* last = first;
  while (ncds::detail::MayBeInNumber(*last)) ++last;
  double value = 0;
  const char* stop = ncds::detail::ParseNumber(first, last, value);
  if (stop == first) {
    if (end) *end = const_cast<char*>(text);
    return 0;
  }
  if (end) *end = const_cast<char*>(stop);
  if (std::isinf(value)) {
    // A spelled-out infinity is a value, not an overflow.
    const char* digits = first + (*first == '+' || *first == '-' ? 1 : 0);
    if (*digits != 'i' && *digits != 'I') errno = ERANGE;
  } else if (value == 0.0 ? ncds::detail::HasNonZeroMantissa(first, stop)
                          : std::fabs(value) < std::numeric_limits<double>::min()) {
    errno = ERANGE;
  }
  return value;
}
