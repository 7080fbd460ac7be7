// Feeds arbitrary bytes to the CSV reader and to CSV import into a fresh project. The first
// byte chooses the separator, the decimal character, the ID columns ("id", then "batch"), the
// missing text "NA" and the batch and phase columns ("batch", "phase"); the rest is the file.
// Reading and importing give rows or a dataset, or an `NCError`: no crash, no hang, no allocation
// beyond what the input's size justifies. A failed import leaves the project empty. A dataset that
// imports is exported and imported again, with the options the tool prints, into another project,
// which must give the same IDs, batch structure, variables, levels and values (floats bit for bit);
// date-time columns must stay date-times, their values are only as exact as a float holds them.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "tools/ncds/CsvExport.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/CsvReader.h"

namespace {

using ncds::tool::CsvExportOptions;
using ncds::tool::CsvImportOptions;

void Check(bool condition) {
  if (!condition) std::abort();
}

std::uint32_t Bits(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

void Read(const std::string& text, char separator) {
  ncds::tool::CsvReader reader(text, "fuzz.csv", separator);
  ncds::tool::CsvRow row;
  try {
    while (reader.ReadRow(row)) Check(row.size() == reader.GetWidth());
    Check(reader.GetOffset() == text.size());
  } catch (const NCError&) {
  }
}

// The same primary IDs, the same ID columns (labels and IDs) and the same variables.
void ExpectSame(const NCDataSet& a, const NCDataSet& b) {
  Check(a.SizeObservations() == b.SizeObservations() && a.SizeVariables() == b.SizeVariables());
  const NCObservations& ao = a.GetProject()->GetObservations();
  const NCObservations& bo = b.GetProject()->GetObservations();
  const std::vector<int> seriesA = ncds::tool::CsvExport::ExportedSeries(a, ao);
  const std::vector<int> seriesB = ncds::tool::CsvExport::ExportedSeries(b, bo);
  Check(seriesA.size() == seriesB.size());
  for (std::size_t k = 0; k < seriesA.size(); ++k) {
    Check(ao.GetIDLabelRaw(seriesA[k]) == bo.GetIDLabelRaw(seriesB[k]));
  }
  for (int obs = 1; obs <= a.SizeObservations(); ++obs) {
    Check(a.GetObservationInfo(obs)->GetUserID(1) == b.GetObservationInfo(obs)->GetUserID(1));
    for (std::size_t k = 0; k < seriesA.size(); ++k) {
      Check(a.GetObservationInfo(obs)->GetUserID(seriesA[k]) ==
            b.GetObservationInfo(obs)->GetUserID(seriesB[k]));
    }
  }
  for (int var = 1; var <= a.SizeVariables(); ++var) {
    const VariableInfo* x = a.GetVariableInfo(var);
    const VariableInfo* y = b.GetVariableInfo(var);
    Check(x && y && x->GetUserID(1) == y->GetUserID(1));
    Check(!x->AsQuantitativeVariableInfo() == !y->AsQuantitativeVariableInfo());
    Check(!x->AsDateTimeVariableInfo() == !y->AsDateTimeVariableInfo());
    if (x->IsQualitative()) {
      Check(x->AsQualitativeVariableInfo()->GetSettings() ==
            y->AsQualitativeVariableInfo()->GetSettings());
    }
    for (int obs = 1; obs <= a.SizeObservations(); ++obs) {
      const float u = a.GetValue(obs, var);
      const float v = b.GetValue(obs, var);
      if (x->AsDateTimeVariableInfo()) {
        Check((u == -99.0F) == (v == -99.0F));
      } else {
        Check(Bits(u) == Bits(v));
      }
    }
  }
}

void Import(const std::string& text, const CsvImportOptions& options) {
  const auto project = NCProject::Create();
  boost::shared_ptr<NCDataSet> data;
  try {
    data = ncds::tool::CsvImport::ImportText(project, text, "fuzz.csv", options);
  } catch (const NCError&) {
    Check(project->GetVariables().empty() && project->GetObservations().empty());
    Check(project->GetDataSetNumbers().empty());
    Check(project->GetObservations().SizeAliases() == 1 &&
          !project->GetObservations().HasBatches());
    return;
  }
  Check(project->GetDataContainer(data->GetNumber()) == data);
  Check(project->GetObservations().size() == static_cast<std::size_t>(data->SizeObservations()));

  CsvExportOptions exportOptions;
  exportOptions.separator = options.separator;
  exportOptions.decimal = options.decimal;
  const std::string exported = ncds::tool::CsvExport::ToText(*data, exportOptions);
  // The columns the export wrote, named as the tool tells its user to import them again.
  const NCObservations& observations = project->GetObservations();
  CsvImportOptions again = options;
  again.idColumns.clear();
  again.batchColumn.clear();
  again.phaseColumn.clear();
  const bool isBatch = data->GetBatchInfoVector() != nullptr;
  for (const int series : ncds::tool::CsvExport::ExportedSeries(*data, observations)) {
    const std::string label = observations.GetIDLabelRaw(series);
    if (isBatch && series == observations.GetBatchIDRaw()) {
      again.batchColumn = label;
    } else if (isBatch && series == observations.GetPhaseIDRaw()) {
      again.phaseColumn = label;
    } else {
      again.idColumns.push_back(label);
    }
  }
  const auto other = NCProject::Create();
  const auto copy = ncds::tool::CsvImport::ImportText(other, exported, "again.csv", again);
  ExpectSame(*data, *copy);
  if (isBatch) Check(*data->GetBatchInfoVector() == *copy->GetBatchInfoVector());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const char kSeparators[] = {',', ';', '\t', '|'};
  const std::uint8_t choice = data[0];
  CsvImportOptions options;
  options.separator = kSeparators[choice & 3];
  options.decimal = (choice & 4) && options.separator != ',' ? ',' : '.';
  if (choice & 8) options.idColumns.push_back("id");
  if ((choice & 24) == 24) options.idColumns.push_back("batch");
  if (choice & 32) options.missingTexts.push_back("NA");
  if (choice & 64) options.batchColumn = "batch";
  if (choice & 128) options.phaseColumn = "phase";
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  Read(text, options.separator);
  Import(text, options);
  return 0;
}
