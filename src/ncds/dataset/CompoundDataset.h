#ifndef NCDS_DATASET_COMPOUNDDATASET_H
#define NCDS_DATASET_COMPOUNDDATASET_H

// Several datasets of a project seen as one, read-only: the rows of its members one after the
// other (in member order) over the union of their columns (variable IDs in order of first
// appearance). The compound itself is only a description (name, number, member numbers); its
// rows and columns come from the members' containers as the project hands them out
// (`NCProjectBase::GetDataContainer`: a loaded dataset, or the description of an unloaded one),
// so no values are read. `FullCompoundDataset` adds the values.
//
// What it answers beyond the union of rows and columns:
//   - data type: the bits every member shares (a batch compound when every member is batch
//     data with batches); `NCDataSet::kOrdinary` when they share none;
//   - batches: for a batch compound, copies of the members' batches in member order (batch
//     condition IDs only when all members agree on them, else none and no condition values);
//     null otherwise;
//   - ID series in use: those of the members, in order of first appearance.
// The compound has a number in the same number space as the project's datasets; its members
// are dataset numbers, each once. A member the project does not hold as a dataset (removed,
// never there, or a number now taken by another compound) is missing: `GetMissingMembers`
// lists it, and while any member is missing the compound answers empty (no rows, no columns,
// ordinary, no batches), so that callers can say what is missing rather than work on part of
// the data. Once the project is gone every member is missing.
//
// The presentation is worked out on first use and kept. It is worked out again after
// `Refresh` or `SetMembers`; `NCProject` refreshes its compounds whenever a dataset is saved,
// restored, loaded, unloaded or removed. An edit of a loaded member in place (rows added, say)
// is seen after the next `Refresh` or save. References handed out (`GetObservationInfoVector`,
// aliases) stay valid while the compound lives; their contents change when it is worked out
// again. Like every container it refers to its project weakly. One thread at a time.
//
// Persistent as a description, not values: magic "NCCOMPDS", version 1 (only 1 is read); tag 0
// the name (binary string), 1 the number (four bytes), 2 the members (a four-byte count, then
// four bytes each). A failed read, or members that repeat, answers false and leaves the
// compound as it was.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "ncds/dataset/NCDataContainerBase.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT CompoundDataset : public NCDataContainerBase, public virtual VStreamBase {
 public:
  // An empty compound of `project` (no name, number 0, no members), to be read from a stream.
  explicit CompoundDataset(boost::shared_ptr<NCProjectBase> project);
  // The compound `number` of `project` named `name` over the datasets `members`. Throws
  // `NCError` when a member repeats.
  CompoundDataset(boost::shared_ptr<NCProjectBase> project, std::string name, int number,
                  std::vector<int> members);
  // Copies the description; the copy works out its presentation itself.
  CompoundDataset(const CompoundDataset& other);
  CompoundDataset& operator=(const CompoundDataset&) = delete;
  ~CompoundDataset() override;

  const std::string& GetName() const { return mName; }
  void SetName(std::string name) { mName = std::move(name); }
  // The numbers of the member datasets, in row order.
  const std::vector<int>& GetMembers() const { return mMembers; }
  // Replaces the members. Throws `NCError` when a member repeats, changing nothing.
  void SetMembers(std::vector<int> members);
  // The members the project does not hold as datasets, in member order.
  const std::vector<int>& GetMissingMembers() const;
  // Forgets the presentation; the next question works it out again from the members.
  void Refresh() const;

  // Where row `index` (from 1) comes from: the member's number and the row (from 1) in it.
  // False outside 1..SizeObservations().
  bool LocateRow(int index, int& member, int& memberRow) const;
  // The column (from 1) of member `member` that holds column `index` of the compound; 0 when
  // that member lacks the variable, `member` is no member or `index` is out of range.
  int GetMemberColumn(int member, int index) const;
  // The first row (from 1) and the row count of member `member` in the compound; false when
  // it is no member or the compound is empty.
  bool GetMemberRows(int member, int& first, int& count) const;

  // ---- Container interface ----
  int GetNumber() const override { return mNumber; }
  int GetDataType() const override;
  const VarObsInfoVector<ObservationInfo>& GetObservationInfoVector() const override;
  NCIntegralVector<unsigned long, 0> GetVarIDs() const override;
  int SizeObservations() const override;
  int SizeVariables() const override;
  const std::vector<int>& GetUsedObsAliases() const override;
  const std::vector<int>& GetUsedVarAliases() const override;
  unsigned long GetVarID(int index) const override;
  // The record of row `index`; null outside 1..SizeObservations().
  const ObservationInfo* GetObservationInfo(int index) const override;
  const std::string& GetVariableID(int index, int aliasSeries) const override;
  boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const override;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  // What the compound presents, worked out from the members' containers.
  struct Layout {
    std::vector<int> missing;
    VarObsInfoVector<ObservationInfo> rows;
    NCIntegralVector<unsigned long, 0> varIDs;
    // Per member (in member order): its first row (0-based) in `rows`, and for every column
    // of the compound the member's column (0-based) or -1. `rowStart` has one entry more.
    std::vector<std::size_t> rowStart;
    std::vector<std::vector<int>> memberColumns;
    int dataType = 1;
    std::vector<int> obsAliases;
    std::vector<int> varAliases;
    boost::shared_ptr<BatchInfoVector const> batches;
  };

  const Layout& Current() const;
  void WorkOut() const;
  // The position of `member` in the member list, or -1.
  int MemberPosition(int member) const;
  bool ReadStreamDirectory(std::istream& is);

  std::string mName;
  std::int32_t mNumber = 0;
  std::vector<int> mMembers;
  mutable Layout mLayout;
  mutable bool mStale = true;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DATASET_COMPOUNDDATASET_H
