#ifndef NCDS_PROJECT_DETAIL_ENCODEDSTREAM_H
#define NCDS_PROJECT_DETAIL_ENCODEDSTREAM_H

// A stream made in memory before it is stored, with a fingerprint of its bytes, so that a save
// can leave a stream alone when the file already holds the same bytes: saving a dataset then
// does not rewrite a million unchanged observation records. Made on any thread.

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

#include "ncds/project/detail/BlockSink.h"

class VStreamBase;

namespace ncds::detail {

// The length, crc32 and Adler-32 of a stream's bytes: two independent checks, so that two
// different streams of one length are told apart but for a chance of about 2^-64.
struct StreamFingerprint {
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  std::uint32_t adler = 1;

  bool operator==(const StreamFingerprint& other) const {
    return size == other.size && crc == other.crc && adler == other.adler;
  }
};

struct EncodedStream {
  std::unique_ptr<BlockSink> blocks;
  StreamFingerprint fingerprint;
};

// What `write` writes, in blocks of `blockSize`. Throws `NCError` naming the project file
// `path` when `write` answers false.
EncodedStream Encode(const std::function<bool(std::ostream&)>& write, std::size_t blockSize,
                     const std::string& path);
// The stream of `object`.
EncodedStream Encode(const VStreamBase& object, std::size_t blockSize, const std::string& path);
// `bytes` as they are.
EncodedStream Encode(const std::string& bytes, std::size_t blockSize, const std::string& path);

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_ENCODEDSTREAM_H
