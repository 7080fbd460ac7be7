#ifndef NCDS_FOUNDATIONS_DETAIL_BYTEWRITER_H
#define NCDS_FOUNDATIONS_DETAIL_BYTEWRITER_H

// A cursor over a caller's buffer that encodes the framework's layouts in place: magic
// headers, fixed-width values, binary strings and the headers of directory entries written
// in one piece. The counterpart of `ByteReader`, for the fast paths of records written by the
// million: such a record is encoded whole and handed to its stream in one write, producing
// exactly the bytes the streams would. Every call answers false when the buffer is too small,
// and the record then goes through the streams.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "ncds/foundations/detail/Coding.h"
#include "ncds/foundations/detail/DirectoryLayout.h"

namespace ncds::detail {

class ByteWriter {
 public:
  ByteWriter(char* begin, std::size_t capacity)
      : mBegin(reinterpret_cast<unsigned char*>(begin)), mP(mBegin), mEnd(mBegin + capacity) {}

  std::size_t Size() const { return static_cast<std::size_t>(mP - mBegin); }
  const char* Data() const { return reinterpret_cast<const char*>(mBegin); }

  template <class T>
  bool Fixed(T value) {
    if (Room() < sizeof(T)) return false;
    EncodeFixed(mP, value);
    mP += sizeof(T);
    return true;
  }

  bool Varint(std::uint64_t value) {
    if (Room() < VarintLength(value)) return false;
    mP += EncodeVarint(mP, value);
    return true;
  }

  bool Bytes(const void* data, std::size_t size) {
    if (Room() < size) return false;
    if (size > 0) std::memcpy(mP, data, size);
    mP += size;
    return true;
  }

  // A magic header: one length byte, the magic, a two-byte version.
  bool Magic(const std::string& magic, std::uint16_t version) {
    return magic.size() < 256 && Fixed(static_cast<std::uint8_t>(magic.size())) &&
           Bytes(magic.data(), magic.size()) && Fixed(version);
  }

  // A binary string: a four-byte length, then the bytes.
  static std::size_t BinaryStringSize(const std::string& text) { return 4 + text.size(); }
  bool BinaryString(const std::string& text) {
    return text.size() <= 0xFFFFFFFFu && Fixed(static_cast<std::uint32_t>(text.size())) &&
           Bytes(text.data(), text.size());
  }

  // The start of a directory declaring `count` entries, the header of an entry of `length`
  // bytes written in one piece (its payload follows), and the end mark.
  bool BeginDirectory(std::uint16_t count) { return Varint(count); }
  bool EntryHeader(std::uint16_t tag, std::size_t length) {
    return Varint(EntryKey(tag, false)) && Varint(length);
  }
  bool EndDirectory() { return Varint(kDirectoryEndKey); }

 private:
  std::size_t Room() const { return static_cast<std::size_t>(mEnd - mP); }

  unsigned char* mBegin;
  unsigned char* mP;
  unsigned char* mEnd;
};

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_BYTEWRITER_H
