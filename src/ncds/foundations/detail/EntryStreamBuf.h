#ifndef NCDS_FOUNDATIONS_DETAIL_ENTRYSTREAMBUF_H
#define NCDS_FOUNDATIONS_DETAIL_ENTRYSTREAMBUF_H

// The payload of one directory entry being written. A small payload is collected in memory
// and written to the parent with its header in one piece when the entry ends, which needs no
// seek. A payload that grows past `kSpillSize` spills: its header goes to the parent with a
// placeholder length, the rest streams straight through, and the length is patched at the
// end by seeking the parent. So large payloads are never held twice, and files see no seek
// per small entry. Spilling needs a seekable stream at the root; without one the payload
// stays in memory. Internal to the stream framework.

#include <cstdint>
#include <memory>
#include <ostream>
#include <streambuf>
#include <vector>

#include "ncds/foundations/detail/Coding.h"
#include "ncds/foundations/detail/DirectoryLayout.h"

namespace ncds::detail {

class EntryStreamBuf : public std::streambuf {
 public:
  static constexpr std::size_t kSpillSize = std::size_t{256} * 1024;

  // Starts the payload of `tag`, to be written to `parent`. `rootSeekable` tells whether the
  // outermost stream can seek.
  void Begin(std::streambuf* parent, std::uint16_t tag, bool rootSeekable);
  // Writes the entry (header and payload) to the parent; false when the parent failed.
  bool End();

  bool RootSeekable() const { return mRootSeekable; }
  // The stream buffer this entry writes to.
  std::streambuf* Parent() const { return mParent; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* s, std::streamsize n) override;
  int sync() override;
  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override;

 private:
  // Room kept in front of a payload in memory for its header (key and length).
  static constexpr std::size_t kHeaderSize = 2 * kMaxVarintLength;

  std::streamoff Position() const;
  void Advance(std::streamoff n);
  std::streamoff HighWater();
  bool Grow(std::size_t needed);
  bool Spill();
  bool FlushThrough();
  bool PositionParent(std::streamoff payloadPos);

  std::streambuf* mParent = nullptr;
  std::uint16_t mTag = 0;
  bool mRootSeekable = false;
  bool mSpilled = false;
  bool mFailed = false;
  // In memory: the buffer holds the header room, then the payload; positions count from the
  // payload start. Spilled: the buffer holds bytes not yet passed on, starting at the payload
  // position mBufferPos.
  std::vector<char> mBuffer;
  std::streamoff mHigh = 0;          // payload bytes written so far (the end)
  std::streamoff mBufferPos = 0;     // spilled: payload position of the buffer's start
  std::streamoff mParentLength = 0;  // spilled: parent position of the length field
};

// An entry buffer with its ostream, reused through the thread's pool.
struct EntryStream {
  EntryStreamBuf buf;
  std::ostream stream{&buf};
};

std::unique_ptr<EntryStream> AcquireEntryStream();
void ReleaseEntryStream(std::unique_ptr<EntryStream> es);

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_ENTRYSTREAMBUF_H
