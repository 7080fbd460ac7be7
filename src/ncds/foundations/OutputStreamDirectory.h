#ifndef NCDS_FOUNDATIONS_OUTPUTSTREAMDIRECTORY_H
#define NCDS_FOUNDATIONS_OUTPUTSTREAMDIRECTORY_H

// Writes a directory of tagged entries: the fields of one class part of an object.
//
// Layout: the declared tag count (two bytes); then each entry written, as its tag (two
// bytes), its payload length (eight bytes) and its payload; then the end mark 0xFFFF.
// Entries are written in place: `GetOutput` returns the parent stream itself and the length
// is patched when the entry ends, so a payload of any size passes through without a copy.
// A stream that cannot seek gets each entry buffered instead.
//
// Ask for each tag at most once; tags never asked for are absent. Writing to an entry ends
// with the next `GetOutput` or `Close` (which the destructor calls). Not copyable.

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <sstream>

#include "ncds/ncds_export.h"

class NCDS_EXPORT OutputStreamDirectory {
 public:
  OutputStreamDirectory(std::ostream& os, std::uint16_t numberOfTags);
  ~OutputStreamDirectory();
  OutputStreamDirectory(const OutputStreamDirectory&) = delete;
  OutputStreamDirectory& operator=(const OutputStreamDirectory&) = delete;

  // The stream for the payload of `tag` (< the declared count, asked for once).
  // Throws `NCInternalError` otherwise.
  std::ostream& GetOutput(std::uint16_t tag);

  // Ends the last entry and writes the end mark; false when the stream failed.
  bool Close();

 private:
  void EndEntry();

  std::ostream& mOs;
  std::uint16_t mNumberOfTags;
  bool mSeekable;
  bool mClosed = false;
  bool mInEntry = false;
  std::uint16_t mTag = 0;
  std::streamoff mLengthPos = 0;
  std::streamoff mPayloadPos = 0;
  std::unique_ptr<std::ostringstream> mBuffer;  // entry buffer for unseekable streams
  std::uint64_t mWritten[4] = {0, 0, 0, 0};     // tags 0..255 already used, as bits
};

#endif  // NCDS_FOUNDATIONS_OUTPUTSTREAMDIRECTORY_H
