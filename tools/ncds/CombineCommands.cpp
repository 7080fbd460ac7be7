#include "tools/ncds/CombineCommands.h"

#include <string_view>

#include "ncds/batch/BatchLevelComponent.h"
#include "ncds/batch/CreateBatchLevelInfo.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/FullCompoundDataset.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/DatasetMergeInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/project/NCProject.h"

namespace ncds::tool {
namespace {

// The variable ID of the dataset's column named `name` (exactly, else ignoring case).
std::uint32_t ColumnID(const NCDataSet& dataSet, const std::string& name) {
  int found = 0;
  for (int column = 1; column <= dataSet.SizeVariables(); ++column) {
    const std::string& id = dataSet.GetVariableID(column, 1);
    if (id == name) return static_cast<std::uint32_t>(dataSet.GetVarID(column));
    if (found == 0 && VxStdString::NoCaseEqual()(id, name)) found = column;
  }
  if (found == 0) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" has no variable {2}.") %
                  dataSet.GetName() % name);
  }
  return static_cast<std::uint32_t>(dataSet.GetVarID(found));
}

std::vector<std::string> SplitList(std::string_view list) {
  std::vector<std::string> items;
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    std::string_view item = list.substr(0, comma);
    while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
    while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
    if (!item.empty()) items.emplace_back(item);
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return items;
}

std::string NumberList(const std::vector<int>& numbers) {
  std::string list;
  for (const int number : numbers) list += (list.empty() ? "" : ", ") + std::to_string(number);
  return list;
}

// What a compound presents, or which of its members are gone.
ExceptionMessage Description(const CompoundDataset& compound) {
  if (!compound.GetMissingMembers().empty()) {
    return ExceptionMessage::translate(
               "Compound dataset {1} \"{2}\" is empty: its member "
               "datasets {3} are no longer in the project.") %
           compound.GetNumber() % compound.GetName() % NumberList(compound.GetMissingMembers());
  }
  return ExceptionMessage::translate(
             "Compound dataset {1} \"{2}\" of datasets {3}: {4} observations, {5} variables.") %
         compound.GetNumber() % compound.GetName() % NumberList(compound.GetMembers()) %
         compound.SizeObservations() % compound.SizeVariables();
}

}  // namespace

const char* const CombineCommands::kDefaultStatistics = "Mean,StdDev,Min,Max,Slope";

CreateBatchLevelInfo CombineCommands::DescribeSummary(const NCDataSet& dataSet,
                                                      const SummaryChoice& choice) {
  CreateBatchLevelInfo info;
  std::vector<std::uint32_t> ids;
  for (const std::string& list : choice.variables) {
    for (const std::string& name : SplitList(list)) ids.push_back(ColumnID(dataSet, name));
  }
  info.SetVariableIDs(std::move(ids));
  info.SetStatistics(SplitList(choice.statistics.empty() ? kDefaultStatistics : choice.statistics));
  info.SetByPhase(choice.byPhase);
  info.SetBatchConditions(choice.conditions);
  if (!choice.maturity.empty()) info.SetMaturityID(ColumnID(dataSet, choice.maturity));
  return info;
}

std::string CombineCommands::Summarize(const NCDataSet& dataSet, const SummaryChoice& choice,
                                       const std::string& name, int number,
                                       boost::shared_ptr<NCDataSet>& summary) {
  const BatchLevelComponent component(DescribeSummary(dataSet, choice));
  summary = component.Create(dataSet, name, number);
  return (ExceptionMessage::translate("Summarized {1} batches into {2} columns.") %
          summary->SizeObservations() % summary->SizeVariables())
             .str() +
         '\n';
}

std::string CombineCommands::Merge(NCDataSet& into, const NCDataSet& from, bool keep) {
  DatasetMergeInfo info;
  if (!into.Merge(from, !keep, false, &info)) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" may not change.") % into.GetName());
  }
  std::string log;
  for (const std::string& line : info.messages) {
    log += line;
    if (line.empty() || line.back() != '\n') log += '\n';
  }
  return log;
}

std::string CombineCommands::Combine(NCProject& project, const std::vector<int>& members,
                                     const std::string& name, int number) {
  project.SetCompoundDataset(
      CompoundDataset(project.shared_from_this(), name, number, std::vector<int>(members)));
  return Describe(*project.GetCompoundDataset(number)) + '\n';
}

std::string CombineCommands::Kind(const CompoundDataset& compound) {
  const std::string members = NumberList(compound.GetMembers());
  return compound.GetMissingMembers().empty()
             ? (ExceptionMessage::translate("compound of {1}") % members).str()
             : (ExceptionMessage::translate("compound of {1}, members missing") % members).str();
}

std::string CombineCommands::Describe(const CompoundDataset& compound) {
  return Description(compound).str();
}

boost::shared_ptr<NCDataSet> CombineCommands::Materialize(NCProject& project, int number) {
  const boost::shared_ptr<FullCompoundDataset> full = project.MakeFullCompoundDataset(number);
  const CompoundDataset& compound = *full->GetCompound();
  if (!compound.GetMissingMembers().empty()) throw NCError(Description(compound));
  VarObsInfoVector<ObservationInfo> rows = compound.GetObservationInfoVector();
  const NCIntegralVector<unsigned long, 0> columns = compound.GetVarIDs();
  return NCDataSet::Create(project.shared_from_this(), compound.GetName().c_str(), number,
                           full->GetData(false, nullptr), std::move(rows), &columns,
                           compound.GetUsedObsAliases(), compound.GetUsedVarAliases(), nullptr,
                           nullptr, nullptr);
}

}  // namespace ncds::tool
