#include "ncds/batch/BatchInfoVector.h"

#include <boost/make_shared.hpp>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_map>
#include <utility>

#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/QualitativeVariableInfo.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
constexpr std::uint16_t kNumberOfTags = 5;
constexpr std::uint16_t kTagBatches = 0;
constexpr std::uint16_t kTagBCVariableIDs = 3;

constexpr std::uint8_t kEmptySlot = 0;
constexpr std::uint8_t kFilledSlot = 1;

using Batches = std::vector<boost::shared_ptr<BatchInfo>>;

bool WriteBatches(const Batches& batches, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(batches.size());
  if (count != batches.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const auto& batch : batches) {
    const std::uint8_t presence = batch ? kFilledSlot : kEmptySlot;
    if (!WriteBytes(&presence, 1, os)) return false;
    if (batch && !(os << *batch)) return false;
  }
  return static_cast<bool>(os);
}

Batches ReadBatches(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  // Every slot takes at least its presence byte.
  RequireStreamBytes(is, count);
  Batches batches;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint8_t presence = 0;
    ReadBytes(&presence, 1, is);
    if (presence == kEmptySlot) {
      batches.emplace_back();
    } else if (presence == kFilledSlot) {
      auto batch = boost::make_shared<BatchInfo>(std::string());
      if (!(is >> *batch)) ThrowStreamReadError();
      batches.push_back(std::move(batch));
    } else {
      ThrowStreamReadError();
    }
  }
  return batches;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData BatchInfoVector::msVStreamData(ncds::detail::kVersion, "BI");

BatchInfoVector::BatchInfoVector() = default;

BatchInfoVector::BatchInfoVector(const BatchInfoVector& other)
    : VStreamBase(other),
      mBCVariableIDs(other.mBCVariableIDs),
      mLegacyNames(other.mLegacyNames),
      mLegacyKinds(other.mLegacyKinds) {
  mBatches.reserve(other.mBatches.size());
  for (const value_type& batch : other.mBatches) {
    mBatches.push_back(batch ? batch->Clone() : value_type());
  }
}

BatchInfoVector::BatchInfoVector(BatchInfoVector&& other) noexcept
    : VStreamBase(other),
      mBatches(std::move(other.mBatches)),
      mBCVariableIDs(std::move(other.mBCVariableIDs)),
      mLegacyNames(std::move(other.mLegacyNames)),
      mLegacyKinds(std::move(other.mLegacyKinds)) {}

BatchInfoVector& BatchInfoVector::operator=(const BatchInfoVector& other) {
  if (this != &other) {
    BatchInfoVector copy(other);
    *this = std::move(copy);
  }
  return *this;
}

BatchInfoVector& BatchInfoVector::operator=(BatchInfoVector&& other) noexcept {
  if (this != &other) {
    mBatches = std::move(other.mBatches);
    mBCVariableIDs = std::move(other.mBCVariableIDs);
    mLegacyNames = std::move(other.mLegacyNames);
    mLegacyKinds = std::move(other.mLegacyKinds);
  }
  return *this;
}

BatchInfoVector::~BatchInfoVector() = default;

bool BatchInfoVector::operator==(const BatchInfoVector& other) const {
  if (mBatches.size() != other.mBatches.size() || mBCVariableIDs != other.mBCVariableIDs) {
    return false;
  }
  for (std::size_t i = 0; i < mBatches.size(); ++i) {
    const BatchInfo* mine = mBatches[i].get();
    const BatchInfo* theirs = other.mBatches[i].get();
    if (mine == theirs) continue;
    if (!mine || !theirs || *mine != *theirs) return false;
  }
  return true;
}

NCStringVector BatchInfoVector::GetBatchNames() const {
  NCStringVector names;
  names.Reserve(mBatches.size());
  for (const value_type& batch : mBatches) {
    names.push_back(batch ? batch->GetBatchName() : std::string());
  }
  return names;
}

bool BatchInfoVector::UpdateBCIDsVectorFormat(NCProjectBase& project, const NCStringVector* names) {
  if (!mBCVariableIDs.empty()) return true;
  const NCStringVector conditions = names ? *names : mLegacyNames;
  if (names) mLegacyKinds.assign(names->size(), 0);
  NCVariables& variables = project.GetVariables();
  for (std::size_t c = 0; c < conditions.size(); ++c) {
    const std::int32_t kind = c < mLegacyKinds.size() ? mLegacyKinds[c] : 0;
    std::unique_ptr<VariableInfo> variable;
    if (kind == eLegacyQualitative) {
      NCStringVector levels;
      std::unordered_map<std::string, float> codes;
      for (const value_type& batch : mBatches) {
        if (!batch) continue;
        const NCStringVector& texts = batch->OBSOLETE_GetQualitativeValues();
        if (texts.size() <= c) return false;
        const std::string& text = texts[c];
        float code = NCDataVector<float>::kMissing;
        if (!text.empty()) {
          const auto [found, isNew] = codes.emplace(text, static_cast<float>(levels.size() + 1));
          if (isNew) levels.push_back(text);
          code = found->second;
        }
        // Values of earlier conditions that the batch lacks are missing.
        NCDataVector<float>& values = *batch->GetBatchConditionValues();
        if (values.size() < c) values.SetSize(c);
        values.InsertValues(c, 1, code);
      }
      variable = std::make_unique<QualitativeVariableInfo>(conditions[c], project.CreateUniqueID(),
                                                           &levels);
    } else {
      variable =
          std::make_unique<QuantitativeVariableInfo>(conditions[c], project.CreateUniqueID());
      if (kind == eLegacyQuantitativeY) variable->SetVariableBlock(VariableInfo::eY);
    }
    variable->SetVariableType(VariableInfo::eBatchCondition);
    const unsigned long id = variable->GetUniqueID();
    variables.Add(std::move(variable));
    mBCVariableIDs.push_back(id);
  }
  mLegacyNames.Clear();
  mLegacyKinds.clear();
  return true;
}

void BatchInfoVector::OBSOLETE_SetBatchConditions(const NCStringVector& names,
                                                  const std::vector<std::int32_t>& kinds) {
  mLegacyNames = names;
  mLegacyKinds = kinds;
}

bool BatchInfoVector::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool BatchInfoVector::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  if (!d::WriteBatches(mBatches, directory.GetOutput(d::kTagBatches))) {
    os.setstate(std::ios_base::badbit);
  }
  WriteToStreamDir(mBCVariableIDs, directory, d::kTagBCVariableIDs);
  return directory.Close();
}

bool BatchInfoVector::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version)) return false;
  return ReadStreamDirectory(is, version);
}

bool BatchInfoVector::ReadStreamDirectory(std::istream& is, std::int16_t version) {
  namespace d = ncds::detail;
  mBCVariableIDs.Clear();
  InputStreamDirectory directory(is);
  bool ok = true;
  // Streams of other versions hold nothing this build understands.
  if (version == d::kVersion) {
    try {
      mBatches = d::ReadBatches(GetRequiredInput(directory, d::kTagBatches));
      ReadFromStreamDir(mBCVariableIDs, directory, d::kTagBCVariableIDs, true);
    } catch (const VxStreamError&) {
      ok = false;
    }
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void BatchInfoVector::VStreamableReset() const { mGuard.Reset(); }
