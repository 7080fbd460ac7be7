#ifndef NCDS_FOUNDATIONS_DETAIL_BYTEREADER_H
#define NCDS_FOUNDATIONS_DETAIL_BYTEREADER_H

// A cursor over bytes already in memory that decodes the framework's layouts in place: magic
// headers, fixed-width values, binary strings and directories written in one piece.
//
// It serves the fast paths of records read by the million. Such a path decodes a record from
// the bytes its window has buffered and gives up (answers false, consuming nothing it owns)
// at anything but the exact layout its writer produces; the caller then reads the record
// through the streams, which decide every other case. So a fast path needs no error handling
// of its own and cannot accept what the streams would refuse.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "ncds/foundations/detail/Coding.h"
#include "ncds/foundations/detail/DirectoryLayout.h"

namespace ncds::detail {

class ByteReader {
 public:
  ByteReader() = default;
  ByteReader(const unsigned char* begin, const unsigned char* end) : mP(begin), mEnd(end) {}
  ByteReader(const char* begin, std::size_t size)
      : mP(reinterpret_cast<const unsigned char*>(begin)), mEnd(mP + size) {}

  const unsigned char* Position() const { return mP; }
  std::size_t Remaining() const { return static_cast<std::size_t>(mEnd - mP); }

  template <class T>
  bool Fixed(T& value) {
    if (Remaining() < sizeof(T)) return false;
    value = DecodeFixed<T>(mP);
    mP += sizeof(T);
    return true;
  }

  bool Varint(std::uint64_t& value) { return DecodeVarint(mP, mEnd, value); }

  // Moves past `n` bytes; false, not moving, when fewer remain.
  bool Skip(std::size_t n) {
    if (Remaining() < n) return false;
    mP += n;
    return true;
  }

  // A magic header: one length byte, the magic, a two-byte version.
  bool Magic(const std::string& magic, std::uint16_t& version) {
    const std::size_t n = magic.size();
    if (Remaining() < n + 3 || mP[0] != n || std::memcmp(mP + 1, magic.data(), n) != 0) {
      return false;
    }
    version = DecodeFixed<std::uint16_t>(mP + 1 + n);
    mP += n + 3;
    return true;
  }

  // A binary string: a four-byte length, then the bytes, shown in place.
  bool BinaryString(const char*& text, std::size_t& length) {
    std::uint32_t stored = 0;
    if (!Fixed(stored) || Remaining() < stored) return false;
    text = reinterpret_cast<const char*>(mP);
    length = stored;
    mP += stored;
    return true;
  }

  // A directory declaring `N` entries and holding exactly the entries `tags`, in that order,
  // each written in one piece; their payloads go to `entries`.
  template <std::size_t N>
  bool Directory(const std::array<std::uint16_t, N>& tags, std::array<ByteReader, N>& entries) {
    std::uint64_t value = 0;
    if (!Varint(value) || value != N) return false;
    for (std::size_t k = 0; k < N; ++k) {
      if (!Varint(value) || value != EntryKey(tags[k], false)) return false;
      if (!Varint(value) || value > Remaining()) return false;
      entries[k] = ByteReader(mP, mP + value);
      mP += value;
    }
    return Varint(value) && value == kDirectoryEndKey;
  }

 private:
  const unsigned char* mP = nullptr;
  const unsigned char* mEnd = nullptr;
};

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_BYTEREADER_H
