#ifndef NCDS_DERIVED_AVGLOCALCENTERINGINFO_H
#define NCDS_DERIVED_AVGLOCALCENTERINGINFO_H

// Per variable and phase, the average of the imported local centers over all batches: the
// default center for observations of batches that have no center of their own.
// `LocalCenteringInfo::BuildDefLocalCenteringInfo` builds it. Entries are keyed by (phase name,
// variable ID) and ordered by phase name (byte-wise), then ID; an absent entry reads as the
// missing value -99.0. Copyable; not synchronised.
//
// Persistent: magic "LCI", version 2 (only 2 is read); tag 0 the entries (a four-byte count,
// then per entry in key order the phase name as a binary string, the variable ID in four bytes
// and the center as a four-byte float), tag 1 the has-phases flag (one byte, non-zero is
// true), both required. A failed read answers false and leaves the object as it was.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>

#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT AVGLocalCenteringInfo : public VStreamBase {
 public:
  // (phase name, variable ID)
  using Key = std::pair<std::string, unsigned long>;
  using Map = std::map<Key, float>;
  using ConstIterator = Map::const_iterator;

  explicit AVGLocalCenteringInfo(bool hasPhases = false);
  AVGLocalCenteringInfo(const AVGLocalCenteringInfo& other);
  AVGLocalCenteringInfo& operator=(const AVGLocalCenteringInfo& other);
  ~AVGLocalCenteringInfo() override;

  // The same flag and the same entries (centers compared with ==, so a NaN never matches).
  bool operator==(const AVGLocalCenteringInfo& other) const;
  bool operator!=(const AVGLocalCenteringInfo& other) const { return !(*this == other); }

  // Stores `center` under (phase, varID), replacing an earlier one; a null phase is "".
  void AddData(const char* phase, unsigned long varID, float center);
  // The center under (phase, varID), or -99.0.
  float GetData(const char* phase, unsigned long varID) const;

  ConstIterator Begin() const { return mCenters.begin(); }
  ConstIterator End() const { return mCenters.end(); }
  std::size_t Size() const { return mCenters.size(); }
  void Clear() { mCenters.clear(); }

  // Whether the centers were imported per phase (else every phase name is empty).
  bool HasPhases() const { return mHasPhases; }

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  Map mCenters;
  bool mHasPhases;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DERIVED_AVGLOCALCENTERINGINFO_H
