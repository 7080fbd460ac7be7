// Merging another dataset of the same project into this one. Rows are matched by the unique
// IDs of their observations and, for rows that stay unmatched, by primary ID ignoring case;
// columns by variable ID. What the other dataset has beyond that joins as new columns and rows.
//
// The cost is linear in the cells written. Rows are matched on the arrays of unique IDs: a row
// of the other dataset whose ID sits at the same position here costs one comparison, any other
// row one probe of a flat hash table built on first need, and records are read only for rows
// still unmatched after that. A merge that adds rows or columns builds the new matrix once, and
// each column of the other dataset is then copied in a single pass.

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/batch/ClassInfo.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/DatasetMergeInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/ExceptionMessageList.h"
#include "ncds/foundations/NCSignals.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/detail/UserIDAt.h"

namespace ncds::detail {
namespace {

using IDs = NCIntegralVector<unsigned long, 0>;
using Rows = VarObsInfoVector<ObservationInfo>;

constexpr float kMissing = NCDataMatrix<float>::kMissing;
// The target of a row of the other dataset that is not merged: it has no record to add.
constexpr std::size_t kNoRow = std::numeric_limits<std::size_t>::max();

// Unique ID -> row: open addressing with linear probing in a power-of-two table kept at most
// half full. ID 0 (a row without a record) marks an empty slot and is never entered.
class RowIndex {
 public:
  // Room for `count` IDs.
  explicit RowIndex(std::size_t count) {
    std::size_t size = 16;
    int bits = 4;
    while (size < 2 * count) {
      size *= 2;
      ++bits;
    }
    mSlots.assign(size, Slot{0, 0});
    mMask = size - 1;
    mShift = 64 - bits;
  }

  // Enters `id` at `row` unless it is 0 or entered already: an ID stays with its first row.
  void Insert(unsigned long id, std::size_t row) {
    if (id == 0) return;
    for (std::size_t at = Home(id);; at = (at + 1) & mMask) {
      Slot& slot = mSlots[at];
      if (slot.id == id) return;
      if (slot.id == 0) {
        slot = Slot{id, row};
        return;
      }
    }
  }

  std::size_t Find(unsigned long id) const {
    if (id == 0) return kNoRow;
    for (std::size_t at = Home(id);; at = (at + 1) & mMask) {
      const Slot& slot = mSlots[at];
      if (slot.id == id) return slot.row;
      if (slot.id == 0) return kNoRow;
    }
  }

 private:
  struct Slot {
    unsigned long id;
    std::size_t row;
  };

  // Fibonacci hashing: the top bits of the product spread consecutive IDs over the table.
  std::size_t Home(unsigned long id) const {
    return static_cast<std::size_t>((static_cast<std::uint64_t>(id) * 0x9E3779B97F4A7C15ULL) >>
                                    mShift);
  }

  std::vector<Slot> mSlots;
  std::size_t mMask = 0;
  int mShift = 0;
};

// Where the rows of the other dataset go.
struct RowPlan {
  std::vector<std::size_t> target;  // per row of the other dataset: a row here, or kNoRow
  bool identity = true;             // target[i] == i for every row
  Rows added;                       // the records of the new rows, in the other's order
  IDs addedIDs;
  std::size_t byPrimaryID = 0;  // rows matched by primary ID
  std::size_t skipped = 0;      // rows without a record
};

using RowsByName = std::unordered_map<std::string_view, std::size_t, VxStdString::NoCaseHash,
                                      VxStdString::NoCaseEqual>;

RowPlan MatchRows(const IDs& hereIDs, const Rows& hereRows, const IDs& otherIDs,
                  const Rows& otherRows) {
  const std::size_t here = hereIDs.size();
  const std::size_t count = otherIDs.size();
  const unsigned long* mine = hereIDs.data();
  const unsigned long* theirs = otherIDs.data();
  RowPlan plan;
  plan.target.assign(count, kNoRow);

  // By unique ID. Datasets of the same observations mostly hold them in the same order, so
  // the row at the same position is tried before the table.
  std::optional<RowIndex> index;
  std::vector<std::size_t> unmatched;
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned long id = theirs[i];
    if (id == 0) {
      unmatched.push_back(i);
      continue;
    }
    if (i < here && mine[i] == id) {
      plan.target[i] = i;
      continue;
    }
    if (!index) {
      index.emplace(here);
      for (std::size_t r = 0; r < here; ++r) index->Insert(mine[r], r);
    }
    const std::size_t row = index->Find(id);
    if (row == kNoRow) {
      unmatched.push_back(i);
    } else {
      plan.target[i] = row;
    }
  }

  if (!unmatched.empty()) {
    // By primary ID, among the rows here that no unique ID claimed; each such row is taken
    // once. A row whose ID an earlier row of the other dataset brought goes where that went.
    std::vector<char> claimed(here, 0);
    for (const std::size_t row : plan.target) {
      if (row != kNoRow) claimed[row] = 1;
    }
    RowIndex placed(unmatched.size());
    RowsByName byName;
    bool named = false;
    for (const std::size_t i : unmatched) {
      const ObservationInfo* info = otherRows[i];
      if (!info) {
        ++plan.skipped;
        continue;
      }
      const unsigned long id = theirs[i];
      std::size_t row = placed.Find(id);
      const std::string& name = UserIDAt(*info, 1);
      if (row == kNoRow && !name.empty()) {
        if (!named) {
          byName.reserve(here);
          for (std::size_t r = 0; r < here; ++r) {
            const ObservationInfo* candidate = hereRows[r];
            if (claimed[r] || !candidate) continue;
            const std::string& primary = UserIDAt(*candidate, 1);
            if (!primary.empty()) byName.emplace(primary, r);
          }
          named = true;
        }
        const auto found = byName.find(name);
        if (found != byName.end()) {
          row = found->second;
          byName.erase(found);
          ++plan.byPrimaryID;
        }
      }
      if (row == kNoRow) {
        row = here + plan.added.size();
        plan.added.push_back(otherRows[i]);
        plan.addedIDs.push_back(id);
      }
      placed.Insert(id, row);
      plan.target[i] = row;
    }
  }
  for (std::size_t i = 0; i < count && plan.identity; ++i) plan.identity = plan.target[i] == i;
  return plan;
}

// Where the columns of the other dataset go.
struct ColumnPlan {
  std::vector<std::size_t> target;  // per column of the other dataset: a column here
  IDs added;                        // the variables of the new columns, in the other's order
};

ColumnPlan MatchColumns(const IDs& hereIDs, const IDs& otherIDs) {
  ColumnPlan plan;
  std::unordered_map<unsigned long, std::size_t> columns;
  columns.reserve(hereIDs.size() + otherIDs.size());
  for (std::size_t j = 0; j < hereIDs.size(); ++j) columns.emplace(hereIDs[j], j);
  plan.target.reserve(otherIDs.size());
  for (const unsigned long id : otherIDs) {
    const auto [at, added] = columns.emplace(id, hereIDs.size() + plan.added.size());
    if (added) plan.added.push_back(id);
    plan.target.push_back(at->second);
  }
  return plan;
}

// Copies column `from` of the other dataset into the new column `to`, all missing so far.
void CopyIntoNewColumn(const float* from, float* to, const RowPlan& plan) {
  const std::size_t count = plan.target.size();
  if (plan.identity) {
    std::memcpy(to, from, count * sizeof(float));
    return;
  }
  const std::size_t* target = plan.target.data();
  for (std::size_t i = 0; i < count; ++i) {
    if (target[i] != kNoRow) to[target[i]] = from[i];
  }
}

// Merges column `from` of the other dataset into the column `to` that was here (`here` rows):
// a row that was here takes the other value when it is not missing, and then only with
// `overwrite` or where its own value is missing; a new row takes it as it is.
void MergeIntoColumn(const float* from, float* to, const RowPlan& plan, std::size_t here,
                     bool overwrite) {
  const std::size_t count = plan.target.size();
  if (plan.identity) {
    const std::size_t shared = std::min(count, here);
    if (overwrite) {
      for (std::size_t i = 0; i < shared; ++i) to[i] = from[i] != kMissing ? from[i] : to[i];
    } else {
      for (std::size_t i = 0; i < shared; ++i) to[i] = to[i] == kMissing ? from[i] : to[i];
    }
    if (count > shared) std::memcpy(to + shared, from + shared, (count - shared) * sizeof(float));
    return;
  }
  const std::size_t* target = plan.target.data();
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t row = target[i];
    if (row == kNoRow) continue;
    const float value = from[i];
    if (row >= here || (value != kMissing && (overwrite || to[row] == kMissing))) to[row] = value;
  }
}

// Writes the columns of `from` (the other dataset's matrix) into `to`, whose first `columns`
// columns and `here` rows hold this dataset's values and whose other cells are missing.
void MergeColumns(const NCDataMatrix<float>& from, const ColumnPlan& columnPlan,
                  const RowPlan& rowPlan, std::size_t columns, std::size_t here, bool overwrite,
                  NCDataMatrix<float>& to) {
  if (rowPlan.target.empty()) return;
  for (std::size_t k = 0; k < columnPlan.target.size(); ++k) {
    const std::size_t column = columnPlan.target[k];
    if (column >= columns) {
      CopyIntoNewColumn(from.ColumnData(k), to.ColumnData(column), rowPlan);
    } else {
      MergeIntoColumn(from.ColumnData(k), to.ColumnData(column), rowPlan, here, overwrite);
    }
  }
}

// The row order of a batch dataset whose `rows` had `added` appended (the first rows.size()
// being those that were there): each added row right after the last row of its batch, the
// rows of batches the dataset lacked at the end, grouped by batch in order of first
// appearance. Empty when the appended order is that order already.
NCIntegralVector<int, -99> BatchRowOrder(const NCObservations& observations, const Rows& rows,
                                         const Rows& added) {
  const std::size_t here = rows.size();
  std::unordered_map<std::string_view, std::size_t> lastRow;
  const std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, false);
  for (std::size_t r = 0; r < starts.size(); ++r) {
    const ObservationInfo* head = rows[static_cast<std::size_t>(starts[r] - 1)];
    const std::size_t end =
        r + 1 < starts.size() ? static_cast<std::size_t>(starts[r + 1] - 1) : here;
    if (head) lastRow[head->GetBatchName(observations)] = end - 1;  // a later run wins
  }
  std::vector<std::pair<std::size_t, std::size_t>> after;  // (row here, added row)
  std::vector<std::string_view> newBatches;
  std::unordered_map<std::string_view, std::vector<std::size_t>> newRows;
  for (std::size_t j = 0; j < added.size(); ++j) {
    const std::string& name = added[j]->GetBatchName(observations);
    if (const auto found = lastRow.find(name); found != lastRow.end()) {
      after.emplace_back(found->second, j);
    } else {
      const auto [at, fresh] = newRows.try_emplace(name);
      if (fresh) newBatches.push_back(name);
      at->second.push_back(j);
    }
  }
  std::stable_sort(after.begin(), after.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  NCIntegralVector<int, -99> order;
  order.reserve(here + added.size());
  std::size_t next = 0;
  for (std::size_t r = 0; r < here; ++r) {
    order.push_back(static_cast<int>(r));
    for (; next < after.size() && after[next].first == r; ++next) {
      order.push_back(static_cast<int>(here + after[next].second));
    }
  }
  for (const std::string_view name : newBatches) {
    for (const std::size_t j : newRows[name]) order.push_back(static_cast<int>(here + j));
  }
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (order[i] != static_cast<int>(i)) return order;
  }
  return NCIntegralVector<int, -99>();
}

// Puts the batch-condition values (and their secondary IDs) of `batch`, held in the order of
// `fromIDs`, into the order of `toIDs`; a condition `fromIDs` lacks is missing.
void MapConditions(BatchInfo& batch, const IDs& fromIDs, const IDs& toIDs) {
  if (fromIDs == toIDs) return;
  const NCDataVector<float>& values = *batch.GetBatchConditionValues();
  const std::vector<std::string>& secIDs = batch.GetBatchConditionSecIDs();
  NCDataVector<float> mapped(toIDs.size(), kMissing);
  std::vector<std::string> mappedSecIDs(secIDs.empty() ? 0 : toIDs.size());
  for (std::size_t k = 0; k < toIDs.size(); ++k) {
    const std::ptrdiff_t at = fromIDs.Find(toIDs[k]);
    if (at < 0) continue;
    const auto from = static_cast<std::size_t>(at);
    mapped[k] = values(from, kMissing);
    if (!mappedSecIDs.empty() && from < secIDs.size()) mappedSecIDs[k] = secIDs[from];
  }
  batch.SetBatchConditionValues(&mapped);
  batch.SetBatchConditionSecIDs(mappedSecIDs);
}

// `counted` (a batch as its rows tell it: name, count, phases and their counts) with the
// settings of `model`, the record the batch had: inclusion, conditions and the settings of
// each phase of the same name.
boost::shared_ptr<BatchInfo> WithSettings(const BatchInfo& counted, const BatchInfo& model) {
  boost::shared_ptr<BatchInfo> batch = model.Clone();
  batch->SetNumObs(counted.GetNumObs(nullptr, true));
  const ClassInfoVector* phases = counted.GetClassVector();
  if (!phases) {
    batch->SetClassVectorPtr(nullptr);
    return batch;
  }
  auto merged = std::make_unique<ClassInfoVector>();
  merged->reserve(phases->size());
  for (const auto& phase : *phases) {
    if (!phase) continue;
    const auto known =
        BatchUtilities::FindPhase(model.GetClassVector(), phase->GetPhaseName().c_str(), false);
    boost::shared_ptr<ClassInfo> record = known ? known->Clone() : phase->Clone();
    record->SetNumObs(phase->GetNumObs());
    merged->push_back(std::move(record));
  }
  batch->SetClassVectorPtr(merged.release());
  return batch;
}

// The batches of `rows` as they are now, each with the settings of its record here (the k-th
// batch of a name takes those of the k-th record of that name) or, for a new batch, of its
// record in `other`.
std::unique_ptr<BatchInfoVector> MergedBatches(const NCObservations& observations, const Rows& rows,
                                               const BatchInfoVector& here,
                                               const BatchInfoVector* other) {
  std::unique_ptr<BatchInfoVector> batches =
      BatchUtilities::CreateBatchInfoVector(observations, rows);
  if (!batches) return nullptr;
  std::unordered_map<std::string, std::vector<const BatchInfo*>> known;
  for (const auto& batch : here) {
    if (batch) known[batch->GetBatchName()].push_back(batch.get());
  }
  // The first record of each name in `other`, looked up once rather than batch by batch.
  std::unordered_map<std::string, const BatchInfo*> theirs;
  if (other) {
    for (const auto& batch : *other) {
      if (batch) theirs.emplace(batch->GetBatchName(), batch.get());
    }
  }
  std::unordered_map<std::string, std::size_t> used;
  for (auto& batch : *batches) {
    if (!batch) continue;
    const std::string name = batch->GetBatchName();
    const auto mine = known.find(name);
    std::size_t& k = used[name];
    if (mine != known.end() && k < mine->second.size()) {
      batch = WithSettings(*batch, *mine->second[k++]);
    } else if (const auto model = theirs.find(name); model != theirs.end()) {
      batch = WithSettings(*batch, *model->second);
      MapConditions(*batch, other->GetBCVariableIDs(), here.GetBCVariableIDs());
    }
  }
  batches->SetBCVariableIDs(here.GetBCVariableIDs());
  batches->OBSOLETE_SetBatchConditions(here.OBSOLETE_GetBatchConditionNames(),
                                       here.OBSOLETE_GetBatchConditionKinds());
  return batches;
}

// Appends to `phases` (the dataset's phase list) the phases of `batches` it lacks, as `other`
// has them when it does. False when nothing was missing.
bool AddMissingPhases(ClassInfoVector& phases, const BatchInfoVector& batches,
                      const ClassInfoVector* other) {
  bool added = false;
  for (const auto& batch : batches) {
    const ClassInfoVector* own = batch ? batch->GetClassVector() : nullptr;
    if (!own) continue;
    for (const auto& phase : *own) {
      if (!phase) continue;
      const char* name = phase->GetPhaseName().c_str();
      if (BatchUtilities::FindPhase(&phases, name, false)) continue;
      const auto model = BatchUtilities::FindPhase(other, name, false);
      phases.push_back(model ? model->Clone()
                             : boost::make_shared<ClassInfo>(phase->GetPhaseName()));
      added = true;
    }
  }
  return added;
}

}  // namespace
}  // namespace ncds::detail

bool NCDataSet::Merge(const NCDataSet& other, bool overwrite, bool confirm,
                      DatasetMergeInfo* info) {
  namespace d = ncds::detail;
  if (&other == this) {
    throw InvalidArgument("NCDataSet::Merge: a dataset cannot be merged into itself");
  }
  const auto project = GetProject();
  if (!project || other.GetProject() != project) {
    throw InvalidArgument("NCDataSet::Merge: the datasets do not belong to the same project");
  }
  if (mData.SizeRows() != mObsInfos.size() || mData.SizeColumns() != mVarIDs.size() ||
      other.mData.SizeRows() != other.mObsInfos.size() ||
      other.mData.SizeColumns() != other.mVarIDs.size()) {
    throw NCInternalError("NCDataSet::Merge: a matrix does not match its rows and columns");
  }

  // The trim record cannot follow the rows and values the merge brings, so it is dropped.
  const bool trimmed = GetIsTrimmed();
  if (trimmed) {
    ExceptionMessageList question;
    question << ExceptionMessage::translate("Dataset trimming cannot be undone after merging.")
             << ExceptionMessage::translate("Do you which to continue?");
    const std::string caption =
        ExceptionMessage::translate("dialog caption", "Merge Datasets").str();
    if (UserComm::GetUserComm()->AskQuestion(question, caption, false) != UserComm::kYes) {
      throw NCError(ExceptionMessage::translate("Merge of datasets aborted."), NCError::Error);
    }
  }
  if (!AskChange(nullptr, confirm)) return false;

  // Everything is planned and allocated before the dataset changes.
  const NCObservations& observations = project->GetObservations();
  const std::size_t here = mObsInfos.size();
  const std::size_t columns = mVarIDs.size();
  d::RowPlan rowPlan = d::MatchRows(mRowIDs, mObsInfos, other.mRowIDs, other.mObsInfos);
  const d::ColumnPlan columnPlan = d::MatchColumns(mVarIDs, other.mVarIDs);
  const std::size_t addedRows = rowPlan.added.size();
  const std::size_t addedColumns = columnPlan.added.size();
  const bool batchRows = mBatches && observations.HasBatches();
  const NCIntegralVector<int, -99> order =
      batchRows && addedRows > 0 ? d::BatchRowOrder(observations, mObsInfos, rowPlan.added)
                                 : NCIntegralVector<int, -99>();
  mObsInfos.reserve(here + addedRows);
  mRowIDs.reserve(here + addedRows);
  mVarIDs.reserve(columns + addedColumns);
  if (addedRows > 0 || addedColumns > 0) {
    // A new buffer rather than growing this one: it is allocated (on huge pages when large)
    // and filled once, and the matrix stays as it was should that fail.
    NCDataMatrix<float> merged(here + addedRows, columns + addedColumns);
    for (std::size_t j = 0; j < columns && here > 0; ++j) {
      std::memcpy(merged.ColumnData(j), mData.ColumnData(j), here * sizeof(float));
    }
    d::MergeColumns(other.mData, columnPlan, rowPlan, columns, here, overwrite, merged);
    mData = std::move(merged);
  } else {
    d::MergeColumns(other.mData, columnPlan, rowPlan, columns, here, overwrite, mData);
  }
  mObsInfos.insert(mObsInfos.end(), rowPlan.added.begin(), rowPlan.added.end());
  for (const unsigned long id : rowPlan.addedIDs) mRowIDs.push_back(id);
  for (const unsigned long id : columnPlan.added) mVarIDs.push_back(id);
  if (!order.empty()) ApplyRowOrder(order);

  if (batchRows && addedRows > 0) {
    const auto batches = d::MergedBatches(observations, mObsInfos, *mBatches, other.mBatches.get());
    if (observations.HasPhases()) {
      ClassInfoVector phases = mPhases ? *mPhases : ClassInfoVector();
      if (d::AddMissingPhases(phases, *batches, other.mPhases.get()) || !mPhases) {
        SetPhaseInfoVector(&phases);
      }
    }
    SetBatchInfoVector(batches.get());
  } else if (addedRows > 0) {
    mBatchInfoNeedsUpdate = true;
  }
  if (trimmed) {
    mPreTrimValues.clear();
    mTrimmedIndex.clear();
    mTrimRecords.clear();
  }
  mSortFlagsValid = false;
  mDirty = true;

  DatasetMergeInfo local;
  DatasetMergeInfo& report = info ? *info : local;
  report = DatasetMergeInfo();
  report.mergedDatasetName = other.GetName();
  report.variablesAdded = addedColumns;
  report.observationsAdded = addedRows;
  report.messages.push_back(
      (ExceptionMessage::translate("Dataset \"{1}\" was merged into dataset \"{2}\".") %
       other.GetName() % GetName())
          .str());
  report.messages.push_back(
      (ExceptionMessage::translate("Variables added: {1}") % addedColumns).str());
  report.messages.push_back(
      (ExceptionMessage::translate("Observations added: {1}") % addedRows).str());
  if (rowPlan.byPrimaryID > 0) {
    report.messages.push_back(
        (ExceptionMessage::translate("Observations matched by primary ID: {1}") %
         rowPlan.byPrimaryID)
            .str());
  }
  if (rowPlan.skipped > 0) {
    report.messages.push_back(
        (ExceptionMessage::translate("Observations without a record, not merged: {1}") %
         rowPlan.skipped)
            .str());
  }
  report.messages.push_back(
      overwrite ? ExceptionMessage::translate(
                      "Values present in both datasets were replaced, except by missing values.")
                      .str()
                : ExceptionMessage::translate("Values present in both datasets were kept; missing "
                                              "values were filled in.")
                      .str());
  if (trimmed) {
    report.messages.push_back(
        ExceptionMessage::translate("The trimming records of the dataset were discarded.").str());
  }
  NCSignals::RaiseDatasetMerged(this, report);
  return true;
}
