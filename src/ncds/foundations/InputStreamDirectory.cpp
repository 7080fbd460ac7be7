#include "ncds/foundations/InputStreamDirectory.h"

#include <istream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/DirectoryLayout.h"
#include "ncds/foundations/detail/StreamWindow.h"

InputStreamDirectory::InputStreamDirectory(std::istream& is) : mIs(is) {
  if (auto* window = dynamic_cast<ncds::detail::StreamWindow*>(is.rdbuf())) {
    mDepth = window->Depth();
  }
  mValid = mDepth < kMaxDepth && Scan();
  if (!mValid) {
    mEntries.clear();
    mIs.setstate(std::ios_base::failbit);
  }
}

InputStreamDirectory::~InputStreamDirectory() { Close(); }

bool InputStreamDirectory::Scan() {
  std::streambuf* buf = mIs.rdbuf();
  if (!mIs || !buf) return false;
  // Positions go through the buffer directly: a stream sentry per entry costs more than the
  // entry itself in streams of small records.
  const auto tell = [buf] {
    return static_cast<std::streamoff>(buf->pubseekoff(0, std::ios_base::cur, std::ios_base::in));
  };
  try {
    const std::uint64_t available = StreamRemaining(mIs);
    const std::streamoff start = tell();
    if (start < 0 || available < 2) return false;
    const std::streamoff limit = start + static_cast<std::streamoff>(available);
    const std::uint64_t declared = ReadVarint(mIs);
    if (declared > 0xFFFF) return false;
    mNumberOfTags = static_cast<std::uint16_t>(declared);
    for (;;) {
      const std::uint64_t key = ReadVarint(mIs);
      if (key == ncds::detail::kDirectoryEndKey) break;
      const std::uint64_t tag = (key >> 1) - 1;
      if (tag >= mNumberOfTags || Find(static_cast<std::uint16_t>(tag))) return false;
      std::uint64_t length = 0;
      if (key & 1) {
        ReadEightBytes(&length, 1, mIs);
      } else {
        length = ReadVarint(mIs);
      }
      const std::streamoff pos = tell();
      // The payload and at least the end mark after it must fit.
      if (pos < 0 || length >= static_cast<std::uint64_t>(limit - pos)) return false;
      mEntries.push_back(
          {static_cast<std::uint16_t>(tag), pos, static_cast<std::streamoff>(length)});
      const std::streamoff next = pos + static_cast<std::streamoff>(length);
      if (buf->pubseekpos(next, std::ios_base::in) != std::streampos(next)) return false;
    }
    const std::streamoff pos = tell();
    if (pos < 0) return false;
    mEnd = pos;
    return true;
  } catch (const VxStreamError&) {
    return false;
  }
}

const InputStreamDirectory::Entry* InputStreamDirectory::Find(std::uint16_t tag) const {
  for (const Entry& e : mEntries) {
    if (e.tag == tag) return &e;
  }
  return nullptr;
}

bool InputStreamDirectory::HasTag(std::uint16_t tag) const { return Find(tag) != nullptr; }

std::istream* InputStreamDirectory::GetInput(std::uint16_t tag) {
  const Entry* entry = mClosed ? nullptr : Find(tag);
  if (!entry) return nullptr;
  // Entry offsets are positions in the parent's own coordinates, which is what its buffer
  // seeks by (a parent that is itself a window counts from its own start).
  auto window = ncds::detail::AcquireWindowStream();
  window->window.Attach(mIs.rdbuf(), entry->offset, entry->length, mDepth + 1);
  window->stream.clear();
  mWindows.push_back(std::move(window));
  return &mWindows.back()->stream;
}

void InputStreamDirectory::Close() {
  if (mClosed) return;
  mClosed = true;
  for (auto& window : mWindows) ncds::detail::ReleaseWindowStream(std::move(window));
  mWindows.clear();
  if (mValid) {
    mIs.clear(mIs.rdstate() & ~std::ios_base::eofbit);
    if (!mIs.rdbuf() || mIs.rdbuf()->pubseekpos(mEnd, std::ios_base::in) != std::streampos(mEnd)) {
      mIs.setstate(std::ios_base::failbit);
    }
  }
}
