// Feeds arbitrary bytes to the readers of datasets ("NCDS"), their descriptions ("NCDSI") and
// the trim records of datasets. Datasets and descriptions are read into a project that holds
// a few variables and observations; a stream naming others is refused with `NCError`. Whatever
// reads must write and read back to the same bytes: no crash, no hang, no allocation beyond
// what the input's size justifies. A dataset that reads has a cell for every row and column,
// and its trim record answers. A trim record that reads is also searched: every value finds
// itself or a smaller value within tolerance, and the search near a value agrees with a scan
// of the whole set from its smallest value up.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzRoundTrip.h"
#include "ncds/ncds.h"

namespace {

using ncds::fuzz::Bytes;

// The first trim value `value` matches, scanning from the smallest up.
bool ScanForMatch(const TrimdVarStruct& record, float value, float& match) {
  for (const float t : record.GetTrimValues()) {
    if (TrimdVarStruct::ValuesMatch(t, value)) {
      match = t;
      return true;
    }
  }
  return false;
}

void CheckSearch(const TrimdVarStruct& record, float value) {
  float expected = 0.0F;
  float found = 0.0F;
  const bool matches = ScanForMatch(record, value, expected);
  if (record.FindTrimValue(value, found) != matches) std::abort();
  if (matches && !(found == expected)) std::abort();
}

void TrimRecord(const std::string& bytes) {
  TrimdVarStruct record;
  std::istringstream is(bytes);
  if (!(is >> record)) return;
  const std::string written = Bytes(record);
  TrimdVarStruct again;
  std::istringstream back(written);
  if (!(back >> again) || again != record || Bytes(again) != written) std::abort();

  // Searching is linear in the scan below: keep it to sets a fuzzer input makes quickly.
  if (record.GetTrimValues().size() > 256) return;
  for (const float t : record.GetTrimValues()) {
    if (std::isnan(t)) std::abort();
    float match = 0.0F;
    if (!record.FindTrimValue(t, match) || match > t) std::abort();
    CheckSearch(record, t);
    CheckSearch(record, std::nextafter(t, 0.0F));
    CheckSearch(record, t * 1.00007F);
    CheckSearch(record, t * 0.99993F);
  }
}

// Variables 10 (X) and 11 (Y); observations 100 to 105 with a batch and a phase series, the
// batch series declared. The seeds are streams of datasets over these records.
boost::shared_ptr<NCProject> MakeProject() {
  auto project = NCProject::Create();
  project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("X", 10UL));
  auto y = std::make_unique<QuantitativeVariableInfo>("Y", 11UL);
  y->SetVariableBlock(VariableInfo::eY);
  project->GetVariables().Add(std::move(y));
  NCObservations& observations = project->GetObservations();
  observations.AddSecondaryID("Batch");
  observations.AddSecondaryID("Phase");
  observations.SetBatchID(2);
  for (unsigned long k = 0; k < 6; ++k) {
    const std::vector<std::string> ids{"o" + std::to_string(k), k < 3 ? "B1" : "B2", "P1"};
    observations.Add(std::make_unique<ObservationInfo>(ids, 100 + k));
  }
  return project;
}

NCProject& Project() {
  static const boost::shared_ptr<NCProject> project = MakeProject();
  return *project;
}

// Reads `object` from `bytes`; false when it did not read or was refused.
bool Read(const std::string& bytes, VStreamBase& object) {
  std::istringstream is(bytes);
  try {
    return static_cast<bool>(is >> object);
  } catch (const NCError&) {
    return false;
  }
}

void DataSet(const std::string& bytes) {
  const auto project = Project().shared_from_this();
  const auto dataSet = NCDataSet::Create(project, 3);
  if (!Read(bytes, *dataSet)) return;
  const NCDataMatrix<float>& data = dataSet->GetMatrix();
  if (data.SizeRows() != static_cast<std::size_t>(dataSet->SizeObservations()) ||
      data.SizeColumns() != static_cast<std::size_t>(dataSet->SizeVariables()) ||
      dataSet->IsDirty()) {
    std::abort();
  }
  // Every row's ID is its record's; a row whose record the project lacks keeps its ID.
  for (std::size_t i = 0; i < dataSet->GetObservationInfoVector().size(); ++i) {
    const ObservationInfo* row = dataSet->GetObservationInfoVector()[i];
    if (row && row->GetUniqueID() != dataSet->GetObservationIDs()[i]) std::abort();
  }
  NCIntegralVector<int, -99> rows;
  NCIntegralVector<int, -99> columns;
  dataSet->GetTrimmedIndex(&rows, &columns);

  const std::string written = Bytes(*dataSet);
  const auto again = NCDataSet::Create(project, 3);
  if (!Read(written, *again) || Bytes(*again) != written) std::abort();
  // Its description reads back the same too.
  const NCDataSetInfo info(dataSet);
  const std::string described = Bytes(info);
  NCDataSetInfo readInfo(project);
  if (!Read(described, readInfo) || Bytes(readInfo) != described) std::abort();
}

void DataSetInfo(const std::string& bytes) {
  const auto project = Project().shared_from_this();
  NCDataSetInfo info(project);
  if (!Read(bytes, info)) return;
  if (info.GetObservationInfoVector().size() != static_cast<std::size_t>(info.SizeObservations()) ||
      info.GetVarIDs().size() != static_cast<std::size_t>(info.SizeVariables())) {
    std::abort();
  }
  const std::string written = Bytes(info);
  NCDataSetInfo again(project);
  if (!Read(written, again) || Bytes(again) != written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  TrimRecord(bytes);
  DataSet(bytes);
  DataSetInfo(bytes);
  return 0;
}
