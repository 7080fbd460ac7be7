#ifndef NCDS_FOUNDATIONS_DETAIL_DIRECTORYLAYOUT_H
#define NCDS_FOUNDATIONS_DETAIL_DIRECTORYLAYOUT_H

// The bytes of a stream directory, shared by its writer and its reader:
//
//   directory := varint(declared count) entry* varint(0)      (at most `declared count` entries)
//   entry     := varint(key) length payload
//   key       := (tag + 1) * 2 + long      (so no entry key is 0, the end mark)
//   length    := varint(byte count)        when long = 0 (an entry written in one piece)
//              | eight-byte little-endian  when long = 1 (a large entry streamed through,
//                                           its length patched afterwards)
//
// A small entry thus costs two header bytes, which matters for streams of many small records.

#include <cstdint>

namespace ncds::detail {

inline constexpr std::uint64_t kDirectoryEndKey = 0;

inline std::uint64_t EntryKey(std::uint16_t tag, bool longLength) {
  return ((static_cast<std::uint64_t>(tag) + 1) << 1) | (longLength ? 1U : 0U);
}

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_DIRECTORYLAYOUT_H
