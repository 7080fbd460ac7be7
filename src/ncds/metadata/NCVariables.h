#ifndef NCDS_METADATA_NCVARIABLES_H
#define NCDS_METADATA_NCVARIABLES_H

// The variable container of a project: it owns the `VariableInfo` records of all variables
// by unique ID. Beside the common ID series it knows the series that carry reserved roles,
// found by their labels ("$PhaseID", "$MaturityID", "$SourceID", "$Original ID", compared
// ignoring case) whenever the labels change. One writer at a time.
//
// Persistent: magic "NCV", version 2; after the common part a directory with the series of
// each role (0 for none): tag 1 "$PhaseID", 2 "$MaturityID", 3 "$SourceID", 4 "$Original ID".
// A stream whose records are not all variables is refused.

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/ncds_export.h"

class VariableInfo;

class NCDS_EXPORT NCVariables : public VarObs {
 public:
  // The series labels that give a series a role.
  enum EReservedSeries { ePhaseID, eMaturityID, eSourceID, eOriginalID, eBatchID, eClassID };

  NCVariables();
  ~NCVariables() override;

  // The unique ID of the constant variable "$constant".
  static unsigned long GetConstantInfoID() { return NCUniqueIDs::kConstant; }
  // The label that gives a series the role `series`.
  static const char* GetReservedSeriesName(EReservedSeries series);

  // The variable with `uniqueID`, or null.
  VariableInfo* operator[](unsigned long uniqueID) const;
  // Takes `info` under its unique ID and enters it into `lookup` (series 1) when one is
  // given; returns the record. A null record or a unique ID already present throws
  // `NCInternalError`.
  VariableInfo* Add(std::unique_ptr<VariableInfo> info, InfosByUserID* lookup = nullptr);

  // True when some variable is an included Y (block 1).
  bool IncludedYExsists() const;

  // The 1-based position in `seriesMap` of the maturity-ID (source-ID) series; -1 when the
  // container has none or the map does not hold it.
  int GetMaturityID(const std::vector<int>& seriesMap) const;
  int GetSourceID(const std::vector<int>& seriesMap) const;
  // The series with each role; 0 for none.
  int GetPhaseIDSeries() const { return mPhaseSeries; }
  int GetMaturityIDSeries() const { return mMaturitySeries; }
  int GetSourceIDSeries() const { return mSourceSeries; }
  int GetOriginalIDSeries() const { return mOriginalSeries; }

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool AcceptsInfo(const VarObsInfo& info) const override;
  void OnLabelsChanged() override;

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;
  bool ReadExtensionPart(std::istream& is, int seriesCount) override;

 private:
  bool VStreamableWrite(std::ostream& os) const;

  int mPhaseSeries = 0;
  int mMaturitySeries = 0;
  int mSourceSeries = 0;
  int mOriginalSeries = 0;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_NCVARIABLES_H
