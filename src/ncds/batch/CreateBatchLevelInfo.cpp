#include "ncds/batch/CreateBatchLevelInfo.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kCBLIVersion = 1;
constexpr std::uint16_t kCBLITags = 8;
constexpr std::uint16_t kTagVariables = 0;
constexpr std::uint16_t kTagStatistics = 1;
constexpr std::uint16_t kTagByPhase = 2;
constexpr std::uint16_t kTagPhases = 3;
constexpr std::uint16_t kTagConditions = 4;
constexpr std::uint16_t kTagSource = 5;
constexpr std::uint16_t kTagMaturity = 6;
constexpr std::uint16_t kTagSourceBatches = 7;

bool WriteNames(const std::vector<std::string>& names, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(names.size());
  bool ok = WriteFourBytes(&count, 1, os);
  for (const std::string& name : names) ok = ok && WriteBinaryString(name, os);
  return ok;
}

// Throws `VxStreamError` for a missing entry or a count the entry cannot hold.
std::vector<std::string> ReadNames(InputStreamDirectory& directory, std::uint16_t tag) {
  std::istream* is = directory.GetInput(tag);
  if (!is) ThrowStreamReadError();
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, *is);
  RequireStreamBytes(*is, std::uint64_t{count} * 4);  // a length each
  std::vector<std::string> names(count);
  for (std::string& name : names) ReadBinaryString(name, *is);
  return names;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData CreateBatchLevelInfo::msVStreamData(ncds::detail::kCBLIVersion, "CBLI");

CreateBatchLevelInfo::CreateBatchLevelInfo() = default;
CreateBatchLevelInfo::CreateBatchLevelInfo(const CreateBatchLevelInfo& other) = default;
CreateBatchLevelInfo& CreateBatchLevelInfo::operator=(const CreateBatchLevelInfo& other) = default;
CreateBatchLevelInfo::~CreateBatchLevelInfo() = default;

bool CreateBatchLevelInfo::operator==(const CreateBatchLevelInfo& other) const {
  return mVariableIDs == other.mVariableIDs && mStatistics == other.mStatistics &&
         mByPhase == other.mByPhase && mPhases == other.mPhases &&
         mConditions == other.mConditions && mSource == other.mSource &&
         mMaturityID == other.mMaturityID && mSourceBatches == other.mSourceBatches;
}

bool CreateBatchLevelInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (!msVStreamData.Write(os)) return false;
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kCBLITags);
  std::ostream& variables = directory.GetOutput(d::kTagVariables);
  const auto count = static_cast<std::uint32_t>(mVariableIDs.size());
  bool ok = WriteFourBytes(&count, 1, variables) &&
            (mVariableIDs.empty() || WriteFourBytes(mVariableIDs.data(), count, variables));
  ok = ok && d::WriteNames(mStatistics, directory.GetOutput(d::kTagStatistics)) &&
       WriteToStreamDir(mByPhase, directory, d::kTagByPhase) &&
       d::WriteNames(mPhases, directory.GetOutput(d::kTagPhases)) &&
       WriteToStreamDir(mConditions, directory, d::kTagConditions) &&
       WriteToStreamDir(mSource, directory, d::kTagSource) &&
       WriteToStreamDir(mMaturityID, directory, d::kTagMaturity) &&
       mSourceBatches.Write(directory.GetOutput(d::kTagSourceBatches));
  return directory.Close() && ok && static_cast<bool>(os);
}

bool CreateBatchLevelInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kCBLIVersion) return false;
  return ReadStreamDirectory(is);
}

bool CreateBatchLevelInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = true;
  // Read into locals: the description changes only once the whole stream has read.
  std::vector<std::uint32_t> ids;
  std::vector<std::string> statistics;
  std::vector<std::string> phases;
  bool byPhase = false;
  bool conditions = false;
  std::int32_t source = 0;
  std::uint32_t maturity = 0;
  SourceBatches sourceBatches;
  try {
    std::istream* variables = directory.GetInput(d::kTagVariables);
    if (!variables) ThrowStreamReadError();
    std::uint32_t count = 0;
    ReadFourBytes(&count, 1, *variables);
    RequireStreamBytes(*variables, std::uint64_t{count} * 4);
    ids.resize(count);
    if (count > 0) ReadFourBytes(ids.data(), count, *variables);
    statistics = d::ReadNames(directory, d::kTagStatistics);
    ReadFromStreamDir(byPhase, directory, d::kTagByPhase, true);
    phases = d::ReadNames(directory, d::kTagPhases);
    ReadFromStreamDir(conditions, directory, d::kTagConditions, true);
    ReadFromStreamDir(source, directory, d::kTagSource, true);
    ReadFromStreamDir(maturity, directory, d::kTagMaturity, false);
    if (std::istream* batches = directory.GetInput(d::kTagSourceBatches)) {
      sourceBatches.Read(*batches);
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  ok = ok && static_cast<bool>(is);
  if (!ok) return false;
  mVariableIDs = std::move(ids);
  mStatistics = std::move(statistics);
  mByPhase = byPhase;
  mPhases = std::move(phases);
  mConditions = conditions;
  mSource = source;
  mMaturityID = maturity;
  mSourceBatches = std::move(sourceBatches);
  return true;
}

void CreateBatchLevelInfo::VStreamableReset() const { mGuard.Reset(); }
