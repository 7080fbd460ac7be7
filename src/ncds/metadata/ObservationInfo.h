#ifndef NCDS_METADATA_OBSERVATIONINFO_H
#define NCDS_METADATA_OBSERVATIONINFO_H

// The description of one observation (a row of a dataset): its identity, the class (phase)
// it belongs to by default (0 = none) and the unique ID of the batch record it belongs to
// (`NCUniqueIDs::kNone` when it is in no batch). The observation container owns the records.
//
// Persistent: magic "OI", version 1, after the identity part; tag 0 the default class, tag 1
// the batch (four bytes each). Registered with the factory repository as "ObservationInfo".

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VarObsInfo.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT ObservationInfo : public VarObsInfo {
 public:
  ObservationInfo();
  ObservationInfo(const std::string& id, unsigned long uniqueID);
  ObservationInfo(std::vector<std::string> ids, unsigned long uniqueID);
  ObservationInfo(const ObservationInfo& other);
  ObservationInfo& operator=(const ObservationInfo& other);
  ~ObservationInfo() override;

  const ObservationInfo* AsObservationInfo() const override;
  // A heap copy; the caller owns it.
  virtual ObservationInfo* Clone() const;

  int GetDefaultClass() const { return mDefaultClass; }
  void SetDefaultClass(int defaultClass) { mDefaultClass = defaultClass; }
  unsigned long GetBatch() const { return mBatch; }
  void SetBatch(unsigned long batch) { mBatch = batch; }

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
  // Encodes the whole record and writes it in one piece when it is small; false (nothing
  // written) otherwise.
  bool WriteBuffered(std::ostream& os) const;
  // Decodes the record in place when its window holds all of it in the layout this version
  // writes; false (nothing read) otherwise.
  bool ReadBuffered(std::istream& is);
  bool ReadStreamDirectory(std::istream& is);

  std::int32_t mDefaultClass = 0;
  unsigned long mBatch = NCUniqueIDs::kNone;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_OBSERVATIONINFO_H
