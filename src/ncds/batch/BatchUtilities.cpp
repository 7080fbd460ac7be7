#include "ncds/batch/BatchUtilities.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <string>
#include <string_view>
#include <unordered_map>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/ClassInfo.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/detail/Prefetch.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/metadata/detail/UserIDAt.h"

namespace BatchUtilities {
namespace {

constexpr float kMissing = -99.0F;
// The first step of the galloping search: most runs are longer than a few rows.
constexpr int kFirstStep = 32;
// How many batches ahead of its use each link of a row's chain is fetched.
constexpr int kFetchBatchesAhead = 2;

// The rows as records, whichever way the caller holds them.
class RecordRows {
 public:
  explicit RecordRows(const Rows& rows) : mRows(rows) {}
  int size() const { return static_cast<int>(mRows.size()); }
  // The record of 1-based row `position`, or null.
  const ObservationInfo* at(int position) const {
    return mRows[static_cast<std::size_t>(position - 1)];
  }
  // Starts loading what reading row `position`'s ID `series` needs, one link of the chain per
  // `step`: 0 the row's slot, 1 its record, 2 the record's IDs. Each step reads only what the
  // step before it loaded, so the misses of rows far apart overlap instead of queuing.
  void Prefetch(int position, int step, int series) const {
    if (position < 1 || position > size()) return;
    const ObservationInfo* const* slot = &mRows.begin()[position - 1];
    if (step == 0) {
      ncds::detail::Prefetch(slot);
    } else if (*slot && step == 1) {
      ncds::detail::Prefetch(*slot);
    } else if (*slot) {
      const std::vector<std::string>& ids = (*slot)->GetUserIDs();
      if (series >= 1 && static_cast<std::size_t>(series) <= ids.size()) {
        ncds::detail::Prefetch(ids.data() + (series - 1));
      }
    }
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
  // Finding a record by its ID is a look-up of its own: nothing is fetched ahead.
  void Prefetch(int /*position*/, int /*step*/, int /*series*/) const {}

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

  int BatchSeries() const { return mBatchSeries; }
  int PhaseSeries() const { return mPhaseSeries; }
  const std::string& Batch(const ObservationInfo& row) const {
    return ncds::detail::UserIDAt(row, mBatchSeries);
  }
  const std::string& Phase(const ObservationInfo& row) const {
    return ncds::detail::UserIDAt(row, mPhaseSeries);
  }
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

// The distinct phase names of a search in order of first appearance, with the length of the
// last run of each.
class PhaseTable {
 public:
  // The index of `name`, added when new.
  int Find(std::string_view name) {
    const std::size_t near = std::min(mNames.size(), kLookAlong);
    for (std::size_t k = 0; k < near; ++k) {
      if (mNames[k] == name) return static_cast<int>(k);
    }
    if (mNames.size() > kLookAlong) {
      const auto far = mFar.find(name);
      if (far != mFar.end()) return far->second;
    }
    const int index = static_cast<int>(mNames.size());
    mNames.push_back(name);
    mLengths.push_back(0);
    if (mNames.size() > kLookAlong) mFar.emplace(name, index);
    return index;
  }
  int& Length(int phase) { return mLengths[static_cast<std::size_t>(phase)]; }
  std::vector<std::string_view>& Names() { return mNames; }

 private:
  // Batches have few phases: up to this many names a look along them beats a table.
  static constexpr std::size_t kLookAlong = 16;
  std::vector<std::string_view> mNames;
  std::vector<int> mLengths;
  std::unordered_map<std::string_view, int> mFar;
};

// What one search of the rows finds: where each run starts, which runs begin a batch, and the
// phase of each run.
struct RunTable {
  std::vector<int> starts;                   // 1-based first row of each run
  std::vector<int> phaseOfRun;               // index into `phaseNames`; -1 for no record
  std::vector<std::size_t> batchRuns;        // index into `starts` of each batch's first run
  std::vector<std::string> batchNames;       // per batch, copied while the row is at hand
  std::vector<std::string_view> phaseNames;  // distinct, in order of first appearance
  int rowCount = 0;

  // One past the last row of run `run`.
  int End(std::size_t run) const {
    return run + 1 < starts.size() ? starts[run + 1] : rowCount + 1;
  }
};

// Finds the runs of batches (with `orPhase`, of batches and phases). Batches (and each phase)
// tend to have one length: the last length of a run of the same phase is tried first, which
// needs two rows rather than a search when it holds. When batches have one length too (as
// aligned batches do), the rows the search is going to probe a few batches on are known: they
// are fetched ahead, a link of their chain at a time, so that their misses overlap.
template <class RowSource>
RunTable ScanRuns(const NCObservations& observations, const RowSource& rows, bool orPhase) {
  RunTable table;
  const int count = rows.size();
  table.rowCount = count;
  const Groups groups(observations, orPhase);
  PhaseTable phases;
  const ObservationInfo* batchHead = nullptr;  // the first row of the current batch
  int batchStart = 0;
  int batchLength = 0;
  for (int start = 1; start >= 1 && start <= count;) {
    const ObservationInfo* first = rows.at(start);
    if (!first || !batchHead || groups.Batch(*first) != groups.Batch(*batchHead)) {
      if (batchHead) batchLength = start - batchStart;
      batchHead = first;
      batchStart = start;
      table.batchRuns.push_back(table.starts.size());
      table.batchNames.push_back(first ? groups.Batch(*first) : std::string());
    }
    table.starts.push_back(start);
    if (!first) {
      table.phaseOfRun.push_back(-1);
      ++start;  // a row without a record is a run (and a batch) of its own
      continue;
    }
    const int phase = phases.Find(orPhase ? std::string_view(groups.Phase(*first)) : "");
    table.phaseOfRun.push_back(phase);
    int& length = phases.Length(phase);
    const int end = start + length;  // the guessed start of the next run
    if (batchLength > 0 && length > 0) {
      for (int step = 0; step < 3; ++step) {
        const int ahead = end - 1 + kFetchBatchesAhead * (3 - step) * batchLength;
        rows.Prefetch(ahead, step, groups.BatchSeries());
        rows.Prefetch(ahead + 1, step, groups.BatchSeries());
      }
    }
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
  if (orPhase) table.phaseNames = std::move(phases.Names());
  return table;
}

template <class RowSource>
int Monotonic(const NCObservations& observations, const RowSource& rows,
              const NCDataVector<float>& maturity) {
  std::vector<int> starts = ScanRuns(observations, rows, false).starts;
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

// The phase list of a search with phases.
std::unique_ptr<ClassInfoVector> PhaseList(const NCObservations& observations,
                                           const RunTable& table) {
  if (!observations.HasPhases()) return nullptr;
  auto phases = std::make_unique<ClassInfoVector>();
  phases->reserve(table.phaseNames.size());
  for (const std::string_view name : table.phaseNames) {
    phases->push_back(boost::make_shared<ClassInfo>(std::string(name)));
  }
  return phases;
}

// The batch vector of a search (with phases when the container has a phase series).
std::unique_ptr<BatchInfoVector> BatchList(const NCObservations& observations,
                                           const RunTable& table) {
  if (!observations.HasBatches()) return nullptr;
  auto batches = std::make_unique<BatchInfoVector>();
  batches->reserve(table.batchRuns.size());
  const bool withPhases = observations.HasPhases();
  std::vector<int> seen;  // the phases of one batch, in order of appearance
  for (std::size_t b = 0; b < table.batchRuns.size(); ++b) {
    const std::size_t first = table.batchRuns[b];
    const std::size_t last =
        b + 1 < table.batchRuns.size() ? table.batchRuns[b + 1] - 1 : table.starts.size() - 1;
    auto batch = boost::make_shared<BatchInfo>(table.batchNames[b]);
    batch->SetNumObs(table.End(last) - table.starts[first]);
    if (withPhases) {
      auto phases = std::make_unique<ClassInfoVector>();
      phases->reserve(last - first + 1);
      seen.clear();
      for (std::size_t r = first; r <= last; ++r) {
        const int phase = table.phaseOfRun[r];
        const int count = table.End(r) - table.starts[r];
        const auto same = std::find(seen.begin(), seen.end(), phase);
        if (same == seen.end()) {
          seen.push_back(phase);
          phases->push_back(boost::make_shared<ClassInfo>(
              phase < 0 ? std::string() : std::string(table.phaseNames[phase])));
          phases->back()->SetNumObs(count);
        } else {
          ClassInfo& known = *(*phases)[static_cast<std::size_t>(same - seen.begin())];
          known.SetNumObs(known.GetNumObs() + count);
        }
      }
      batch->SetClassVectorPtr(phases.release());
    }
    batches->push_back(std::move(batch));
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

std::pair<double, double> SumMaturityEnds(const float* maturity, std::size_t size,
                                          const std::vector<int>& batchCounts) {
  double front = 0;
  double back = 0;
  std::size_t begin = 0;
  for (const int count : batchCounts) {
    std::size_t first = std::min(begin, size);
    std::size_t last = std::min(begin + static_cast<std::size_t>(count > 0 ? count : 0), size);
    begin += static_cast<std::size_t>(count > 0 ? count : 0);
    while (first < last && maturity[first] == kMissing) ++first;
    while (last > first && maturity[last - 1] == kMissing) --last;
    if (last - first < 2) continue;  // no distinct first and last valid value
    front += maturity[first];
    back += maturity[last - 1];
  }
  return {front, back};
}

bool IsAscendingMaturity(const NCDataVector<float>& maturity, const std::vector<int>& batchCounts) {
  const auto [front, back] = SumMaturityEnds(maturity.begin(), maturity.size(), batchCounts);
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
  return ScanRuns(observations, RecordRows(rows), orPhase).starts;
}

std::vector<int> GetRunStarts(const NCObservations& observations, const RowIDs& rows,
                              bool orPhase) {
  return ScanRuns(observations, IDRows(observations, rows), orPhase).starts;
}

std::unique_ptr<ClassInfoVector> CreatePhaseInfoVector(const NCObservations& observations,
                                                       const Rows& rows) {
  if (!observations.HasPhases()) return nullptr;
  return PhaseList(observations, ScanRuns(observations, RecordRows(rows), true));
}

std::unique_ptr<ClassInfoVector> CreatePhaseInfoVector(const NCObservations& observations,
                                                       const RowIDs& rows) {
  if (!observations.HasPhases()) return nullptr;
  return PhaseList(observations, ScanRuns(observations, IDRows(observations, rows), true));
}

std::unique_ptr<BatchInfoVector> CreateBatchInfoVector(const NCObservations& observations,
                                                       const Rows& rows) {
  if (!observations.HasBatches()) return nullptr;
  return BatchList(observations,
                   ScanRuns(observations, RecordRows(rows), observations.HasPhases()));
}

std::unique_ptr<BatchInfoVector> CreateBatchInfoVector(const NCObservations& observations,
                                                       const RowIDs& rows) {
  if (!observations.HasBatches()) return nullptr;
  return BatchList(observations,
                   ScanRuns(observations, IDRows(observations, rows), observations.HasPhases()));
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
  const RunTable table =
      ScanRuns(observations, RecordRows(dataSet.GetObservationInfoVector()), phaseSeries > 0);
  const std::unique_ptr<BatchInfoVector> batches = BatchList(observations, table);
  const std::unique_ptr<ClassInfoVector> phases = PhaseList(observations, table);
  dataSet.SetBatchInfoVector(batches.get());
  dataSet.SetPhaseInfoVector(phases.get());
}

}  // namespace BatchUtilities
