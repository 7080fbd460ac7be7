#ifndef NCDS_METADATA_NCVARIABLES_H
#define NCDS_METADATA_NCVARIABLES_H

// The variable container of a project. Beside the common ID series it knows the series that
// carry reserved roles, found by their labels ("$PhaseID", "$MaturityID", "$SourceID",
// "$Original ID", compared ignoring case) whenever the labels are replaced. One writer at a
// time.

#include <string>
#include <vector>

#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/ncds_export.h"

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

  void Set_ID_Labels(const std::vector<std::string>* labels) override;

  // The 1-based position in `seriesMap` of the maturity-ID (source-ID) series; -1 when the
  // container has none or the map does not hold it.
  int GetMaturityID(const std::vector<int>& seriesMap) const;
  int GetSourceID(const std::vector<int>& seriesMap) const;
  // The series with each role; 0 for none.
  int GetPhaseIDSeries() const { return mPhaseSeries; }
  int GetMaturityIDSeries() const { return mMaturitySeries; }
  int GetSourceIDSeries() const { return mSourceSeries; }
  int GetOriginalIDSeries() const { return mOriginalSeries; }

 private:
  int mPhaseSeries = 0;
  int mMaturitySeries = 0;
  int mSourceSeries = 0;
  int mOriginalSeries = 0;
};

#endif  // NCDS_METADATA_NCVARIABLES_H
