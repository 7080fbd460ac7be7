#include "ncds/derived/LocalCenteringInfo.h"

#include <cmath>
#include <istream>
#include <ostream>
#include <string>
#include <unordered_map>
#include <utility>

#include "ncds/derived/LocalCenteringData.h"
#include "ncds/foundations/ConfigurationSection.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/VariableInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kNumberOfTags = 3;
constexpr std::uint16_t kTagTriples = 0;
constexpr std::uint16_t kTagCenterID = 1;
constexpr std::uint16_t kTagHasPhases = 2;

// The least a triple takes in a stream: the record's magic header (length byte, 12 bytes of
// "IndexTrippel", version), three empty binary strings and the center.
constexpr std::uint64_t kMinTripleBytes = 1 + 12 + 2 + 3 * 4 + 4;

const char* const kSection = "LocalCentering";
const char* const kEntry = "LCData";
const char* const kCenter = "Center";
const char* const kBatch = "Batch";
const char* const kPhase = "Phase";
const char* const kVariable = "Variable";

constexpr float kMissing = NCDataVector<float>::kMissing;

const char* OrEmpty(const char* text) { return text ? text : ""; }

bool WriteTriples(const LocalCenteringInfo::TrippelMap& centers, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(centers.size());
  if (count != centers.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const auto& [triple, center] : centers) {
    if (!triple.Write(os) || !WriteFourBytes(&center, 1, os)) return false;
  }
  return true;
}

// The triples as written: in strictly ascending order, as the map keeps them.
LocalCenteringInfo::TrippelMap ReadTriples(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * kMinTripleBytes);
  LocalCenteringInfo::TrippelMap centers;
  for (std::uint32_t i = 0; i < count; ++i) {
    IndexTrippel triple;
    if (!triple.Read(is)) ThrowStreamReadError();
    if (!centers.empty() && !(centers.rbegin()->first < triple)) ThrowStreamReadError();
    float center = 0.0F;
    ReadFourBytes(&center, 1, is);
    centers.emplace_hint(centers.end(), std::move(triple), center);
  }
  return centers;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData LocalCenteringInfo::msVStreamData(ncds::detail::kVersion, "FULL_LCI");

LocalCenteringInfo::LocalCenteringInfo() : LocalCenteringInfo(0, false) {}

LocalCenteringInfo::LocalCenteringInfo(int centerID, bool hasPhases)
    : mCenterID(centerID), mHasPhases(hasPhases) {}

LocalCenteringInfo::LocalCenteringInfo(const LocalCenteringInfo& other) = default;

LocalCenteringInfo& LocalCenteringInfo::operator=(const LocalCenteringInfo& other) = default;

LocalCenteringInfo::~LocalCenteringInfo() = default;

bool LocalCenteringInfo::operator==(const LocalCenteringInfo& other) const {
  return mCenterID == other.mCenterID && mHasPhases == other.mHasPhases &&
         mCenters == other.mCenters;
}

void LocalCenteringInfo::AddData(const char* batch, const char* phase, const char* variable,
                                 float center) {
  using ncds::detail::OrEmpty;
  mCenters.insert_or_assign(IndexTrippel(OrEmpty(batch), OrEmpty(phase), OrEmpty(variable)),
                            center);
}

float LocalCenteringInfo::GetData(const char* batch, const char* phase,
                                  const char* variable) const {
  using ncds::detail::OrEmpty;
  const auto found = mCenters.find(IndexTrippel(OrEmpty(batch), OrEmpty(phase), OrEmpty(variable)));
  return found == mCenters.end() ? ncds::detail::kMissing : found->second;
}

void LocalCenteringInfo::Save(ConfigurationSection* section) const {
  namespace d = ncds::detail;
  if (!section) return;
  // Build the new subsection aside, so that a failure leaves the section as it was.
  ConfigurationSection centering(d::kSection);
  for (const auto& [triple, center] : mCenters) {
    ConfigurationSection& entry = centering.AddSubSection(d::kEntry);
    entry.SetFloat(d::kCenter, center);
    entry.SetString(d::kBatch, triple.GetBatch());
    entry.SetString(d::kPhase, triple.GetPhase());
    entry.SetString(d::kVariable, triple.GetVariable());
  }
  section->RemoveSubSections(d::kSection);
  section->AddSubSection(d::kSection) = std::move(centering);
}

void LocalCenteringInfo::Load(ConfigurationSection* section) {
  namespace d = ncds::detail;
  ClearTrippel();
  const ConfigurationSection* centering = section ? section->OpenSubSection(d::kSection) : nullptr;
  if (!centering) return;
  const std::size_t count = centering->CountSubSections(d::kEntry);
  const std::string none;
  for (std::size_t number = 1; number <= count; ++number) {
    const ConfigurationSection* entry = centering->OpenSubSection(d::kEntry, number);
    const float center = entry->GetFloat(d::kCenter, d::kMissing);
    const std::string batch = entry->GetString(d::kBatch, none);
    const std::string phase = entry->GetString(d::kPhase, none);
    const std::string variable = entry->GetString(d::kVariable, none);
    AddData(batch.c_str(), phase.c_str(), variable.c_str(), center);
  }
}

namespace {

// Variable IDs by name (ignoring case), the first variable of a name winning.
using IDsByName = std::unordered_map<std::string_view, unsigned long, VxStdString::NoCaseHash,
                                     VxStdString::NoCaseEqual>;

IDsByName IndexByName(const std::vector<VariableInfo*>* variables) {
  IDsByName ids;
  if (variables) {
    for (const VariableInfo* variable : *variables) {
      if (variable) ids.emplace(variable->GetUserID(1), variable->GetUniqueID());
    }
  }
  return ids;
}

unsigned long FindVariable(const IDsByName& ids, const std::string& name) {
  const auto id = ids.find(name);
  if (id == ids.end()) {
    throw Exception(ExceptionMessage::translate(
        "Local centering information was found for an unknown variable.\nRe-importing the "
        "local centering information might solve the problem."));
  }
  return id->second;
}

}  // namespace

std::unique_ptr<AVGLocalCenteringInfo> LocalCenteringInfo::BuildDefLocalCenteringInfo(
    const std::vector<VariableInfo*>* variables) const {
  const IDsByName ids = IndexByName(variables);
  struct Sum {
    double total = 0.0;
    std::size_t count = 0;
  };
  std::map<AVGLocalCenteringInfo::Key, Sum> sums;
  for (const auto& [triple, center] : mCenters) {
    Sum& sum = sums[{triple.GetPhase(), FindVariable(ids, triple.GetVariable())}];
    if (center != ncds::detail::kMissing) {
      sum.total += center;
      ++sum.count;
    }
  }
  auto averages = std::make_unique<AVGLocalCenteringInfo>(mHasPhases);
  for (const auto& [key, sum] : sums) {
    const float mean = sum.count == 0
                           ? ncds::detail::kMissing
                           : static_cast<float>(sum.total / static_cast<double>(sum.count));
    averages->AddData(key.first.c_str(), key.second, mean);
  }
  return averages;
}

void LocalCenteringInfo::AddTo(LocalCenteringData& centers,
                               const std::vector<VariableInfo*>* variables, int batchSeries,
                               int phaseSeries) const {
  const IDsByName ids = IndexByName(variables);
  // Every name is checked before the first center is stored.
  std::vector<unsigned long> varIDs;
  varIDs.reserve(mCenters.size());
  for (const auto& entry : mCenters) varIDs.push_back(FindVariable(ids, entry.first.GetVariable()));
  auto varID = varIDs.begin();
  for (const auto& [triple, center] : mCenters) {
    const unsigned long id = *varID++;
    if (center == ncds::detail::kMissing || std::isnan(center)) continue;
    const bool byPhase = phaseSeries >= 1 && !triple.GetPhase().empty();
    centers.AddInfo(center, id, batchSeries, triple.GetBatch().c_str(), byPhase ? phaseSeries : -1,
                    byPhase ? triple.GetPhase().c_str() : "");
  }
}

bool LocalCenteringInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool LocalCenteringInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  if (!d::WriteTriples(mCenters, directory.GetOutput(d::kTagTriples))) {
    os.setstate(std::ios_base::badbit);
  }
  WriteToStreamDir(mCenterID, directory, d::kTagCenterID);
  WriteToStreamDir(mHasPhases, directory, d::kTagHasPhases);
  return directory.Close();
}

bool LocalCenteringInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool LocalCenteringInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  TrippelMap centers;
  std::int32_t centerID = 0;
  bool hasPhases = false;
  bool ok = true;
  try {
    centers = d::ReadTriples(GetRequiredInput(directory, d::kTagTriples));
    ReadFromStreamDir(centerID, directory, d::kTagCenterID, true);
    ReadFromStreamDir(hasPhases, directory, d::kTagHasPhases, true);
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  mCenters = std::move(centers);
  mCenterID = centerID;
  mHasPhases = hasPhases;
  return true;
}

void LocalCenteringInfo::VStreamableReset() const { mGuard.Reset(); }
