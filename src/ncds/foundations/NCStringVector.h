#ifndef NCDS_FOUNDATIONS_NCSTRINGVECTOR_H
#define NCDS_FOUNDATIONS_NCSTRINGVECTOR_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

// A resizable vector of 8-bit byte strings (names, identifiers), convertible to and from
// `std::vector<std::string>`. It owns its strings; references to them stay valid until the
// vector changes. Positions are 0-based. Mutators refuse positions beyond the end with
// `InvalidArgument` and leave the vector unchanged; the reads answer an empty string or the
// caller's fallback out of range. Case-insensitive comparisons fold ASCII letters only.
//
// Persistent: magic "NCStringVector", version 1; the body is the count (eight bytes) and each
// string as a binary string. A failed read leaves the vector unchanged.
class NCDS_EXPORT NCStringVector : public virtual VStreamBase {
 public:
  NCStringVector() = default;
  // `size` empty strings.
  explicit NCStringVector(std::size_t size);
  explicit NCStringVector(std::vector<std::string> strings);
  NCStringVector(const NCStringVector& other);
  NCStringVector(NCStringVector&& other) noexcept;
  NCStringVector& operator=(const NCStringVector& other);
  NCStringVector& operator=(NCStringVector&& other) noexcept;
  ~NCStringVector() override;

  bool operator==(const NCStringVector& other) const { return mStrings == other.mStrings; }
  bool operator!=(const NCStringVector& other) const { return !(*this == other); }

  std::size_t Size() const { return mStrings.size(); }
  std::size_t size() const { return mStrings.size(); }
  void Reserve(std::size_t count) { mStrings.reserve(count); }
  void push_back(std::string text) { mStrings.push_back(std::move(text)); }
  // Inserts one (or `count`) empty strings before `position`.
  void InsertStrings(std::size_t position, std::size_t count = 1);
  void RemoveStrings(std::size_t position, std::size_t count);
  void Clear();

  // Position of the first string at or after `start` equal to `text`, or -1.
  std::ptrdiff_t FindString(const std::string& text, bool ignoreCase = false,
                            std::size_t start = 0) const;
  // Sorts stably by byte value (or ASCII-case-folded when `ignoreCase`); `unique` keeps only
  // the first of strings that compare equal.
  void Sort(bool ascending = true, bool ignoreCase = false, bool unique = false);

  // The string at `index`, or an empty string out of range.
  const std::string& operator[](std::size_t index) const;
  // The string at `index`, or `fallback` out of range.
  const std::string& operator()(std::size_t index, const std::string& fallback) const {
    return index < mStrings.size() ? mStrings[index] : fallback;
  }
  // The string at `index` for writing; `index` must be below Size().
  std::string& operator()(std::size_t index) { return mStrings[index]; }

  const std::vector<std::string>& GetVector() const { return mStrings; }
  // Copies the strings of `from` into `to`, replacing its content.
  static void Convert(const NCStringVector& from, std::vector<std::string>& to);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadBody(std::istream& is);

  std::vector<std::string> mStrings;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_FOUNDATIONS_NCSTRINGVECTOR_H
