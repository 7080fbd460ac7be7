#include "ncds/batch/BatchUtilities.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <string>
#include <string_view>
#include <unordered_set>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/ClassInfo.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"

namespace BatchUtilities {
namespace {

constexpr float kMissing = -99.0F;
// The first step of the galloping search: most runs are longer than a few rows.
constexpr int kFirstStep = 32;
// How many phase names the search remembers the last run length of.
constexpr std::size_t kRememberedLengths = 16;

// The rows as records, whichever way the caller holds them.
class RecordRows {
 public:
  explicit RecordRows(const Rows& rows) : mRows(rows) {}
  int size() const { return static_cast<int>(mRows.size()); }
  // The record of 1-based row `position`, or null.
  const ObservationInfo* at(int position) const {
    return mRows[static_cast<std::size_t>(position - 1)];
  }

 private:
  const Rows& mRows;
};

class IDRows {
 public:
  IDRows(const NCObservations& observations, const RowIDs& rows)
      : mObservations(observations), mRows(rows) {}
  int size() const { return static_cast<int>(mRows.size()); }
  const ObservationInfo* at(int position) const {
    return mObservations[mRows[static_cast<std::size_t>(position - 1)]];
  }

 private:
  const NCObservations& mObservations;
  const RowIDs& mRows;
};

// The batch (and phase) of one row, as the container's ID series tell it.
class Groups {
 public:
  Groups(const NCObservations& observations, bool orPhase)
      : mBatchSeries(observations.GetBatchIDRaw()),
        mPhaseSeries(orPhase ? observations.GetPhaseIDRaw() : 0),
        mOrPhase(orPhase) {}

  const std::string& Batch(const ObservationInfo& row) const { return row.GetUserID(mBatchSeries); }
  const std::string& Phase(const ObservationInfo& row) const { return row.GetUserID(mPhaseSeries); }
  // Whether `row` is in the group of `first`; a row without a record is in no group.
  bool Same(const ObservationInfo& first, const ObservationInfo* row) const {
    if (!row) return false;
    if (row == &first) return true;
    return Batch(*row) == Batch(first) && (!mOrPhase || Phase(*row) == Phase(first));
  }

 private:
  int mBatchSeries;
  int mPhaseSeries;
  bool mOrPhase;
};

template <class RowSource>
int FindNext(const NCObservations& observations, const RowSource& rows, int start, bool orPhase) {
  if (start < 1) return 1;
  const int last = rows.size();
  if (last == 0 || start > last) return -1;
  const ObservationInfo* const first = rows.at(start);
  if (!first) return -1;
  const Groups groups(observations, orPhase);
  if (groups.Same(*first, rows.at(last))) return -1;
  // Gallop forward from `start` (in the group) until a probe leaves the group; `last` is known
  // to lie outside it.
  int inside = start;
  int outside = last;
  for (int step = kFirstStep; inside + step < last; step *= 2) {
    if (!groups.Same(*first, rows.at(inside + step))) {
      outside = inside + step;
      break;
    }
    inside += step;
  }
  // The boundary lies in (inside, outside]: halve the gap until the two meet.
  while (outside - inside > 1) {
    const int probe = inside + (outside - inside) / 2;
    if (groups.Same(*first, rows.at(probe))) {
      inside = probe;
    } else {
      outside = probe;
    }
  }
  return outside;
}

template <class RowSource>
std::vector<int> RunStarts(const NCObservations& observations, const RowSource& rows,
                           bool orPhase) {
  std::vector<int> starts;
  const int count = rows.size();
  const Groups groups(observations, orPhase);
  // Batches (and each phase) tend to have one length: the last length of a run of the same
  // phase is tried first, which needs two rows rather than a search when it holds.
  std::vector<std::pair<std::string_view, int>> lengths;  // few phases: a look along them
  for (int start = 1; start >= 1 && start <= count;) {
    starts.push_back(start);
    const ObservationInfo* first = rows.at(start);
    if (!first) {
      ++start;  // a row without a record is a run of its own
      continue;
    }
    const std::string_view group = orPhase ? std::string_view(groups.Phase(*first)) : "";
    auto known = std::find_if(lengths.begin(), lengths.end(),
                              [group](const auto& entry) { return entry.first == group; });
    int unknown = 0;  // beyond a handful of phase names no length is remembered
    if (known == lengths.end() && lengths.size() < kRememberedLengths) {
      known = lengths.insert(lengths.end(), {group, 0});
    }
    int& length = known == lengths.end() ? unknown : known->second;
    const int end = start + length;  // the guessed start of the next run
    int next = -1;
    if (length > 0 && end - 1 <= count && groups.Same(*first, rows.at(end - 1)) &&
        (end > count || !groups.Same(*first, rows.at(end)))) {
      next = end > count ? -1 : end;
    } else {
      next = FindNext(observations, rows, start, orPhase);
    }
    length = (next < 0 ? count + 1 : next) - start;
    start = next;
  }
  return starts;
}

template <class RowSource>
int Monotonic(const NCObservations& observations, const RowSource& rows,
              const NCDataVector<float>& maturity) {
  std::vector<int> starts = RunStarts(observations, rows, false);
  starts.push_back(rows.size() + 1);
  for (std::size_t b = 0; b + 1 < starts.size(); ++b) {
    const std::size_t begin = static_cast<std::size_t>(starts[b] - 1);
    const std::size_t end = static_cast<std::size_t>(starts[b + 1] - 1);
    const float first = maturity(begin, kMissing);
    const float last = maturity(end - 1, kMissing);
    const float direction = last > first ? 1.0F : -1.0F;
    for (std::size_t i = begin; i + 1 < end; ++i) {
      if (direction * maturity(i, kMissing) > direction * maturity(i + 1, kMissing)) {
        return static_cast<int>(b + 1);
      }
    }
  }
  return 0;
}

// The phase list from the starts of the batch and phase runs (`RunStarts` with phases).
template <class RowSource>
std::unique_ptr<ClassInfoVector> PhaseList(const NCObservations& observations,
                                           const RowSource& rows, const std::vector<int>& starts) {
  if (!observations.HasPhases()) return nullptr;
  auto phases = std::make_unique<ClassInfoVector>();
  const Groups groups(observations, true);
  std::unordered_set<std::string> seen;
  for (const int start : starts) {
    const ObservationInfo* row = rows.at(start);
    if (!row) continue;
    const std::string& name = groups.Phase(*row);
    if (seen.insert(name).second) phases->push_back(boost::make_shared<ClassInfo>(name));
  }
  return phases;
}

// The batch vector from the starts of the runs (`RunStarts`, with phases when the container
// has a phase series).
template <class RowSource>
std::unique_ptr<BatchInfoVector> BatchList(const NCObservations& observations,
                                           const RowSource& rows, std::vector<int> starts) {
  if (!observations.HasBatches()) return nullptr;
  auto batches = std::make_unique<BatchInfoVector>();
  const bool withPhases = observations.HasPhases();
  const Groups groups(observations, withPhases);
  starts.push_back(rows.size() + 1);
  // Runs of phases follow each other inside a batch; a batch ends where the batch name of
  // the next run differs.
  for (std::size_t r = 0; r + 1 < starts.size();) {
    const ObservationInfo* const head = rows.at(starts[r]);
    std::size_t end = r + 1;
    while (end + 1 < starts.size() && head) {
      const ObservationInfo* next = rows.at(starts[end]);
      if (!next || groups.Batch(*next) != groups.Batch(*head)) break;
      ++end;
    }
    auto batch = boost::make_shared<BatchInfo>(head ? groups.Batch(*head) : std::string());
    batch->SetNumObs(starts[end] - starts[r]);
    if (withPhases) {
      auto phases = std::make_unique<ClassInfoVector>();
      phases->reserve(end - r);
      for (std::size_t k = r; k < end; ++k) {
        const ObservationInfo* row = rows.at(starts[k]);
        const std::string& name = row ? groups.Phase(*row) : VxStdString::Empty();
        const int count = starts[k + 1] - starts[k];
        // A batch has few phases: a look along them beats a table.
        const auto same = std::find_if(phases->begin(), phases->end(), [&name](const auto& phase) {
          return phase->GetPhaseName() == name;
        });
        if (same == phases->end()) {
          phases->push_back(boost::make_shared<ClassInfo>(name));
          phases->back()->SetNumObs(count);
        } else {
          (*same)->SetNumObs((*same)->GetNumObs() + count);
        }
      }
      batch->SetClassVectorPtr(phases.release());
    }
    batches->push_back(std::move(batch));
    r = end;
  }
  return batches;
}

template <class Phase, class Vector>
boost::shared_ptr<Phase> FindPhaseIn(Vector* phases, const char* name, bool byOriginalName) {
  if (!phases || !name) return nullptr;
  for (const auto& phase : *phases) {
    if (!phase) continue;
    const std::string& candidate =
        byOriginalName ? phase->GetOriginalName() : phase->GetPhaseName();
    if (candidate == name) return phase;
  }
  return nullptr;
}

template <class Batch, class Vector>
boost::shared_ptr<Batch> FindBatchIn(Vector* batches, const char* name) {
  if (!batches || !name) return nullptr;
  for (const auto& batch : *batches) {
    if (batch && batch->GetBatchName() == name) return batch;
  }
  return nullptr;
}

}  // namespace

boost::shared_ptr<ClassInfo> FindPhase(ClassInfoVector* phases, const char* name,
                                       bool byOriginalName) {
  return FindPhaseIn<ClassInfo>(phases, name, byOriginalName);
}

boost::shared_ptr<ClassInfo const> FindPhase(const ClassInfoVector* phases, const char* name,
                                             bool byOriginalName) {
  return FindPhaseIn<ClassInfo const>(phases, name, byOriginalName);
}

boost::shared_ptr<BatchInfo> FindBatch(BatchInfoVector* batches, const char* name) {
  return FindBatchIn<BatchInfo>(batches, name);
}

boost::shared_ptr<BatchInfo const> FindBatch(const BatchInfoVector* batches, const char* name) {
  return FindBatchIn<BatchInfo const>(batches, name);
}

int FindPhaseIndex(const ClassInfoVector& phases, const char* name, bool byOriginalName) {
  if (!name) return -1;
  for (std::size_t k = 0; k < phases.size(); ++k) {
    if (!phases[k]) continue;
    const std::string& candidate =
        byOriginalName ? phases[k]->GetOriginalName() : phases[k]->GetPhaseName();
    if (VxStdString::CompareNoCase(candidate, name) == 0) return static_cast<int>(k);
  }
  return -1;
}

std::unique_ptr<NCStringVector> GetBatchNames(const BatchInfoVector& batches, bool includedOnly) {
  auto names = std::make_unique<NCStringVector>();
  names->Reserve(batches.size());
  for (const auto& batch : batches) {
    if (!batch || (includedOnly && !batch->IsIncluded())) continue;
    names->push_back(batch->GetBatchName());
  }
  return names;
}

std::unique_ptr<NCStringVector> GetPhaseNames(const ClassInfoVector& phases, bool includedOnly) {
  auto names = std::make_unique<NCStringVector>();
  for (const auto& phase : phases) {
    if (!phase || (includedOnly && !phase->IsIncluded())) continue;
    if (names->FindString(phase->GetPhaseName()) < 0) names->push_back(phase->GetPhaseName());
  }
  return names;
}

NCStringVector GetDefaultVarClasses(const ClassInfoVector* phases, const VariableInfo& variable) {
  NCStringVector names;
  if (!phases) return names;
  const unsigned long id = variable.GetUniqueID();
  const bool isTime = variable.GetNumIDs() > 0 &&
                      variable.GetPrimaryAlias() == BatchInfo::GetGeneratedTimeVariableName();
  for (const auto& phase : *phases) {
    if (!phase || !phase->IsIncluded() || !phase->IsIncluded(id)) continue;
    if (variable.IsY()) {
      const unsigned long y = phase->GetYVariableID();
      const bool reserved = y == NCUniqueIDs::kNone || y == NCUniqueIDs::kConstant;
      if (y != id && !(reserved && isTime)) continue;
    }
    if (names.FindString(phase->GetPhaseName()) < 0) names.push_back(phase->GetPhaseName());
  }
  return names;
}

bool IsAscendingMaturity(const NCDataVector<float>& maturity, const std::vector<int>& batchCounts) {
  double front = 0;
  double back = 0;
  std::size_t begin = 0;
  for (const int count : batchCounts) {
    std::size_t first = begin;
    std::size_t last = begin + static_cast<std::size_t>(count > 0 ? count : 0);
    begin = last;
    while (first < last && maturity(first, kMissing) == kMissing) ++first;
    while (last > first && maturity(last - 1, kMissing) == kMissing) --last;
    if (last - first < 2) continue;  // no distinct first and last valid value
    front += maturity[first];
    back += maturity[last - 1];
  }
  return back >= front;
}

int IsMonotonic(const NCObservations& observations, const Rows& rows,
                const NCDataVector<float>& maturity) {
  return Monotonic(observations, RecordRows(rows), maturity);
}

int IsMonotonic(const NCObservations& observations, const RowIDs& rows,
                const NCDataVector<float>& maturity) {
  return Monotonic(observations, IDRows(observations, rows), maturity);
}

int FindNextBatchOrPhase(const NCObservations& observations, const Rows& rows, int start,
                         bool orPhase) {
  return FindNext(observations, RecordRows(rows), start, orPhase);
}

int FindNextBatchOrPhase(const NCObservations& observations, const RowIDs& rows, int start,
                         bool orPhase) {
  return FindNext(observations, IDRows(observations, rows), start, orPhase);
}

std::vector<int> GetRunStarts(const NCObservations& observations, const Rows& rows, bool orPhase) {
  return RunStarts(observations, RecordRows(rows), orPhase);
}

std::vector<int> GetRunStarts(const NCObservations& observations, const RowIDs& rows,
                              bool orPhase) {
  return RunStarts(observations, IDRows(observations, rows), orPhase);
}

std::unique_ptr<ClassInfoVector> CreatePhaseInfoVector(const NCObservations& observations,
                                                       const Rows& rows) {
  return PhaseList(observations, RecordRows(rows), GetRunStarts(observations, rows, true));
}

std::unique_ptr<ClassInfoVector> CreatePhaseInfoVector(const NCObservations& observations,
                                                       const RowIDs& rows) {
  return PhaseList(observations, IDRows(observations, rows),
                   GetRunStarts(observations, rows, true));
}

std::unique_ptr<BatchInfoVector> CreateBatchInfoVector(const NCObservations& observations,
                                                       const Rows& rows) {
  return BatchList(observations, RecordRows(rows),
                   GetRunStarts(observations, rows, observations.HasPhases()));
}

std::unique_ptr<BatchInfoVector> CreateBatchInfoVector(const NCObservations& observations,
                                                       const RowIDs& rows) {
  return BatchList(observations, IDRows(observations, rows),
                   GetRunStarts(observations, rows, observations.HasPhases()));
}

void MakeBatchDataSet(NCDataSet& dataSet, int batchSeries, int phaseSeries) {
  const boost::shared_ptr<NCProjectBase> project = dataSet.GetProject();
  if (!project) throw InvalidArgument("MakeBatchDataSet: the dataset has no project");
  NCObservations& observations = project->GetObservations();
  const int series = observations.SizeAliases();
  if (batchSeries < 1 || batchSeries > series || phaseSeries < 0 || phaseSeries > series ||
      phaseSeries == batchSeries) {
    throw InvalidArgument("MakeBatchDataSet: no such batch or phase series");
  }
  observations.SetBatchID(batchSeries);
  observations.SetPhaseID(phaseSeries);
  BatchImportSettings settings(project->GetBatchImportSettings());
  settings.SetBatchID(batchSeries);
  settings.SetPhaseID(phaseSeries);
  project->SetBatchImportSettings(settings);

  std::vector<int> aliases = dataSet.GetUsedObsAliases();
  for (const int shown : {batchSeries, phaseSeries}) {
    if (shown > 0 && std::find(aliases.begin(), aliases.end(), shown) == aliases.end()) {
      aliases.push_back(shown);
    }
  }
  dataSet.SetUsedAliases(aliases, dataSet.GetUsedVarAliases());
  // One search for the runs serves both the batches and the phase list.
  const RecordRows rows(dataSet.GetObservationInfoVector());
  const std::vector<int> starts = RunStarts(observations, rows, phaseSeries > 0);
  const std::unique_ptr<BatchInfoVector> batches = BatchList(observations, rows, starts);
  const std::unique_ptr<ClassInfoVector> phases = PhaseList(observations, rows, starts);
  dataSet.SetBatchInfoVector(batches.get());
  dataSet.SetPhaseInfoVector(phases.get());
}

}  // namespace BatchUtilities
