#ifndef NCDS_FOUNDATIONS_READFROMSTREAMDIR_H
#define NCDS_FOUNDATIONS_READFROMSTREAMDIR_H

// Reading and writing one directory entry, the way every persistent class does it.
//
// `ReadFromStreamDir(target, directory, tag, required)`:
//   - tag absent and required: throws `VxStreamError` "ReadFromStreamDir failed.";
//   - tag absent and optional: returns false and leaves `target` as it was;
//   - otherwise reads the value and returns true; a damaged value throws `VxStreamError`.
// Values: integers, enums, floats and bool in their own width (a `std::int32_t` as four
// bytes, a `bool` as one), `std::string` as a binary string, a `std::set` of numbers as a
// four-byte count and its values in order, and persistent objects through their stream
// operator. `WriteToStreamDir` writes the same forms.

#include <cstdint>
#include <istream>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VStreamBase.h"

namespace ncds::detail {

template <class T>
struct IsSet : std::false_type {};
template <class T>
struct IsSet<std::set<T>> : std::true_type {};

template <class T>
bool WriteValue(const T& value, std::ostream& os) {
  if constexpr (IsSet<T>::value) {
    const auto count = static_cast<std::uint32_t>(value.size());
    if (!WriteValue(count, os)) return false;
    for (const auto& item : value) {
      if (!WriteValue(item, os)) return false;
    }
    return true;
  } else if constexpr (std::is_base_of_v<VStreamBase, T>) {
    os << static_cast<const VStreamBase&>(value);
    return static_cast<bool>(os);
  } else if constexpr (std::is_same_v<T, std::string>) {
    return WriteBinaryString(value, os);
  } else {
    static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>, "no stream form for this type");
    if constexpr (sizeof(T) == 1) {
      return WriteBytes(&value, 1, os);
    } else if constexpr (sizeof(T) == 2) {
      return WriteTwoBytes(&value, 1, os);
    } else if constexpr (sizeof(T) == 4) {
      return WriteFourBytes(&value, 1, os);
    } else {
      static_assert(sizeof(T) == 8, "unsupported width");
      return WriteEightBytes(&value, 1, os);
    }
  }
}

template <class T>
void ReadValue(T& value, std::istream& is) {
  if constexpr (IsSet<T>::value) {
    using Item = typename T::value_type;
    static_assert(std::is_arithmetic_v<Item>, "sets of numbers only");
    std::uint32_t count = 0;
    ReadValue(count, is);
    RequireStreamBytes(is, std::uint64_t{count} * sizeof(Item));
    T items;
    for (std::uint32_t i = 0; i < count; ++i) {
      Item item{};
      ReadValue(item, is);
      items.insert(items.end(), item);
    }
    value = std::move(items);
  } else if constexpr (std::is_base_of_v<VStreamBase, T>) {
    if (!(is >> static_cast<VStreamBase&>(value))) ThrowStreamReadError();
  } else if constexpr (std::is_same_v<T, std::string>) {
    ReadBinaryString(value, is);
  } else if constexpr (std::is_same_v<T, bool>) {
    std::uint8_t byte = 0;
    ReadBytes(&byte, 1, is);
    value = byte != 0;
  } else {
    static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>, "no stream form for this type");
    T v{};
    if constexpr (sizeof(T) == 1) {
      ReadBytes(&v, 1, is);
    } else if constexpr (sizeof(T) == 2) {
      ReadTwoBytes(&v, 1, is);
    } else if constexpr (sizeof(T) == 4) {
      ReadFourBytes(&v, 1, is);
    } else {
      static_assert(sizeof(T) == 8, "unsupported width");
      ReadEightBytes(&v, 1, is);
    }
    value = v;
  }
}

[[noreturn]] NCDS_EXPORT void ThrowReadFromStreamDirFailed();

}  // namespace ncds::detail

// The payload of a required entry whose form the caller reads itself; a missing entry throws
// `VxStreamError` "ReadFromStreamDir failed." like `ReadFromStreamDir`.
inline std::istream& GetRequiredInput(InputStreamDirectory& directory, std::uint16_t tag) {
  std::istream* input = directory.GetInput(tag);
  if (!input) ncds::detail::ThrowReadFromStreamDirFailed();
  return *input;
}

template <class T>
bool ReadFromStreamDir(T& target, InputStreamDirectory& directory, std::uint16_t tag,
                       bool required) {
  std::istream* input = directory.GetInput(tag);
  if (!input) {
    if (required) ncds::detail::ThrowReadFromStreamDirFailed();
    return false;
  }
  ncds::detail::ReadValue(target, *input);
  return true;
}

template <class T>
bool WriteToStreamDir(const T& value, OutputStreamDirectory& directory, std::uint16_t tag) {
  return ncds::detail::WriteValue(value, directory.GetOutput(tag));
}

#endif  // NCDS_FOUNDATIONS_READFROMSTREAMDIR_H
