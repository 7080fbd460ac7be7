#include "tools/ncds/DerivedCommands.h"

#include <boost/shared_ptr.hpp>
#include <optional>
#include <ostream>
#include <set>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/GenVarFormula.h"
#include "ncds/derived/GenVarUtilities.h"
#include "ncds/derived/LocalCenteringInfo.h"
#include "ncds/foundations/ConfigurationSection.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/VariableInfo.h"
#include "tools/ncds/CsvCellParser.h"
#include "tools/ncds/CsvReader.h"
#include "tools/ncds/MappedFile.h"
#include "tools/ncds/TextTable.h"

namespace ncds::tool {
namespace {

constexpr float kMissing = -99.0F;

bool EndsWithXml(const std::string& path) {
  return path.size() >= 4 &&
         VxStdString::NoCaseEqual()(std::string_view(path).substr(path.size() - 4), ".xml");
}

LocalCenteringInfo ReadCsvCenters(const std::string& path, char separator) {
  const MappedFile file(path);
  CsvReader reader(file.GetText(), path, separator);
  CsvRow row;
  if (!reader.ReadRow(row)) {
    throw NCError(ExceptionMessage::translate("{1} holds no centers.") % path);
  }
  // The position of each named column in the header.
  const char* const names[] = {"batch", "phase", "variable", "center"};
  std::optional<std::size_t> columns[4];
  for (std::size_t k = 0; k < row.size(); ++k) {
    const std::string_view header = CsvCellParser::Trim(row[k]);
    for (std::size_t n = 0; n < 4; ++n) {
      if (!columns[n] && VxStdString::NoCaseEqual()(header, names[n])) columns[n] = k;
    }
  }
  for (std::size_t n : {0, 2, 3}) {
    if (!columns[n]) {
      throw NCError(ExceptionMessage::translate(
                        "{1}: the header has no column \"{2}\"; centers need the columns batch, "
                        "phase (optional), variable and center.") %
                    path % names[n]);
    }
  }
  const CsvCellParser cells('.', {});
  LocalCenteringInfo centers;
  while (reader.ReadRow(row)) {
    const auto text = [&row](std::size_t column) {
      return std::string(CsvCellParser::Trim(row[column]));
    };
    const std::string_view centerText = CsvCellParser::Trim(row[*columns[3]]);
    float center = kMissing;
    if (!cells.IsMissing(centerText) &&
        cells.ParseNumber(centerText, center) != CsvCellParser::NumberResult::eNumber) {
      throw NCError(
          ExceptionMessage::translate("{1}, line {2}: the center \"{3}\" is not a number.") % path %
          row.GetLine(*columns[3]) % std::string(centerText));
    }
    centers.AddData(text(*columns[0]).c_str(), columns[1] ? text(*columns[1]).c_str() : "",
                    text(*columns[2]).c_str(), center);
  }
  return centers;
}

}  // namespace

LocalCenteringInfo DerivedCommands::ReadCenters(const std::string& path, char separator) {
  LocalCenteringInfo centers;
  if (EndsWithXml(path)) {
    ConfigurationSection configuration;
    configuration.LoadFile(path);
    centers.Load(&configuration);
  } else {
    centers = ReadCsvCenters(path, separator);
  }
  if (centers.SizeTrippel() == 0) {
    throw NCError(ExceptionMessage::translate("{1} holds no centers.") % path);
  }
  return centers;
}

std::string DerivedCommands::Center(NCDataSet& dataSet, const LocalCenteringInfo& centers) {
  // Centers of a variable the dataset lacks are refused by name, before anything is stored.
  const boost::shared_ptr<NCProjectBase const> project = dataSet.GetProject();
  std::unordered_set<std::string, VxStdString::NoCaseHash, VxStdString::NoCaseEqual> columns;
  for (int j = 1; project && j <= dataSet.SizeVariables(); ++j) {
    if (const VariableInfo* info = project->GetVariables()[dataSet.GetVarID(j)]) {
      columns.insert(info->GetUserID(1));
    }
  }
  for (auto triple = centers.BeginTrippel(); triple != centers.EndTrippel(); ++triple) {
    if (columns.count(triple->first.GetVariable()) == 0) {
      throw NCError(
          ExceptionMessage::translate(
              "Dataset {1} \"{2}\" has no variable \"{3}\", for which a center is given.") %
          dataSet.GetNumber() % dataSet.GetName() % triple->first.GetVariable());
    }
  }
  dataSet.ImportLocalCenters(centers);
  std::set<std::string> batches;
  std::set<std::string> variables;
  std::size_t stored = 0;
  for (auto triple = centers.BeginTrippel(); triple != centers.EndTrippel(); ++triple) {
    if (triple->second == kMissing) continue;
    ++stored;
    batches.insert(triple->first.GetBatch());
    variables.insert(triple->first.GetVariable());
  }
  return (ExceptionMessage::translate(
              "Stored {1} centers of {2} variables in {3} batches with dataset {4} \"{5}\".") %
          stored % variables.size() % batches.size() % dataSet.GetNumber() % dataSet.GetName())
      .str();
}

std::string DerivedCommands::Derive(NCDataSet& dataSet, const std::string& name,
                                    const std::string& formula) {
  const int column = GenVarFormula::AddGeneratedVariable(dataSet, name, formula);
  if (column == 0) {
    throw NCError(ExceptionMessage::translate("The project refused the new variable \"{1}\".") %
                  name);
  }
  const boost::shared_ptr<NCProjectBase const> project = dataSet.GetProject();
  const VariableInfo* info = project ? project->GetVariables()[dataSet.GetVarID(column)] : nullptr;
  return (ExceptionMessage::translate("Added generated variable \"{1}\" as column {2} of dataset "
                                      "{3} \"{4}\".") %
          (info ? info->GetUserID(1) : name) % column % dataSet.GetNumber() % dataSet.GetName())
      .str();
}

std::string DerivedCommands::Update(NCDataSet& dataSet) {
  const int count = GenVarFormula::RecomputeGeneratedVariables(dataSet);
  return (ExceptionMessage::translate(
              "Recomputed {1} generated variables of dataset {2} \"{3}\".") %
          count % dataSet.GetNumber() % dataSet.GetName())
      .str();
}

void DerivedCommands::PrintFormulas(const NCDataSet& dataSet, std::ostream& out) {
  const boost::shared_ptr<NCProjectBase const> project = dataSet.GetProject();
  if (!project) return;
  const NCVariables& variables = project->GetVariables();
  TextTable table;
  for (int j = 1; j <= dataSet.SizeVariables(); ++j) {
    const VariableInfo* info = variables[dataSet.GetVarID(j)];
    if (!info || info->GetRecipe().empty()) continue;
    table.AddRow({info->GetUserID(1), "=",
                  GenVarUtilities::GetExpandedVariableNames(*project, info->GetRecipe(), nullptr,
                                                            &variables)});
  }
  if (table.empty()) return;
  out << '\n' << ExceptionMessage::translate("Generated variables:").str() << "\n\n";
  table.Print(out);
}

}  // namespace ncds::tool
