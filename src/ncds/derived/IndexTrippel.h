#ifndef NCDS_DERIVED_INDEXTRIPPEL_H
#define NCDS_DERIVED_INDEXTRIPPEL_H

// The key of one imported local center: a batch name, a phase name and a variable name, in
// that order. Triples order by batch, then phase, then variable, each compared byte-wise
// (case-sensitive). A plain value; safe to share between threads for reading.
//
// Persistent as a light record: magic "IndexTrippel", version 1 (only 1 is read), then the
// three names as binary strings in the order above. `Read` answers false for a foreign magic,
// another version or a damaged stream and then leaves the triple as it was; it never throws.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <tuple>

#include "ncds/ncds_export.h"

class NCDS_EXPORT IndexTrippel {
 public:
  IndexTrippel() = default;
  IndexTrippel(std::string batch, std::string phase, std::string variable);

  const std::string& GetBatch() const { return mBatch; }
  const std::string& GetPhase() const { return mPhase; }
  const std::string& GetVariable() const { return mVariable; }

  bool operator<(const IndexTrippel& other) const {
    return std::tie(mBatch, mPhase, mVariable) <
           std::tie(other.mBatch, other.mPhase, other.mVariable);
  }
  bool operator==(const IndexTrippel& other) const {
    return mBatch == other.mBatch && mPhase == other.mPhase && mVariable == other.mVariable;
  }
  bool operator!=(const IndexTrippel& other) const { return !(*this == other); }

  // False when the stream failed.
  bool Write(std::ostream& os) const;
  bool Read(std::istream& is);

  // The version this build writes and reads.
  static std::uint16_t GetMyVStreamVersionNumber();

 private:
  std::string mBatch;
  std::string mPhase;
  std::string mVariable;
};

#endif  // NCDS_DERIVED_INDEXTRIPPEL_H
