#include "ncds/dataset/NCDataSetInfo.h"

#include <boost/make_shared.hpp>
#include <istream>
#include <ostream>
#include <utility>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/dataset/detail/DataSetStreamParts.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/metadata/AliasAccess.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"

using ncds::detail::ToPosition;

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 3;
constexpr std::uint16_t kNumberOfTags = 14;

enum DataSetInfoTag : std::uint16_t {
  kTagNumYVariables = 0,
  kTagNumObservations = 1,
  kTagNumVariables = 2,
  kTagNumber = 3,
  kTagName = 4,
  kTagUnused = 5,  // always a zero byte, never read
  kTagDataType = 6,
  kTagSourceID = 7,
  kTagObservationIDs = 8,
  kTagVariableIDs = 9,
  kTagUsedObsAliases = 10,
  kTagUsedVarAliases = 11,
  kTagBatches = 12,
  kTagPhases = 13,
};

boost::shared_ptr<NCProjectBase> ProjectOf(const boost::shared_ptr<NCDataSet const>& dataSet) {
  return dataSet ? boost::const_pointer_cast<NCProjectBase>(dataSet->GetProject()) : nullptr;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData NCDataSetInfo::msVStreamData(ncds::detail::kVersion, "NCDSI");

NCDataSetInfo::NCDataSetInfo(boost::shared_ptr<NCProjectBase> project)
    : NCDataContainerBase(std::move(project)),
      mDataType(NCDataSet::kOrdinary),
      mSourceID(NCUniqueIDs::kNone) {}

NCDataSetInfo::NCDataSetInfo(boost::shared_ptr<NCDataSet const> dataSet)
    : NCDataContainerBase(ncds::detail::ProjectOf(dataSet)),
      mDataType(NCDataSet::kOrdinary),
      mSourceID(NCUniqueIDs::kNone) {
  if (dataSet) Update(dataSet);
}

NCDataSetInfo::NCDataSetInfo(const NCDataSetInfo& other) = default;

NCDataSetInfo::~NCDataSetInfo() = default;

void NCDataSetInfo::Update(const boost::shared_ptr<NCDataSet const>& dataSet) {
  mNumObservations = dataSet->SizeObservations();
  mNumVariables = dataSet->SizeVariables();
  mNumber = dataSet->GetNumber();
  mName = dataSet->GetName();
  mNumYVariables = static_cast<int>(dataSet->GetYVariables(nullptr).size());
  mDataType = dataSet->GetDataType();
  mSourceID = dataSet->GetSourceID();
  mObsInfos = dataSet->GetObservationInfoVector();
  mRowIDs = dataSet->GetObservationIDs();
  mVarIDs = dataSet->GetVarIDs();
  mUsedObsAliases = dataSet->GetUsedObsAliases();
  mUsedVarAliases = dataSet->GetUsedVarAliases();
  const auto batches = dataSet->GetBatchInfoVector();
  mBatches = batches ? boost::make_shared<BatchInfoVector>(*batches) : nullptr;
  const auto phases = dataSet->GetPhaseInfoVector();
  mPhases = phases ? boost::make_shared<ClassInfoVector>(*phases) : nullptr;
}

unsigned long NCDataSetInfo::GetVarID(int index) const {
  std::size_t position = 0;
  return ToPosition(index, mVarIDs.size(), position) ? mVarIDs[position] : 0;
}

const ObservationInfo* NCDataSetInfo::GetObservationInfo(int index) const {
  std::size_t position = 0;
  return ToPosition(index, mObsInfos.size(), position) ? mObsInfos[position] : nullptr;
}

const std::string& NCDataSetInfo::GetVariableID(int index, int aliasSeries) const {
  const auto project = GetProject();
  std::size_t position = 0;
  if (!project || !ToPosition(index, mVarIDs.size(), position)) return VxStdString::Empty();
  const NCVariables& variables = project->GetVariables();
  const VariableInfo* info = variables[mVarIDs[position]];
  return info ? AliasAccess(variables).GetAlias(aliasSeries, *info) : VxStdString::Empty();
}

boost::shared_ptr<BatchInfoVector const> NCDataSetInfo::GetBatchInfoVector() const {
  return mBatches;
}

boost::shared_ptr<ClassInfoVector const> NCDataSetInfo::GetPhaseInfoVector() const {
  return mPhases;
}

bool NCDataSetInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWriteBases(os) && VStreamableWrite(os);
}

bool NCDataSetInfo::VStreamableWriteBases(std::ostream& os) const { return static_cast<bool>(os); }

bool NCDataSetInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  const std::int32_t counts[] = {mNumYVariables, mNumObservations, mNumVariables, mNumber};
  bool ok = WriteToStreamDir(counts[0], directory, d::kTagNumYVariables) &&
            WriteToStreamDir(counts[1], directory, d::kTagNumObservations) &&
            WriteToStreamDir(counts[2], directory, d::kTagNumVariables) &&
            WriteToStreamDir(counts[3], directory, d::kTagNumber) &&
            WriteToStreamDir(mName, directory, d::kTagName) &&
            WriteToStreamDir(std::uint8_t{0}, directory, d::kTagUnused) &&
            WriteToStreamDir(static_cast<std::int32_t>(mDataType), directory, d::kTagDataType) &&
            d::WriteUInt32(mSourceID, directory.GetOutput(d::kTagSourceID)) &&
            WriteToStreamDir(mRowIDs, directory, d::kTagObservationIDs) &&
            WriteToStreamDir(mVarIDs, directory, d::kTagVariableIDs) &&
            d::WriteAliases(mUsedObsAliases, directory.GetOutput(d::kTagUsedObsAliases)) &&
            d::WriteAliases(mUsedVarAliases, directory.GetOutput(d::kTagUsedVarAliases));
  if (ok && mBatches) ok = WriteToStreamDir(*mBatches, directory, d::kTagBatches);
  if (ok && mPhases) ok = mPhases->WriteToStream(directory.GetOutput(d::kTagPhases));
  if (!ok) os.setstate(std::ios_base::badbit);
  return directory.Close() && ok;
}

bool NCDataSetInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version)) return false;
  try {
    return VStreamableRead(is, version);
  } catch (...) {
    // A refusal leaves through the stream operator, which then does not end the pass.
    mGuard.Reset();
    throw;
  }
}

bool NCDataSetInfo::VStreamableReadBases(std::istream& is) { return static_cast<bool>(is); }

bool NCDataSetInfo::VStreamableRead(std::istream& is, std::int16_t version) {
  if (!VStreamableReadBases(is) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool NCDataSetInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  const auto project = GetProject();
  if (!project) return false;

  std::int32_t numYVariables = 0;
  std::int32_t numObservations = 0;
  std::int32_t numVariables = 0;
  std::int32_t number = 0;
  std::string name;
  std::int32_t dataType = mDataType;
  std::uint32_t sourceID = NCUniqueIDs::kNone;
  NCIntegralVector<unsigned long, 0> observationIDs;
  NCIntegralVector<unsigned long, 0> varIDs;
  std::vector<int> obsAliases;
  std::vector<int> varAliases;
  boost::shared_ptr<BatchInfoVector> batches;
  boost::shared_ptr<ClassInfoVector> phases;

  InputStreamDirectory directory(is);
  bool ok = directory.IsValid();
  try {
    if (ok) {
      ReadFromStreamDir(numYVariables, directory, d::kTagNumYVariables, true);
      ReadFromStreamDir(numObservations, directory, d::kTagNumObservations, true);
      ReadFromStreamDir(numVariables, directory, d::kTagNumVariables, true);
      ReadFromStreamDir(number, directory, d::kTagNumber, true);
      ReadFromStreamDir(name, directory, d::kTagName, true);
      ReadFromStreamDir(dataType, directory, d::kTagDataType, false);
      ReadFromStreamDir(sourceID, directory, d::kTagSourceID, false);
      ReadFromStreamDir(observationIDs, directory, d::kTagObservationIDs, true);
      ReadFromStreamDir(varIDs, directory, d::kTagVariableIDs, true);
      obsAliases = d::ReadAliases(GetRequiredInput(directory, d::kTagUsedObsAliases));
      varAliases = d::ReadAliases(GetRequiredInput(directory, d::kTagUsedVarAliases));
      if (directory.HasTag(d::kTagBatches)) {
        batches = boost::make_shared<BatchInfoVector>();
        ReadFromStreamDir(*batches, directory, d::kTagBatches, true);
      }
      if (std::istream* input = directory.GetInput(d::kTagPhases)) {
        phases.reset(ClassInfoVector::ReadFromStream(*input).release());
      }
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  // The counts describe the ID lists that follow them.
  if (numObservations < 0 || static_cast<std::size_t>(numObservations) != observationIDs.size() ||
      numVariables < 0 || static_cast<std::size_t>(numVariables) != varIDs.size() ||
      numYVariables < 0 || numYVariables > numVariables) {
    return false;
  }
  // Rows whose observations the project no longer holds come without a record (null).
  VarObsInfoVector<ObservationInfo> rows = project->GetObservations().GetInfoVector(observationIDs);

  mNumObservations = numObservations;
  mNumVariables = numVariables;
  mNumber = number;
  mName = std::move(name);
  mNumYVariables = numYVariables;
  mDataType = dataType;
  mSourceID = mDataType == NCDataSet::kOrdinary ? NCUniqueIDs::kNone : sourceID;
  mObsInfos = std::move(rows);
  mRowIDs = std::move(observationIDs);
  mVarIDs = std::move(varIDs);
  mUsedObsAliases = std::move(obsAliases);
  mUsedVarAliases = std::move(varAliases);
  mBatches = std::move(batches);
  mPhases = std::move(phases);
  return true;
}

void NCDataSetInfo::VStreamableReset() const { mGuard.Reset(); }
