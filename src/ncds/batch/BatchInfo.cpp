#include "ncds/batch/BatchInfo.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/OneBased.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
constexpr std::uint16_t kNumberOfTags = 7;
constexpr std::uint16_t kTagName = 0;
constexpr std::uint16_t kTagNumObs = 1;
constexpr std::uint16_t kTagIncluded = 2;
constexpr std::uint16_t kTagClassVector = 3;
constexpr std::uint16_t kTagConditionValues = 4;
constexpr std::uint16_t kTagObsoleteValues = 5;
constexpr std::uint16_t kTagSecIDs = 6;

bool WriteStrings(const std::vector<std::string>& strings, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(strings.size());
  if (count != strings.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const std::string& text : strings) {
    if (!WriteBinaryString(text, os)) return false;
  }
  return true;
}

std::vector<std::string> ReadStrings(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  // Each string takes at least its four-byte length.
  RequireStreamBytes(is, std::uint64_t{count} * 4);
  std::vector<std::string> strings(count);
  for (std::string& text : strings) ReadBinaryString(text, is);
  return strings;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData BatchInfo::msVStreamData(ncds::detail::kVersion, "DBINFO");

BatchInfo::BatchInfo(const std::string& name) : mBatchName(name) {}

BatchInfo::BatchInfo(const BatchInfo& other)
    : VStreamBase(other),
      mBatchName(other.mBatchName),
      mClassVector(other.mClassVector ? std::make_unique<ClassInfoVector>(*other.mClassVector)
                                      : nullptr),
      mNumObs(other.mNumObs),
      mBatchConditionValues(other.mBatchConditionValues),
      mSecIDs(other.mSecIDs),
      mObsoleteQualitativeValues(other.mObsoleteQualitativeValues),
      mIncluded(other.mIncluded) {}

BatchInfo& BatchInfo::operator=(const BatchInfo& other) {
  if (this != &other) {
    BatchInfo copy(other);
    mBatchName = std::move(copy.mBatchName);
    mClassVector = std::move(copy.mClassVector);
    mNumObs = copy.mNumObs;
    mBatchConditionValues = std::move(copy.mBatchConditionValues);
    mSecIDs = std::move(copy.mSecIDs);
    mObsoleteQualitativeValues = std::move(copy.mObsoleteQualitativeValues);
    mIncluded = copy.mIncluded;
  }
  return *this;
}

BatchInfo::~BatchInfo() = default;

boost::shared_ptr<BatchInfo> BatchInfo::Clone() const {
  return boost::shared_ptr<BatchInfo>(new BatchInfo(*this));
}

bool BatchInfo::operator==(const BatchInfo& other) const {
  if (mBatchName != other.mBatchName || mNumObs != other.mNumObs ||
      mBatchConditionValues != other.mBatchConditionValues || mIncluded != other.mIncluded ||
      mSecIDs != other.mSecIDs) {
    return false;
  }
  if (!mClassVector || !other.mClassVector) return !mClassVector && !other.mClassVector;
  return *mClassVector == *other.mClassVector;
}

const char* BatchInfo::GetGeneratedTimeVariableName() { return "$Time"; }

void BatchInfo::SetBatchName(const char* name) { mBatchName = name ? name : ""; }

int BatchInfo::GetNumObs(const char* phaseName, bool includeExcluded) const {
  if (!mClassVector) return mNumObs;
  int sum = 0;
  for (const auto& phase : *mClassVector) {
    if (!phase) continue;
    const bool counts =
        phaseName ? phase->GetPhaseName() == phaseName : includeExcluded || phase->IsIncluded();
    if (counts) sum += phase->GetNumObs();
  }
  return sum;
}

void BatchInfo::SetClassVectorPtr(ClassInfoVector* phases) {
  if (phases != mClassVector.get()) mClassVector.reset(phases);
}

void BatchInfo::SetBatchConditionValues(const NCDataVector<float>* values) {
  if (values == &mBatchConditionValues) return;
  mBatchConditionValues.Clear();
  if (values) mBatchConditionValues = *values;
}

void BatchInfo::SetBatchConditionValue(int position, float value) {
  std::size_t index = 0;
  if (ncds::detail::ToPosition(position, mBatchConditionValues.size(), index)) {
    mBatchConditionValues[index] = value;
  }
}

bool BatchInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool BatchInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  WriteToStreamDir(mBatchName, directory, d::kTagName);
  WriteToStreamDir(mNumObs, directory, d::kTagNumObs);
  WriteToStreamDir(mIncluded, directory, d::kTagIncluded);
  if (mClassVector && !mClassVector->WriteToStream(directory.GetOutput(d::kTagClassVector))) {
    os.setstate(std::ios_base::badbit);
  }
  WriteToStreamDir(mBatchConditionValues, directory, d::kTagConditionValues);
  WriteToStreamDir(mObsoleteQualitativeValues, directory, d::kTagObsoleteValues);
  if (!d::WriteStrings(mSecIDs, directory.GetOutput(d::kTagSecIDs))) {
    os.setstate(std::ios_base::badbit);
  }
  return directory.Close();
}

bool BatchInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  mBatchConditionValues.Clear();
  mSecIDs.clear();
  mObsoleteQualitativeValues.Clear();
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool BatchInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::string name;
    std::int32_t numObs = 0;
    bool included = true;
    ReadFromStreamDir(name, directory, d::kTagName, true);
    mBatchName = std::move(name);
    ReadFromStreamDir(numObs, directory, d::kTagNumObs, true);
    mNumObs = numObs;
    ReadFromStreamDir(included, directory, d::kTagIncluded, true);
    mIncluded = included;
    mClassVector.reset();
    if (std::istream* input = directory.GetInput(d::kTagClassVector)) {
      mClassVector = ClassInfoVector::ReadFromStream(*input);
    }
    ReadFromStreamDir(mBatchConditionValues, directory, d::kTagConditionValues, true);
    ReadFromStreamDir(mObsoleteQualitativeValues, directory, d::kTagObsoleteValues, false);
    if (std::istream* input = directory.GetInput(d::kTagSecIDs)) mSecIDs = d::ReadStrings(*input);
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void BatchInfo::VStreamableReset() const { mGuard.Reset(); }
