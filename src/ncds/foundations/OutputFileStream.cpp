#include "ncds/foundations/OutputFileStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <streambuf>
#include <vector>

#include "ncds/foundations/detail/EntryStreamBuf.h"

namespace ncds::detail {

class FileStreamBuf : public std::streambuf {
 public:
  static constexpr std::size_t kBufferSize = std::size_t{1} << 20;

  explicit FileStreamBuf(const std::string& path)
      : mFd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (mFd >= 0) {
      mBuffer.resize(kBufferSize);
      setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
    }
  }
  ~FileStreamBuf() override { Close(); }

  bool IsOpen() const { return mFd >= 0; }

  bool Close() {
    if (mFd < 0) return !mFailed;
    const bool flushed = Flush();
    if (::close(mFd) != 0) mFailed = true;
    mFd = -1;
    setp(nullptr, nullptr);
    return flushed && !mFailed;
  }

  void Reserve(std::uint64_t bytes) {
    if (mFd < 0 || bytes == 0) return;
    const auto offset = static_cast<off_t>(mFilePos + (pptr() - pbase()));
    // FALLOC_FL_KEEP_SIZE: reserve blocks without changing the file's size. A file system
    // without fallocate simply says no.
    (void)::fallocate(mFd, FALLOC_FL_KEEP_SIZE, offset, static_cast<off_t>(bytes));
  }

 protected:
  int_type overflow(int_type c) override {
    if (!Flush()) return traits_type::eof();
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
  }

  std::streamsize xsputn(const char* s, std::streamsize n) override {
    if (mFd < 0 || n <= 0) return 0;
    const std::streamsize room = epptr() - pptr();
    if (n <= room) {
      std::memcpy(pptr(), s, static_cast<std::size_t>(n));
      pbump(static_cast<int>(n));
      return n;
    }
    if (!Flush()) return 0;
    if (static_cast<std::size_t>(n) < mBuffer.size()) {
      std::memcpy(pptr(), s, static_cast<std::size_t>(n));
      pbump(static_cast<int>(n));
      return n;
    }
    return WriteAll(s, static_cast<std::size_t>(n)) ? n : 0;
  }

  int sync() override { return Flush() ? 0 : -1; }

  pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode) override {
    if (mFd < 0) return pos_type(off_type(-1));
    // Telling the position is what the framework asks most: answer it without a flush.
    if (dir == std::ios_base::cur && off == 0) return pos_type(mFilePos + (pptr() - pbase()));
    if (!Flush()) return pos_type(off_type(-1));
    const int whence = dir == std::ios_base::beg   ? SEEK_SET
                       : dir == std::ios_base::cur ? SEEK_CUR
                                                   : SEEK_END;
    const off_t to = ::lseek(mFd, static_cast<off_t>(off), whence);
    if (to < 0) return pos_type(off_type(-1));
    mFilePos = to;
    return pos_type(to);
  }

  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }

 private:
  bool WriteAll(const char* s, std::size_t n) {
    while (n > 0) {
      const ssize_t written = ::write(mFd, s, n);
      if (written < 0) {
        if (errno == EINTR) continue;
        mFailed = true;
        return false;
      }
      s += written;
      n -= static_cast<std::size_t>(written);
      mFilePos += written;
    }
    return true;
  }

  bool Flush() {
    if (mFd < 0 || mFailed) return false;
    const std::size_t pending = static_cast<std::size_t>(pptr() - pbase());
    setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
    return WriteAll(mBuffer.data(), pending);
  }

  int mFd = -1;
  bool mFailed = false;
  std::streamoff mFilePos = 0;  // the file offset, where the buffer's first byte goes
  std::vector<char> mBuffer;
};

}  // namespace ncds::detail

OutputFileStream::OutputFileStream(const std::string& path)
    : std::ostream(nullptr), mBuf(std::make_unique<ncds::detail::FileStreamBuf>(path)) {
  rdbuf(mBuf.get());
  if (!mBuf->IsOpen()) setstate(std::ios_base::failbit);
}

OutputFileStream::~OutputFileStream() { mBuf->Close(); }

bool OutputFileStream::is_open() const { return mBuf->IsOpen(); }

bool OutputFileStream::close() {
  const bool ok = mBuf->Close();
  if (!ok) setstate(std::ios_base::badbit);
  return ok && good();
}

void ReserveStreamSpace(std::ostream& os, std::uint64_t bytes) {
  std::streambuf* buf = os.rdbuf();
  while (auto* entry = dynamic_cast<ncds::detail::EntryStreamBuf*>(buf)) buf = entry->Parent();
  if (auto* file = dynamic_cast<ncds::detail::FileStreamBuf*>(buf)) file->Reserve(bytes);
}
