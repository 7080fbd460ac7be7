// Feeds arbitrary bytes to the readers of the centering records: default center values, the
// imported local centering information, its per-phase averages, the triple key and a
// dataset's local centers (which are then looked up and subtracted from a small batch). Whatever
// reads must write and read back to the same bytes. What reads is also used: defaults are
// looked up, the imported centers go through a configuration's XML text and back unchanged,
// and their averages are built over variables that know every name.

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

using ncds::fuzz::RoundTrip;

void Defaults(const std::string& bytes) {
  DefaultCenterValues values;
  DefaultCenterValues again;
  if (!RoundTrip(bytes, values, again) || again != values) return;
  const ObservationInfo observation(std::vector<std::string>{"a", "b", ""}, 1);
  for (const unsigned long id : values.GetVariableIDs()) {
    (void)values.GetDefaultValue(id, observation);
    (void)values.GetDefaultValue(id, std::string("b"));
  }
}

bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

// The same triples and centers; a NaN matches any NaN (a text form keeps no NaN payload).
bool SameCenters(const LocalCenteringInfo& a, const LocalCenteringInfo& b) {
  if (a.SizeTrippel() != b.SizeTrippel()) return false;
  for (auto i = a.BeginTrippel(), j = b.BeginTrippel(); i != a.EndTrippel(); ++i, ++j) {
    const bool same = i->second == j->second || (std::isnan(i->second) && std::isnan(j->second));
    if (i->first != j->first || !same) return false;
  }
  return true;
}

void Centering(const std::string& bytes) {
  LocalCenteringInfo info;
  LocalCenteringInfo again;
  if (!RoundTrip(bytes, info, again)) return;

  // Names without NUL (which XML cannot hold) survive the configuration file form.
  bool xmlSafe = true;
  std::vector<std::unique_ptr<QuantitativeVariableInfo>> variables;
  for (auto it = info.BeginTrippel(); it != info.EndTrippel(); ++it) {
    const IndexTrippel& key = it->first;
    xmlSafe =
        xmlSafe && !HasNul(key.GetBatch()) && !HasNul(key.GetPhase()) && !HasNul(key.GetVariable());
    variables.push_back(
        std::make_unique<QuantitativeVariableInfo>(key.GetVariable(), variables.size() + 1));
  }
  if (xmlSafe) {
    ConfigurationSection section;
    info.Save(&section);
    ConfigurationSection reread;
    reread.LoadString(section.SaveString(), "fuzz");
    LocalCenteringInfo loaded(info.GetCenterID(), info.HasPhases());
    loaded.Load(&reread);
    if (!SameCenters(loaded, info)) std::abort();
  }

  std::vector<VariableInfo*> pointers;
  for (const auto& variable : variables) pointers.push_back(variable.get());
  if (info.BuildDefLocalCenteringInfo(&pointers)->Size() > info.SizeTrippel()) std::abort();
}

void Averages(const std::string& bytes) {
  AVGLocalCenteringInfo averages;
  AVGLocalCenteringInfo again;
  RoundTrip(bytes, averages, again);
}

std::string TrippelBytes(const IndexTrippel& triple) {
  std::ostringstream os;
  if (!triple.Write(os)) std::abort();
  return os.str();
}

void Trippel(const std::string& bytes) {
  std::istringstream is(bytes);
  IndexTrippel triple;
  if (!triple.Read(is)) return;
  const std::string written = TrippelBytes(triple);
  std::istringstream back(written);
  IndexTrippel again;
  if (!again.Read(back) || again != triple || TrippelBytes(again) != written) std::abort();
}

// Three rows of two batches and a column per variable the centers name (up to four).
void CenteringData(const std::string& bytes) {
  LocalCenteringData object;
  LocalCenteringData again;
  if (!ncds::fuzz::RoundTrip(bytes, object, again)) return;
  const std::map<std::string, int> names = object.GetIDNames();
  if (object.GetLocalCenteringDataAsMat(&names).SizeColumns() != object.SizeVars()) std::abort();
  static const boost::shared_ptr<NCProject> project = [] {
    auto made = NCProject::Create();
    made->GetObservations().AddSecondaryID("Batch");
    made->GetObservations().AddSecondaryID("Phase");
    made->SetBatchIdentifierSeries(2);
    return made;
  }();
  static const VarObsInfoVector<ObservationInfo> rows = [] {
    VarObsInfoVector<ObservationInfo> made;
    const char* const batches[] = {"B1", "B1", "B2"};
    for (const char* batch : batches) {
      const unsigned long id = project->CreateUniqueID();
      made.push_back(project->GetObservations().Add(
          std::make_unique<ObservationInfo>(std::vector<std::string>{"o", batch, "P1"}, id),
          nullptr));
    }
    return made;
  }();
  NCIntegralVector<unsigned long, 0> varIDs = object.GetVariableIDs();
  if (varIDs.size() > 4) varIDs.RemoveValues(4, varIDs.size() - 4);
  NCDataMatrix<float> data(rows.size(), varIDs.size(), 1.0F);
  object.Subtract(data, rows, varIDs, *project, nullptr);
  NCDataMatrix<float> centers;
  NCIntegralVector<unsigned long, 0> centerIDs;
  object.GetSubtractionMatrix(centers, centerIDs, rows, varIDs, *project, nullptr);
  if (centerIDs.size() != centers.SizeColumns()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Defaults(bytes);
  Centering(bytes);
  Averages(bytes);
  Trippel(bytes);
  CenteringData(bytes);
  return 0;
}
