#include "ncds/foundations/detail/EntryStreamBuf.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "ncds/foundations/detail/Coding.h"

namespace ncds::detail {

// pbump takes an int; payloads in memory can be larger when the root cannot seek.
void EntryStreamBuf::Advance(std::streamoff n) {
  while (n > INT_MAX) {
    pbump(INT_MAX);
    n -= INT_MAX;
  }
  pbump(static_cast<int>(n));
}

void EntryStreamBuf::Begin(std::streambuf* parent, std::uint16_t tag, bool rootSeekable) {
  mParent = parent;
  mTag = tag;
  mRootSeekable = rootSeekable;
  mSpilled = false;
  mFailed = parent == nullptr;
  mHigh = 0;
  mBufferPos = 0;
  mParentLength = 0;
  if (mBuffer.size() < kHeaderSize + 256) mBuffer.resize(kHeaderSize + 256);
  setp(mBuffer.data() + kHeaderSize, mBuffer.data() + mBuffer.size());
}

std::streamoff EntryStreamBuf::Position() const {
  return (mSpilled ? mBufferPos : 0) + (pptr() - pbase());
}

std::streamoff EntryStreamBuf::HighWater() {
  mHigh = std::max(mHigh, Position());
  return mHigh;
}

bool EntryStreamBuf::Grow(std::size_t needed) {
  const std::size_t have = mBuffer.size() - kHeaderSize;
  if (needed <= have) return true;
  const std::streamoff at = pptr() - pbase();
  mBuffer.resize(kHeaderSize + std::max(needed, 2 * have));
  setp(mBuffer.data() + kHeaderSize, mBuffer.data() + mBuffer.size());
  Advance(at);
  return true;
}

bool EntryStreamBuf::Spill() {
  const std::streamoff high = HighWater();
  const std::streamoff at = Position();
  const std::streampos start = mParent->pubseekoff(0, std::ios_base::cur, std::ios_base::out);
  if (start == std::streampos(-1)) {
    mRootSeekable = false;  // keep collecting in memory
    return false;
  }
  // The header of a spilled entry: its key with the low bit set, then a fixed-width length
  // that End patches.
  unsigned char header[kMaxVarintLength + 8];
  const std::size_t keyLength = EncodeVarint(header, EntryKey(mTag, true));
  EncodeFixed<std::uint64_t>(header + keyLength, 0);
  const auto headerLength = static_cast<std::streamsize>(keyLength + 8);
  if (mParent->sputn(reinterpret_cast<const char*>(header), headerLength) != headerLength ||
      mParent->sputn(pbase(), high) != high) {
    mFailed = true;
    return false;
  }
  mParentLength = static_cast<std::streamoff>(start) + static_cast<std::streamoff>(keyLength);
  mSpilled = true;
  mBufferPos = at;
  if (at != high && !PositionParent(at)) return false;
  setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
  return true;
}

bool EntryStreamBuf::PositionParent(std::streamoff payloadPos) {
  const std::streamoff target = mParentLength + 8 + payloadPos;
  if (mParent->pubseekpos(target, std::ios_base::out) != std::streampos(target)) {
    mFailed = true;
    return false;
  }
  return true;
}

bool EntryStreamBuf::FlushThrough() {
  HighWater();
  const std::streamsize n = pptr() - pbase();
  if (n > 0 && mParent->sputn(pbase(), n) != n) mFailed = true;
  mBufferPos += n;
  setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
  return !mFailed;
}

EntryStreamBuf::int_type EntryStreamBuf::overflow(int_type c) {
  if (mFailed) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  const char ch = traits_type::to_char_type(c);
  return xsputn(&ch, 1) == 1 ? c : traits_type::eof();
}

std::streamsize EntryStreamBuf::xsputn(const char* s, std::streamsize n) {
  if (mFailed || n <= 0) return mFailed ? 0 : n;
  if (!mSpilled) {
    const std::size_t needed = static_cast<std::size_t>(Position() + n);
    if (needed > kSpillSize && mRootSeekable && !Spill() && mFailed) return 0;
    if (!mSpilled) {
      Grow(needed);
      std::memcpy(pptr(), s, static_cast<std::size_t>(n));
      Advance(n);
      return n;
    }
  }
  if (n <= epptr() - pptr()) {
    std::memcpy(pptr(), s, static_cast<std::size_t>(n));
    Advance(n);
    return n;
  }
  if (!FlushThrough()) return 0;
  if (static_cast<std::size_t>(n) >= mBuffer.size()) {
    // Large blocks go straight to the parent.
    if (mParent->sputn(s, n) != n) {
      mFailed = true;
      return 0;
    }
    mBufferPos += n;
    HighWater();
    return n;
  }
  std::memcpy(pptr(), s, static_cast<std::size_t>(n));
  Advance(n);
  return n;
}

int EntryStreamBuf::sync() { return mFailed ? -1 : 0; }

EntryStreamBuf::pos_type EntryStreamBuf::seekoff(off_type off, std::ios_base::seekdir dir,
                                                 std::ios_base::openmode which) {
  if (!(which & std::ios_base::out) || mFailed) return pos_type(off_type(-1));
  if (dir == std::ios_base::cur && off == 0) return pos_type(Position());
  std::streamoff base = 0;
  if (dir == std::ios_base::cur) base = Position();
  if (dir == std::ios_base::end) base = HighWater();
  return seekpos(pos_type(base + off), which);
}

EntryStreamBuf::pos_type EntryStreamBuf::seekpos(pos_type pos, std::ios_base::openmode which) {
  if (!(which & std::ios_base::out) || mFailed) return pos_type(off_type(-1));
  const std::streamoff target = pos;
  if (target < 0 || target > HighWater()) return pos_type(off_type(-1));
  if (!mSpilled) {
    setp(pbase(), epptr());
    Advance(target);
    return pos;
  }
  if (!FlushThrough() || !PositionParent(target)) return pos_type(off_type(-1));
  mBufferPos = target;
  return pos;
}

bool EntryStreamBuf::End() {
  if (!mParent) return false;
  const std::streamoff high = HighWater();
  if (!mFailed && !mSpilled) {
    // The header goes right in front of the payload, so the entry leaves in one piece.
    unsigned char header[kHeaderSize];
    std::size_t headerLength = EncodeVarint(header, EntryKey(mTag, false));
    headerLength += EncodeVarint(header + headerLength, static_cast<std::uint64_t>(high));
    char* start = pbase() - headerLength;
    std::memcpy(start, header, headerLength);
    const std::streamsize total = static_cast<std::streamsize>(headerLength) + high;
    if (mParent->sputn(start, total) != total) mFailed = true;
  } else if (!mFailed) {
    unsigned char length[8];
    EncodeFixed<std::uint64_t>(length, static_cast<std::uint64_t>(high));
    const std::streampos lengthPos(mParentLength);
    if (!FlushThrough() || mParent->pubseekpos(lengthPos, std::ios_base::out) != lengthPos ||
        mParent->sputn(reinterpret_cast<const char*>(length), 8) != 8 || !PositionParent(high)) {
      mFailed = true;
    }
  }
  mParent = nullptr;
  // Let go of very large buffers; small ones are kept for the next entry.
  if (mBuffer.size() > 2 * kSpillSize) std::vector<char>().swap(mBuffer);
  return !mFailed;
}

namespace {

struct EntryPool {
  std::vector<std::unique_ptr<EntryStream>> free;
};

EntryPool& Pool() {
  thread_local EntryPool pool;
  return pool;
}

}  // namespace

std::unique_ptr<EntryStream> AcquireEntryStream() {
  auto& pool = Pool().free;
  if (pool.empty()) return std::make_unique<EntryStream>();
  std::unique_ptr<EntryStream> es = std::move(pool.back());
  pool.pop_back();
  es->stream.clear();
  return es;
}

void ReleaseEntryStream(std::unique_ptr<EntryStream> es) {
  auto& pool = Pool().free;
  if (es && pool.size() < 64) pool.push_back(std::move(es));
}

}  // namespace ncds::detail
