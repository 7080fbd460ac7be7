#ifndef NCDS_FOUNDATIONS_DETAIL_STREAMWINDOW_H
#define NCDS_FOUNDATIONS_DETAIL_STREAMWINDOW_H

// A read-only view of a byte range of another stream buffer: the sub-stream of one directory
// entry. Reads cannot pass the end of the range, so a damaged entry cannot make its reader
// consume its neighbours, and nested directories know their own size. Small reads are
// buffered; a large read goes straight from the parent into the caller's memory.
// Internal to the stream framework.

#include <cstdint>
#include <istream>
#include <memory>
#include <streambuf>
#include <vector>

namespace ncds::detail {

class StreamWindow : public std::streambuf {
 public:
  // Shows `length` bytes of `parent` starting at absolute position `begin`. `depth` counts
  // the windows between this one and the outermost stream.
  void Attach(std::streambuf* parent, std::streamoff begin, std::streamoff length, int depth);

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

  std::streambuf* mParent = nullptr;
  std::streamoff mBegin = 0;
  std::streamoff mLength = 0;
  std::streamoff mBufStart = 0;  // window position of eback()
  int mDepth = 0;
  std::vector<char> mBuffer;
};

// A window with its istream, handed out by the thread's pool so that reading many small
// records does not construct a stream per entry.
struct WindowStream {
  StreamWindow window;
  std::istream stream{&window};
};

std::unique_ptr<WindowStream> AcquireWindowStream();
void ReleaseWindowStream(std::unique_ptr<WindowStream> ws);

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_STREAMWINDOW_H
