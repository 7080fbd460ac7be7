#ifndef NCDS_FOUNDATIONS_OUTPUTFILESTREAM_H
#define NCDS_FOUNDATIONS_OUTPUTFILESTREAM_H

// An output stream on a file, made for the stream framework's large payloads: writes of a
// megabyte or more go straight to the file without a copy, position queries cost nothing,
// and a writer that knows how much it is about to write can have the file system reserve the
// space first (`ReserveStreamSpace`), which saves the file system's block allocation on every
// page of a large matrix. Seekable, so directory entries stream through. Not copyable; one
// thread at a time. A failure to open or write sets the stream's failbit or badbit.

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "ncds/ncds_export.h"

namespace ncds::detail {
class FileStreamBuf;
}

class NCDS_EXPORT OutputFileStream : public std::ostream {
 public:
  // Creates or truncates `path`; check the stream's state for failure.
  explicit OutputFileStream(const std::string& path);
  ~OutputFileStream() override;
  OutputFileStream(const OutputFileStream&) = delete;
  OutputFileStream& operator=(const OutputFileStream&) = delete;

  bool is_open() const;
  // Writes what is buffered and closes the file; false when anything failed.
  bool close();

 private:
  std::unique_ptr<ncds::detail::FileStreamBuf> mBuf;
};

// Tells the file under `os` (through any directory entries) that `bytes` bytes follow at the
// current position. A hint: it does nothing for other streams and never fails.
NCDS_EXPORT void ReserveStreamSpace(std::ostream& os, std::uint64_t bytes);

#endif  // NCDS_FOUNDATIONS_OUTPUTFILESTREAM_H
