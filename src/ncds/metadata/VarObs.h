#ifndef NCDS_METADATA_VAROBS_H
#define NCDS_METADATA_VAROBS_H

// The common part of the variable and observation containers: the ID series (their labels and
// whether each holds numbers) and which series carry batch and phase names. Records ask their
// owner through this class when one of their IDs changes (`VarObsInfo::SetUserID`) and read
// their batch and phase names through it. Series are numbered from 1; series 1 is the primary
// series, whose label is fixed. One writer at a time.

#include <string>
#include <vector>

#include "ncds/metadata/VarObsInfoAccess.h"
#include "ncds/ncds_export.h"

class VarObsInfo;

class NCDS_EXPORT VarObs : public VarObsInfoAccess {
 public:
  ~VarObs() override;

  // Number of ID series.
  int SizeAliases() const { return static_cast<int>(mLabels.size()); }
  // Appends a series with `label`, not numeral; returns the new number of series.
  int AddSecondaryID(const char* label);
  // Ignored for a series outside 1..SizeAliases().
  void SetIDLabel(int series, const char* label);
  // "Primary ID" (translated) for series 1, the stored label for the others, empty outside.
  std::string GetIDLabelRaw(int series) const;

  bool IsIDNumeral(int series) const override;
  void SetIDIsNumeral(int series, bool numeral) override;
  // True when any series is numeral.
  bool HasNumeralIDs() const;
  std::vector<int> GetAllUsedAliases() const override;
  void Set_ID_Labels(const std::vector<std::string>* labels) override;
  void ClearInfosByUserID() override;

  bool IsDirty() const { return mDirty; }
  void SetIsDirty(bool dirty) override { mDirty = dirty; }

  // The series whose IDs are batch (phase) names; 0 for none.
  void SetBatchID(int series);
  void SetPhaseID(int series);
  int GetBatchIDRaw() const { return mBatchSeries; }
  int GetPhaseIDRaw() const { return mPhaseSeries; }
  bool HasBatches() const { return mBatchSeries > 0; }
  bool HasPhases() const { return mPhaseSeries > 0; }
  // The 1-based position of the batch (phase) series in `seriesMap`; -1 when it is not there.
  int GetBatchID(const std::vector<int>& seriesMap) const;
  int GetPhaseID(const std::vector<int>& seriesMap) const;

 protected:
  // A container with the primary series only.
  VarObs();

  // The 1-based position of `series` in `seriesMap`, or -1 (also for series 0).
  static int PositionInMap(int series, const std::vector<int>& seriesMap);
  // Edits of the ID lists that only containers make, when a series is inserted, moved or
  // swapped (the records keep these private).
  static void InsertInfoID(VarObsInfo& info, int position, const char* id);
  static void MoveInfoID(VarObsInfo& info, int from, int to);
  static void SwapInfoID(VarObsInfo& info, int first, int second);

 private:
  bool mDirty = false;
  std::vector<std::string> mLabels;      // one per series; the first is not used
  std::vector<unsigned char> mNumerals;  // one per series
  int mBatchSeries = 0;
  int mPhaseSeries = 0;
};

#endif  // NCDS_METADATA_VAROBS_H
