#ifndef NCDS_FOUNDATIONS_INPUTSTREAMDIRECTORY_H
#define NCDS_FOUNDATIONS_INPUTSTREAMDIRECTORY_H

// Reads a directory written by `OutputStreamDirectory`.
//
// The constructor walks the entries and checks them: more entries than the declared count, a
// tag twice, a length beyond the enclosing stream, a missing end mark or nesting deeper than
// `kMaxDepth` makes the directory invalid; then every tag reads as absent and the parent
// stream's failbit is set. Nothing is allocated for a count or length before it is checked
// against the bytes present.
//
// A small directory inside another directory's entry (a record among many) is read whole in
// one piece and its entries are then read from memory; a large one is walked by seeking over
// its payloads, which are read from the parent stream when asked for.
//
// `GetInput` returns a stream that shows exactly one entry's payload (reads stop at its end)
// or nullptr when the tag is absent; the stream stays valid until `Close` (the destructor
// calls it), which leaves the parent stream just after the directory. The parent stream
// must be seekable. Not copyable.

#include <boost/container/small_vector.hpp>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "ncds/ncds_export.h"

namespace ncds::detail {
struct WindowStream;
class StreamWindow;
class WindowPool;
}  // namespace ncds::detail

class NCDS_EXPORT InputStreamDirectory {
 public:
  // Deepest nesting of directories inside one another that a stream may have.
  static constexpr int kMaxDepth = 64;

  explicit InputStreamDirectory(std::istream& is);
  ~InputStreamDirectory();
  InputStreamDirectory(const InputStreamDirectory&) = delete;
  InputStreamDirectory& operator=(const InputStreamDirectory&) = delete;

  // The payload of `tag` positioned at its start, or nullptr when the tag is absent.
  std::istream* GetInput(std::uint16_t tag);
  bool HasTag(std::uint16_t tag) const;

  bool IsValid() const { return mValid; }
  std::uint16_t GetNumberOfTags() const { return mNumberOfTags; }

  void Close();

 private:
  struct Entry {
    std::uint16_t tag;
    std::streamoff offset;  // absolute position of the payload in the parent buffer
    std::streamoff length;
  };

  enum class ScanResult { kValid, kInvalid, kUndecided };

  ScanResult ScanInMemory(ncds::detail::StreamWindow& window);
  bool Scan();
  // Appends an entry; false when the directory holds its declared count already or the tag
  // repeats one of the first few.
  bool AddEntry(std::uint64_t tag, std::streamoff offset, std::uint64_t length);
  // Whether no tag repeats (sorting many entries by tag to find out).
  bool HasUniqueTags();
  const Entry* Find(std::uint16_t tag) const;

  std::istream& mIs;
  std::uint16_t mNumberOfTags = 0;
  bool mValid = false;
  bool mClosed = false;
  bool mInMemory = false;     // entries read whole into mBytes
  bool mSortedByTag = false;  // many entries: sorted for a binary search
  int mDepth = 0;
  std::streamoff mEnd = 0;  // position just after the end mark
  // Records have a handful of entries and bytes: keep them inline, without a heap allocation.
  boost::container::small_vector<Entry, 8> mEntries;
  boost::container::small_vector<char, 128> mBytes;
  boost::container::small_vector<std::unique_ptr<ncds::detail::WindowStream>, 4> mWindows;
  ncds::detail::WindowPool* mPool = nullptr;
};

#endif  // NCDS_FOUNDATIONS_INPUTSTREAMDIRECTORY_H
