#ifndef NCDS_BATCH_BATCHIMPORTSETTINGS_H
#define NCDS_BATCH_BATCHIMPORTSETTINGS_H

// How a dataset was imported: the kind of project, which ID series of the observations holds
// the batch names and which the phase names, which variable each derived variable was made
// from, and the default phase list that newly imported variables are fitted into. The
// settings own their phase list (it may be absent); copies are deep and share nothing.
//
// Persistent: magic "WSINFO", version 2 (only 2 is read); tags 0 project type (two bytes),
// 5 batch series, 6 phase series, 7 source-variable map (a four-byte count, then key and
// value, four bytes each, in key order), 8 default phase list (absent when there is none).
// Reading starts from empty settings; a failed read returns false and leaves them partly read.

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>

#include "ncds/batch/ClassInfoVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCVariables;

class NCDS_EXPORT BatchImportSettings : public virtual VStreamBase {
 public:
  // The kind of project the data was imported into; other values pass through unchanged.
  enum EProjectType : std::int16_t { eUnspecified = 0 };

  // Not a batch import: no batch or phase series, no source variables, no default phases.
  BatchImportSettings();
  BatchImportSettings(const BatchImportSettings& other);
  BatchImportSettings& operator=(const BatchImportSettings& other);
  ~BatchImportSettings() override;

  // Every field equal; the default phase lists both absent or both present and equal.
  bool operator==(const BatchImportSettings& other) const;
  bool operator!=(const BatchImportSettings& other) const { return !(*this == other); }

  // The 1-based ID series of the observations that holds the batch names; 0 or less: none.
  int GetBatchID() const { return mBatchID; }
  void SetBatchID(int series) { mBatchID = series; }
  // The 1-based ID series that holds the phase names; 0 or less: none.
  int GetPhaseID() const { return mPhaseID; }
  void SetPhaseID(int series) { mPhaseID = series; }
  EProjectType GetProjectType() const { return mProjectType; }
  void SetProjectType(EProjectType type) { mProjectType = type; }
  // True for the import of batch data (a batch series is set).
  bool IsBatch() const { return mBatchID > 0; }

  // The default phase list, or null when there is none.
  const ClassInfoVector* GetDefaultClassInfoVector() const { return mDefaultPhases.get(); }
  ClassInfoVector* GetDefaultClassInfoVector() { return mDefaultPhases.get(); }
  // Replaces the default phase list with a deep copy of `*phases`, or removes it for null.
  void SetDefaultClassInfoVector(const ClassInfoVector* phases);

  // Records that variable `variableID` was made from `sourceID` (replacing an earlier entry).
  // Unique IDs are 32-bit numbers and are stored as such.
  void SetSourceVar(unsigned long variableID, unsigned long sourceID);
  // The variable that `variableID` was made from; `NCUniqueIDs::kNone` when unknown. The
  // variable container is not consulted.
  unsigned long GetSourceVar(unsigned long variableID, const NCVariables* variables) const;
  const std::map<unsigned long, unsigned long>& GetSourceVars() const { return mSourceVars; }

  // Fits the newly imported variable `variableID` of `variables` into the batch structure:
  // in a batch import it becomes the Y variable of every default phase that has none yet and
  // is excluded from the others. It ends as a Y variable: excluded (block 3) when `variables`
  // already holds an included Y, else included (block 1). Nothing happens when `variables`
  // is null or holds no such variable.
  void IncludeNewVar(unsigned long variableID, NCVariables* variables);

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
  void Reset();

  VStreamGuard mGuard;
  std::int32_t mBatchID = 0;
  std::int32_t mPhaseID = 0;
  std::map<unsigned long, unsigned long> mSourceVars;
  EProjectType mProjectType = eUnspecified;
  std::unique_ptr<ClassInfoVector> mDefaultPhases;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_BATCHIMPORTSETTINGS_H
