#ifndef NCDS_FOUNDATIONS_OUTPUTSTREAMDIRECTORY_H
#define NCDS_FOUNDATIONS_OUTPUTSTREAMDIRECTORY_H

// Writes a directory of tagged entries: the fields of one class part of an object.
//
// Each entry written is stored as its tag, its payload length and its payload, after the
// declared tag count and before an end mark (the bytes are described in DirectoryLayout.h).
// A small payload is collected and written with its header in one piece; a large one streams
// through to the parent and its length is patched when it ends, so a payload of any size
// passes without a second copy (this needs a seekable stream underneath; otherwise payloads
// are collected whole).
//
// The declared count is the most entries the directory may hold; a tag is any 16-bit number.
// Ask for each tag at most once; tags never asked for are absent. The stream `GetOutput`
// returns takes the entry's payload until the next `GetOutput` or `Close` (which the
// destructor calls); write nothing to the parent stream meanwhile. Not copyable.

#include <boost/container/small_vector.hpp>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "ncds/ncds_export.h"

namespace ncds::detail {
struct EntryStream;
}

class NCDS_EXPORT OutputStreamDirectory {
 public:
  OutputStreamDirectory(std::ostream& os, std::uint16_t numberOfTags);
  ~OutputStreamDirectory();
  OutputStreamDirectory(const OutputStreamDirectory&) = delete;
  OutputStreamDirectory& operator=(const OutputStreamDirectory&) = delete;

  // The stream for the payload of `tag`, asked for once and within the declared count of
  // entries. Throws `NCInternalError` otherwise.
  std::ostream& GetOutput(std::uint16_t tag);

  // Ends the last entry and writes the end mark; false when the stream failed.
  bool Close();

 private:
  void EndEntry();

  std::ostream& mOs;
  std::uint16_t mNumberOfTags;
  bool mRootSeekable = false;
  bool mClosed = false;
  std::unique_ptr<ncds::detail::EntryStream> mEntry;
  boost::container::small_vector<std::uint16_t, 8> mWritten;  // tags already used
};

#endif  // NCDS_FOUNDATIONS_OUTPUTSTREAMDIRECTORY_H
