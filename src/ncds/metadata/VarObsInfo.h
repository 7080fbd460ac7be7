#ifndef NCDS_METADATA_VAROBSINFO_H
#define NCDS_METADATA_VAROBSINFO_H

// The identity of one variable (a column) or observation (a row): a unique ID, which names it
// across the project, and an ordered list of textual IDs, one per ID series of the owning
// container. ID 1 is the primary ID. Indices are 1-based everywhere; getters given an index
// out of range answer a shared empty string (or -99 for numbers) and setters ignore it, so no
// operation throws for a bad index.
//
// Two records of the same dynamic class are equal when their primary IDs are equal ignoring
// case: they name the same variable or observation whatever their unique IDs.
//
// Persistent: magic "VOI", version 3; tag 0 the IDs (a four-byte count and binary strings),
// tag 1 the unique ID (four bytes). A stream of an older version reads nothing and keeps the
// record as constructed; a newer one fails. The containers own the records.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

namespace ncds::detail {
class ByteReader;
class ByteWriter;
}  // namespace ncds::detail

class BatchImportSettings;
class VarObs;
class VariableInfo;
class ObservationInfo;

class NCDS_EXPORT VarObsInfo : public virtual VStreamBase {
 public:
  VarObsInfo();
  VarObsInfo(const std::string& id, unsigned long uniqueID);
  VarObsInfo(std::vector<std::string> ids, unsigned long uniqueID);
  VarObsInfo(const VarObsInfo& other);
  VarObsInfo& operator=(const VarObsInfo& other);
  ~VarObsInfo() override;

  // This record as a variable (observation), or null.
  virtual const VariableInfo* AsVariableInfo() const;
  virtual const ObservationInfo* AsObservationInfo() const;
  virtual bool operator==(const VarObsInfo& other) const;
  bool operator!=(const VarObsInfo& other) const { return !(*this == other); }

  unsigned long GetUniqueID() const { return mUniqueID; }
  void SetUniqueID(unsigned long uniqueID) { mUniqueID = uniqueID; }

  int GetNumIDs() const { return static_cast<int>(mIDs.size()); }
  const std::string& GetUserID(int i) const;
  // The first ID; the record must have one.
  const std::string& GetPrimaryAlias() const { return mIDs.front(); }
  // ID `i` as a number, or -99 when it is out of range or not a number.
  float GetUserFloatID(int i) const;
  const std::vector<std::string>& GetUserIDs() const { return mIDs; }

  // Appends `id`; returns the new count, the index of the new ID.
  int AddID(const std::string& id);
  // Removes ID `i`, shifting the later ones down.
  void RemoveID(int i);
  // Sets ID `i`, growing the list with empty IDs when `i` is beyond it. With an owner, the
  // owner's lookup by user ID is dropped first and a numeric `id` marks series `i` numeral.
  void SetUserID(const std::string& id, int i, VarObs* owner);

  // The ID in the owner's batch (phase) series; empty when there is none.
  const std::string& GetBatchName(const VarObs& owner) const;
  const std::string& GetPhaseName(const VarObs& owner) const;
  // The same, with the series that the batch import settings name.
  const std::string& GetBatchName(const BatchImportSettings& settings) const;
  const std::string& GetPhaseName(const BatchImportSettings& settings) const;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

  // The fast read of a derived record: decodes this part from bytes in memory into `ids` and
  // `uniqueID` when it is not read yet in this pass and has exactly the layout this version
  // writes; false otherwise (the bytes are then read through the streams). The record is
  // left alone until `AdoptCommonPart` takes the result, as a read of this part would.
  bool DecodeCommonPart(ncds::detail::ByteReader& bytes, std::vector<std::string>& ids,
                        std::uint32_t& uniqueID) const;
  void AdoptCommonPart(std::vector<std::string>&& ids, std::uint32_t uniqueID);
  // The fast write of a derived record: encodes this part as the streams would write it, when
  // it is not written yet in this pass and fits; false otherwise. `EnterCommonPart` then
  // marks it written, as a write of this part would.
  bool EncodeCommonPart(ncds::detail::ByteWriter& bytes) const;
  void EnterCommonPart() const { mGuard.Enter(); }

 private:
  friend class VarObs;

  // Inserts `id` at `i`, padding with empty IDs up to i - 1 first.
  void InsertID(int i, const char* id);
  // Moves ID `from` to `to`; nothing when either is out of range or they are equal.
  void MoveID(int from, int to);
  // Exchanges IDs `i` and `j`, growing the list with empty IDs to hold both.
  void SwapID(int i, int j);

  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  VStreamGuard mGuard;
  unsigned long mUniqueID = 0;
  std::vector<std::string> mIDs;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_VAROBSINFO_H
