#ifndef NCDS_DERIVED_LOCALCENTERINGINFO_H
#define NCDS_DERIVED_LOCALCENTERINGINFO_H

// Local center values as they were imported: one center per (batch name, phase name, variable
// name) triple. A dataset owns its object; the application fills it from an import or loads
// it from a configuration section, and `BuildDefLocalCenteringInfo` derives from it the
// per-phase averages used as default centers for batches without centers of their own.
// The triples are kept in `IndexTrippel` order. Copyable (deep); not synchronised.
//
// The center ID names the centering this information belongs to; the has-phases flag tells
// whether the centers were imported per phase (without phases every phase name is empty) and
// is handed on to the averages.
//
// Configuration form (`Save`/`Load`): a subsection "LocalCentering" holding one subsection
// "LCData" per triple with the float "Center" and the strings "Batch", "Phase", "Variable".
//
// Persistent: magic "FULL_LCI", version 1 (only 1 is read); tag 0 the triples (a four-byte
// count, then per triple in order its `IndexTrippel` record and the center as a four-byte
// float), tag 1 the center ID (four bytes), tag 2 the has-phases flag (one byte), all
// required. A failed read answers false and leaves the object as it was.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <vector>

#include "ncds/derived/AVGLocalCenteringInfo.h"
#include "ncds/derived/IndexTrippel.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class ConfigurationSection;
class LocalCenteringData;
class VariableInfo;

class NCDS_EXPORT LocalCenteringInfo : public VStreamBase {
 public:
  using TrippelMap = std::map<IndexTrippel, float>;
  using TrippelConstIterator = TrippelMap::const_iterator;

  // Center ID 0, without phases.
  LocalCenteringInfo();
  LocalCenteringInfo(int centerID, bool hasPhases);
  LocalCenteringInfo(const LocalCenteringInfo& other);
  LocalCenteringInfo& operator=(const LocalCenteringInfo& other);
  ~LocalCenteringInfo() override;

  // The same center ID, flag and triples (centers compared with ==, so a NaN never matches).
  bool operator==(const LocalCenteringInfo& other) const;
  bool operator!=(const LocalCenteringInfo& other) const { return !(*this == other); }

  // Stores `center` under the triple, replacing an earlier one; a null name is "".
  void AddData(const char* batch, const char* phase, const char* variable, float center);
  // The center stored under the triple, or -99.0.
  float GetData(const char* batch, const char* phase, const char* variable) const;

  TrippelConstIterator BeginTrippel() const { return mCenters.begin(); }
  TrippelConstIterator EndTrippel() const { return mCenters.end(); }
  std::size_t SizeTrippel() const { return mCenters.size(); }
  void ClearTrippel() { mCenters.clear(); }

  bool HasPhases() const { return mHasPhases; }
  int GetCenterID() const { return mCenterID; }
  void UpdateCenterID(int centerID) { mCenterID = centerID; }

  // Replaces the subsections "LocalCentering" of `section` by one that holds the triples in
  // order. Does nothing for a null section. Throws what the section throws.
  void Save(ConfigurationSection* section) const;
  // Clears the triples, then adds those of the first subsection "LocalCentering" of `section`,
  // if there is one. A missing or non-numeric "Center" reads as -99.0 and a missing name as
  // "". A null section only clears.
  void Load(ConfigurationSection* section);

  // The average of the non-missing centers per (phase, variable), keyed by the unique ID of
  // the variable whose primary ID equals the variable name (ignoring case; the first such
  // variable of the list, null entries skipped); -99.0 where all centers are missing. The new
  // object has this object's has-phases flag. Throws `Exception` ("Local centering information
  // was found for an unknown variable. ...") and builds nothing when a variable name is not in
  // the list; a null list holds no variable.
  std::unique_ptr<AVGLocalCenteringInfo> BuildDefLocalCenteringInfo(
      const std::vector<VariableInfo*>* variables) const;
  // Stores the centers in `centers` (replacing those under the same keys), keyed by the batch
  // name in observation ID series `batchSeries` and, when `phaseSeries` is 1 or more and the
  // triple names a phase, by the phase name in series `phaseSeries`; variables are found by
  // name as above. Missing centers (-99.0) are not stored: their rows take default centers.
  // Throws the same `Exception` for an unknown variable, and then changes nothing.
  void AddTo(LocalCenteringData& centers, const std::vector<VariableInfo*>* variables,
             int batchSeries, int phaseSeries) const;

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

  TrippelMap mCenters;
  std::int32_t mCenterID;
  bool mHasPhases;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DERIVED_LOCALCENTERINGINFO_H
