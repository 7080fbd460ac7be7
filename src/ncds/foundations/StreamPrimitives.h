#ifndef NCDS_FOUNDATIONS_STREAMPRIMITIVES_H
#define NCDS_FOUNDATIONS_STREAMPRIMITIVES_H

// The primitive writers and readers of the stream framework. Items are stored little-endian
// with a fixed width of one, two, four or eight bytes; `count` is the number of items, not
// of bytes. Whole arrays go to and from the stream in one call, without a second copy on
// little-endian machines.
//
// Writers answer false when the stream failed. Readers answer true or throw `VxStreamError`
// ("Error when reading from stream.") when the stream ends early or fails; the class readers
// catch it and answer false.
//
// A binary string is its byte count (four bytes) followed by its bytes. A reader never
// allocates more than the stream can still deliver.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "ncds/ncds_export.h"

NCDS_EXPORT bool WriteBytes(const void* address, std::size_t count, std::ostream& os);
NCDS_EXPORT bool WriteTwoBytes(const void* address, std::size_t count, std::ostream& os);
NCDS_EXPORT bool WriteFourBytes(const void* address, std::size_t count, std::ostream& os);
NCDS_EXPORT bool WriteEightBytes(const void* address, std::size_t count, std::ostream& os);

NCDS_EXPORT bool ReadBytes(void* address, std::size_t count, std::istream& is);
NCDS_EXPORT bool ReadTwoBytes(void* address, std::size_t count, std::istream& is);
NCDS_EXPORT bool ReadFourBytes(void* address, std::size_t count, std::istream& is);
NCDS_EXPORT bool ReadEightBytes(void* address, std::size_t count, std::istream& is);

// Unsigned numbers in one to ten bytes, small numbers short (seven bits a byte).
NCDS_EXPORT bool WriteVarint(std::uint64_t value, std::ostream& os);
NCDS_EXPORT std::uint64_t ReadVarint(std::istream& is);

NCDS_EXPORT bool WriteBinaryString(const std::string& text, std::ostream& os);
NCDS_EXPORT bool ReadBinaryString(std::string& text, std::istream& is);

// Bytes that can still be read from `is`, or UINT64_MAX when the stream cannot tell (it is
// not seekable). Cheap inside a directory entry; one seek pair on a plain stream.
NCDS_EXPORT std::uint64_t StreamRemaining(std::istream& is);

// Throws `VxStreamError` unless `is` can still deliver `bytes` bytes. Readers call it before
// they allocate room for a count they read from the stream.
NCDS_EXPORT void RequireStreamBytes(std::istream& is, std::uint64_t bytes);

// Throws the framework's `VxStreamError` for a short or broken stream.
[[noreturn]] NCDS_EXPORT void ThrowStreamReadError();

#endif  // NCDS_FOUNDATIONS_STREAMPRIMITIVES_H
