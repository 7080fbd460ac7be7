#include "ncds/batch/ClassInfo.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 4;
constexpr std::uint16_t kNumberOfTags = 7;
constexpr std::uint16_t kTagAverageLength = 1;
constexpr std::uint16_t kTagOriginalName = 2;
constexpr std::uint16_t kTagPhaseName = 3;
constexpr std::uint16_t kTagYVariable = 4;
constexpr std::uint16_t kTagNumObs = 5;
constexpr std::uint16_t kTagIncluded = 6;
constexpr std::uint16_t kTagExcludedVariables = 7;

// Reads a required entry into `field`, which changes only when the whole value was read.
template <class T>
void ReadField(T& field, InputStreamDirectory& directory, std::uint16_t tag) {
  T value{};
  ReadFromStreamDir(value, directory, tag, true);
  field = std::move(value);
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData ClassInfo::msVStreamData(ncds::detail::kVersion, "DPINFO");

ClassInfo::ClassInfo(const std::string& name) : mOriginalName(name), mPhaseName(name) {}

ClassInfo::ClassInfo(const ClassInfo& other) = default;

ClassInfo& ClassInfo::operator=(const ClassInfo& other) = default;

ClassInfo::~ClassInfo() = default;

boost::shared_ptr<ClassInfo> ClassInfo::Clone() const {
  return boost::shared_ptr<ClassInfo>(new ClassInfo(*this));
}

bool ClassInfo::operator==(const ClassInfo& other) const {
  return mOriginalName == other.mOriginalName && mPhaseName == other.mPhaseName &&
         mYVariableID == other.mYVariableID && mNumObs == other.mNumObs &&
         mAverageLength == other.mAverageLength && mIncluded == other.mIncluded &&
         mExcludedVariables == other.mExcludedVariables && mPhaseStatus == other.mPhaseStatus;
}

void ClassInfo::SetOriginalName(const char* name) { mOriginalName = name ? name : ""; }

void ClassInfo::SetPhaseName(const char* name) { mPhaseName = name ? name : ""; }

bool ClassInfo::IsIncluded(unsigned long variableID) const {
  return mExcludedVariables.Find(variableID) < 0;
}

void ClassInfo::SetIncluded(unsigned long variableID, bool include) {
  const std::ptrdiff_t position = mExcludedVariables.Find(variableID);
  if (include) {
    if (position >= 0) mExcludedVariables.RemoveValues(static_cast<std::size_t>(position), 1);
  } else if (position < 0) {
    mExcludedVariables.push_back(variableID);
  }
}

bool ClassInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool ClassInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  WriteToStreamDir(mAverageLength, directory, d::kTagAverageLength);
  WriteToStreamDir(mOriginalName, directory, d::kTagOriginalName);
  WriteToStreamDir(mPhaseName, directory, d::kTagPhaseName);
  WriteToStreamDir(static_cast<std::uint32_t>(mYVariableID), directory, d::kTagYVariable);
  WriteToStreamDir(mNumObs, directory, d::kTagNumObs);
  WriteToStreamDir(mIncluded, directory, d::kTagIncluded);
  WriteToStreamDir(mExcludedVariables, directory, d::kTagExcludedVariables);
  return directory.Close();
}

bool ClassInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  // The average length is recomputed from the batches unless the stream says otherwise, and
  // the status belongs to the session that set it.
  mAverageLength = -1;
  mPhaseStatus = eNormal;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool ClassInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::uint32_t yVariable = 0;
    d::ReadField(mAverageLength, directory, d::kTagAverageLength);
    d::ReadField(mOriginalName, directory, d::kTagOriginalName);
    d::ReadField(mPhaseName, directory, d::kTagPhaseName);
    ReadFromStreamDir(yVariable, directory, d::kTagYVariable, true);
    mYVariableID = yVariable;
    d::ReadField(mNumObs, directory, d::kTagNumObs);
    d::ReadField(mIncluded, directory, d::kTagIncluded);
    d::ReadField(mExcludedVariables, directory, d::kTagExcludedVariables);
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void ClassInfo::VStreamableReset() const { mGuard.Reset(); }
