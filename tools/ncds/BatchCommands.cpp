#include "tools/ncds/BatchCommands.h"

#include <boost/shared_ptr.hpp>
#include <map>
#include <ostream>
#include <set>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/batch/ClassInfo.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/batch/ConditionalDeleteBatchAndPhase.h"
#include "ncds/batch/DataSetAlignment.h"
#include "ncds/dataset/DatasetComponents.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/Messages.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/smoothing/Smooth.h"
#include "tools/ncds/TextTable.h"

namespace ncds::tool {
namespace detail {
namespace {

void RequireBatches(const NCDataSet& dataSet) {
  if (!dataSet.GetBatchInfoVector()) {
    throw NCError(ExceptionMessage::translate("Dataset {1} \"{2}\" is not a batch dataset.") %
                  dataSet.GetNumber() % dataSet.GetName());
  }
}

// The rows carry the phases' current names, which the deletion matches as original names.
void StartFromCurrentNames(DatasetComponents& components) {
  if (ClassInfoVector* phases = components.GetPhaseInfoVector()) {
    for (const auto& phase : *phases) {
      if (phase) phase->SetOriginalName(phase->GetPhaseName().c_str());
    }
  }
}

std::string Run(NCDataSet& dataSet, DatasetComponents& components) {
  std::string log;
  ConditionalDeleteBatchAndPhase(&components).UpdateDataAccordingToBatchAndPhaseInfo(&log);
  if (!components.Apply(false)) {
    throw NCError(ExceptionMessage::translate("The project refused the change to dataset {1}.") %
                  dataSet.GetNumber());
  }
  return log;
}

[[noreturn]] void ThrowNoBatch(const NCDataSet& dataSet, const std::string& batch) {
  throw NCError(ExceptionMessage::translate("Dataset {1} has no batch \"{2}\" (names are "
                                            "case-sensitive; `ncds batches` lists them).") %
                dataSet.GetNumber() % batch);
}

}  // namespace
}  // namespace detail

void BatchCommands::PrintBatches(const NCDataSet& dataSet, std::ostream& out) {
  detail::RequireBatches(dataSet);
  TextTable table;
  table.AddRow({NCMessages::Translate("column header", "Batch"),
                NCMessages::Translate("column header", "Included"),
                NCMessages::Translate("column header", "Observations"),
                NCMessages::Translate("column header", "Phases")});
  for (const auto& batch : *dataSet.GetBatchInfoVector()) {
    if (!batch) continue;
    std::string phases;
    if (const ClassInfoVector* own = batch->GetClassVector()) {
      for (const auto& phase : *own) {
        if (!phase) continue;
        if (!phases.empty()) phases += ", ";
        phases += phase->GetPhaseName() + ' ' + std::to_string(phase->GetNumObs());
      }
    }
    table.AddRow({batch->GetBatchName(),
                  batch->IsIncluded() ? NCMessages::Translate("yes") : NCMessages::Translate("no"),
                  std::to_string(batch->GetNumObs(nullptr, true)), phases});
  }
  table.Print(out);
}

std::string BatchCommands::Describe(const NCDataSet& dataSet) {
  const auto batches = dataSet.GetBatchInfoVector();
  if (!batches) return std::string();
  const auto phases = dataSet.GetPhaseInfoVector();
  return (ExceptionMessage::translate("{1} batches, {2} phases") % batches->size() %
          (phases ? phases->size() : 0))
      .str();
}

std::string BatchCommands::DeleteBatches(NCDataSet& dataSet,
                                         const std::vector<std::string>& batches,
                                         const std::vector<PhaseChoice>& phases) {
  detail::RequireBatches(dataSet);
  DatasetComponents components(dataSet.shared_from_this());
  detail::StartFromCurrentNames(components);
  BatchInfoVector& vector = *components.GetBatchInfoVector();
  for (const std::string& name : batches) {
    const auto batch = BatchUtilities::FindBatch(&vector, name.c_str());
    if (!batch) detail::ThrowNoBatch(dataSet, name);
    batch->SetIncluded(false);
  }
  for (const PhaseChoice& choice : phases) {
    if (!choice.batch.empty() && !BatchUtilities::FindBatch(&vector, choice.batch.c_str())) {
      detail::ThrowNoBatch(dataSet, choice.batch);
    }
    bool found = false;
    for (const auto& batch : vector) {
      if (!batch || (!choice.batch.empty() && batch->GetBatchName() != choice.batch)) continue;
      const auto phase =
          BatchUtilities::FindPhase(batch->GetClassVector(), choice.phase.c_str(), false);
      if (!phase) continue;
      phase->SetIncluded(false);
      found = true;
    }
    if (!found) {
      throw NCError(choice.batch.empty()
                        ? ExceptionMessage::translate("Dataset {1} has no phase \"{2}\".") %
                              dataSet.GetNumber() % choice.phase
                        : ExceptionMessage::translate("Batch \"{1}\" has no phase \"{2}\".") %
                              choice.batch % choice.phase);
    }
  }
  bool anyLeft = false;
  for (const auto& batch : vector) {
    anyLeft = anyLeft || (batch && batch->IsIncluded() &&
                          (!batch->GetClassVector() || batch->GetNumObs(nullptr, false) > 0));
  }
  if (!anyLeft) {
    throw NCError(ExceptionMessage::translate(
                      "That would delete every batch of dataset {1}; delete the dataset "
                      "instead (`ncds delete`).") %
                  dataSet.GetNumber());
  }
  return detail::Run(dataSet, components);
}

int BatchCommands::CountRowsWithoutRecord(const NCDataSet& dataSet) {
  int lost = 0;
  for (const ObservationInfo* row : dataSet.GetObservationInfoVector()) lost += row ? 0 : 1;
  return lost;
}

int BatchCommands::DropRowsWithoutRecord(NCDataSet& dataSet) {
  DatasetComponents components(dataSet.shared_from_this());
  const VarObsInfoVector<ObservationInfo>& rows = components.GetObservationInfos();
  const int size = static_cast<int>(rows.size());
  int dropped = 0;
  int position = 1;
  // Marks the rows without a record among the next `count` rows; returns how many.
  const auto drop = [&](int count) {
    int lost = 0;
    for (int k = 0; k < count && position <= size; ++k, ++position) {
      if (rows[static_cast<std::size_t>(position - 1)]) continue;
      components.RemoveObservations(position, 1);
      ++lost;
    }
    dropped += lost;
    return lost;
  };
  if (BatchInfoVector* batches = components.GetBatchInfoVector()) {
    // The lost rows leave the counts of their batch and phase.
    for (const auto& batch : *batches) {
      if (!batch) continue;
      if (ClassInfoVector* phases = batch->GetClassVector()) {
        for (const auto& phase : *phases) {
          if (phase) phase->SetNumObs(phase->GetNumObs() - drop(phase->GetNumObs()));
        }
        batch->SetNumObs(batch->GetNumObs(nullptr, true));
      } else {
        const int count = batch->GetNumObs(nullptr, true);
        batch->SetNumObs(count - drop(count));
      }
    }
  } else {
    drop(size);
  }
  if (dropped > 0) detail::Run(dataSet, components);
  return dropped;
}

std::string BatchCommands::RenamePhase(NCDataSet& dataSet, const std::string& from,
                                       const std::string& to) {
  detail::RequireBatches(dataSet);
  if (to.empty()) throw NCError(ExceptionMessage::translate("A phase name cannot be empty."));
  DatasetComponents components(dataSet.shared_from_this());
  detail::StartFromCurrentNames(components);
  ClassInfoVector* phases = components.GetPhaseInfoVector();
  const auto phase = BatchUtilities::FindPhase(phases, from.c_str(), false);
  if (!phase) {
    throw NCError(ExceptionMessage::translate("Dataset {1} has no phase \"{2}\".") %
                  dataSet.GetNumber() % from);
  }
  // Each batch must still hold one run per phase name.
  for (const auto& batch : *components.GetBatchInfoVector()) {
    const ClassInfoVector* own = batch ? batch->GetClassVector() : nullptr;
    if (!own) continue;
    std::set<std::string> seen;
    std::string last;
    for (const auto& record : *own) {
      if (!record) continue;
      const std::string name = record->GetPhaseName() == from ? to : record->GetPhaseName();
      if (name == last) continue;
      if (!seen.insert(name).second) {
        throw NCError(ExceptionMessage::translate(
                          "Renaming phase \"{1}\" to \"{2}\" would split phase \"{2}\" in batch "
                          "\"{3}\": the rows of a phase must follow each other.") %
                      from % to % batch->GetBatchName());
      }
      last = name;
    }
  }
  phase->SetPhaseName(to.c_str());
  return detail::Run(dataSet, components);
}

DataSetAlignment BatchCommands::MakeAlignment(NCDataSet& dataSet, const AlignChoice& choice) {
  const boost::shared_ptr<NCProjectBase> project = dataSet.GetProject();
  if (!project || !dataSet.GetBatchInfoVector()) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" is not a batch dataset.") %
                  dataSet.GetName());
  }
  if (choice.maturity == BatchInfo::GetGeneratedTimeVariableName()) {
    // Made (or brought up to date) from the dataset's time, or the rows' positions.
    BatchImportSettings settings(project->GetBatchImportSettings());
    if (!Smooth::CreateAndInsert_DollarTime(dataSet.shared_from_this(), &settings)) {
      throw NCError(ExceptionMessage::translate("{1} cannot be made for dataset \"{2}\".") %
                    choice.maturity % dataSet.GetName());
    }
    project->SetBatchImportSettings(settings);
  }
  // The dataset's own column of that name (names may differ from the project's first one).
  unsigned long maturity = 0;
  for (int column = 1; column <= dataSet.SizeVariables() && maturity == 0; ++column) {
    if (dataSet.GetVariableID(column, 1) == choice.maturity) maturity = dataSet.GetVarID(column);
  }
  if (maturity == 0) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" has no variable {2}.") %
                  dataSet.GetName() % choice.maturity);
  }
  return MakeAlignment(maturity, choice);
}

DataSetAlignment BatchCommands::MakeAlignment(unsigned long maturity, const AlignChoice& choice) {
  DataSetAlignment alignment(maturity, choice.points);
  alignment.SetPhasePoints(choice.phasePoints);
  alignment.SetRelative(choice.relative);
  alignment.SetSmoothed(choice.smooth);
  alignment.SetExtended(choice.extend);
  alignment.SetExtent(choice.extent);
  return alignment;
}

namespace {

// What `apply` gives; a maturity that turns back without smoothing is refused with a hint.
template <class Apply>
auto WithSmoothingHint(const BatchCommands::AlignChoice& choice, Apply apply) {
  try {
    return apply();
  } catch (const NCError& error) {
    if (choice.smooth || std::string(error.what()).find("monotone") == std::string::npos) throw;
    throw NCError(ExceptionMessage::translate("{1} Use --smooth to make it monotone first.") %
                  error.what());
  }
}

}  // namespace

DataSetAlignment::RowsResult BatchCommands::AlignRows(const DataSetAlignment::Rows& rows,
                                                      const AlignChoice& choice) {
  DataSetAlignment alignment = MakeAlignment(0, choice);
  return WithSmoothingHint(choice, [&] { return alignment.Apply(rows); });
}

std::string BatchCommands::Align(NCDataSet& dataSet, const AlignChoice& choice,
                                 const std::string& name, int number,
                                 boost::shared_ptr<NCDataSet>& aligned) {
  DataSetAlignment alignment = MakeAlignment(dataSet, choice);
  const DataSetAlignment::Result result =
      WithSmoothingHint(choice, [&] { return alignment.Apply(dataSet, name, number); });
  aligned = result.dataSet;
  std::string line = (ExceptionMessage::translate("Aligned {1} batches onto {2} points each") %
                      result.batches % result.points)
                         .str();
  if (result.shortBatches > 0) {
    ExceptionMessage shortBatches =
        choice.extend ? ExceptionMessage::translate("; {1} short batches extended")
                      : ExceptionMessage::translate("; {1} short batches end in missing values");
    line += (shortBatches % result.shortBatches).str();
  }
  if (result.missingBatches > 0) {
    line += (ExceptionMessage::translate("; {1} batches left missing (fewer than two maturities)") %
             result.missingBatches)
                .str();
  }
  return line + ".\n";
}

}  // namespace ncds::tool
