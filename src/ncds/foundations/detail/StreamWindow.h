#ifndef NCDS_FOUNDATIONS_DETAIL_STREAMWINDOW_H
#define NCDS_FOUNDATIONS_DETAIL_STREAMWINDOW_H

// A read-only view of a byte range: the sub-stream of one directory entry. Reads cannot pass
// the end of the range, so a damaged entry cannot make its reader consume its neighbours, and
// nested directories know their own size.
//
// A window shows either a range of a parent stream buffer (small reads are buffered; a large
// read goes straight from the parent into the caller's memory) or bytes already in memory,
// which it reads in place (the entries of a small directory that was read whole).
// Internal to the stream framework.

#include <cstdint>
#include <cstring>
#include <istream>
#include <memory>
#include <streambuf>
#include <typeinfo>
#include <utility>
#include <vector>

namespace ncds::detail {

class StreamWindow final : public std::streambuf {
 public:
  // Shows `length` bytes of `parent` starting at absolute position `begin`. `depth` counts
  // the windows between this one and the outermost stream.
  void Attach(std::streambuf* parent, std::streamoff begin, std::streamoff length, int depth);
  // Shows the `length` bytes at `data`, which must stay unchanged while the window shows them.
  void AttachMemory(const char* data, std::streamoff length, int depth);

  // The bytes from the read position on, at least min(`want`, Remaining()) of them in one
  // piece (the buffer is refilled when fewer are buffered). Valid until the next read.
  std::pair<const char*, std::streamoff> Peek(std::streamoff want);
  // Moves the read position `n` bytes on, within what `Peek` returned.
  void Skip(std::streamoff n) { setg(eback(), gptr() + n, egptr()); }
  // Copies `n` bytes to `dst` when they are buffered; false (nothing read) otherwise. The fast
  // path of the primitive readers: the fields of a record are a few bytes each.
  bool ReadBuffered(void* dst, std::size_t n) {
    if (static_cast<std::size_t>(egptr() - gptr()) < n) return false;
    std::memcpy(dst, gptr(), n);
    setg(eback(), gptr() + n, egptr());
    return true;
  }

  std::streamoff Length() const { return mLength; }
  std::streamoff Position() const { return mBufStart + (gptr() - eback()); }
  std::streamoff Remaining() const { return mLength - Position(); }
  int Depth() const { return mDepth; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* s, std::streamsize n) override;
  std::streamsize showmanyc() override;
  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

 private:
  bool MoveTo(std::streamoff position);
  // Fills the buffer with up to `want` bytes from window position `pos`; false at the end.
  bool Refill(std::streamoff pos, std::streamoff want);

  std::streambuf* mParent = nullptr;
  std::streamoff mBegin = 0;
  std::streamoff mLength = 0;
  std::streamoff mBufStart = 0;  // window position of eback()
  int mDepth = 0;
  std::vector<char> mBuffer;
};

// `buf` as a window, or nullptr. A type comparison, cheaper than a cast: directories ask it
// once for every record they read.
inline StreamWindow* AsWindow(std::streambuf* buf) {
  return buf && typeid(*buf) == typeid(StreamWindow) ? static_cast<StreamWindow*>(buf) : nullptr;
}

// A window with its istream, handed out by the thread's pool so that reading many small
// records does not construct a stream per entry.
struct WindowStream {
  StreamWindow window;
  std::istream stream{&window};
};

// The windows of one thread that are free for reuse. A directory asks for its thread's pool
// once and takes and returns all its windows there.
class WindowPool {
 public:
  static WindowPool& OfThisThread();
  std::unique_ptr<WindowStream> Acquire();
  void Release(std::unique_ptr<WindowStream> ws);

 private:
  std::vector<std::unique_ptr<WindowStream>> mFree;
};

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_STREAMWINDOW_H
