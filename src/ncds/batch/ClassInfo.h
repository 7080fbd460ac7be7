#ifndef NCDS_BATCH_CLASSINFO_H
#define NCDS_BATCH_CLASSINFO_H

// The record of one phase (class) of batch data: its original and current name, the variable
// that measures its maturity, its number of observations, whether it takes part in modelling
// and the variables excluded from it. Records are shared through `boost::shared_ptr` inside
// one `ClassInfoVector`; copies between vectors are clones that share nothing.
//
// Persistent: magic "DPINFO", version 4 (only 4 is read); tags 1 average length, 2 original
// name, 3 phase name, 4 Y variable, 5 number of observations, 6 included, 7 excluded
// variables, all required. The phase status lives in memory only and reads back as 0. A
// failed read returns false; the fields read before the failure keep their new values.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT ClassInfo : public VStreamBase {
 public:
  // The status of a phase; values other than these pass through unchanged.
  enum EPhaseStatus : std::int32_t { eNormal = 0 };

  // OriginalName and PhaseName both `name`; no Y variable, no observations, average length
  // not computed (-1), included, no excluded variables.
  explicit ClassInfo(const std::string& name);
  ~ClassInfo() override;

  // A copy of every field; its streaming state starts fresh.
  virtual boost::shared_ptr<ClassInfo> Clone() const;

  // Every field but the streaming state is equal.
  bool operator==(const ClassInfo& other) const;
  bool operator!=(const ClassInfo& other) const { return !(*this == other); }

  // The name the phase was created with; it survives renaming and merging.
  const std::string& GetOriginalName() const { return mOriginalName; }
  // The string setters copy `name`; a null pointer sets an empty name.
  void SetOriginalName(const char* name);
  const std::string& GetPhaseName() const { return mPhaseName; }
  void SetPhaseName(const char* name);
  // The variable that measures maturity in this phase; `NCUniqueIDs::kNone` for none.
  unsigned long GetYVariableID() const { return mYVariableID; }
  void SetYVariableID(unsigned long variableID) { mYVariableID = variableID; }
  int GetNumObs() const { return mNumObs; }
  void SetNumObs(int numObs) { mNumObs = numObs; }
  // Average number of observations over the batches; -1 when not computed.
  int GetAverageLength() const { return mAverageLength; }
  void SetAverageLength(int averageLength) { mAverageLength = averageLength; }
  bool IsIncluded() const { return mIncluded; }
  void SetIncluded(bool included) { mIncluded = included; }
  EPhaseStatus GetPhaseStatus() const { return mPhaseStatus; }
  void SetPhaseStatus(EPhaseStatus status) { mPhaseStatus = status; }

  // Unique IDs of the variables excluded from this phase, each listed once by the setter.
  const NCIntegralVector<unsigned long, 0>& GetExcludedVariablesVector() const {
    return mExcludedVariables;
  }
  NCIntegralVector<unsigned long, 0>& GetExcludedVariablesVector() { return mExcludedVariables; }
  // True unless `variableID` is excluded from this phase.
  bool IsIncluded(unsigned long variableID) const;
  // Including removes one listing of `variableID`; excluding appends it unless listed.
  void SetIncluded(unsigned long variableID, bool include);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  ClassInfo(const ClassInfo& other);
  ClassInfo& operator=(const ClassInfo& other);

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  std::string mOriginalName;
  std::string mPhaseName;
  unsigned long mYVariableID = NCUniqueIDs::kNone;
  std::int32_t mNumObs = 0;
  std::int32_t mAverageLength = -1;
  bool mIncluded = true;
  NCIntegralVector<unsigned long, 0> mExcludedVariables;
  EPhaseStatus mPhaseStatus = eNormal;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_CLASSINFO_H
