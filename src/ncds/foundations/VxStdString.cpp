#include "ncds/foundations/VxStdString.h"

#include <cstdint>
#include <cstring>

namespace ncds::detail {
namespace {

inline unsigned char FoldAscii(unsigned char c) {
  return static_cast<unsigned char>(static_cast<unsigned>(c - 'A') < 26u ? c + ('a' - 'A') : c);
}

}  // namespace
}  // namespace ncds::detail

namespace VxStdString {

int Compare(std::string_view a, std::string_view b) {
  const std::size_t common = a.size() < b.size() ? a.size() : b.size();
  const int order = common == 0 ? 0 : std::memcmp(a.data(), b.data(), common);
  if (order != 0) return order < 0 ? -1 : 1;
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

int CompareNoCase(std::string_view a, std::string_view b) {
  const std::size_t common = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < common; ++i) {
    const unsigned char ca = ncds::detail::FoldAscii(static_cast<unsigned char>(a[i]));
    const unsigned char cb = ncds::detail::FoldAscii(static_cast<unsigned char>(b[i]));
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

std::size_t ComputeCompareNoCaseHash(std::string_view text) {
  // FNV-1a over the folded bytes, in the width of size_t.
  if constexpr (sizeof(std::size_t) >= 8) {
    std::uint64_t hash = 14695981039346656037ull;
    for (const char c : text) {
      hash ^= ncds::detail::FoldAscii(static_cast<unsigned char>(c));
      hash *= 1099511628211ull;
    }
    return static_cast<std::size_t>(hash);
  } else {
    std::uint32_t hash = 2166136261u;
    for (const char c : text) {
      hash ^= ncds::detail::FoldAscii(static_cast<unsigned char>(c));
      hash *= 16777619u;
    }
    return static_cast<std::size_t>(hash);
  }
}

std::string FormatStringVector(const std::vector<std::string>& strings,
                               const std::string& separator) {
  if (strings.empty()) return std::string();
  std::size_t length = separator.size() * (strings.size() - 1);
  for (const std::string& s : strings) length += s.size();
  std::string out;
  out.reserve(length);
  for (std::size_t i = 0; i < strings.size(); ++i) {
    if (i > 0) out += separator;
    out += strings[i];
  }
  return out;
}

const std::string& Empty() {
  static const std::string empty;
  return empty;
}

}  // namespace VxStdString
