#ifndef NCDS_METADATA_VAROBS_H
#define NCDS_METADATA_VAROBS_H

// The common part of the variable and observation containers. A container owns its records
// by unique ID (iteration is in increasing unique ID), keeps the ID series (their labels and
// whether each holds numbers), knows which series carry batch and phase names, owns the
// selected label of its records, offers a lookup by user ID and persists all of it. Records
// ask their owner through this class when one of their IDs changes (`VarObsInfo::SetUserID`).
// Series are numbered from 1; series 1 is the primary series, whose label is fixed.
//
// Constness covers the container's structure (which records, which series), not the
// records' content: the record getters of a const container hand out records that may be
// changed. One writer at a time; readers may share a container that is not being changed.
// The lookup of series 1 is built lazily under a mutex, so several readers may ask for it
// at once and get the same lookup.
//
// Persistent: magic "VO", version 2, 8 tags: 0 the record count, 1 the series count, 2 the
// numeral flags, 3 the series labels, 4 the records (each as its registered class name and
// then the record, in increasing unique ID), 5 the selected label, 6 the batch series,
// 7 the phase series. Tags 0 to 3, and 4 when there are records, are required; a record of a
// kind the container does not hold or out of order fails the read, and a record of a class
// without a factory throws `Exception` with the factory's message (see `ReadVarObsInfo`). A
// successful write or read clears the dirty flag; a failed or thrown read leaves the
// container as it was.

#include <boost/container/flat_map.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/VarObsInfoAccess.h"
#include "ncds/ncds_export.h"

class VarObsInfo;
class SelectedLabel;
class InputStreamDirectory;

class NCDS_EXPORT VarObs : public VarObsInfoAccess, public virtual VStreamBase {
 public:
  // The records by unique ID: an ordered map kept in one sorted array, so that walking the
  // records, finding one and appending one with a larger unique ID than all others (the
  // common case: unique IDs are handed out in increasing order) are cheap; adding a smaller
  // one moves the larger ones along.
  using InfoMap = boost::container::flat_map<unsigned long, std::unique_ptr<VarObsInfo>>;
  using const_iterator = InfoMap::const_iterator;

  ~VarObs() override;
  VarObs(const VarObs&) = delete;
  VarObs& operator=(const VarObs&) = delete;

  // The record with `uniqueID`, or null.
  VarObsInfo* operator[](unsigned long uniqueID) const { return FindVarObsInfo(uniqueID); }
  VarObsInfo* FindVarObsInfo(unsigned long uniqueID) const;
  // The records as (unique ID, record) pairs in increasing unique ID.
  const_iterator begin() const { return mInfos.begin(); }
  const_iterator end() const { return mInfos.end(); }
  // The first record whose unique ID is not below `uniqueID`, or end().
  const_iterator lower_bound(unsigned long uniqueID) const { return mInfos.lower_bound(uniqueID); }
  std::size_t size() const { return mInfos.size(); }
  bool empty() const { return mInfos.empty(); }
  // Room for `more` records beyond those held: adding many in a row then grows the table once.
  void Reserve(std::size_t more);

  // Destroys the listed records (IDs it does not hold are ignored) and marks the container
  // dirty; an empty list changes nothing.
  void DeleteVarObsInfos(const NCIntegralVector<unsigned long, 0>& uniqueIDs);

  // Number of ID series.
  int SizeAliases() const { return static_cast<int>(mLabels.size()); }
  // Appends a series with `label`, not numeral; returns the new number of series.
  int AddSecondaryID(const char* label);
  // Removes the first series 2.. labelled `label` (compared exactly), its numeral flag and
  // every record's ID in it; later series move down by one, and the batch and phase series
  // follow them (they become 0 when they were the removed one). Nothing happens when no
  // series has that label.
  void RemoveSecondaryID(const char* label);
  // Ignored for a series outside 1..SizeAliases().
  void SetIDLabel(int series, const char* label);
  // "Primary ID" (translated) for series 1, the stored label for the others, empty outside.
  std::string GetIDLabelRaw(int series) const;

  bool IsIDNumeral(int series) const override;
  void SetIDIsNumeral(int series, bool numeral) override;
  // True when any series is numeral.
  bool HasNumeralIDs() const;
  // Recomputes the numeral flag of `series` from the records: set when at least one
  // non-empty ID in it is a number as a whole. Ignored for a series outside 1..SizeAliases().
  void UpdateIDNumericalState(int series);
  void UpdateAllIDNumericalState();
  // The IDs of `series` as numbers, -99 where an ID is not a number, for the listed records
  // in the listed order (-99 for an ID the container does not hold) or, with null, for all
  // records in increasing unique ID.
  NCDataVector<float> GetNumeralValues(int series,
                                       const NCIntegralVector<unsigned long, 0>* uniqueIDs) const;

  std::vector<int> GetAllUsedAliases() const override;
  void Set_ID_Labels(const std::vector<std::string>* labels) override;
  // Drops the cached lookup of series 1; the next `GetInfosByUserID(1)` rebuilds it.
  void ClearInfosByUserID() override;

  // The lookup of `series` by user ID. For series 1 it is cached (and shared by all callers
  // until the IDs change); for other series a new lookup is built on every call.
  boost::shared_ptr<InfosByUserID> GetInfosByUserID(int series) const;
  // `wanted` when neither `lookup` (ignoring case) nor `taken` (exactly) holds it; otherwise
  // the first of wanted_1, wanted_2, ... that neither holds. `taken` may be null.
  static std::string GetUniquePrimaryID(const std::string& wanted, const InfosByUserID& lookup,
                                        const std::set<std::string>* taken);

  bool IsDirty() const { return mDirty; }
  void SetIsDirty(bool dirty) override { mDirty = dirty; }

  // Which series are shown as the long and short labels of the records; never null.
  SelectedLabel* GetSelectedLabel() { return mSelectedLabel.get(); }
  const SelectedLabel* GetSelectedLabel() const { return mSelectedLabel.get(); }

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

  // A record stored polymorphically: its registered class name as a binary string, then the
  // record. Writing a record whose class is not registered throws `NCInternalError`.
  static bool WriteVarObsInfo(const VarObsInfo& info, std::ostream& os);
  // Reads such a record. A name without a factory throws `Exception` ("Internal error: Could
  // not find a factory method for '<name>'."), a factory whose product is not a record throws
  // `Exception` ("Internal error: No factory found that produces 'VarObsInfo'."), and a
  // damaged record throws `VxStreamError`.
  static std::unique_ptr<VarObsInfo> ReadVarObsInfo(std::istream& is);

  // Writes the container's stream as `<<` does, but without its records (a record count of 0),
  // for a store that keeps the records in a form of its own and adds them after reading this.
  bool WriteWithoutRecords(std::ostream& os) const;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  // A container with the primary series only, no records and an initial selected label.
  VarObs();

  // Takes `info` under its unique ID, enters it into `lookup` (series 1) when one is given,
  // and marks the container dirty; returns the record. A null record or a unique ID already
  // present throws `NCInternalError` and changes nothing.
  VarObsInfo* Add(std::unique_ptr<VarObsInfo> info, InfosByUserID* lookup);

  // Whether this container may hold `info`; a stream holding another kind is refused.
  virtual bool AcceptsInfo(const VarObsInfo& info) const;
  // Called after the series labels changed (also when series were added or removed), for
  // containers that give series roles by their labels.
  virtual void OnLabelsChanged();

  // The 1-based position of `series` in `seriesMap`, or -1 (also for series 0).
  static int PositionInMap(int series, const std::vector<int>& seriesMap);
  // Edits of the ID lists that only containers make, when a series is inserted, moved or
  // swapped (the records keep these private).
  static void InsertInfoID(VarObsInfo& info, int position, const char* id);
  static void MoveInfoID(VarObsInfo& info, int from, int to);
  static void SwapInfoID(VarObsInfo& info, int first, int second);

  // Reading takes this class's part first, then calls `ReadExtensionPart` (with the series
  // count just read) for the part of the subclass that follows it in the stream, and keeps
  // what it read only when both succeed. A subclass reads its own part there, taking its
  // values only on success, so that a failed read changes nothing.
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;
  virtual bool ReadExtensionPart(std::istream& is, int seriesCount);

 private:
  struct Contents;

  bool VStreamableWrite(std::ostream& os) const;
  bool ReadContents(InputStreamDirectory& directory, Contents& read) const;

  mutable bool mDirty = false;
  mutable bool mOmitRecords = false;  // while WriteWithoutRecords writes
  std::vector<std::string> mLabels;   // one per series; the first is not used
  std::unique_ptr<SelectedLabel> mSelectedLabel;
  std::vector<unsigned char> mNumerals;  // one per series
  InfoMap mInfos;
  int mBatchSeries = 0;
  int mPhaseSeries = 0;
  mutable boost::mutex mLookupMutex;
  mutable boost::shared_ptr<InfosByUserID> mLookup;  // series 1; guarded by mLookupMutex
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_VAROBS_H
