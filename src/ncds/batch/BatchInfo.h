#ifndef NCDS_BATCH_BATCHINFO_H
#define NCDS_BATCH_BATCHINFO_H

// The record of one batch of a batch dataset: its name, whether it takes part in modelling,
// its number of observations, the phases that occur in it (with this batch's counts) and the
// values of its batch conditions. The batch owns its phase list, which may be absent (null);
// copies made with `Clone` share nothing with the original. Which observations belong to the
// batch is told by the observations themselves, not here.
//
// Persistent: magic "DBINFO", version 2 (only 2 is read); tags 0 name, 1 number of
// observations, 2 included, 3 phase list (absent when the batch has none), 4 batch-condition
// values, 5 old-format qualitative values (optional), 6 secondary IDs of the batch conditions
// (optional). A failed read returns false and leaves the batch partly read.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "ncds/batch/ClassInfoVector.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT BatchInfo : public VStreamBase {
 public:
  // Included, no observations, no phase list, no batch conditions.
  explicit BatchInfo(const std::string& name);
  ~BatchInfo() override;

  // A deep copy: the phase list, if any, is copied record by record.
  virtual boost::shared_ptr<BatchInfo> Clone() const;

  // Name, number of observations, batch-condition values, inclusion, secondary IDs and the
  // phase lists (both absent, or both present and equal) match. The old-format values do not
  // take part.
  bool operator==(const BatchInfo& other) const;
  bool operator!=(const BatchInfo& other) const { return !(*this == other); }

  // The name of the time variable the library generates for batch data: "$Time".
  static const char* GetGeneratedTimeVariableName();

  const std::string& GetBatchName() const { return mBatchName; }
  // Copies `name`; a null pointer sets an empty name.
  void SetBatchName(const char* name);
  bool IsIncluded() const { return mIncluded; }
  void SetIncluded(bool included) { mIncluded = included; }
  // The count that `GetNumObs` answers when the batch has no phase list.
  void SetNumObs(int numObs) { mNumObs = numObs; }

  // The number of observations. Without a phase list: the batch's own count. With one: the
  // sum over every phase named exactly `phaseName` (included or not), or, for a null
  // `phaseName`, over the included phases (all phases when `includeExcluded`).
  int GetNumObs(const char* phaseName, bool includeExcluded) const;

  // The phase list, or null when the batch has none.
  ClassInfoVector* GetClassVector() { return mClassVector.get(); }
  const ClassInfoVector* GetClassVector() const { return mClassVector.get(); }
  // Destroys the current list and takes ownership of `phases` (may be null).
  void SetClassVectorPtr(ClassInfoVector* phases);

  // One value per batch-condition variable, in the order of `BatchInfoVector`'s IDs; -99 is
  // missing.
  NCDataVector<float>* GetBatchConditionValues() { return &mBatchConditionValues; }
  const NCDataVector<float>* GetBatchConditionValues() const { return &mBatchConditionValues; }
  // Replaces the values with a copy of `*values`, or removes them all for null.
  void SetBatchConditionValues(const NCDataVector<float>* values);
  // Sets value `position` (1-based); a position outside 1..size is ignored.
  void SetBatchConditionValue(int position, float value);

  const std::vector<std::string>& GetBatchConditionSecIDs() const { return mSecIDs; }
  void SetBatchConditionSecIDs(const std::vector<std::string>& secIDs) { mSecIDs = secIDs; }

  // Batch-condition values of the old format, as text, kept until they are converted into
  // variables (`BatchInfoVector::UpdateBCIDsVectorFormat`).
  NCStringVector& OBSOLETE_GetQualitativeValues() { return mObsoleteQualitativeValues; }
  const NCStringVector& OBSOLETE_GetQualitativeValues() const { return mObsoleteQualitativeValues; }

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  BatchInfo(const BatchInfo& other);
  BatchInfo& operator=(const BatchInfo& other);

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  std::string mBatchName;
  std::unique_ptr<ClassInfoVector> mClassVector;
  std::int32_t mNumObs = 0;
  NCDataVector<float> mBatchConditionValues;
  std::vector<std::string> mSecIDs;
  NCStringVector mObsoleteQualitativeValues;
  bool mIncluded = true;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_BATCHINFO_H
