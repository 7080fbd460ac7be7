#include "ncds/batch/BatchLevelComponent.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchStatistics.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/metadata/VariableInfo.h"

namespace ncds::detail {
namespace {

using BatchStatistics::Statistic;

// What a description asks of one source, resolved: the columns to summarize, the statistics,
// the phases ("" alone for whole batches) and the maturity column (-1: row positions).
struct SummaryPlan {
  std::vector<std::size_t> columns;
  std::vector<std::uint32_t> variableIDs;
  std::vector<Statistic> statistics;
  std::vector<std::string> statisticNames;
  std::vector<std::string> phases;
  std::ptrdiff_t maturity = -1;
};

const NCProjectBase& ProjectOf(const NCDataSet& source) {
  const boost::shared_ptr<NCProjectBase const> project = source.GetProject();
  if (!project || !source.GetBatchInfoVector()) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" is not a batch dataset.") %
                  source.GetName());
  }
  return *project;
}

SummaryPlan MakePlan(const CreateBatchLevelInfo& info, const NCDataSet& source) {
  const NCProjectBase& project = ProjectOf(source);
  const NCIntegralVector<unsigned long, 0> varIDs = source.GetVarIDs();
  SummaryPlan plan;
  const auto columnOf = [&](std::uint32_t id) -> std::ptrdiff_t { return varIDs.Find(id); };
  if (info.GetVariableIDs().empty()) {
    for (std::size_t c = 0; c < varIDs.size(); ++c) {
      const VariableInfo* variable = project.GetVariables()[varIDs[c]];
      if (variable && !variable->IsQualitative() && !variable->AsDateTimeVariableInfo()) {
        plan.columns.push_back(c);
        plan.variableIDs.push_back(static_cast<std::uint32_t>(varIDs[c]));
      }
    }
  } else {
    for (const std::uint32_t id : info.GetVariableIDs()) {
      const std::ptrdiff_t column = columnOf(id);
      if (column < 0) {
        throw NCError(
            ExceptionMessage::translate("Variable {1} is not a variable of dataset \"{2}\".") % id %
            source.GetName());
      }
      plan.columns.push_back(static_cast<std::size_t>(column));
      plan.variableIDs.push_back(id);
    }
  }
  for (const std::string& name : info.GetStatistics()) {
    Statistic statistic = Statistic::N;
    if (!BatchStatistics::Parse(name, statistic)) {
      throw NCError(ExceptionMessage::translate("{1} is not a statistic.") % name);
    }
    plan.statistics.push_back(statistic);
    plan.statisticNames.emplace_back(BatchStatistics::Name(statistic));
  }
  if (plan.statistics.empty()) {
    throw NCError(ExceptionMessage::translate("No statistics were chosen."));
  }
  if (info.GetMaturityID() != 0) {
    plan.maturity = columnOf(info.GetMaturityID());
    if (plan.maturity < 0) {
      throw NCError(
          ExceptionMessage::translate("The maturity is not a variable of dataset \"{1}\".") %
          source.GetName());
    }
  }
  if (!info.IsByPhase()) {
    plan.phases.emplace_back();
    return plan;
  }
  std::vector<std::string> known;
  if (const auto phases = source.GetPhaseInfoVector()) {
    known = BatchUtilities::GetPhaseNames(*phases, false)->GetVector();
  }
  plan.phases = info.GetPhases().empty() ? known : info.GetPhases();
  for (const std::string& phase : plan.phases) {
    if (std::find(known.begin(), known.end(), phase) == known.end()) {
      throw NCError(ExceptionMessage::translate("Dataset \"{1}\" has no phase {2}.") %
                    source.GetName() % phase);
    }
  }
  if (plan.phases.empty()) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" has no phases.") % source.GetName());
  }
  return plan;
}

std::vector<std::string> ColumnNames(const SummaryPlan& plan, const NCProjectBase& project) {
  std::vector<std::string> names;
  names.reserve(plan.columns.size() * plan.phases.size() * plan.statistics.size());
  for (const std::uint32_t id : plan.variableIDs) {
    const VariableInfo* variable = project.GetVariables()[id];
    const std::string base = variable ? variable->GetPrimaryAlias() : std::to_string(id);
    for (const std::string& phase : plan.phases) {
      const std::string stem = phase.empty() ? base + "_" : base + "_" + phase + "_";
      for (const std::string& statistic : plan.statisticNames) names.push_back(stem + statistic);
    }
  }
  return names;
}

bool KeepsUnit(Statistic statistic) {
  switch (statistic) {
    case Statistic::First:
    case Statistic::Last:
    case Statistic::Min:
    case Statistic::Max:
    case Statistic::Range:
    case Statistic::Mean:
    case Statistic::Median:
    case Statistic::StdDev:
      return true;
    default:
      return false;
  }
}

// The included batches of the rows, in row order: their name, record and rows [begin, end).
struct BatchRun {
  std::string name;
  boost::shared_ptr<BatchInfo const> info;
  std::size_t begin = 0;
  std::size_t end = 0;
};

std::vector<BatchRun> IncludedBatches(const NCDataSet& source, const NCObservations& observations) {
  const auto& rows = source.GetObservationInfoVector();
  std::unordered_map<std::string, boost::shared_ptr<BatchInfo const>> byName;
  for (const auto& batch : *source.GetBatchInfoVector()) {
    if (batch) byName.emplace(batch->GetBatchName(), batch);
  }
  std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, false);
  starts.push_back(static_cast<int>(rows.size()) + 1);
  std::vector<BatchRun> batches;
  for (std::size_t b = 0; b + 1 < starts.size(); ++b) {
    const ObservationInfo* head = rows[static_cast<std::size_t>(starts[b] - 1)];
    BatchRun run;
    run.name = head ? head->GetBatchName(observations) : std::string();
    const auto found = byName.find(run.name);
    if (found != byName.end()) run.info = found->second;
    if (run.info && !run.info->IsIncluded()) continue;
    run.begin = static_cast<std::size_t>(starts[b] - 1);
    run.end = static_cast<std::size_t>(starts[b + 1] - 1);
    batches.push_back(std::move(run));
  }
  return batches;
}

// runs[p][b]: the rows of phase p in batch b (empty when the batch lacks it).
std::vector<std::vector<BatchStatistics::Run>> PhaseRuns(const NCDataSet& source,
                                                         const NCObservations& observations,
                                                         const std::vector<BatchRun>& batches,
                                                         const std::vector<std::string>& phases) {
  const std::size_t batchCount = batches.size();
  std::vector<std::vector<BatchStatistics::Run>> runs(
      phases.size(), std::vector<BatchStatistics::Run>(batchCount));
  if (phases.size() == 1 && phases.front().empty()) {
    for (std::size_t b = 0; b < batchCount; ++b) runs[0][b] = {batches[b].begin, batches[b].end};
    return runs;
  }
  const auto& rows = source.GetObservationInfoVector();
  std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, true);
  starts.push_back(static_cast<int>(rows.size()) + 1);
  std::unordered_map<std::string, std::size_t> phaseIndex;
  for (std::size_t p = 0; p < phases.size(); ++p) phaseIndex.emplace(phases[p], p);
  std::size_t b = 0;
  for (std::size_t r = 0; r + 1 < starts.size() && b < batchCount; ++r) {
    const auto begin = static_cast<std::size_t>(starts[r] - 1);
    const auto end = static_cast<std::size_t>(starts[r + 1] - 1);
    while (b < batchCount && begin >= batches[b].end) ++b;
    if (b == batchCount || begin < batches[b].begin) continue;  // an excluded batch
    const ObservationInfo* row = rows[begin];
    const auto found = phaseIndex.find(row ? row->GetPhaseName(observations) : std::string());
    if (found == phaseIndex.end()) continue;
    BatchStatistics::Run& run = runs[found->second][b];
    if (run.end > run.begin) {
      throw NCError(ExceptionMessage::translate("Phase {1} of batch {2} is not in one piece.") %
                    found->first % batches[b].name);
    }
    run = {begin, end};
  }
  return runs;
}

}  // namespace
}  // namespace ncds::detail

BatchLevelComponent::BatchLevelComponent(CreateBatchLevelInfo info) : mInfo(std::move(info)) {}

std::vector<std::string> BatchLevelComponent::GetColumnNames(const NCDataSet& source) const {
  namespace d = ncds::detail;
  return d::ColumnNames(d::MakePlan(mInfo, source), d::ProjectOf(source));
}

boost::shared_ptr<NCDataSet> BatchLevelComponent::Create(const NCDataSet& source,
                                                         const std::string& name,
                                                         int number) const {
  namespace d = ncds::detail;
  const d::SummaryPlan plan = d::MakePlan(mInfo, source);
  const boost::shared_ptr<NCProjectBase> project =
      boost::const_pointer_cast<NCProjectBase>(source.GetProject());
  NCObservations& observations = project->GetObservations();
  NCVariables& variables = project->GetVariables();
  const std::vector<d::BatchRun> batches = d::IncludedBatches(source, observations);
  const std::vector<std::vector<BatchStatistics::Run>> runs =
      d::PhaseRuns(source, observations, batches, plan.phases);
  const std::size_t batchCount = batches.size();
  const std::size_t phaseCount = plan.phases.size();
  const std::size_t statCount = plan.statistics.size();
  const BatchInfoVector& batchInfos = *source.GetBatchInfoVector();
  const NCIntegralVector<unsigned long, 0>& conditionIDs = batchInfos.GetBCVariableIDs();
  const std::size_t conditionCount = mInfo.HasBatchConditions() ? conditionIDs.size() : 0;
  const std::size_t summaryColumns = plan.columns.size() * phaseCount * statCount;

  // The statistics, straight into the new matrix.
  NCDataMatrix<float> values(batchCount, summaryColumns + conditionCount);
  const NCDataMatrix<float>& data = source.GetMatrix();
  const float* maturity =
      plan.maturity < 0 ? nullptr : data.ColumnData(static_cast<std::size_t>(plan.maturity));
  std::vector<float> scratch;
  NCProgress progress(
      (ExceptionMessage::translate("Summarizing dataset \"{1}\"...") % source.GetName()).str(), 0,
      static_cast<float>(plan.columns.size()), true, false, false);
  // A new matrix holds its columns back to back, batchCount floats apart: the statistics of
  // one variable and phase fill statCount adjacent columns in one call.
  for (std::size_t v = 0; v < plan.columns.size() && batchCount > 0; ++v) {
    if (!progress.SetValue(static_cast<float>(v))) {
      throw NCError(ExceptionMessage::translate("Summarizing was cancelled."));
    }
    const float* column = data.ColumnData(plan.columns[v]);
    for (std::size_t p = 0; p < phaseCount; ++p) {
      BatchStatistics::Compute(column, maturity, runs[p], plan.statistics,
                               values.ColumnData((v * phaseCount + p) * statCount), scratch);
    }
  }
  for (std::size_t c = 0; c < conditionCount; ++c) {
    float* column = values.ColumnData(summaryColumns + c);
    for (std::size_t b = 0; b < batchCount; ++b) {
      const NCDataVector<float>* conditions =
          batches[b].info ? batches[b].info->GetBatchConditionValues() : nullptr;
      column[b] = conditions && c < conditions->size() ? (*conditions)[c] : -99.0F;
    }
  }

  // The columns' variables: taken by name where the project has a fitting one, made otherwise.
  const std::vector<std::string> names = d::ColumnNames(plan, *project);
  const NCIntegralVector<unsigned long, 0> sourceIDs = source.GetVarIDs();
  const std::set<unsigned long> sourceSet(sourceIDs.begin(), sourceIDs.end());
  std::set<unsigned long> used(conditionIDs.begin(), conditionIDs.begin() + conditionCount);
  NCIntegralVector<unsigned long, 0> columnIDs;
  columnIDs.reserve(summaryColumns + conditionCount);
  NCIntegralVector<unsigned long, 0> addedVariables;
  NCIntegralVector<unsigned long, 0> addedRows;
  try {
    const boost::shared_ptr<InfosByUserID> lookup = variables.GetInfosByUserID(1);
    std::set<std::string> taken;
    for (std::size_t c = 0; c < names.size(); ++c) {
      const auto* existing = lookup->GetInfo(names[c]);
      const VariableInfo* variable = existing ? existing->AsVariableInfo() : nullptr;
      if (variable && !variable->IsQualitative() && !variable->AsDateTimeVariableInfo() &&
          sourceSet.count(variable->GetUniqueID()) == 0 &&
          used.insert(variable->GetUniqueID()).second) {
        columnIDs.push_back(variable->GetUniqueID());
        continue;
      }
      const std::string unique = VarObs::GetUniquePrimaryID(names[c], *lookup, &taken);
      taken.insert(unique);
      const unsigned long id = project->CreateUniqueID();
      auto made = std::make_unique<QuantitativeVariableInfo>(unique, id);
      const VariableInfo* from = variables[plan.variableIDs[c / (phaseCount * statCount)]];
      if (from && d::KeepsUnit(plan.statistics[c % statCount])) made->SetUnit(from->GetUnit());
      variables.Add(std::move(made), nullptr);
      addedVariables.push_back(id);
      used.insert(id);
      columnIDs.push_back(id);
    }
    for (std::size_t c = 0; c < conditionCount; ++c) columnIDs.push_back(conditionIDs[c]);

    // One row per batch, named by it.
    const int batchSeries = observations.GetBatchIDRaw();
    std::vector<std::string> ids(static_cast<std::size_t>(std::max(1, batchSeries)));
    VarObsInfoVector<ObservationInfo> rows;
    rows.reserve(batchCount);
    observations.Reserve(batchCount);
    for (const d::BatchRun& batch : batches) {
      std::fill(ids.begin(), ids.end(), std::string());
      ids[0] = batch.name;
      if (batchSeries > 0) ids[static_cast<std::size_t>(batchSeries - 1)] = batch.name;
      const unsigned long id = project->CreateUniqueID();
      rows.push_back(observations.Add(std::make_unique<ObservationInfo>(ids, id), nullptr));
      addedRows.push_back(id);
    }
    std::vector<int> aliases{1};
    if (batchSeries > 1) aliases.push_back(batchSeries);
    const std::string log = (ExceptionMessage::translate("Summarized from dataset {1} \"{2}\".") %
                             source.GetNumber() % source.GetName())
                                .str();
    boost::shared_ptr<NCDataSet> result = NCDataSet::Create(
        project, name.c_str(), number, std::move(values), std::move(rows), &columnIDs, aliases,
        source.GetUsedVarAliases(), log.c_str(), nullptr, nullptr);
    CreateBatchLevelInfo kept = mInfo;
    kept.SetVariableIDs(plan.variableIDs);
    kept.SetPhases(mInfo.IsByPhase() ? plan.phases : std::vector<std::string>());
    kept.SetStatistics(plan.statisticNames);
    kept.SetSourceNumber(source.GetNumber());
    kept.SetSourceBatches(SourceBatches::Of(observations, source.GetObservationInfoVector()));
    result->SetBatchLevelInfo(&kept);
    return result;
  } catch (...) {
    observations.DeleteVarObsInfos(addedRows);
    variables.DeleteVarObsInfos(addedVariables);
    throw;
  }
}
