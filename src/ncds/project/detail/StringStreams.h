#ifndef NCDS_PROJECT_DETAIL_STRINGSTREAMS_H
#define NCDS_PROJECT_DETAIL_STRINGSTREAMS_H

// Stream buffers over strings for streams kept in memory: `StringSink` collects a stream and
// hands the string over whole, `StringSource` reads one in place. Both seek, as the stream
// framework needs.

#include <algorithm>
#include <cstring>
#include <streambuf>
#include <string>

#include "ncds/project/detail/PutBuffer.h"

namespace ncds::detail {

// Collects a stream in a string and hands the string over whole. It can seek, so that the
// large entries of a directory (a dataset's matrix) stream through without a second copy.
class StringSink final : public PutBuffer {
 public:
  // Makes room for `bytes` bytes up front, so that a stream of about that size is not moved.
  void Reserve(std::size_t bytes) {
    if (bytes > mBytes.size()) Resize(bytes);
  }

  // The bytes written (up to the furthest position reached).
  std::string Take() {
    mBytes.resize(static_cast<std::size_t>(High()));
    setp(nullptr, nullptr);
    mHigh = 0;
    return std::move(mBytes);
  }

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    if (n <= 0) return 0;
    if (epptr() - pptr() < n)
      Resize(std::max<std::size_t>(
          {std::size_t{4096}, 2 * mBytes.size(), static_cast<std::size_t>(Position() + n)}));
    std::memcpy(pptr(), s, static_cast<std::size_t>(n));
    setp(pptr() + n, epptr());
    return n;
  }

  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::out)) return pos_type(off_type(-1));
    const std::streamoff high = High();
    mHigh = high;
    const std::streamoff base = dir == std::ios_base::beg   ? 0
                                : dir == std::ios_base::cur ? Position()
                                                            : high;
    const std::streamoff target = base + off;
    if (target < 0 || target > high) return pos_type(off_type(-1));
    setp(mBytes.data() + target, mBytes.data() + mBytes.size());
    return pos_type(target);
  }

  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }

 private:
  std::streamoff Position() const { return pptr() ? pptr() - mBytes.data() : 0; }
  std::streamoff High() const { return std::max(mHigh, Position()); }

  void Resize(std::size_t bytes) {
    const std::streamoff position = Position();
    mHigh = High();
    mBytes.resize(bytes);
    setp(mBytes.data() + position, mBytes.data() + mBytes.size());
  }

  std::string mBytes;
  std::streamoff mHigh = 0;
};

// Reads a string in place, seekable, without copying it.
class StringSource final : public std::streambuf {
 public:
  explicit StringSource(const std::string& bytes) {
    // Nothing writes through a get area.
    char* data = const_cast<char*>(bytes.data());
    setg(data, data, data + bytes.size());
  }

 protected:
  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    const std::streamoff size = egptr() - eback();
    const std::streamoff base = dir == std::ios_base::beg   ? 0
                                : dir == std::ios_base::cur ? gptr() - eback()
                                                            : size;
    const std::streamoff target = base + off;
    if (target < 0 || target > size) return pos_type(off_type(-1));
    setg(eback(), eback() + target, egptr());
    return pos_type(target);
  }

  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_STRINGSTREAMS_H
