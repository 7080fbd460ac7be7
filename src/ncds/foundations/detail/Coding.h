#ifndef NCDS_FOUNDATIONS_DETAIL_CODING_H
#define NCDS_FOUNDATIONS_DETAIL_CODING_H

// Fixed-width little-endian encoding: the one place that turns numbers into stream bytes and
// back. Every writer and reader of the library goes through these helpers; nothing else
// shuffles bytes by hand. On little-endian machines whole arrays are copied as they are.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace ncds::detail {

inline constexpr bool kHostIsLittleEndian =
#if defined(__BYTE_ORDER__) && defined(__ORDER_BIG_ENDIAN__) && \
    __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    false;
#else
    true;
#endif

// Reverses the bytes of `count` items of `width` bytes each, in place.
inline void SwapItems(void* data, std::size_t width, std::size_t count) {
  auto* p = static_cast<unsigned char*>(data);
  for (std::size_t i = 0; i < count; ++i, p += width) {
    for (std::size_t a = 0, b = width - 1; a < b; ++a, --b) {
      unsigned char t = p[a];
      p[a] = p[b];
      p[b] = t;
    }
  }
}

// Converts `count` items of `width` bytes between host order and little-endian, in place.
// A no-op on little-endian hosts.
inline void ToLittleEndian(void* data, std::size_t width, std::size_t count) {
  if constexpr (!kHostIsLittleEndian) {
    if (width > 1) SwapItems(data, width, count);
  }
}

template <class T>
inline void EncodeFixed(unsigned char* dst, T value) {
  static_assert(std::is_trivially_copyable_v<T>, "fixed-width encoding needs a plain value");
  std::memcpy(dst, &value, sizeof(T));
  ToLittleEndian(dst, sizeof(T), 1);
}

template <class T>
inline T DecodeFixed(const unsigned char* src) {
  static_assert(std::is_trivially_copyable_v<T>, "fixed-width decoding needs a plain value");
  unsigned char buf[sizeof(T)];
  std::memcpy(buf, src, sizeof(T));
  ToLittleEndian(buf, sizeof(T), 1);
  T value;
  std::memcpy(&value, buf, sizeof(T));
  return value;
}

// Longest variable-length encoding of a 64-bit value.
inline constexpr std::size_t kMaxVarintLength = 10;

// Writes `value` in seven-bit groups, least significant first, the high bit of each byte
// telling that another follows. Returns the number of bytes written (1..10).
inline std::size_t EncodeVarint(unsigned char* dst, std::uint64_t value) {
  std::size_t n = 0;
  while (value >= 0x80) {
    dst[n++] = static_cast<unsigned char>(value | 0x80);
    value >>= 7;
  }
  dst[n++] = static_cast<unsigned char>(value);
  return n;
}

// Reads a varint from [`p`, `end`) and moves `p` past it; false when the bytes end first or
// the number needs more than 64 bits of groups.
inline bool DecodeVarint(const unsigned char*& p, const unsigned char* end, std::uint64_t& value) {
  value = 0;
  for (unsigned shift = 0; p < end && shift < 64; shift += 7) {
    const std::uint64_t byte = *p++;
    value |= (byte & 0x7F) << shift;
    if (!(byte & 0x80)) return true;
  }
  return false;
}

inline std::size_t VarintLength(std::uint64_t value) {
  std::size_t n = 1;
  while (value >= 0x80) {
    value >>= 7;
    ++n;
  }
  return n;
}

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_CODING_H
