// The trimming members of NCDataSet: the record of values from before trimming, the trim values
// of each trimmed variable, and the reset that puts the earlier values back.
//
// Per trimmed variable the dataset keeps, at one position in two parallel vectors, the map from
// observation ID to the value before the first trimmed change, and the `TrimdVarStruct` with
// the values trimming wrote; `mTrimmedIndex` maps the variable ID to that position. Rows are
// found by observation ID, never by row number, so removing or sorting rows after trimming
// leaves the records valid.

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstddef>
#include <unordered_map>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/dataset/TrimdVarStruct.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/metadata/ObservationInfo.h"

using ncds::detail::ToPosition;

namespace ncds::detail {
namespace {

// The 1-based index of a 0-based row or column position.
int ToIndex(std::size_t position) { return static_cast<int>(position) + 1; }

// Finds the row of an observation ID: by binary search when the rows' IDs never decrease,
// otherwise through a map from ID to row built on first use, so that a reset costs one pass
// over the rows rather than one per restored cell. Where an ID occurs twice the first row
// answers. ID 0 stands for a row without a record and is never found.
class RowFinder {
 public:
  RowFinder(const NCIntegralVector<unsigned long, 0>& rowIDs, bool sorted)
      : mIDs(rowIDs), mSorted(sorted) {}

  bool Find(unsigned long id, std::size_t& row) {
    if (id == 0) return false;
    if (mSorted) {
      const auto found = std::lower_bound(mIDs.begin(), mIDs.end(), id);
      if (found == mIDs.end() || *found != id) return false;
      row = static_cast<std::size_t>(found - mIDs.begin());
      return true;
    }
    if (!mMapped) {
      mRows.reserve(mIDs.size());
      for (std::size_t i = 0; i < mIDs.size(); ++i) mRows.emplace(mIDs[i], i);
      mMapped = true;
    }
    const auto found = mRows.find(id);
    if (found == mRows.end()) return false;
    row = found->second;
    return true;
  }

 private:
  const NCIntegralVector<unsigned long, 0>& mIDs;
  bool mSorted;
  bool mMapped = false;
  std::unordered_map<unsigned long, std::size_t> mRows;
};

// Makes room for one more element, growing geometrically.
template <class Vector>
void ReserveOneMore(Vector& vector) {
  if (vector.size() == vector.capacity()) {
    vector.reserve(std::max<std::size_t>(4, 2 * vector.size()));
  }
}

// A value to write back into a cell (0-based).
struct Restore {
  std::size_t row;
  std::size_t column;
  float value;
};

// The trim record at `position`; the vectors of a dataset are kept in step, so a missing one
// is a broken invariant.
TrimdVarStruct& RecordAt(const std::vector<boost::shared_ptr<TrimdVarStruct>>& records,
                         std::size_t position) {
  if (position >= records.size() || !records[position]) {
    throw NCInternalError("A trimmed variable has no trim record.");
  }
  return *records[position];
}

}  // namespace
}  // namespace ncds::detail

void NCDataSet::KeepPreTrimValue(std::size_t row, std::size_t column) {
  const ObservationInfo* info = mObsInfos[row];
  // Values are kept by observation ID; a row without its record has none to keep them under.
  if (!info || row >= mData.SizeRows() || column >= mData.SizeColumns() ||
      column >= mVarIDs.size()) {
    return;
  }
  const unsigned long variableID = mVarIDs[column];
  auto entry = mTrimmedIndex.find(variableID);
  if (entry == mTrimmedIndex.end()) {
    // Make room in all three before changing any, so that a failed allocation leaves them in
    // step.
    auto record = boost::make_shared<TrimdVarStruct>();
    ncds::detail::ReserveOneMore(mPreTrimValues);
    ncds::detail::ReserveOneMore(mTrimRecords);
    entry = mTrimmedIndex.emplace(variableID, mPreTrimValues.size()).first;
    mPreTrimValues.emplace_back();
    mTrimRecords.push_back(std::move(record));
  }
  // The first value recorded for an observation stays: later trims of the same cell must not
  // replace the original value with an earlier trim value.
  if (mPreTrimValues[entry->second].emplace(info->GetUniqueID(), mData(row, column)).second) {
    mDirty = true;
  }
}

void NCDataSet::SetTrimValues(int var, float value) {
  std::size_t column = 0;
  if (!ToPosition(var, mVarIDs.size(), column)) return;
  const auto entry = mTrimmedIndex.find(mVarIDs[column]);
  if (entry == mTrimmedIndex.end()) return;
  if (ncds::detail::RecordAt(mTrimRecords, entry->second).AddTrimValue(value)) mDirty = true;
}

bool NCDataSet::GetPreTrimValue(unsigned long varID, unsigned long obsID, float& value) const {
  const auto entry = mTrimmedIndex.find(varID);
  if (entry == mTrimmedIndex.end() || entry->second >= mPreTrimValues.size()) return false;
  const auto& values = mPreTrimValues[entry->second];
  const auto found = values.find(obsID);
  if (found == values.end()) return false;
  value = found->second;
  return true;
}

void NCDataSet::GetTrimmedIndex(NCIntegralVector<int, -99>* rows,
                                NCIntegralVector<int, -99>* columns) const {
  if (rows) rows->clear();
  if (columns) columns->clear();
  if (mPreTrimValues.empty()) return;
  if (!mSortFlagsValid) UpdateSortFlags();
  ncds::detail::RowFinder finder(mRowIDs, mObservationsSorted);
  std::vector<std::size_t> found;
  const std::size_t columnCount = std::min(mVarIDs.size(), mData.SizeColumns());
  for (std::size_t column = 0; column < columnCount; ++column) {
    const auto entry = mTrimmedIndex.find(mVarIDs[column]);
    if (entry == mTrimmedIndex.end() || entry->second >= mPreTrimValues.size()) continue;
    const TrimdVarStruct& record = ncds::detail::RecordAt(mTrimRecords, entry->second);
    const float* cells = mData.ColumnData(column);
    found.clear();
    for (const auto& kept : mPreTrimValues[entry->second]) {
      std::size_t row = 0;
      if (finder.Find(kept.first, row) && row < mData.SizeRows() &&
          record.IsTrimValue(cells[row])) {
        found.push_back(row);
      }
    }
    std::sort(found.begin(), found.end());
    for (const std::size_t row : found) {
      if (rows) rows->push_back(ncds::detail::ToIndex(row));
      if (columns) columns->push_back(ncds::detail::ToIndex(column));
    }
  }
}

bool NCDataSet::ResetDatasetFromTrimming(bool all, int var) {
  std::size_t onlyColumn = 0;
  if (!all && !ToPosition(var, mVarIDs.size(), onlyColumn)) return false;
  const unsigned long onlyVariable = all ? 0 : mVarIDs[onlyColumn];
  // Nothing trimmed, nothing to ask about or to undo.
  if (all ? mPreTrimValues.empty() : mTrimmedIndex.count(onlyVariable) == 0) return true;

  // While models depend on the project, undoing the trimming changes their data.
  const auto project = GetProject();
  if (project && project->GetDependencyCount() > 0) {
    const NCIntegralVector<unsigned long, 0> concerned(1, onlyVariable);
    if (!AskChange(all ? nullptr : &concerned, true)) return false;
  }
  if (!mSortFlagsValid) UpdateSortFlags();

  // Collect first, then write: `SetValue` raises a signal per cell, and a listener must not
  // find the records half walked.
  ncds::detail::RowFinder finder(mRowIDs, mObservationsSorted);
  std::vector<ncds::detail::Restore> restores;
  const auto collect = [&](std::size_t column, std::size_t position) {
    if (position >= mPreTrimValues.size() || column >= mData.SizeColumns()) return;
    const TrimdVarStruct& record = ncds::detail::RecordAt(mTrimRecords, position);
    const float* cells = mData.ColumnData(column);
    for (const auto& kept : mPreTrimValues[position]) {
      std::size_t row = 0;
      // A cell that no longer holds a trim value was changed by the user since: leave it.
      if (finder.Find(kept.first, row) && row < mData.SizeRows() &&
          record.IsTrimValue(cells[row])) {
        restores.push_back({row, column, kept.second});
      }
    }
  };
  if (all) {
    for (std::size_t column = 0; column < mVarIDs.size(); ++column) {
      const auto entry = mTrimmedIndex.find(mVarIDs[column]);
      if (entry != mTrimmedIndex.end()) collect(column, entry->second);
    }
  } else {
    collect(onlyColumn, mTrimmedIndex.find(onlyVariable)->second);
  }

  // Without bookkeeping and without another change check: both were settled above.
  for (const auto& restore : restores) {
    SetValue(ncds::detail::ToIndex(restore.row), ncds::detail::ToIndex(restore.column),
             restore.value, false, false, false);
  }

  if (all) {
    mPreTrimValues.clear();
    mTrimmedIndex.clear();
    mTrimRecords.clear();
  } else if (const auto entry = mTrimmedIndex.find(onlyVariable); entry != mTrimmedIndex.end()) {
    // Drop the variable's entries and close the gap, so that every other variable's position
    // still names its own pre-trim values and trim record.
    const std::size_t position = entry->second;
    mTrimmedIndex.erase(entry);
    if (position < mPreTrimValues.size()) {
      mPreTrimValues.erase(mPreTrimValues.begin() + static_cast<std::ptrdiff_t>(position));
    }
    if (position < mTrimRecords.size()) {
      mTrimRecords.erase(mTrimRecords.begin() + static_cast<std::ptrdiff_t>(position));
    }
    for (auto& other : mTrimmedIndex) {
      if (other.second > position) --other.second;
    }
  }
  mDirty = true;
  return true;
}
