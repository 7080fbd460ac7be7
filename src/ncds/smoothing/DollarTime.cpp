// The generated time variable "$Time" of batch data: the time since the start of each batch.

#include <boost/shared_ptr.hpp>
#include <cmath>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxTimeUtl.h"
#include "ncds/metadata/DateTimeVariableInfo.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/smoothing/Smooth.h"

namespace Smooth {
namespace {

constexpr float kMissing = -99.0F;
constexpr long double kSecondsPerHour = 3600;

// Where the rows' times come from: a column, or (no variable) the rows' positions.
struct TimeSource {
  const VariableInfo* variable = nullptr;
  int column = 0;  // 1-based
  const DateTimeVariableInfo* dateTime = nullptr;
};

bool IsTimeOf(const VariableInfo& info, const char* name, bool ignoreCase) {
  if (info.GetNumIDs() == 0 || !info.AsQuantitativeVariableInfo()) return false;
  return ignoreCase ? VxStdString::CompareNoCase(info.GetPrimaryAlias(), name) == 0
                    : info.GetPrimaryAlias() == name;
}

TimeSource FindTimeSource(const NCDataSet& dataset, const NCVariables& variables) {
  TimeSource named;
  for (int column = 1; column <= dataset.SizeVariables(); ++column) {
    const VariableInfo* info = variables[dataset.GetVarID(column)];
    if (!info) continue;
    const DateTimeVariableInfo* dateTime = info->AsDateTimeVariableInfo();
    // A date-time variable without a unit of time cannot tell durations.
    if (dateTime && dateTime->GetTimeAccuracy() >= VxTimeUtl::eYear &&
        dateTime->GetTimeAccuracy() <= VxTimeUtl::eSecond) {
      return {info, column, dateTime};
    }
    if (!named.variable && IsTimeOf(*info, "Time", true)) named = {info, column, nullptr};
  }
  return named;
}

// The 0-based first row of every batch, then the row count.
std::vector<std::size_t> BatchBounds(const NCDataSet& dataset, const NCObservations& observations,
                                     const BatchInfoVector& batches) {
  const auto rows = static_cast<std::size_t>(dataset.SizeObservations());
  std::vector<std::size_t> bounds;
  if (observations.HasBatches()) {
    // The rows themselves tell their batches, even when the batch records are out of date.
    for (const int start :
         BatchUtilities::GetRunStarts(observations, dataset.GetObservationInfoVector(), false)) {
      bounds.push_back(static_cast<std::size_t>(start - 1));
    }
  } else {
    std::size_t start = 0;
    for (const auto& batch : batches) {
      if (start >= rows) break;
      bounds.push_back(start);
      const int count = batch ? batch->GetNumObs(nullptr, true) : 0;
      start += static_cast<std::size_t>(count > 0 ? count : 0);
    }
    if (start < rows) bounds.push_back(start);
  }
  bounds.push_back(rows);
  return bounds;
}

// The time of 0-based `row`, `position` (1-based) in its batch; false when it is missing.
bool RowTime(const NCDataSet& dataset, const TimeSource& source, std::size_t row, int position,
             long double& time) {
  if (!source.variable) {
    time = position;
    return true;
  }
  const float value = dataset.GetValue(static_cast<int>(row) + 1, source.column);
  if (value == kMissing || !std::isfinite(value)) return false;
  time = source.dateTime ? source.dateTime->ToSeconds(value) / kSecondsPerHour : value;
  return true;
}

std::vector<float> TimesSinceStart(const NCDataSet& dataset, const TimeSource& source,
                                   const std::vector<std::size_t>& bounds) {
  std::vector<float> times(static_cast<std::size_t>(dataset.SizeObservations()), kMissing);
  for (std::size_t batch = 0; batch + 1 < bounds.size(); ++batch) {
    bool started = false;
    long double start = 0;
    for (std::size_t row = bounds[batch]; row < bounds[batch + 1]; ++row) {
      long double time = 0;
      if (!RowTime(dataset, source, row, static_cast<int>(row - bounds[batch]) + 1, time)) {
        continue;
      }
      if (!started) {
        start = time;
        started = true;
      }
      const auto since = static_cast<float>(time - start);
      times[row] = since == kMissing ? std::nextafter(kMissing, 0.0F) : since;
    }
  }
  return times;
}

// The 1-based column of the dataset's $Time, or 0.
int FindTimeColumn(const NCDataSet& dataset, const NCVariables& variables) {
  for (int column = 1; column <= dataset.SizeVariables(); ++column) {
    const VariableInfo* info = variables[dataset.GetVarID(column)];
    if (info && IsTimeOf(*info, BatchInfo::GetGeneratedTimeVariableName(), false)) return column;
  }
  return 0;
}

// Appends a column for $Time holding `times`: the project's $Time variable, or a new one. The
// dataset and the project stay as they were when the change check refuses.
int AppendTimeColumn(NCDataSet& dataset, NCProjectBase& project, const std::vector<float>& times) {
  NCVariables& variables = project.GetVariables();
  const bool wasDirty = variables.IsDirty();
  const char* name = BatchInfo::GetGeneratedTimeVariableName();
  const VarObsInfo* known = variables.GetInfosByUserID(1)->GetInfo(name);
  const VariableInfo* reused = known ? known->AsVariableInfo() : nullptr;
  NCIntegralVector<unsigned long, 0> ids;
  if (reused && IsTimeOf(*reused, name, false)) {
    ids.push_back(reused->GetUniqueID());
  } else {
    ids.push_back(project.CreateUniqueID());
    auto created = std::make_unique<QuantitativeVariableInfo>(name, ids[0]);
    // Time is what the batches evolve along: the Y of batch models.
    created->SetVariableBlock(variables.IncludedYExsists() ? VariableInfo::eExcludedY
                                                           : VariableInfo::eY);
    variables.Add(std::move(created));
  }
  const bool isNew = !reused || reused->GetUniqueID() != ids[0];
  const int column = dataset.SizeVariables() + 1;
  if (dataset.AddVariables(&ids, column, false)) {
    if (dataset.SetColValues(times.data(), column)) return column;
    NCIntegralVector<int, -99> added(1, column);
    dataset.RemoveVariable(&added, false, true);
  }
  if (isNew) {
    variables.DeleteVarObsInfos(ids);
    variables.SetIsDirty(wasDirty);
  }
  return 0;
}

}  // namespace

bool CreateAndInsert_DollarTime(boost::shared_ptr<NCDataSet> dataset,
                                BatchImportSettings* settings) {
  if (!dataset) return false;
  const boost::shared_ptr<NCProjectBase> project = dataset->GetProject();
  const boost::shared_ptr<BatchInfoVector const> batches = dataset->GetBatchInfoVector();
  if (!project || !batches) return false;
  NCVariables& variables = project->GetVariables();

  const TimeSource source = FindTimeSource(*dataset, variables);
  const std::vector<float> times = TimesSinceStart(
      *dataset, source, BatchBounds(*dataset, project->GetObservations(), *batches));

  int column = FindTimeColumn(*dataset, variables);
  if (column > 0) {
    if (!dataset->SetColValues(times.data(), column)) return false;
  } else {
    column = AppendTimeColumn(*dataset, *project, times);
    if (column == 0) return false;
  }

  const unsigned long timeID = dataset->GetVarID(column);
  VariableInfo& time = *variables[timeID];
  const std::string unit = source.dateTime   ? std::string("h")
                           : source.variable ? source.variable->GetUnit()
                                             : "";
  if (time.GetUnit() != unit) {
    time.SetUnit(unit);
    variables.SetIsDirty(true);
  }
  if (settings) {
    if (source.variable) {
      settings->SetSourceVar(timeID, source.variable->GetUniqueID());
    } else if (settings->GetSourceVars().count(timeID) != 0) {
      settings->SetSourceVar(timeID, NCUniqueIDs::kNone);
    }
  }
  return true;
}

}  // namespace Smooth
