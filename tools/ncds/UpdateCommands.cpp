#include "tools/ncds/UpdateCommands.h"

#include <boost/shared_ptr.hpp>
#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchLevelComponent.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/batch/CreateBatchLevelInfo.h"
#include "ncds/batch/DataSetAlignment.h"
#include "ncds/batch/SourceBatches.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/GenVarFormula.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/project/NCProject.h"
#include "tools/ncds/BatchCommands.h"

namespace ncds::tool {
namespace detail {
namespace {

// The batches of `source` now.
SourceBatches BatchesNow(const NCDataSet& source) {
  const auto project = source.GetProject();
  return SourceBatches::Of(project->GetObservations(), source.GetObservationInfoVector());
}

// A batch dataset of the rows of `source` that belong to `batches`, in the source's order, with
// the source's variables, batch records (conditions and inclusion) and phase list; not stored.
boost::shared_ptr<NCDataSet> BatchesOf(const NCDataSet& source,
                                       const std::unordered_set<std::string>& batches) {
  const auto project = boost::const_pointer_cast<NCProjectBase>(source.GetProject());
  const NCObservations& observations = project->GetObservations();
  const VarObsInfoVector<ObservationInfo>& rows = source.GetObservationInfoVector();
  std::vector<std::size_t> taken;
  const std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, false);
  for (std::size_t r = 0; r < starts.size(); ++r) {
    const auto begin = static_cast<std::size_t>(starts[r] - 1);
    const std::size_t end =
        r + 1 < starts.size() ? static_cast<std::size_t>(starts[r + 1] - 1) : rows.size();
    const ObservationInfo* head = rows[begin];
    if (!head || batches.count(head->GetBatchName(observations)) == 0) continue;
    for (std::size_t i = begin; i < end; ++i) taken.push_back(i);
  }
  const NCDataMatrix<float>& from = source.GetMatrix();
  const NCIntegralVector<unsigned long, 0> varIDs = source.GetVarIDs();
  NCDataMatrix<float> values(taken.size(), varIDs.size());
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(taken.size());
  for (const std::size_t i : taken) infos.push_back(rows[i]);
  for (std::size_t j = 0; j < varIDs.size() && !taken.empty(); ++j) {
    const float* in = from.ColumnData(j);
    float* out = values.ColumnData(j);
    for (std::size_t k = 0; k < taken.size(); ++k) out[k] = in[taken[k]];
  }
  const boost::shared_ptr<NCDataSet> part = NCDataSet::Create(
      project, source.GetName(), source.GetNumber(), std::move(values), std::move(infos), &varIDs,
      source.GetUsedObsAliases(), source.GetUsedVarAliases(), nullptr, nullptr, nullptr);
  BatchUtilities::MakeBatchDataSet(*part, observations.GetBatchIDRaw(),
                                   std::max(observations.GetPhaseIDRaw(), 0));
  // The batches keep what the rows do not tell: inclusion and batch conditions.
  const boost::shared_ptr<BatchInfoVector const> known = source.GetBatchInfoVector();
  std::unordered_map<std::string, const BatchInfo*> byName;
  for (const auto& batch : *known) {
    if (batch) byName.emplace(batch->GetBatchName(), batch.get());
  }
  BatchInfoVector kept = *part->GetBatchInfoVector();
  kept.SetBCVariableIDs(known->GetBCVariableIDs());
  for (const auto& batch : kept) {
    const auto found = batch ? byName.find(batch->GetBatchName()) : byName.end();
    if (found == byName.end()) continue;
    batch->SetIncluded(found->second->IsIncluded());
    batch->SetBatchConditionValues(found->second->GetBatchConditionValues());
    batch->SetBatchConditionSecIDs(found->second->GetBatchConditionSecIDs());
  }
  part->SetBatchInfoVector(&kept);
  if (source.GetPhaseInfoVector()) part->SetPhaseInfoVector(source.GetPhaseInfoVector().get());
  return part;
}

// The batch a row of a derived dataset stands for: its batch ID, or for a batch-level dataset
// without one its primary ID.
std::string RowBatch(const ObservationInfo& info, const NCObservations& observations) {
  std::string batch = info.GetBatchName(observations);
  return batch.empty() ? info.GetUserID(1) : batch;
}

// Removes the rows of those of `batches` that `derived` holds.
void RemoveBatches(NCDataSet& derived, const std::vector<std::string>& batches) {
  if (batches.empty()) return;
  const std::unordered_set<std::string> gone(batches.begin(), batches.end());
  const NCObservations& observations = derived.GetProject()->GetObservations();
  NCIntegralVector<int, -99> positions;
  std::vector<std::string> held;
  std::unordered_set<std::string> seen;
  for (int row = 1; row <= derived.SizeObservations(); ++row) {
    const ObservationInfo* info = derived.GetObservationInfo(row);
    if (!info) continue;
    std::string batch = RowBatch(*info, observations);
    if (gone.count(batch) == 0) continue;
    positions.push_back(row);
    if (seen.insert(batch).second) held.push_back(std::move(batch));
  }
  if (positions.empty()) return;
  if (derived.GetBatchInfoVector()) {
    BatchCommands::DeleteBatches(derived, held, {});
  } else if (!derived.RemoveObservation(&positions, false, false)) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" may not change.") %
                  derived.GetName());
  }
}

// `names` as "a, b, c", the first few and then how many more.
std::string Few(const std::vector<std::string>& names) {
  constexpr std::size_t kShown = 5;
  std::string text;
  for (std::size_t k = 0; k < names.size() && k < kShown; ++k) {
    if (k > 0) text += ", ";
    text += names[k];
  }
  if (names.size() > kShown) {
    text += (ExceptionMessage::translate(" and {1} more") % (names.size() - kShown)).str();
  }
  return text;
}

// The batches of `part` whose maturity reaches beyond the grids of `alignment`.
std::vector<std::string> BeyondTheGrids(const NCDataSet& part, const DataSetAlignment& alignment) {
  std::vector<std::string> beyond;
  const std::optional<DataSetAlignment::Extent> extent = alignment.GetGridExtent();
  const int column = static_cast<int>(part.GetVarIDs().Find(alignment.GetMaturityID()));
  if (alignment.IsRelative() || !extent || column < 0) return beyond;
  float lo = extent->ranges.front().second.first;
  float hi = extent->ranges.front().second.second;
  for (const auto& [phase, range] : extent->ranges) {
    lo = std::min(lo, range.first);
    hi = std::max(hi, range.second);
  }
  const NCObservations& observations = part.GetProject()->GetObservations();
  const float* maturity = part.GetMatrix().ColumnData(static_cast<std::size_t>(column));
  const std::vector<int> starts =
      BatchUtilities::GetRunStarts(observations, part.GetObservationInfoVector(), false);
  for (std::size_t r = 0; r < starts.size(); ++r) {
    const auto begin = static_cast<std::size_t>(starts[r] - 1);
    const std::size_t end = r + 1 < starts.size()
                                ? static_cast<std::size_t>(starts[r + 1] - 1)
                                : static_cast<std::size_t>(part.SizeObservations());
    bool outside = false;
    for (std::size_t i = begin; i < end && !outside; ++i) {
      outside = maturity[i] != -99.0F && (maturity[i] < lo || maturity[i] > hi);
    }
    if (outside)
      beyond.push_back(
          part.GetObservationInfo(static_cast<int>(begin) + 1)->GetBatchName(observations));
  }
  return beyond;
}

// The new rows of `part` made as `derived` was made: aligned onto its grids, or summarized.
boost::shared_ptr<NCDataSet> Derive(const NCDataSet& derived, NCDataSet& part, std::string& log) {
  if (const DataSetAlignment* stored = derived.GetAlignment()) {
    DataSetAlignment alignment(*stored);
    alignment.SetExtent(stored->GetGridExtent());
    const std::vector<std::string> beyond = BeyondTheGrids(part, alignment);
    const DataSetAlignment::Result result =
        alignment.Apply(part, derived.GetName(), derived.GetNumber());
    if (!beyond.empty()) {
      log += (ExceptionMessage::translate(
                  "These batches run past the grids, which do not move, and were cut: {1}.\n") %
              Few(beyond))
                 .str();
    }
    if (result.missingBatches > 0) {
      log +=
          (ExceptionMessage::translate("{1} batches left missing (fewer than two maturities).\n") %
           result.missingBatches)
              .str();
    }
    return result.dataSet;
  }
  const BatchLevelComponent component(*derived.GetBatchLevelInfo());
  return component.Create(part, derived.GetName(), derived.GetNumber());
}

}  // namespace
}  // namespace detail

boost::shared_ptr<NCDataSet> UpdateCommands::LoadSource(NCProject& project,
                                                        const NCDataSet& derived) {
  const int from = derived.GetDerivedFromNumber();
  if (from == 0) return nullptr;
  boost::shared_ptr<NCDataSet> source = project.LoadDataSet(from);
  if (!source) {
    throw NCError(ExceptionMessage::translate(
                      "Dataset {1} \"{2}\" was made from dataset {3}, which is gone.") %
                  derived.GetNumber() % derived.GetName() % from);
  }
  return source;
}

UpdateCommands::Lag UpdateCommands::Compare(const NCDataSet& derived, const NCDataSet& source) {
  const SourceBatches* then = derived.GetDerivedFromBatches();
  if (!then) return Lag();
  return then->LagBehind(detail::BatchesNow(source));
}

std::string UpdateCommands::Update(NCDataSet& derived, NCDataSet* source, bool& changed) {
  namespace d = detail;
  changed = false;
  const SourceBatches* then = derived.GetDerivedFromBatches();
  std::string log;
  NCIntegralVector<unsigned long, 0> own = derived.GetVarIDs();
  if (then && source) {
    const SourceBatches now = d::BatchesNow(*source);
    const Lag lag = then->LagBehind(now);
    if (lag.empty()) return NCMessages::Translate("up to date") + '\n';
    changed = true;
    // Everything new is made first: a refusal leaves `derived` as it was.
    std::unordered_set<std::string> wanted(lag.added.begin(), lag.added.end());
    wanted.insert(lag.changed.begin(), lag.changed.end());
    boost::shared_ptr<NCDataSet> made;
    if (!wanted.empty()) {
      const boost::shared_ptr<NCDataSet> part = d::BatchesOf(*source, wanted);
      try {
        made = d::Derive(derived, *part, log);
      } catch (const NCError& error) {
        throw NCError(ExceptionMessage::translate(
                          "Dataset {1} \"{2}\" cannot take the new batches as it was made: {3}") %
                      derived.GetNumber() % derived.GetName() % error.what());
      }
    }
    std::vector<std::string> leaving = lag.gone;
    leaving.insert(leaving.end(), lag.changed.begin(), lag.changed.end());
    d::RemoveBatches(derived, leaving);
    if (made && made->SizeObservations() > 0) {
      MuteUserComm mute;
      const ScopedUserComm quiet(&mute);
      if (!derived.Merge(*made, true, false, nullptr)) {
        throw NCError(ExceptionMessage::translate("Dataset \"{1}\" may not change.") %
                      derived.GetName());
      }
    }
    if (const DataSetAlignment* alignment = derived.GetAlignment()) {
      DataSetAlignment kept(*alignment);
      kept.SetSourceBatches(now);
      derived.SetAlignment(&kept);
    } else if (const CreateBatchLevelInfo* summary = derived.GetBatchLevelInfo()) {
      CreateBatchLevelInfo kept(*summary);
      kept.SetSourceBatches(now);
      derived.SetBatchLevelInfo(&kept);
    }
    log = (ExceptionMessage::translate(
               "Brought dataset {1} \"{2}\" up to date with dataset {3} \"{4}\": {5} batches "
               "added, {6} made again, {7} removed.\n") %
           derived.GetNumber() % derived.GetName() % source->GetNumber() % source->GetName() %
           lag.added.size() % lag.changed.size() % lag.gone.size())
              .str() +
          log;
    // Only the generated variables of the derived dataset's own: the source's come with it.
    const NCIntegralVector<unsigned long, 0> sourceIDs = source->GetVarIDs();
    own.clear();
    for (const unsigned long id : derived.GetVarIDs()) {
      if (sourceIDs.Find(id) < 0) own.push_back(id);
    }
  }
  if (NCDataSet::HasGeneratedVariables(*derived.GetProject(), own)) {
    // Only the columns recomputed can change: their values before, to tell whether they did.
    const NCIntegralVector<unsigned long, 0> columns = derived.GetVarIDs();
    std::vector<std::pair<std::size_t, std::vector<float>>> before;
    const NCVariables& variables = derived.GetProject()->GetVariables();
    for (const unsigned long id : own) {
      const VariableInfo* variable = variables[id];
      if (!variable || variable->GetRecipe().empty()) continue;
      const auto j = static_cast<std::size_t>(columns.Find(id));
      const float* values = derived.GetMatrix().ColumnData(j);
      before.emplace_back(j, std::vector<float>(values, values + derived.SizeObservations()));
    }
    const int count = GenVarFormula::RecomputeGeneratedVariables(derived, &own);
    bool same = true;
    for (const auto& [j, values] : before) {
      same = same && std::memcmp(values.data(), derived.GetMatrix().ColumnData(j),
                                 values.size() * sizeof(float)) == 0;
    }
    if (!same) {
      changed = true;
      log += (ExceptionMessage::translate("Recomputed {1} generated variables.\n") % count).str();
    }
  }
  if (!changed) return NCMessages::Translate("up to date") + '\n';
  return log;
}

}  // namespace ncds::tool
