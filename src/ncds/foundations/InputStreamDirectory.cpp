#include "ncds/foundations/InputStreamDirectory.h"

#include <istream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/StreamWindow.h"

namespace {
constexpr std::uint16_t kEndMark = 0xFFFF;
}  // namespace

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
  if (!mIs) return false;
  try {
    const std::uint64_t available = StreamRemaining(mIs);
    const std::streamoff start = mIs.tellg();
    if (start < 0 || available < 4) return false;
    const std::streamoff limit = start + static_cast<std::streamoff>(available);
    ReadTwoBytes(&mNumberOfTags, 1, mIs);
    std::streamoff pos = start + 2;
    for (;;) {
      std::uint16_t tag = 0;
      ReadTwoBytes(&tag, 1, mIs);
      pos += 2;
      if (tag == kEndMark) break;
      if (tag >= mNumberOfTags || Find(tag)) return false;
      std::uint64_t length = 0;
      ReadEightBytes(&length, 1, mIs);
      pos += 8;
      if (length > static_cast<std::uint64_t>(limit - pos)) return false;
      mEntries.push_back({tag, pos, static_cast<std::streamoff>(length)});
      pos += static_cast<std::streamoff>(length);
      // The next entry header or the end mark must still fit.
      if (limit - pos < 2) return false;
      if (!mIs.seekg(pos)) return false;
    }
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
    mIs.seekg(mEnd);
  }
}
