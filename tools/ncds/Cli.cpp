#include "tools/ncds/Cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/shared_ptr.hpp>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/DataSetPredictionData.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCDataSetInfo.h"
#include "ncds/derived/LocalCenteringInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/Messages.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/QualitativeVariableInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/project/NCProjectFile.h"
#include "tools/ncds/BatchCommands.h"
#include "tools/ncds/CombineCommands.h"
#include "tools/ncds/CsvExport.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/CsvOptions.h"
#include "tools/ncds/DerivedCommands.h"
#include "tools/ncds/ImportVariables.h"
#include "tools/ncds/ProgressLine.h"
#include "tools/ncds/TextTable.h"
#include "tools/ncds/UpdateCommands.h"

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
  // The batch commands.
  std::vector<std::string> batches;
  std::vector<BatchCommands::PhaseChoice> phases;
  std::string from;
  std::string to;
  // ncds align.
  BatchCommands::AlignChoice align;
  std::string name;
  // ncds derive, center and export --centered.
  std::string formula;
  bool update = false;
  std::string centers;
  bool centered = false;
  // ncds summarize, merge and combine.
  CombineCommands::SummaryChoice summary;
  std::string mergeFrom;
  bool keep = false;
  std::vector<std::string> members;
  // ncds import --into.
  std::string into;
  bool replace = false;
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

// The number of the compound dataset that `which` names, by number or else by name; 0 for none.
int FindCompound(const NCProjectFile& project, const std::string& which) {
  for (const int number : project.GetCompoundDatasetNumbers()) {
    if (which == std::to_string(number) || which == project.GetCompoundDataset(number)->GetName()) {
      return number;
    }
  }
  return 0;
}

// The number of the dataset that `which` names, by number or else by name; 0 for none.
int MatchDataSet(const NCProjectFile& project, const std::string& which) {
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
  // A damaged dataset is found too, by its number or its listed name, so that it can be
  // named as damaged and deleted.
  for (const int n : project.GetDamagedDataSets()) {
    if (which == std::to_string(n) || which == project.GetListedName(n)) return n;
  }
  return 0;
}

// The number of the dataset that `which` names, by number or else by name.
int FindDataSet(const NCProjectFile& project, const std::string& which) {
  if (const int number = MatchDataSet(project, which)) return number;
  if (const int compound = FindCompound(project, which)) {
    throw NCError(ExceptionMessage::translate("Dataset {1} is a compound dataset: it can be shown, "
                                              "exported and deleted, and its members changed.") %
                  compound);
  }
  throw NCError(ExceptionMessage::translate("Project {1} has no dataset {2}.") % project.GetPath() %
                which);
}

// The number of the compound dataset `which` names when no dataset has that number or name;
// 0 otherwise.
int FindOnlyCompound(const NCProjectFile& project, const std::string& which) {
  return MatchDataSet(project, which) ? 0 : FindCompound(project, which);
}

// Loads dataset `number`; rows whose observation records are gone are pointed out on `err`.
boost::shared_ptr<NCDataSet> Load(NCProjectFile& project, int number, std::ostream& err) {
  if (project.GetDamagedDataSets().count(number) > 0) {
    throw NCError(project.DamagedDataSetMessage(number));
  }
  boost::shared_ptr<NCDataSet> dataSet = project.LoadDataSet(number);
  if (!dataSet) {
    throw NCError(ExceptionMessage::translate("Dataset {1} of project {2} cannot be read.") %
                  number % project.GetPath());
  }
  if (const int lost = BatchCommands::CountRowsWithoutRecord(*dataSet)) {
    err << (ExceptionMessage::translate(
                "Note: {1} observations of dataset {2} have lost their records in the project; "
                "`ncds drop-lost {3} {2}` removes them.") %
            lost % number % project.GetPath())
               .str()
        << '\n';
  }
  return dataSet;
}

// Saves `dataSet` into the project, or says that it could not be.
void SaveOrThrow(NCProjectFile& project, const boost::shared_ptr<NCDataSet>& dataSet) {
  if (!project.SaveDataSet(dataSet)) {
    throw NCError(ExceptionMessage::translate("Dataset {1} could not be saved to {2}.") %
                  dataSet->GetNumber() % project.GetPath());
  }
}

// The line that sums up an edited dataset: its number, name, rows and kind or batches.
std::string EditedLine(const NCDataSet& dataSet) {
  return (ExceptionMessage::translate("Dataset {1} \"{2}\": {3} observations, {4}.") %
          dataSet.GetNumber() % dataSet.GetName() % dataSet.SizeObservations() %
          (dataSet.GetBatchInfoVector() ? BatchCommands::Describe(dataSet)
                                        : Kind(dataSet.GetDataType())))
             .str() +
         '\n';
}

// Brings a derived dataset up to date with its source and saves it when it changed.
int Update(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const int number = FindDataSet(*project, request.dataSet);
  const boost::shared_ptr<NCDataSet> dataSet = Load(*project, number, err);
  const boost::shared_ptr<NCDataSet> source = UpdateCommands::LoadSource(*project, *dataSet);
  bool changed = false;
  std::string log;
  {
    const ProgressLine progress(request.progress, NCMessages::Translate("Updating"), err);
    log = UpdateCommands::Update(*dataSet, source.get(), changed);
    if (changed) SaveOrThrow(*project, dataSet);
  }
  out << log;
  if (changed) out << EditedLine(*dataSet);
  return 0;
}

// Appends the file's batches to the dataset `request.into` and saves it.
int Append(const Request& request, const CsvImportOptions& options, std::ostream& out,
           std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const int number = FindDataSet(*project, request.into);
  const boost::shared_ptr<NCDataSet> dataSet = Load(*project, number, err);
  CsvImport::Notes notes;
  {
    const ProgressLine progress(
        request.progress, (ExceptionMessage::translate("Importing {1}") % request.data).str(), err);
    CsvImport::AppendFile(*dataSet, request.data, options, request.replace, &notes);
    SaveOrThrow(*project, dataSet);
  }
  for (const std::string& note : notes) out << note << '\n';
  out << EditedLine(*dataSet);
  return 0;
}

int Import(const Request& request, std::ostream& out, std::ostream& err) {
  CsvImportOptions options = request.import;
  options.separator = request.separator[0];
  options.decimal = request.decimal[0];
  if (!request.into.empty()) return Append(request, options, out, err);
  std::error_code error;
  const bool existed = std::filesystem::exists(request.project, error);
  boost::shared_ptr<NCDataSet> dataSet;
  CsvImport::Notes notes;
  try {
    boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, true);
    const ProgressLine progress(
        request.progress, (ExceptionMessage::translate("Importing {1}") % request.data).str(), err);
    dataSet = CsvImport::ImportFile(project, request.data, options, &notes);
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
  for (const std::string& note : notes) out << note << '\n';
  return 0;
}

int List(const Request& request, std::ostream& out) {
  std::vector<NCProjectFile::DataSetSummary> summaries =
      NCProjectFile::ListDataSets(request.project);
  // Compound datasets need the project for their sizes: it is opened only when there are some.
  std::map<int, std::string> compoundKinds;
  const std::vector<NCProjectFile::CompoundSummary> compounds =
      NCProjectFile::ListCompoundDatasets(request.project);
  if (!compounds.empty()) {
    const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
    for (const NCProjectFile::CompoundSummary& entry : compounds) {
      const auto compound = project->GetCompoundDataset(entry.number);
      compoundKinds[entry.number] = CombineCommands::Kind(*compound);
      summaries.push_back({entry.number, entry.name, compound->SizeObservations(),
                           compound->SizeVariables(), compound->GetDataType()});
    }
    std::sort(summaries.begin(), summaries.end(),
              [](const auto& a, const auto& b) { return a.number < b.number; });
  }
  if (summaries.empty()) {
    out << (ExceptionMessage::translate("Project {1} has no datasets.") % request.project).str()
        << '\n';
    return 0;
  }
  TextTable table;
  table.AddRow({NCMessages::Translate("column header", "No."),
                NCMessages::Translate("column header", "Name"),
                NCMessages::Translate("column header", "Observations"),
                NCMessages::Translate("column header", "Variables"),
                NCMessages::Translate("column header", "Kind")});
  for (const NCProjectFile::DataSetSummary& summary : summaries) {
    std::string kind = compoundKinds.count(summary.number) > 0 ? compoundKinds[summary.number]
                                                               : Kind(summary.dataType);
    if (summary.behind > 0) {
      kind +=
          (ExceptionMessage::translate(", lacks {1} batches of its source") % summary.behind).str();
    }
    table.AddRow({std::to_string(summary.number), summary.name,
                  std::to_string(summary.observations), std::to_string(summary.variables), kind});
  }
  table.Print(out);
  return 0;
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

// Dataset `which` of the project, or a compound dataset's values as one; the line that
// describes a compound goes to `described`.
boost::shared_ptr<NCDataSet> LoadAny(NCProjectFile& project, const std::string& which,
                                     std::ostream& err, std::string* described) {
  if (const int compound = FindOnlyCompound(project, which)) {
    boost::shared_ptr<NCDataSet> values = CombineCommands::Materialize(project, compound);
    if (described) *described = CombineCommands::Describe(*project.GetCompoundDataset(compound));
    return values;
  }
  return Load(project, FindDataSet(project, which), err);
}

int Show(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  std::string described;
  const boost::shared_ptr<NCDataSet> dataSet = LoadAny(*project, request.dataSet, err, &described);
  const int number = dataSet->GetNumber();
  const NCVariables& variables = project->GetVariables();
  const NCObservations& observations = project->GetObservations();
  const int rows = dataSet->SizeObservations();
  const int columns = dataSet->SizeVariables();

  const std::string batches = BatchCommands::Describe(*dataSet);
  const std::string kind = batches.empty() ? Kind(dataSet->GetDataType())
                                           : Kind(dataSet->GetDataType()) + ", " + batches;
  if (described.empty()) {
    described =
        (ExceptionMessage::translate("Dataset {1} \"{2}\": {3} observations, {4} variables, {5}.") %
         number % dataSet->GetName() % rows % columns % kind)
            .str();
  }
  out << described << "\n\n";

  TextTable variableTable;
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
    variableTable.AddRow({std::to_string(j), info->GetUserID(1), ImportVariables::KindName(*info),
                          Block(*info), info->GetUnit(), Levels(*info)});
  }
  variableTable.Print(out);
  DerivedCommands::PrintFormulas(*dataSet, out);

  const int shown = std::min(rows, std::max(request.rows, 0));
  if (shown == 0) return 0;
  out << '\n'
      << (ExceptionMessage::translate("The first {1} of {2} observations:") % shown % rows).str()
      << "\n\n";
  TextTable values;
  std::vector<std::string> header;
  const std::vector<int> aliases = CsvExport::ExportedSeries(*dataSet, observations);
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

// The options that import the exported file with the same ID, batch and phase columns.
std::string IdOptions(const NCDataSet& dataSet, const NCObservations& observations) {
  std::string options;
  const bool isBatch = dataSet.GetBatchInfoVector() != nullptr;
  for (const int series : CsvExport::ExportedSeries(dataSet, observations)) {
    const std::string label = observations.GetIDLabelRaw(series);
    const bool quote = label.empty() || label.find_first_of(" \t\"'$\\") != std::string::npos;
    const char* option = "--id ";
    if (isBatch && series == observations.GetBatchIDRaw()) option = "--batch ";
    if (isBatch && series == observations.GetPhaseIDRaw()) option = "--phase ";
    if (!options.empty()) options += ' ';
    options += option;
    options += quote ? '"' + label + '"' : label;
  }
  return options.empty() ? NCMessages::Translate("no options") : options;
}

int Batches(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const boost::shared_ptr<NCDataSet> dataSet =
      Load(*project, FindDataSet(*project, request.dataSet), err);
  BatchCommands::PrintBatches(*dataSet, out);
  return 0;
}

// Runs an edit on the dataset and saves it; prints the edit's log and the result.
template <class Edit>
int EditDataSet(const Request& request, std::ostream& out, std::ostream& err, Edit edit) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const int number = FindDataSet(*project, request.dataSet);
  const boost::shared_ptr<NCDataSet> dataSet = Load(*project, number, err);
  const std::string log = edit(*dataSet);
  {
    const ProgressLine progress(request.progress, NCMessages::Translate("Saving the project"), err);
    SaveOrThrow(*project, dataSet);
  }
  out << log << EditedLine(*dataSet);
  return 0;
}

int Export(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const boost::shared_ptr<NCDataSet> dataSet = LoadAny(*project, request.dataSet, err, nullptr);
  const int number = dataSet->GetNumber();
  CsvExportOptions options;
  options.centered = request.centered;
  if (request.centered && !dataSet->GetLocalCenteringData()) {
    throw NCError(ExceptionMessage::translate("Dataset {1} \"{2}\" has no local centers; `ncds "
                                              "center` stores them.") %
                  number % dataSet->GetName());
  }
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

// Makes a new dataset from dataset `request.dataSet` with `make` (which answers the line that
// says what it did), under `request.name` or the default name `defaultName` fills in, and saves
// it; a source that `make` changed (a "$Time" made for it) is saved too.
template <class Make>
int AddDataSet(const Request& request, std::ostream& out, std::ostream& err,
               ExceptionMessage defaultName, const std::string& caption, Make make) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const boost::shared_ptr<NCDataSet> dataSet =
      Load(*project, FindDataSet(*project, request.dataSet), err);
  const int number = project->GetFreeNumber();
  const std::string name =
      request.name.empty() ? (defaultName % dataSet->GetName()).str() : request.name;
  boost::shared_ptr<NCDataSet> made;
  std::string line;
  {
    const ProgressLine progress(request.progress, caption, err);
    line = make(*dataSet, name, number, made);
  }
  {
    const ProgressLine progress(request.progress, NCMessages::Translate("Saving the project"), err);
    if (dataSet->IsDirty()) SaveOrThrow(*project, dataSet);
    SaveOrThrow(*project, made);
  }
  out << line << (ExceptionMessage::translate("Added dataset {1} \"{2}\".") % number % name).str()
      << '\n';
  return 0;
}

int Align(const Request& request, std::ostream& out, std::ostream& err) {
  return AddDataSet(request, out, err, ExceptionMessage::translate("{1} aligned"),
                    NCMessages::Translate("Aligning the batches"),
                    [&request](NCDataSet& dataSet, const std::string& name, int number,
                               boost::shared_ptr<NCDataSet>& made) {
                      return BatchCommands::Align(dataSet, request.align, name, number, made);
                    });
}

int Summarize(const Request& request, std::ostream& out, std::ostream& err) {
  return AddDataSet(request, out, err, ExceptionMessage::translate("{1} batch level"),
                    NCMessages::Translate("Summarizing the batches"),
                    [&request](NCDataSet& dataSet, const std::string& name, int number,
                               boost::shared_ptr<NCDataSet>& made) {
                      return CombineCommands::Summarize(dataSet, request.summary, name, number,
                                                        made);
                    });
}

int Combine(const Request& request, std::ostream& out) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  std::vector<int> members;
  for (const std::string& member : request.members) {
    const int number = FindDataSet(*project, member);
    if (project->GetDamagedDataSets().count(number) > 0) {
      throw NCError(project->DamagedDataSetMessage(number));
    }
    members.push_back(number);
  }
  const int number = project->GetFreeNumber();
  out << CombineCommands::Combine(*project, members, request.name, number);
  return 0;
}

// A size in megabytes with one decimal, as a user reads file sizes.
std::string Megabytes(std::uint64_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", static_cast<double>(bytes) / 1e6);
  return text;
}

// Exit status 1 when anything is damaged.
int Check(const Request& request, std::ostream& out) {
  const std::vector<std::string> damaged = NCProjectFile::Check(request.project);
  for (const std::string& line : damaged) out << line << '\n';
  if (damaged.empty()) {
    out << (ExceptionMessage::translate("No damage found in {1}.") % request.project).str() << '\n';
  }
  return damaged.empty() ? 0 : 1;
}

// Copies the project file to `request.output` and leaves out of the copy what cannot be read:
// damaged datasets, and rows whose records are lost. The copy is written in full again.
int Salvage(const Request& request, std::ostream& out) {
  std::error_code error;
  if (std::filesystem::exists(request.output, error)) {
    throw NCError(ExceptionMessage::translate("{1} exists already; salvage writes a new file.") %
                  request.output);
  }
  NCProjectFile::Open(request.project, false);  // a file that cannot be opened is refused here
  std::filesystem::copy_file(request.project, request.output, error);
  if (error) {
    throw NCError(ExceptionMessage::translate("The project could not be written to {1}.") %
                  request.output);
  }
  std::vector<std::string> lines;
  try {
    const boost::shared_ptr<NCProjectFile> copy = NCProjectFile::Open(request.output, false);
    std::set<int> numbers = copy->GetDamagedDataSets();
    for (const int number : copy->GetDataSetNumbers()) numbers.insert(number);
    for (const int number : numbers) {
      const std::string name = copy->GetListedName(number);
      boost::shared_ptr<NCDataSet> dataSet;
      try {
        if (copy->GetDamagedDataSets().count(number) == 0) dataSet = copy->LoadDataSet(number);
      } catch (const NCError&) {
      }
      if (!dataSet) {
        lines.push_back(
            (ExceptionMessage::translate("Left out dataset {1} \"{2}\": damaged.") % number % name)
                .str());
        copy->RemoveDataSet(number);
      } else if (const int lost = BatchCommands::DropRowsWithoutRecord(*dataSet)) {
        SaveOrThrow(*copy, dataSet);
        lines.push_back(
            (ExceptionMessage::translate(
                 "Dataset {1} \"{2}\": left out {3} observations whose records are lost.") %
             number % name % lost)
                .str());
      }
      if (dataSet) copy->UnloadDataSet(number);
    }
    copy->SaveMetadata();
  } catch (...) {
    std::filesystem::remove(request.output, error);
    throw;
  }
  NCProjectFile::Compact(request.output);
  for (const std::string& line : lines) out << line << '\n';
  out << (ExceptionMessage::translate("Salvaged {1} into {2}.") % request.project % request.output)
             .str()
      << '\n';
  return 0;
}

int Compact(const Request& request, std::ostream& out) {
  const NCProjectFile::Compacted sizes = NCProjectFile::Compact(request.project);
  out << (ExceptionMessage::translate("Compacted {1}: {2} MB before, {3} MB now.") %
          request.project % Megabytes(sizes.before) % Megabytes(sizes.after))
             .str()
      << '\n';
  return 0;
}

int Fingerprint(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  const boost::shared_ptr<NCDataSet> dataSet =
      Load(*project, FindDataSet(*project, request.dataSet), err);
  out << DataSetPredictionData::Fingerprint(*dataSet) << '\n';
  return 0;
}

int Delete(const Request& request, std::ostream& out, std::ostream& err) {
  const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(request.project, false);
  if (const int compound = FindOnlyCompound(*project, request.dataSet)) {
    const std::string name = project->GetCompoundDataset(compound)->GetName();
    project->RemoveCompoundDataset(compound);
    out << (ExceptionMessage::translate("Deleted compound dataset {1} \"{2}\" from {3}.") %
            compound % name % request.project)
               .str()
        << '\n';
    return 0;
  }
  const int number = FindDataSet(*project, request.dataSet);
  const std::string name = project->GetListedName(number);
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
  import
      ->add_option("--batch", request.import.batchColumn,
                   NCMessages::Translate("the column of batch names: a batch dataset"))
      ->type_name("COLUMN");
  import
      ->add_option("--phase", request.import.phaseColumn,
                   NCMessages::Translate("the column of phase names (with --batch)"))
      ->type_name("COLUMN");
  CLI::Option* into =
      import
          ->add_option("--into", request.into,
                       NCMessages::Translate("append the file's batches to this batch dataset"))
          ->type_name("DATASET");
  import
      ->add_flag("--replace", request.replace,
                 NCMessages::Translate("with --into: replace batches the dataset holds already"))
      ->needs(into);
  import->add_flag("--rename-clashes", request.import.renameClashes,
                   NCMessages::Translate("give a column whose name a variable of another kind "
                                         "has a new variable (name_1) instead of refusing"));

  const auto addProject = [&request](CLI::App* command) {
    command->add_option("PROJECT", request.project, NCMessages::Translate("the project file"))
        ->required();
  };
  CLI::App* list =
      app.add_subcommand("list", NCMessages::Translate("List the datasets of a project."));
  addProject(list);

  const auto addDataSet = [&request, &addProject](CLI::App* command) {
    addProject(command);
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

  CLI::App* batches = app.add_subcommand(
      "batches", NCMessages::Translate("List the batches of a batch dataset with their phases."));
  addDataSet(batches);

  CLI::App* deleteBatches = app.add_subcommand(
      "delete-batches", NCMessages::Translate("Delete batches, and phases of batches, from a "
                                              "batch dataset."));
  addDataSet(deleteBatches);
  deleteBatches->add_option("--batch", request.batches, NCMessages::Translate("a batch to delete"))
      ->type_name("NAME")
      ->allow_extra_args(false);
  std::vector<std::string> phaseNames;
  std::vector<std::string> inBatches;
  CLI::Option* phaseOption =
      deleteBatches
          ->add_option("--phase", phaseNames,
                       NCMessages::Translate("a phase to delete, in every batch that has it"))
          ->type_name("NAME")
          ->allow_extra_args(false);
  CLI::Option* inOption =
      deleteBatches
          ->add_option("--in", inBatches,
                       NCMessages::Translate("only in this batch (follows --phase)"))
          ->type_name("BATCH")
          ->allow_extra_args(false);

  CLI::App* dropLost = app.add_subcommand(
      "drop-lost", NCMessages::Translate("Remove the observations of a dataset whose records "
                                         "are gone from the project."));
  addDataSet(dropLost);

  CLI::App* renamePhase = app.add_subcommand(
      "rename-phase", NCMessages::Translate("Rename a phase of a batch dataset; phases renamed "
                                            "to one name become one phase."));
  addDataSet(renamePhase);
  renamePhase->add_option("OLD", request.from, NCMessages::Translate("the phase's name"))
      ->required();
  renamePhase->add_option("NEW", request.to, NCMessages::Translate("its new name"))->required();

  CLI::App* align = app.add_subcommand(
      "align", NCMessages::Translate("Align the batches of a batch dataset onto a common maturity "
                                     "grid, into a new dataset."));
  addDataSet(align);
  align
      ->add_option("--maturity", request.align.maturity,
                   NCMessages::Translate("the variable to align on (\"$Time\": time since each "
                                         "batch's start)"))
      ->required();
  CLI::Option* pointsOption =
      align
          ->add_option("--points", request.align.points,
                       NCMessages::Translate("grid points per batch (default 100)"))
          ->check(CLI::PositiveNumber);
  std::vector<std::string> phasePoints;
  align
      ->add_option("--phase-points", phasePoints,
                   NCMessages::Translate("align phase by phase, PHASE onto N points"))
      ->type_name("PHASE=N")
      ->allow_extra_args(false)
      ->excludes(pointsOption);
  align->add_flag("--relative", request.align.relative,
                  NCMessages::Translate("rescale each batch's (phase's) maturity to 0-100 %"));
  align->add_flag("--smooth", request.align.smooth,
                  NCMessages::Translate("make each batch's maturity smooth and monotone first"));
  align->add_flag("--extend", request.align.extend,
                  NCMessages::Translate("hold the end values of short batches"));
  align->add_option("--name", request.name, NCMessages::Translate("the new dataset's name"));

  CLI::App* derive = app.add_subcommand(
      "derive", NCMessages::Translate("Add a generated variable computed by a formula, or "
                                      "recompute the generated variables."));
  addDataSet(derive);
  CLI::Option* formulaOption =
      derive->add_option("--formula", request.formula,
                         NCMessages::Translate("the formula over variable names, e.g. "
                                               "\"log(Temperature) + Lag(pH, 2) * 0.5\""));
  CLI::Option* nameOption =
      derive->add_option("--name", request.name, NCMessages::Translate("the new variable's name"));
  formulaOption->needs(nameOption);
  nameOption->needs(formulaOption);
  derive
      ->add_flag("--update", request.update,
                 NCMessages::Translate("recompute every generated variable from its formula"))
      ->excludes(formulaOption);

  CLI::App* center = app.add_subcommand(
      "center", NCMessages::Translate("Store local centers (per batch, phase and variable) with "
                                      "a dataset."));
  addDataSet(center);
  center
      ->add_option("--centers", request.centers,
                   NCMessages::Translate("a CSV file with the columns batch, phase, variable and "
                                         "center, or an XML configuration file"))
      ->required();
  center
      ->add_option("--sep", request.separator,
                   NCMessages::Translate("the CSV file's field separator (default ',')"))
      ->type_name("CHAR")
      ->check(oneCharacter);
  exportCommand->add_flag("--centered", request.centered,
                          NCMessages::Translate("write the locally centered values"));

  CLI::App* update = app.add_subcommand(
      "update", NCMessages::Translate("Bring an aligned or batch-level dataset up to date with the "
                                      "batches of its source, and recompute generated variables."));
  addDataSet(update);

  CLI::App* check = app.add_subcommand(
      "check", NCMessages::Translate("Read everything in a project file and say what is damaged "
                                     "(exit status 1 when anything is)."));
  addProject(check);

  CLI::App* salvage = app.add_subcommand(
      "salvage", NCMessages::Translate("Write what can be read of a damaged project file into a "
                                       "new one."));
  addProject(salvage);
  salvage->add_option("NEW", request.output, NCMessages::Translate("the new project file"))
      ->required();

  CLI::App* compact = app.add_subcommand(
      "compact", NCMessages::Translate("Give the free room of a project file back to the disk."));
  addProject(compact);

  CLI::App* fingerprint = app.add_subcommand(
      "fingerprint", NCMessages::Translate("Print the MD5 fingerprint of a dataset's values."));
  addDataSet(fingerprint);

  CLI::App* summarize = app.add_subcommand(
      "summarize", NCMessages::Translate("Summarize the batches of a batch dataset into a new "
                                         "batch-level dataset, one row per batch."));
  addDataSet(summarize);
  summarize
      ->add_option("--stats", request.summary.statistics,
                   (ExceptionMessage::translate(
                        "the statistics, comma-separated, of N, Duration, First, Last, Min, Max, "
                        "Range, Mean, Median, StdDev, Variance, Slope, Area (default {1})") %
                    CombineCommands::kDefaultStatistics)
                       .str())
      ->type_name("LIST");
  summarize
      ->add_option("--variables", request.summary.variables,
                   NCMessages::Translate("the variables, comma-separated (default: every "
                                         "quantitative variable)"))
      ->type_name("LIST")
      ->allow_extra_args(false);
  summarize->add_option("--maturity", request.summary.maturity,
                        NCMessages::Translate("the maturity for Duration, Slope and Area "
                                              "(default: the observations' positions)"));
  summarize->add_flag("--by-phase", request.summary.byPhase,
                      NCMessages::Translate("summarize each phase of every batch"));
  summarize->add_flag("--conditions", request.summary.conditions,
                      NCMessages::Translate("add the batch conditions as columns"));
  summarize->add_option("--name", request.name, NCMessages::Translate("the new dataset's name"));

  CLI::App* merge = app.add_subcommand(
      "merge", NCMessages::Translate("Merge a dataset into another: its new variables become "
                                     "columns, its new observations rows."));
  addProject(merge);
  merge
      ->add_option("INTO", request.dataSet,
                   NCMessages::Translate("the dataset that receives (number or name)"))
      ->required();
  merge
      ->add_option("FROM", request.mergeFrom,
                   NCMessages::Translate("the dataset merged into it (number or name)"))
      ->required();
  merge->add_flag("--keep", request.keep,
                  NCMessages::Translate("keep the values both datasets have (default: take the "
                                        "merged dataset's)"));

  CLI::App* combine = app.add_subcommand(
      "combine", NCMessages::Translate("Add a compound dataset: several datasets seen as one, "
                                       "their observations one after the other."));
  addProject(combine);
  combine
      ->add_option("DATASET", request.members,
                   NCMessages::Translate("the member datasets (numbers or names), in order"))
      ->required();
  combine->add_option("--name", request.name, NCMessages::Translate("the compound's name"))
      ->required();

  try {
    app.parse(argc, argv);
    for (const std::string& entry : phasePoints) {
      const std::size_t equals = entry.rfind('=');
      int points = 0;
      const char* const end = entry.data() + entry.size();
      const bool number = equals != std::string::npos && equals > 0 &&
                          std::from_chars(entry.data() + equals + 1, end, points).ptr == end;
      if (!number || points < 1) {
        throw CLI::ValidationError(
            "--phase-points",
            (ExceptionMessage::translate("{1} is not PHASE=N with N at least 1") % entry).str());
      }
      request.align.phasePoints.emplace_back(entry.substr(0, equals), points);
    }
    if (deleteBatches->parsed()) {
      // Each --in belongs to the --phase before it.
      std::size_t phase = 0;
      std::size_t in = 0;
      for (const CLI::Option* option : deleteBatches->parse_order()) {
        if (option == phaseOption) {
          request.phases.push_back({phaseNames[phase++], std::string()});
        } else if (option == inOption) {
          if (request.phases.empty() || !request.phases.back().batch.empty()) {
            throw CLI::ValidationError("--in", NCMessages::Translate("--in must follow a --phase"));
          }
          request.phases.back().batch = inBatches[in++];
        }
      }
      if (request.batches.empty() && request.phases.empty()) {
        throw CLI::ValidationError(NCMessages::Translate("give at least one --batch or --phase"));
      }
    }
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
    if (show->parsed()) return detail::Show(request, out, err);
    if (exportCommand->parsed()) return detail::Export(request, out, err);
    if (deleteCommand->parsed()) return detail::Delete(request, out, err);
    if (batches->parsed()) return detail::Batches(request, out, err);
    if (align->parsed()) return detail::Align(request, out, err);
    if (fingerprint->parsed()) return detail::Fingerprint(request, out, err);
    if (compact->parsed()) return detail::Compact(request, out);
    if (check->parsed()) return detail::Check(request, out);
    if (salvage->parsed()) return detail::Salvage(request, out);
    if (update->parsed()) return detail::Update(request, out, err);
    if (summarize->parsed()) return detail::Summarize(request, out, err);
    if (combine->parsed()) return detail::Combine(request, out);
    if (derive->parsed()) {
      if (!request.update && request.formula.empty()) {
        err << NCMessages::Translate("Give --name and --formula, or --update.") << '\n';
        return 2;
      }
      return detail::EditDataSet(request, out, err, [&request](NCDataSet& dataSet) {
        return (request.update ? DerivedCommands::Update(dataSet)
                               : DerivedCommands::Derive(dataSet, request.name, request.formula)) +
               '\n';
      });
    }
    if (center->parsed()) {
      const LocalCenteringInfo centers =
          DerivedCommands::ReadCenters(request.centers, request.separator[0]);
      return detail::EditDataSet(request, out, err, [&centers](NCDataSet& dataSet) {
        return DerivedCommands::Center(dataSet, centers) + '\n';
      });
    }
    if (deleteBatches->parsed()) {
      return detail::EditDataSet(request, out, err, [&request](NCDataSet& dataSet) {
        return BatchCommands::DeleteBatches(dataSet, request.batches, request.phases);
      });
    }
    if (dropLost->parsed()) {
      return detail::EditDataSet(request, out, err, [](NCDataSet& dataSet) {
        return (ExceptionMessage::translate("Removed {1} observations without a record.\n") %
                BatchCommands::DropRowsWithoutRecord(dataSet))
            .str();
      });
    }
    if (merge->parsed()) {
      // The merged dataset is read before the receiving one is edited.
      boost::shared_ptr<NCDataSet> from;
      return detail::EditDataSet(request, out, err, [&](NCDataSet& dataSet) {
        const auto project = boost::static_pointer_cast<NCProjectFile>(dataSet.GetProject());
        const int number = detail::FindDataSet(*project, request.mergeFrom);
        if (number == dataSet.GetNumber()) {
          throw NCError(ExceptionMessage::translate("A dataset cannot be merged into itself."));
        }
        from = detail::Load(*project, number, err);
        return CombineCommands::Merge(dataSet, *from, request.keep);
      });
    }
    if (renamePhase->parsed()) {
      return detail::EditDataSet(request, out, err, [&request](NCDataSet& dataSet) {
        return BatchCommands::RenamePhase(dataSet, request.from, request.to);
      });
    }
  } catch (const std::exception& e) {
    err << e.what() << '\n';
    return 1;
  }
  return 2;
}

}  // namespace ncds::tool
