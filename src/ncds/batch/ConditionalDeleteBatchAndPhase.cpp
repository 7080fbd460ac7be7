#include "ncds/batch/ConditionalDeleteBatchAndPhase.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <vector>

#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/batch/ClassInfo.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/dataset/DatasetComponents.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"

namespace ncds::detail {
namespace {

void Log(std::string* log, const ExceptionMessage& message) {
  if (log) *log += message.str();
}

// Merges records of one phase name into the first of them, which takes the others' counts.
void MergeSameNames(ClassInfoVector& phases) {
  std::unordered_map<std::string, ClassInfo*> first;
  ClassInfoVector kept;
  kept.reserve(phases.size());
  for (const auto& phase : phases) {
    if (!phase) continue;
    const auto [at, added] = first.emplace(phase->GetPhaseName(), phase.get());
    if (added) {
      kept.push_back(phase);
    } else {
      at->second->SetNumObs(at->second->GetNumObs() + phase->GetNumObs());
    }
  }
  if (kept.size() != phases.size()) phases = std::move(kept);
}

}  // namespace
}  // namespace ncds::detail

ConditionalDeleteBatchAndPhase::ConditionalDeleteBatchAndPhase(DatasetComponents* components)
    : mComponents(components) {}

void ConditionalDeleteBatchAndPhase::UpdateDataAccordingToBatchAndPhaseInfo(std::string* log) {
  const NCObservations& observations = mComponents->GetObservations();
  if (observations.GetBatchIDRaw() < 1 && observations.HasPhases()) DeleteExcludedClasses(log);
  if (observations.GetBatchIDRaw() > 0) DeleteBatchesAndPhases(log);
  MergeAndRenamePhases(log);
  RemoveDeletedBatchesAndPhasesFromBatchInfoVector();
  ExcludeDuplicateMergedPhaseInfos();
}

void ConditionalDeleteBatchAndPhase::DeleteExcludedClasses(std::string* log) {
  ClassInfoVector* classes = mComponents->GetPhaseInfoVector();
  if (!classes) return;
  const NCObservations& observations = mComponents->GetObservations();
  const VarObsInfoVector<ObservationInfo>& rows = mComponents->GetObservationInfos();
  std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, true);
  starts.push_back(static_cast<int>(rows.size()) + 1);
  std::set<std::string> logged;
  for (std::size_t r = 0; r + 1 < starts.size(); ++r) {
    const ObservationInfo* head = rows[static_cast<std::size_t>(starts[r] - 1)];
    if (!head) continue;
    const auto phase =
        BatchUtilities::FindPhase(classes, head->GetPhaseName(observations).c_str(), false);
    if (!phase || phase->IsIncluded()) continue;
    RemovePhase(*phase, starts[r], starts[r + 1] - starts[r]);
    if (logged.insert(phase->GetPhaseName()).second) {
      ncds::detail::Log(
          log, ExceptionMessage::translate("Class {1} was deleted.\n") % phase->GetPhaseName());
    }
  }
}

void ConditionalDeleteBatchAndPhase::DeleteBatchesAndPhases(std::string* log) {
  BatchInfoVector* batches = mComponents->GetBatchInfoVector();
  if (!batches) return;
  NCProgress progress(ExceptionMessage::translate("Deleting selected batches and phases...").str(),
                      0, static_cast<float>(batches->size()), false, false, false);
  int position = 1;
  int done = 0;
  for (const auto& batch : *batches) {
    progress.SetValue(static_cast<float>(done++));
    if (!batch) continue;
    const int all = batch->GetNumObs(nullptr, true);
    const bool emptied =
        batch->GetClassVector() && all > 0 && batch->GetNumObs(nullptr, false) == 0;
    if (!batch->IsIncluded() || emptied) {
      position = RemoveBatch(*batch, position, all);
      ncds::detail::Log(
          log, ExceptionMessage::translate("Batch {1} was deleted.\n") % batch->GetBatchName());
      continue;
    }
    const ClassInfoVector* phases = batch->GetClassVector();
    if (!phases) {
      position += all;
      continue;
    }
    for (const auto& phase : *phases) {
      if (!phase) continue;
      if (phase->IsIncluded()) {
        position += phase->GetNumObs();
        continue;
      }
      position = RemovePhase(*phase, position, phase->GetNumObs());
      ncds::detail::Log(log, ExceptionMessage::translate("Phase {1} in batch {2} was deleted.\n") %
                                 phase->GetPhaseName() % batch->GetBatchName());
    }
  }
  progress.SetValue(static_cast<float>(done));
}

int ConditionalDeleteBatchAndPhase::RemoveBatch(const BatchInfo& batch, int position, int count) {
  mDeleted.insert(&batch);
  return mComponents->RemoveObservations(position, count);
}

int ConditionalDeleteBatchAndPhase::RemovePhase(const ClassInfo& phase, int position, int count) {
  mDeleted.insert(&phase);
  return mComponents->RemoveObservations(position, count);
}

void ConditionalDeleteBatchAndPhase::MergeAndRenamePhases(std::string* log) {
  ClassInfoVector* phases = mComponents->GetPhaseInfoVector();
  if (!phases) return;
  // Rows carry the original names; each takes the current name of the first phase record
  // with that original name.
  std::map<std::string, std::string> renames;
  for (const auto& phase : *phases) {
    if (!phase) continue;
    const std::string& from = phase->GetOriginalName();
    const std::string& to = phase->GetPhaseName();
    if (VxStdString::CompareNoCase(from, to) != 0) {
      ncds::detail::Log(log,
                        ExceptionMessage::translate("Phase {1} was renamed {2}.\n") % from % to);
    }
    if (renames.emplace(from, to).second) mComponents->RenamePhase(from, to);
  }
  // The batches' own phase records follow the rows.
  if (BatchInfoVector* batches = mComponents->GetBatchInfoVector()) {
    for (const auto& batch : *batches) {
      ClassInfoVector* own = batch ? batch->GetClassVector() : nullptr;
      if (!own) continue;
      for (const auto& phase : *own) {
        if (!phase) continue;
        const auto renamed = renames.find(phase->GetPhaseName());
        if (renamed != renames.end()) phase->SetPhaseName(renamed->second.c_str());
      }
    }
  }
}

void ConditionalDeleteBatchAndPhase::RemoveDeletedBatchesAndPhasesFromBatchInfoVector() {
  if (mDeleted.empty()) return;
  const auto deleted = [this](const auto& record) {
    return record && mDeleted.count(record.get()) > 0;
  };
  ClassInfoVector* phases = mComponents->GetPhaseInfoVector();
  if (phases) {  // deleted classes of a dataset without batches
    phases->erase(std::remove_if(phases->begin(), phases->end(), deleted), phases->end());
  }
  BatchInfoVector* batches = mComponents->GetBatchInfoVector();
  if (!batches) return;
  batches->erase(std::remove_if(batches->begin(), batches->end(), deleted), batches->end());
  std::set<std::string> held;
  bool allHavePhases = true;
  for (const auto& batch : *batches) {
    ClassInfoVector* own = batch ? batch->GetClassVector() : nullptr;
    allHavePhases = allHavePhases && own;
    if (!own) continue;
    own->erase(std::remove_if(own->begin(), own->end(), deleted), own->end());
    batch->SetNumObs(batch->GetNumObs(nullptr, true));
    for (const auto& phase : *own) {
      if (phase) held.insert(phase->GetPhaseName());
    }
  }
  // A phase of the dataset that no batch holds any more leaves the phase list too (batches
  // without phase lists tell nothing).
  if (!phases || !allHavePhases) return;
  phases->erase(std::remove_if(phases->begin(), phases->end(),
                               [&held](const auto& phase) {
                                 return phase && held.count(phase->GetPhaseName()) == 0;
                               }),
                phases->end());
}

void ConditionalDeleteBatchAndPhase::ExcludeDuplicateMergedPhaseInfos() {
  if (ClassInfoVector* phases = mComponents->GetPhaseInfoVector()) {
    ncds::detail::MergeSameNames(*phases);
  }
  if (BatchInfoVector* batches = mComponents->GetBatchInfoVector()) {
    for (const auto& batch : *batches) {
      if (ClassInfoVector* own = batch ? batch->GetClassVector() : nullptr) {
        ncds::detail::MergeSameNames(*own);
      }
    }
  }
}
