#include "ncds/batch/BatchImportSettings.h"

#include <istream>
#include <limits>
#include <ostream>
#include <string>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
constexpr std::uint16_t kNumberOfTags = 5;
constexpr std::uint16_t kTagProjectType = 0;
constexpr std::uint16_t kTagBatchID = 5;
constexpr std::uint16_t kTagPhaseID = 6;
constexpr std::uint16_t kTagSourceVars = 7;
constexpr std::uint16_t kTagDefaultPhases = 8;

using SourceVars = std::map<unsigned long, unsigned long>;

bool WriteSourceVars(const SourceVars& sourceVars, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(sourceVars.size());
  if (count != sourceVars.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const auto& [variable, source] : sourceVars) {
    const std::uint32_t pair[2] = {static_cast<std::uint32_t>(variable),
                                   static_cast<std::uint32_t>(source)};
    if (!WriteFourBytes(pair, 2, os)) return false;
  }
  return true;
}

// The map's keys were written in increasing order; any other order is damage.
SourceVars ReadSourceVars(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * 8);
  SourceVars sourceVars;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t pair[2] = {0, 0};
    ReadFourBytes(pair, 2, is);
    if (!sourceVars.empty() && pair[0] <= sourceVars.rbegin()->first) ThrowStreamReadError();
    sourceVars.emplace_hint(sourceVars.end(), pair[0], pair[1]);
  }
  return sourceVars;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData BatchImportSettings::msVStreamData(ncds::detail::kVersion, "WSINFO");

BatchImportSettings::BatchImportSettings() = default;

BatchImportSettings::BatchImportSettings(const BatchImportSettings& other)
    : VStreamBase(other),
      mBatchID(other.mBatchID),
      mPhaseID(other.mPhaseID),
      mSourceVars(other.mSourceVars),
      mProjectType(other.mProjectType),
      mDefaultPhases(other.mDefaultPhases ? std::make_unique<ClassInfoVector>(*other.mDefaultPhases)
                                          : nullptr) {}

BatchImportSettings& BatchImportSettings::operator=(const BatchImportSettings& other) {
  if (this != &other) {
    BatchImportSettings copy(other);
    mBatchID = copy.mBatchID;
    mPhaseID = copy.mPhaseID;
    mSourceVars = std::move(copy.mSourceVars);
    mProjectType = copy.mProjectType;
    mDefaultPhases = std::move(copy.mDefaultPhases);
  }
  return *this;
}

BatchImportSettings::~BatchImportSettings() = default;

bool BatchImportSettings::operator==(const BatchImportSettings& other) const {
  if (mBatchID != other.mBatchID || mPhaseID != other.mPhaseID ||
      mSourceVars != other.mSourceVars || mProjectType != other.mProjectType) {
    return false;
  }
  if (!mDefaultPhases || !other.mDefaultPhases) return !mDefaultPhases && !other.mDefaultPhases;
  return *mDefaultPhases == *other.mDefaultPhases;
}

void BatchImportSettings::SetDefaultClassInfoVector(const ClassInfoVector* phases) {
  if (phases == mDefaultPhases.get()) return;
  mDefaultPhases = phases ? std::make_unique<ClassInfoVector>(*phases) : nullptr;
}

void BatchImportSettings::SetSourceVar(unsigned long variableID, unsigned long sourceID) {
  constexpr unsigned long kMaxID = std::numeric_limits<std::uint32_t>::max();
  if (variableID > kMaxID || sourceID > kMaxID) {
    throw InvalidArgument("BatchImportSettings::SetSourceVar: unique IDs have 32 bits");
  }
  mSourceVars[variableID] = sourceID;
}

unsigned long BatchImportSettings::GetSourceVar(unsigned long variableID,
                                                const NCVariables* /*variables*/) const {
  const auto found = mSourceVars.find(variableID);
  return found == mSourceVars.end() ? NCUniqueIDs::kNone : found->second;
}

void BatchImportSettings::IncludeNewVar(unsigned long variableID, NCVariables* variables) {
  VariableInfo* variable = variables ? (*variables)[variableID] : nullptr;
  if (!variable) return;
  const VariableInfo::EVariableBlock block = variable->GetVariableBlock();
  // Excluded first, so that the check at the end does not count the variable itself.
  if (block != VariableInfo::eExcludedX && block != VariableInfo::eExcludedY) {
    variable->SetVariableBlock(block == VariableInfo::eX ? VariableInfo::eExcludedX
                                                         : VariableInfo::eExcludedY);
  }
  if (IsBatch() && mDefaultPhases) {
    for (const auto& phase : *mDefaultPhases) {
      if (!phase) continue;
      if (phase->GetYVariableID() == NCUniqueIDs::kNone) {
        phase->SetYVariableID(variableID);
        phase->SetIncluded(variableID, true);
      } else {
        phase->SetIncluded(variableID, false);
      }
    }
  }
  // It ends as a Y in every case, included only when no other variable is an included Y.
  variable->SetVariableBlock(variables->IncludedYExsists() ? VariableInfo::eExcludedY
                                                           : VariableInfo::eY);
}

void BatchImportSettings::Reset() {
  mBatchID = 0;
  mPhaseID = 0;
  mSourceVars.clear();
  mProjectType = eUnspecified;
  mDefaultPhases.reset();
}

bool BatchImportSettings::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool BatchImportSettings::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  WriteToStreamDir(static_cast<std::int16_t>(mProjectType), directory, d::kTagProjectType);
  WriteToStreamDir(mBatchID, directory, d::kTagBatchID);
  WriteToStreamDir(mPhaseID, directory, d::kTagPhaseID);
  if (!d::WriteSourceVars(mSourceVars, directory.GetOutput(d::kTagSourceVars))) {
    os.setstate(std::ios_base::badbit);
  }
  if (mDefaultPhases && !mDefaultPhases->WriteToStream(directory.GetOutput(d::kTagDefaultPhases))) {
    os.setstate(std::ios_base::badbit);
  }
  return directory.Close();
}

bool BatchImportSettings::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  Reset();
  return ReadStreamDirectory(is);
}

bool BatchImportSettings::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::int16_t projectType = eUnspecified;
    std::int32_t batchID = 0;
    std::int32_t phaseID = 0;
    ReadFromStreamDir(projectType, directory, d::kTagProjectType, true);
    mProjectType = static_cast<EProjectType>(projectType);
    ReadFromStreamDir(batchID, directory, d::kTagBatchID, true);
    mBatchID = batchID;
    ReadFromStreamDir(phaseID, directory, d::kTagPhaseID, true);
    mPhaseID = phaseID;
    mSourceVars = d::ReadSourceVars(GetRequiredInput(directory, d::kTagSourceVars));
    if (std::istream* input = directory.GetInput(d::kTagDefaultPhases)) {
      mDefaultPhases = ClassInfoVector::ReadFromStream(*input);
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void BatchImportSettings::VStreamableReset() const { mGuard.Reset(); }
