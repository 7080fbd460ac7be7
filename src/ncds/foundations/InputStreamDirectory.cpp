#include "ncds/foundations/InputStreamDirectory.h"

#include <algorithm>
#include <istream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/Coding.h"
#include "ncds/foundations/detail/DirectoryLayout.h"
#include "ncds/foundations/detail/StreamWindow.h"

namespace ncds::detail {
namespace {

// Directories up to this size inside a window are read whole: record directories are a few
// dozen bytes, and one copy beats a seek and a window refill per entry.
constexpr std::streamoff kInMemoryLimit = 4096;

// Directories with more entries than this are sorted by tag for lookups.
constexpr std::size_t kLinearEntries = 8;

}  // namespace
}  // namespace ncds::detail

InputStreamDirectory::InputStreamDirectory(std::istream& is) : mIs(is) {
  ncds::detail::StreamWindow* window = ncds::detail::AsWindow(is.rdbuf());
  if (window) mDepth = window->Depth();
  mValid = false;
  if (mDepth < kMaxDepth && mIs) {
    ScanResult result = ScanResult::kUndecided;
    if (window) result = ScanInMemory(*window);
    if (result == ScanResult::kUndecided) {
      mEntries.clear();
      result = Scan() ? ScanResult::kValid : ScanResult::kInvalid;
    }
    mValid = result == ScanResult::kValid && HasUniqueTags();
  }
  if (!mValid) {
    mEntries.clear();
    mBytes.clear();
    mInMemory = false;
    mIs.setstate(std::ios_base::failbit);
  }
}

InputStreamDirectory::~InputStreamDirectory() { Close(); }

// Parses the directory from the window's buffered bytes. Undecided when they end before the
// end mark or look wrong: the streaming scan then decides, with the same checks.
InputStreamDirectory::ScanResult InputStreamDirectory::ScanInMemory(
    ncds::detail::StreamWindow& window) {
  using ncds::detail::DecodeVarint;
  const auto [data, available] = window.Peek(ncds::detail::kInMemoryLimit);
  const auto* const begin = reinterpret_cast<const unsigned char*>(data);
  const unsigned char* const end = begin + std::min(available, ncds::detail::kInMemoryLimit);
  const unsigned char* p = begin;
  std::uint64_t declared = 0;
  if (!DecodeVarint(p, end, declared) || declared > 0xFFFF) return ScanResult::kUndecided;
  mNumberOfTags = static_cast<std::uint16_t>(declared);
  for (;;) {
    std::uint64_t key = 0;
    if (!DecodeVarint(p, end, key)) return ScanResult::kUndecided;
    if (key == ncds::detail::kDirectoryEndKey) break;
    const std::uint64_t tag = (key >> 1) - 1;
    if (tag > 0xFFFF) return ScanResult::kUndecided;
    std::uint64_t length = 0;
    if (key & 1) {
      if (end - p < 8) return ScanResult::kUndecided;
      length = ncds::detail::DecodeFixed<std::uint64_t>(p);
      p += 8;
    } else if (!DecodeVarint(p, end, length)) {
      return ScanResult::kUndecided;
    }
    // The payload and at least the end mark after it must be here.
    if (length >= static_cast<std::uint64_t>(end - p)) return ScanResult::kUndecided;
    if (!AddEntry(tag, p - begin, length)) return ScanResult::kUndecided;
    p += length;
  }
  const auto used = static_cast<std::streamoff>(p - begin);
  mBytes.assign(data, data + used);
  window.Skip(used);
  mInMemory = true;
  return ScanResult::kValid;
}

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
      if (tag > 0xFFFF) return false;
      std::uint64_t length = 0;
      if (key & 1) {
        ReadEightBytes(&length, 1, mIs);
      } else {
        length = ReadVarint(mIs);
      }
      const std::streamoff pos = tell();
      // The payload and at least the end mark after it must fit.
      if (pos < 0 || length >= static_cast<std::uint64_t>(limit - pos)) return false;
      if (!AddEntry(tag, pos, length)) return false;
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

bool InputStreamDirectory::AddEntry(std::uint64_t tag, std::streamoff offset,
                                    std::uint64_t length) {
  if (mEntries.size() >= mNumberOfTags) return false;
  const auto shortTag = static_cast<std::uint16_t>(tag);
  // A few entries are checked for a repeated tag here; many are sorted and checked at the end.
  if (mEntries.size() < ncds::detail::kLinearEntries) {
    for (const Entry& e : mEntries) {
      if (e.tag == shortTag) return false;
    }
  }
  mEntries.push_back({shortTag, offset, static_cast<std::streamoff>(length)});
  return true;
}

bool InputStreamDirectory::HasUniqueTags() {
  if (mEntries.size() <= ncds::detail::kLinearEntries) return true;
  std::sort(mEntries.begin(), mEntries.end(),
            [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
  mSortedByTag = true;
  return std::adjacent_find(mEntries.begin(), mEntries.end(), [](const Entry& a, const Entry& b) {
           return a.tag == b.tag;
         }) == mEntries.end();
}

const InputStreamDirectory::Entry* InputStreamDirectory::Find(std::uint16_t tag) const {
  if (mSortedByTag) {
    const auto it = std::lower_bound(mEntries.begin(), mEntries.end(), tag,
                                     [](const Entry& e, std::uint16_t t) { return e.tag < t; });
    return it != mEntries.end() && it->tag == tag ? &*it : nullptr;
  }
  for (const Entry& e : mEntries) {
    if (e.tag == tag) return &e;
  }
  return nullptr;
}

bool InputStreamDirectory::HasTag(std::uint16_t tag) const { return Find(tag) != nullptr; }

std::istream* InputStreamDirectory::GetInput(std::uint16_t tag) {
  const Entry* entry = mClosed ? nullptr : Find(tag);
  if (!entry) return nullptr;
  if (!mPool) mPool = &ncds::detail::WindowPool::OfThisThread();
  auto window = mPool->Acquire();
  if (mInMemory) {
    window->window.AttachMemory(mBytes.data() + entry->offset, entry->length, mDepth + 1);
  } else {
    // Entry offsets are positions in the parent's own coordinates, which is what its buffer
    // seeks by (a parent that is itself a window counts from its own start).
    window->window.Attach(mIs.rdbuf(), entry->offset, entry->length, mDepth + 1);
  }
  mWindows.push_back(std::move(window));
  return &mWindows.back()->stream;
}

void InputStreamDirectory::Close() {
  if (mClosed) return;
  mClosed = true;
  for (auto& window : mWindows) mPool->Release(std::move(window));
  mWindows.clear();
  // A directory read whole has already moved its parent past itself.
  if (mValid && !mInMemory) {
    mIs.clear(mIs.rdstate() & ~std::ios_base::eofbit);
    if (!mIs.rdbuf() || mIs.rdbuf()->pubseekpos(mEnd, std::ios_base::in) != std::streampos(mEnd)) {
      mIs.setstate(std::ios_base::failbit);
    }
  }
}
