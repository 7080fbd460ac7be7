#ifndef NCDS_PROJECT_DETAIL_BLOCKSINK_H
#define NCDS_PROJECT_DETAIL_BLOCKSINK_H

// Collects a stream in memory as a list of equal blocks, for a stream that is made on one
// thread and stored on another. Blocks are allocated as the stream grows and are never moved
// or cleared first, so that a stream of tens of megabytes costs one pass over its bytes. It
// seeks within what was written, as the stream framework does to patch lengths.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "ncds/project/detail/PutBuffer.h"

namespace ncds::detail {

class BlockSink final : public PutBuffer {
 public:
  explicit BlockSink(std::size_t blockSize) : mBlockSize(std::max<std::size_t>(blockSize, 1)) {}

  // The bytes written, up to the furthest position reached.
  std::uint64_t Size() const { return std::max(mHigh, Position()); }

  // Calls `consume(const char* data, std::size_t size)` for each block in order; every block
  // but the last is full.
  template <class Consume>
  void ForEachBlock(Consume&& consume) const {
    const std::uint64_t size = Size();
    for (std::size_t k = 0; k < mBlocks.size() && k * std::uint64_t{mBlockSize} < size; ++k) {
      const std::uint64_t left = size - k * std::uint64_t{mBlockSize};
      consume(mBlocks[k].get(),
              static_cast<std::size_t>(std::min<std::uint64_t>(left, mBlockSize)));
    }
  }

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    std::streamsize done = 0;
    while (done < n) {
      if (pptr() == epptr()) PlaceAt(Position(), true);
      const auto take = std::min<std::streamsize>(n - done, epptr() - pptr());
      std::memcpy(pptr(), s + done, static_cast<std::size_t>(take));
      pbump(static_cast<int>(take));
      done += take;
    }
    return done;
  }

  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::out)) return pos_type(off_type(-1));
    const std::uint64_t high = Size();
    const std::uint64_t base = dir == std::ios_base::beg   ? 0
                               : dir == std::ios_base::cur ? Position()
                                                           : high;
    if ((off < 0 && static_cast<std::uint64_t>(-off) > base) ||
        (off > 0 && static_cast<std::uint64_t>(off) > high - base)) {
      return pos_type(off_type(-1));
    }
    mHigh = high;
    const std::uint64_t target = base + static_cast<std::uint64_t>(off);
    PlaceAt(target, false);
    return pos_type(static_cast<off_type>(target));
  }

  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }

 private:
  std::uint64_t Position() const {
    return pbase()
               ? mCurrent * std::uint64_t{mBlockSize} + static_cast<std::uint64_t>(pptr() - pbase())
               : mCurrent * std::uint64_t{mBlockSize};
  }

  // Puts the put area on the block holding `position`; at the end of the last block the next
  // block is allocated when `grow`, else the put area stays empty until the next write.
  void PlaceAt(std::uint64_t position, bool grow) {
    mHigh = std::max(mHigh, Position());
    mCurrent = static_cast<std::size_t>(position / mBlockSize);
    if (mCurrent == mBlocks.size() && grow) {
      // Not value-initialised: every byte is written before it is read.
      mBlocks.emplace_back(new char[mBlockSize]);
    }
    if (mCurrent < mBlocks.size()) {
      char* block = mBlocks[mCurrent].get();
      setp(block, block + mBlockSize);
      pbump(static_cast<int>(position % mBlockSize));
    } else {
      setp(nullptr, nullptr);
    }
  }

  std::size_t mBlockSize;
  std::vector<std::unique_ptr<char[]>> mBlocks;
  std::size_t mCurrent = 0;  // the block of the put area
  std::uint64_t mHigh = 0;   // the furthest position reached before the last move
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_BLOCKSINK_H
