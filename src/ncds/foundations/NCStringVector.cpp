#include "ncds/foundations/NCStringVector.h"

#include <algorithm>
#include <istream>
#include <limits>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace {

// Strings reserved ahead when the stream cannot tell its size.
constexpr std::size_t kStepStrings = std::size_t{1} << 12;

inline unsigned char FoldAscii(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

// Three-way comparison of byte strings, optionally with ASCII letters folded to lower case.
int Compare(const std::string& a, const std::string& b, bool ignoreCase) {
  if (!ignoreCase) return a.compare(b);
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char ca = FoldAscii(a[i]);
    const unsigned char cb = FoldAscii(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

const std::string& EmptyString() {
  static const std::string empty;
  return empty;
}

}  // namespace

const VStreamableData NCStringVector::msVStreamData(1, "NCStringVector");

NCStringVector::NCStringVector(std::size_t size) : mStrings(size) {}

NCStringVector::NCStringVector(std::vector<std::string> strings) : mStrings(std::move(strings)) {}

NCStringVector::NCStringVector(const NCStringVector& other)
    : VStreamBase(other), mStrings(other.mStrings) {}

NCStringVector::NCStringVector(NCStringVector&& other) noexcept
    : VStreamBase(other), mStrings(std::move(other.mStrings)) {}

NCStringVector& NCStringVector::operator=(const NCStringVector& other) {
  mStrings = other.mStrings;
  return *this;
}

NCStringVector& NCStringVector::operator=(NCStringVector&& other) noexcept {
  mStrings = std::move(other.mStrings);
  return *this;
}

NCStringVector::~NCStringVector() = default;

void NCStringVector::InsertStrings(std::size_t position, std::size_t count) {
  if (position > mStrings.size()) {
    throw InvalidArgument("NCStringVector::InsertStrings: position " + std::to_string(position) +
                          " is beyond the end (size " + std::to_string(mStrings.size()) + ")");
  }
  mStrings.insert(mStrings.begin() + static_cast<std::ptrdiff_t>(position), count, std::string());
}

void NCStringVector::RemoveStrings(std::size_t position, std::size_t count) {
  if (position > mStrings.size() || count > mStrings.size() - position) {
    throw InvalidArgument("NCStringVector::RemoveStrings: range " + std::to_string(position) + "+" +
                          std::to_string(count) + " is beyond the end (size " +
                          std::to_string(mStrings.size()) + ")");
  }
  const auto first = mStrings.begin() + static_cast<std::ptrdiff_t>(position);
  mStrings.erase(first, first + static_cast<std::ptrdiff_t>(count));
}

void NCStringVector::Clear() {
  mStrings.clear();
  mStrings.shrink_to_fit();
}

std::ptrdiff_t NCStringVector::FindString(const std::string& text, bool ignoreCase,
                                          std::size_t start) const {
  for (std::size_t i = start; i < mStrings.size(); ++i) {
    const std::string& candidate = mStrings[i];
    if (candidate.size() == text.size() && Compare(candidate, text, ignoreCase) == 0) {
      return static_cast<std::ptrdiff_t>(i);
    }
  }
  return -1;
}

void NCStringVector::Sort(bool ascending, bool ignoreCase, bool unique) {
  const auto before = [ascending, ignoreCase](const std::string& a, const std::string& b) {
    const int order = Compare(a, b, ignoreCase);
    return ascending ? order < 0 : order > 0;
  };
  std::stable_sort(mStrings.begin(), mStrings.end(), before);
  if (unique) {
    const auto same = [ignoreCase](const std::string& a, const std::string& b) {
      return Compare(a, b, ignoreCase) == 0;
    };
    mStrings.erase(std::unique(mStrings.begin(), mStrings.end(), same), mStrings.end());
  }
}

const std::string& NCStringVector::operator[](std::size_t index) const {
  return index < mStrings.size() ? mStrings[index] : EmptyString();
}

void NCStringVector::Convert(const NCStringVector& from, std::vector<std::string>& to) {
  to = from.mStrings;
}

bool NCStringVector::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool NCStringVector::VStreamableWrite(std::ostream& os) const {
  const std::uint64_t count = mStrings.size();
  if (!WriteEightBytes(&count, 1, os)) return false;
  for (const std::string& text : mStrings) {
    if (!WriteBinaryString(text, os)) return false;
  }
  return true;
}

bool NCStringVector::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != 1) return false;
  try {
    return ReadBody(is);
  } catch (const VxStreamError&) {
    return false;
  }
}

bool NCStringVector::ReadBody(std::istream& is) {
  std::uint64_t count = 0;
  ReadEightBytes(&count, 1, is);
  // Every string takes at least its four-byte length.
  const std::uint64_t remaining = StreamRemaining(is);
  if (count > remaining / 4 || count > std::vector<std::string>().max_size()) return false;
  const bool sizeKnown = remaining != std::numeric_limits<std::uint64_t>::max();
  std::vector<std::string> strings;
  strings.reserve(sizeKnown ? static_cast<std::size_t>(count)
                            : std::min<std::size_t>(static_cast<std::size_t>(count), kStepStrings));
  for (std::uint64_t i = 0; i < count; ++i) {
    strings.emplace_back();
    ReadBinaryString(strings.back(), is);
  }
  mStrings = std::move(strings);
  return true;
}

void NCStringVector::VStreamableReset() const { mGuard.Reset(); }
