#include "tools/ncds/Cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/shared_ptr.hpp>
#include <charconv>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCDataSetInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/Messages.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/QualitativeVariableInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/project/NCProjectFile.h"
#include "tools/ncds/CsvExport.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/CsvOptions.h"
#include "tools/ncds/ProgressLine.h"

namespace ncds::tool {
namespace detail {
namespace {

constexpr float kMissing = -99.0F;
// The data type bit of batch datasets.
constexpr int kBatchDataType = 32;
// Qualitative variables with more levels show only the first ones.
constexpr int kShownLevels = 5;

// What the command line asked for.
struct Request {
  std::string data;
  std::string project;
  std::string dataSet;
  std::string output;
  std::string separator = ",";
  std::string decimal = ".";
  CsvImportOptions import;
  int rows = 10;
  bool progress = false;
};

// Rows of text printed as columns, each as wide as its widest cell, two blanks apart.
class Table {
 public:
  void AddRow(std::vector<std::string> cells) {
    if (cells.size() > mWidths.size()) mWidths.resize(cells.size(), 0);
    for (std::size_t k = 0; k < cells.size(); ++k) {
      mWidths[k] = std::max(mWidths[k], cells[k].size());
    }
    mRows.push_back(std::move(cells));
  }
  void Print(std::ostream& out, const std::string& indent = "") const {
    for (const std::vector<std::string>& row : mRows) {
      std::string line = indent;
      for (std::size_t k = 0; k < row.size(); ++k) {
        if (k > 0) line += "  ";
        line += row[k];
        if (k + 1 < row.size()) line.append(mWidths[k] - row[k].size(), ' ');
      }
      line.erase(line.find_last_not_of(' ') + 1);
      out << line << '\n';
    }
  }

 private:
  std::vector<std::vector<std::string>> mRows;
  std::vector<std::size_t> mWidths;
};

std::string Kind(int dataType) {
  return dataType & kBatchDataType ? NCMessages::Translate("dataset kind", "batch")
                                   : NCMessages::Translate("dataset kind", "ordinary");
}

std::string FormatNumber(float value) {
  char text[32];
  const std::to_chars_result result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}

// The number of the dataset that `which` names, by number or else by name.
int FindDataSet(const NCProjectFile& project, const std::string& which) {
  const std::vector<int> numbers = project.GetDataSetNumbers();
  int number = 0;
  const char* const end = which.data() + which.size();
  const std::from_chars_result result = std::from_chars(which.data(), end, number);
  if (!which.empty() && result.ec == std::errc() && result.ptr == end) {
    if (std::find(numbers.begin(), numbers.end(), number) != numbers.end()) return number;
  }
  for (const int n : numbers) {
    const boost::shared_ptr<NCDataSetInfo const> info = project.GetDataSetInfo(n);
    if (info && which == info->GetName()) return n;
  }
  throw NCError(ExceptionMessage::translate("Project {1} has no dataset {2}.") % project.GetPath() %
                which);
}

boost::shared_ptr<NCDataSet> Load(NCProjectFile& project, int number) {
  boost::shared_ptr<NCDataSet> dataSet = project.LoadDataSet(number);
  if (!dataSet) {
    throw NCError(ExceptionMessage::translate("Dataset {1} of project {2} cannot be read.") %
                  number % project.GetPath());
  }
  return dataSet;
}

int Import(const Request& request, std::ostream& out, std::ostream& err) {
  CsvImportOptions options = request.import;
  options.separator = request.separator[0];
  options.decimal = request.decimal[0];
  std::error_code error;
  const bool existed = std::filesystem::exists(request.project, error);
  boost::shared_ptr<NCDataSet> dataSet;
  try {
    boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, true);
    const ProgressLine progress(
        request.progress, (ExceptionMessage::translate("Importing {1}") % request.data).str(), err);
    dataSet = CsvImport::ImportFile(project, request.data, options);
  } catch (...) {
    // A project this command created holds nothing: it goes again.
    if (!existed) std::filesystem::remove(request.project, error);
    throw;
  }
  out << (ExceptionMessage::translate(
              "Added dataset {1} \"{2}\" to {3}: {4} observations, {5} variables.") %
          dataSet->GetNumber() % dataSet->GetName() % request.project %
          dataSet->SizeObservations() % dataSet->SizeVariables())
             .str()
      << '\n';
  return 0;
}

int List(const Request& request, std::ostream& out) {
  const std::vector<NCProjectFile::DataSetSummary> summaries =
      NCProjectFile::ListDataSets(request.project);
  if (summaries.empty()) {
    out << (ExceptionMessage::translate("Project {1} has no datasets.") % request.project).str()
        << '\n';
    return 0;
  }
  Table table;
  table.AddRow({NCMessages::Translate("column header", "No."),
                NCMessages::Translate("column header", "Name"),
                NCMessages::Translate("column header", "Observations"),
                NCMessages::Translate("column header", "Variables"),
                NCMessages::Translate("column header", "Kind")});
  for (const NCProjectFile::DataSetSummary& summary : summaries) {
    table.AddRow({std::to_string(summary.number), summary.name,
                  std::to_string(summary.observations), std::to_string(summary.variables),
                  Kind(summary.dataType)});
  }
  table.Print(out);
  return 0;
}

std::string VariableKind(const VariableInfo& info) {
  if (info.AsQualitativeVariableInfo())
    return NCMessages::Translate("variable kind", "qualitative");
  if (info.AsDateTimeVariableInfo()) return NCMessages::Translate("variable kind", "date-time");
  return NCMessages::Translate("variable kind", "quantitative");
}

std::string Block(const VariableInfo& info) {
  std::string block = info.IsY() ? "Y" : "X";
  if (!info.IsIncluded()) block += ' ' + NCMessages::Translate("variable block", "(excluded)");
  return block;
}

std::string Levels(const VariableInfo& info) {
  const QualitativeVariableInfo* qualitative = info.AsQualitativeVariableInfo();
  if (!qualitative) return std::string();
  const int count = qualitative->SizeSettings();
  std::string levels;
  for (int k = 1; k <= std::min(count, kShownLevels); ++k) {
    if (k > 1) levels += ", ";
    levels += qualitative->GetSettingName(k);
  }
  if (count > kShownLevels) {
    levels += (ExceptionMessage::translate(", ... ({1} levels)") % count).str();
  }
  return levels;
}

int Show(const Request& request, std::ostream& out) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const int number = FindDataSet(*project, request.dataSet);
  const boost::shared_ptr<NCDataSet> dataSet = Load(*project, number);
  const NCVariables& variables = project->GetVariables();
  const NCObservations& observations = project->GetObservations();
  const int rows = dataSet->SizeObservations();
  const int columns = dataSet->SizeVariables();

  out << (ExceptionMessage::translate(
              "Dataset {1} \"{2}\": {3} observations, {4} variables, {5}.") %
          number % dataSet->GetName() % rows % columns % Kind(dataSet->GetDataType()))
             .str()
      << "\n\n";

  Table variableTable;
  variableTable.AddRow({NCMessages::Translate("column header", "No."),
                        NCMessages::Translate("column header", "Variable"),
                        NCMessages::Translate("column header", "Kind"),
                        NCMessages::Translate("column header", "Block"),
                        NCMessages::Translate("column header", "Unit"),
                        NCMessages::Translate("column header", "Levels")});
  std::vector<VariableInfo*> infos;
  for (int j = 1; j <= columns; ++j) {
    VariableInfo* info = variables[dataSet->GetVarID(j)];
    infos.push_back(info);
    if (!info) continue;
    variableTable.AddRow({std::to_string(j), info->GetUserID(1), VariableKind(*info), Block(*info),
                          info->GetUnit(), Levels(*info)});
  }
  variableTable.Print(out);

  const int shown = std::min(rows, std::max(request.rows, 0));
  if (shown == 0) return 0;
  out << '\n'
      << (ExceptionMessage::translate("The first {1} of {2} observations:") % shown % rows).str()
      << "\n\n";
  Table values;
  std::vector<std::string> header;
  const std::vector<int>& aliases = dataSet->GetUsedObsAliases();
  for (const int series : aliases) header.push_back(observations.GetIDLabelRaw(series));
  for (VariableInfo* info : infos) header.push_back(info ? info->GetUserID(1) : std::string());
  values.AddRow(std::move(header));
  for (int i = 1; i <= shown; ++i) {
    std::vector<std::string> row;
    const ObservationInfo* observation = dataSet->GetObservationInfo(i);
    for (const int series : aliases) {
      row.push_back(observation ? observation->GetUserID(series) : std::string());
    }
    for (int j = 1; j <= columns; ++j) {
      const float value = dataSet->GetValue(i, j);
      VariableInfo* info = infos[static_cast<std::size_t>(j - 1)];
      if (value == kMissing) {
        row.emplace_back();
      } else if (info && !info->AsQuantitativeVariableInfo()) {
        row.push_back(info->Decode(value));
      } else {
        row.push_back(FormatNumber(value));
      }
    }
    values.AddRow(std::move(row));
  }
  values.Print(out);
  return 0;
}

// The --id options that import the exported file with the same ID columns.
std::string IdOptions(const NCDataSet& dataSet, const NCObservations& observations) {
  std::string options;
  for (const int series : dataSet.GetUsedObsAliases()) {
    const std::string label = observations.GetIDLabelRaw(series);
    const bool quote = label.empty() || label.find_first_of(" \t\"'$\\") != std::string::npos;
    options += options.empty() ? "--id " : " --id ";
    options += quote ? '"' + label + '"' : label;
  }
  return options;
}

int Export(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const int number = FindDataSet(*project, request.dataSet);
  const boost::shared_ptr<NCDataSet> dataSet = Load(*project, number);
  const CsvExportOptions options;
  if (request.output.empty()) {
    CsvExport::Write(*dataSet, out, options);
    out.flush();
    if (!out) {
      throw NCError(ExceptionMessage::translate("The output cannot be written."));
    }
    return 0;
  }
  {
    const ProgressLine progress(
        request.progress, (ExceptionMessage::translate("Exporting {1}") % request.output).str(),
        err);
    CsvExport::WriteFile(*dataSet, request.output, options);
  }
  const std::string ids = IdOptions(*dataSet, project->GetObservations());
  err << (ExceptionMessage::translate("Wrote dataset {1} \"{2}\" to {3}; import it with: {4}") %
          number % dataSet->GetName() % request.output % ids)
             .str()
      << '\n';
  return 0;
}

int Delete(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const int number = FindDataSet(*project, request.dataSet);
  const std::string name = project->GetDataSetInfo(number)->GetName();
  bool removed = false;
  {
    const ProgressLine progress(request.progress, NCMessages::Translate("Saving the project"), err);
    removed = project->RemoveDataSet(number);
  }
  if (!removed) {
    throw NCError(ExceptionMessage::translate("Dataset {1} could not be deleted from {2}.") %
                  number % request.project);
  }
  out << (ExceptionMessage::translate("Deleted dataset {1} \"{2}\" from {3}.") % number % name %
          request.project)
             .str()
      << '\n';
  return 0;
}

// A one-character option value; "tab" and "\t" stand for the tab character.
std::string OneCharacter(std::string& value) {
  if (value == "tab" || value == "\\t") value = "\t";
  if (value.size() == 1) return std::string();
  return NCMessages::Translate("a single character is expected");
}

}  // namespace
}  // namespace detail

int RunCli(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
           bool showProgress) {
  using detail::Request;
  Request request;
  request.progress = showProgress;

  CLI::App app(NCMessages::Translate("Datasets of ncds project files."), "ncds");
  app.require_subcommand(1);

  CLI::App* import = app.add_subcommand(
      "import", NCMessages::Translate("Import a CSV file into a project as a new dataset."));
  import->add_option("DATA", request.data, NCMessages::Translate("the CSV file"))->required();
  import
      ->add_option("PROJECT", request.project,
                   NCMessages::Translate("the project file, created when it does not exist"))
      ->required();
  import->add_option("--name", request.import.name,
                     NCMessages::Translate("the dataset's name (default: the file's name)"));
  // Repeatable options take one value each, so that positionals may follow them.
  import
      ->add_option("--id", request.import.idColumns,
                   NCMessages::Translate("a column of observation IDs; the first gives the "
                                         "primary IDs (default: the row numbers)"))
      ->type_name("COLUMN")
      ->allow_extra_args(false);
  const auto oneCharacter = CLI::Validator(
      [](std::string& value) { return detail::OneCharacter(value); }, "", "character");
  import
      ->add_option("--sep", request.separator,
                   NCMessages::Translate("the field separator; \"tab\" for tabs (default ',')"))
      ->type_name("CHAR")
      ->check(oneCharacter);
  import
      ->add_option("--decimal", request.decimal,
                   NCMessages::Translate("the decimal character, '.' or ',' (default '.')"))
      ->type_name("CHAR")
      ->check(oneCharacter);
  import
      ->add_option("--missing", request.import.missingTexts,
                   NCMessages::Translate("a text that stands for a missing value"))
      ->type_name("TEXT")
      ->allow_extra_args(false);

  CLI::App* list =
      app.add_subcommand("list", NCMessages::Translate("List the datasets of a project."));
  list->add_option("PROJECT", request.project, NCMessages::Translate("the project file"))
      ->required();

  const auto addDataSet = [&request](CLI::App* command) {
    command->add_option("PROJECT", request.project, NCMessages::Translate("the project file"))
        ->required();
    command
        ->add_option("DATASET", request.dataSet,
                     NCMessages::Translate("the dataset's number or name"))
        ->required();
  };
  CLI::App* show = app.add_subcommand(
      "show", NCMessages::Translate("Show a dataset's variables and first observations."));
  addDataSet(show);
  show->add_option("--rows", request.rows,
                   NCMessages::Translate("the number of observations shown (default 10)"))
      ->check(CLI::NonNegativeNumber);

  CLI::App* exportCommand =
      app.add_subcommand("export", NCMessages::Translate("Write a dataset as CSV."));
  addDataSet(exportCommand);
  exportCommand->add_option("-o,--output", request.output,
                            NCMessages::Translate("the CSV file (default: standard output)"));

  CLI::App* deleteCommand =
      app.add_subcommand("delete", NCMessages::Translate("Delete a dataset from a project."));
  addDataSet(deleteCommand);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e, out, err);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e, out, err);
  } catch (const CLI::ParseError& e) {
    app.exit(e, out, err);
    return 2;
  }

  try {
    if (import->parsed()) return detail::Import(request, out, err);
    if (list->parsed()) return detail::List(request, out);
    if (show->parsed()) return detail::Show(request, out);
    if (exportCommand->parsed()) return detail::Export(request, out, err);
    if (deleteCommand->parsed()) return detail::Delete(request, out, err);
  } catch (const std::exception& e) {
    err << e.what() << '\n';
    return 1;
  }
  return 2;
}

}  // namespace ncds::tool
