#ifndef NCDS_METADATA_NCOBSERVATIONS_H
#define NCDS_METADATA_NCOBSERVATIONS_H

// The observation container of a project: it owns the `ObservationInfo` records of all
// observations by unique ID and hands datasets the records of their rows (`GetInfoVector`).
// Beside the common ID series it knows the series labelled "$BatchID" and "$ClassID"
// (compared ignoring case), found whenever the labels change; the batch series proper is
// the one set with `SetBatchID` (`HasBatches`). One writer at a time.
//
// Persistent: magic "NCO", version 1; after the common part a directory with one entry,
// tag 1: the "$BatchID" and "$ClassID" series (four bytes each, 0 for none). A stream whose
// records are not all observations is refused.

#include <cstdint>
#include <iosfwd>
#include <memory>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class ObservationInfo;

class NCDS_EXPORT NCObservations : public VarObs {
 public:
  NCObservations();
  ~NCObservations() override;

  // The observation with `uniqueID`, or null.
  ObservationInfo* operator[](unsigned long uniqueID) const;
  // Takes `info` under its unique ID and enters it into `lookup` (series 1) when one is
  // given; returns the record. A null record or a unique ID already present throws
  // `NCInternalError`.
  ObservationInfo* Add(std::unique_ptr<ObservationInfo> info, InfosByUserID* lookup = nullptr);

  // The records of `uniqueIDs`, in that order; null where the container holds no record with
  // that ID, so that positions still match (a dataset's rows, for example).
  VarObsInfoVector<ObservationInfo> GetInfoVector(
      const NCIntegralVector<unsigned long, 0>& uniqueIDs) const;

  // The series labelled "$BatchID" ("$ClassID"); 0 for none.
  int GetBatchLabelSeries() const { return mBatchLabelSeries; }
  int GetClassLabelSeries() const { return mClassLabelSeries; }

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

  int mBatchLabelSeries = 0;
  int mClassLabelSeries = 0;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_NCOBSERVATIONS_H
