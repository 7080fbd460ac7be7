#ifndef NCDS_FOUNDATIONS_VSTREAMABLEDATA_H
#define NCDS_FOUNDATIONS_VSTREAMABLEDATA_H

// The magic string and version number of one persistent class. Each persistent class owns one
// static instance; `Write` opens the class's part of a stream and `Check` verifies it.
// `Check` remembers the version it read for `GetVStreamVersionNumber`; classes that need the
// version of the object being read take it from the two-argument `Check`, which is safe when
// several threads read streams of the same class.

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "ncds/ncds_export.h"

namespace ncds::detail {
class ByteReader;
class ByteWriter;
}  // namespace ncds::detail

class NCDS_EXPORT VStreamableData {
 public:
  VStreamableData(std::int16_t version, const char* magic);

  bool Write(std::ostream& os) const;
  // The same into bytes in memory, for the library's fast record writers; false when they
  // do not fit.
  bool Write(ncds::detail::ByteWriter& bytes) const;
  // False when the magic does not match or the stream ends; never throws.
  bool Check(std::istream& is) const;
  bool Check(std::istream& is, std::int16_t& versionRead) const;
  // The same on bytes in memory, for the library's fast record readers; false on a mismatch.
  bool Check(ncds::detail::ByteReader& bytes, std::int16_t& versionRead) const;

  // The version of the last stream checked.
  std::int16_t GetVStreamVersionNumber() const {
    return mVersionRead.load(std::memory_order_relaxed);
  }
  // The version this build writes.
  std::int16_t GetMyVStreamVersionNumber() const { return mVersion; }
  const std::string& GetMagic() const { return mMagic; }

 private:
  void NoteVersionRead(std::int16_t version) const;

  std::string mMagic;
  std::int16_t mVersion;
  mutable std::atomic<std::int16_t> mVersionRead{0};
};

#endif  // NCDS_FOUNDATIONS_VSTREAMABLEDATA_H
