#ifndef NCDS_FOUNDATIONS_VXSTDSTRING_H
#define NCDS_FOUNDATIONS_VXSTDSTRING_H

// Helpers for std::string: byte-wise and ASCII case-insensitive comparison, a hash consistent
// with the case-insensitive comparison (for lookup tables of user IDs), joining, and a shared
// empty string for getters that have nothing to return.
//
// Case folding covers ASCII letters only; other bytes (UTF-8 sequences included) compare as
// they are. All functions are pure and safe to call from any thread.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "ncds/ncds_export.h"

namespace VxStdString {

// Negative, zero or positive as `a` sorts before, with or after `b`, comparing bytes as
// unsigned values like strcmp (a prefix sorts first). Embedded NUL bytes take part.
NCDS_EXPORT int Compare(std::string_view a, std::string_view b);

// The same after folding ASCII letters to lower case.
NCDS_EXPORT int CompareNoCase(std::string_view a, std::string_view b);

// A hash of `text` with ASCII letters folded to lower case: strings that CompareNoCase calls
// equal hash equal. Allocates nothing.
NCDS_EXPORT std::size_t ComputeCompareNoCaseHash(std::string_view text);

// The strings joined with `separator` between them ("a, b, c"); empty for no strings.
NCDS_EXPORT std::string FormatStringVector(const std::vector<std::string>& strings,
                                           const std::string& separator = ", ");

// One empty string shared by the whole library, for getters that return a reference.
NCDS_EXPORT const std::string& Empty();

// Hash and equality for unordered containers keyed case-insensitively.
struct NoCaseHash {
  std::size_t operator()(std::string_view text) const { return ComputeCompareNoCaseHash(text); }
};
struct NoCaseEqual {
  bool operator()(std::string_view a, std::string_view b) const {
    return a.size() == b.size() && CompareNoCase(a, b) == 0;
  }
};

}  // namespace VxStdString

#endif  // NCDS_FOUNDATIONS_VXSTDSTRING_H
