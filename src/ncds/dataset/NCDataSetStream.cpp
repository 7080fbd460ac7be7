// The persistence members of NCDataSet: the "NCDS" stream.
//
// The body is one directory of 19 entries. The dataset writes its own numbers only; its rows
// are stored as the unique IDs of their observation records and are found again in the
// project's observations when the stream is read. Reading collects every entry first and
// changes the dataset only when the whole stream has read and agrees with itself (matrix shape,
// row and column counts, trim record), so a failed read leaves the dataset as it was.

#include <boost/make_shared.hpp>
#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/batch/CreateBatchLevelInfo.h"
#include "ncds/batch/DataSetAlignment.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/dataset/TrimdVarStruct.h"
#include "ncds/dataset/detail/DataSetStreamParts.h"
#include "ncds/derived/LocalCenteringData.h"
#include "ncds/derived/LocalCenteringInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/metadata/AliasAccess.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/UniqueIDs.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 4;
constexpr std::uint16_t kNumberOfTags = 19;

// The entries of the directory. The order of the three sort flags (valid first) is the
// format's, not the members'.
enum DataSetTag : std::uint16_t {
  kTagBatchInfoNeedsUpdate = 0,
  kTagImportLog = 1,
  kTagBatches = 2,
  kTagPhases = 3,
  kTagName = 4,
  kTagObservationIDs = 5,
  kTagVariableIDs = 6,
  kTagMatrix = 7,
  kTagPreTrimValues = 8,
  kTagTrimmedIndex = 9,
  kTagTrimRecords = 10,
  kTagSortFlagsValid = 11,
  kTagVariablesSorted = 12,
  kTagObservationsSorted = 13,
  kTagLocalCentering = 14,
  kTagDataType = 15,
  kTagSourceID = 16,
  kTagUsedObsAliases = 17,
  kTagUsedVarAliases = 18,
  kTagAlignment = 19,
  kTagLocalCenters = 20,
  kTagBatchLevel = 21,
};

constexpr std::uint8_t kEmptySlot = 0;
constexpr std::uint8_t kFilledSlot = 1;

using PreTrimValues = std::vector<std::map<unsigned long, float>>;
using TrimmedIndex = std::map<unsigned long, std::size_t>;
using TrimRecords = std::vector<boost::shared_ptr<TrimdVarStruct>>;

bool WritePreTrimValues(const PreTrimValues& values, std::ostream& os) {
  if (!WriteUInt32(values.size(), os)) return false;
  for (const auto& variable : values) {
    if (!WriteUInt32(variable.size(), os)) return false;
    for (const auto& [observationID, value] : variable) {
      if (!WriteUInt32(observationID, os) || !WriteFourBytes(&value, 1, os)) return false;
    }
  }
  return static_cast<bool>(os);
}

// Keys must come strictly ascending, as a map writes them.
PreTrimValues ReadPreTrimValues(std::istream& is) {
  const std::uint32_t variables = ReadCount(is, 4);
  PreTrimValues values(variables);
  for (auto& variable : values) {
    const std::uint32_t entries = ReadCount(is, 8);
    for (std::uint32_t k = 0; k < entries; ++k) {
      const unsigned long observationID = ReadUInt32(is);
      float value = 0.0F;
      ReadFourBytes(&value, 1, is);
      if (!variable.empty() && !(variable.rbegin()->first < observationID)) {
        ThrowStreamReadError();
      }
      variable.emplace_hint(variable.end(), observationID, value);
    }
  }
  return values;
}

bool WriteTrimmedIndex(const TrimmedIndex& index, std::ostream& os) {
  if (!WriteUInt32(index.size(), os)) return false;
  for (const auto& [variableID, position] : index) {
    if (!WriteUInt32(variableID, os) || !WriteUInt32(position, os)) return false;
  }
  return static_cast<bool>(os);
}

TrimmedIndex ReadTrimmedIndex(std::istream& is) {
  const std::uint32_t entries = ReadCount(is, 8);
  TrimmedIndex index;
  for (std::uint32_t k = 0; k < entries; ++k) {
    const unsigned long variableID = ReadUInt32(is);
    const std::size_t position = ReadUInt32(is);
    if (!index.empty() && !(index.rbegin()->first < variableID)) ThrowStreamReadError();
    index.emplace_hint(index.end(), variableID, position);
  }
  return index;
}

bool WriteTrimRecords(const TrimRecords& records, std::ostream& os) {
  if (!WriteUInt32(records.size(), os)) return false;
  for (const auto& record : records) {
    const std::uint8_t presence = record ? kFilledSlot : kEmptySlot;
    if (!WriteBytes(&presence, 1, os)) return false;
    if (record && !(os << *record)) return false;
  }
  return static_cast<bool>(os);
}

// An empty slot reads as a record without trim values: the dataset keeps one record per
// trimmed variable, and a record that holds no value restores nothing, as no record would.
TrimRecords ReadTrimRecords(std::istream& is) {
  const std::uint32_t count = ReadCount(is, 1);
  TrimRecords records;
  records.reserve(count);
  for (std::uint32_t k = 0; k < count; ++k) {
    std::uint8_t presence = 0;
    ReadBytes(&presence, 1, is);
    if (presence != kEmptySlot && presence != kFilledSlot) ThrowStreamReadError();
    auto record = boost::make_shared<TrimdVarStruct>();
    if (presence == kFilledSlot && !(is >> *record)) ThrowStreamReadError();
    records.push_back(std::move(record));
  }
  return records;
}

// Whether the trim record is one entry per trimmed variable in each of its three parts, the
// index naming every position once.
bool TrimRecordIsConsistent(const PreTrimValues& values, const TrimmedIndex& index,
                            const TrimRecords& records) {
  if (index.size() != values.size() || records.size() != values.size()) return false;
  std::vector<bool> named(values.size(), false);
  for (const auto& entry : index) {
    if (entry.second >= named.size() || named[entry.second]) return false;
    named[entry.second] = true;
  }
  return true;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData NCDataSet::msVStreamData(ncds::detail::kVersion, "NCDS");

bool NCDataSet::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWriteBases(os) && VStreamableWrite(os);
}

bool NCDataSet::VStreamableWriteBases(std::ostream& os) const { return static_cast<bool>(os); }

bool NCDataSet::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  // An alignment, local centers and a batch-level description are an entry more each; other
  // datasets keep the 19 of old.
  OutputStreamDirectory directory(
      os, static_cast<std::uint16_t>(d::kNumberOfTags + (mAlignment ? 1 : 0) +
                                     (mLocalCenters ? 1 : 0) + (mBatchLevel ? 1 : 0)));
  bool ok = WriteToStreamDir(mBatchInfoNeedsUpdate, directory, d::kTagBatchInfoNeedsUpdate) &&
            WriteToStreamDir(mImportLog, directory, d::kTagImportLog);
  if (ok && mBatches) ok = WriteToStreamDir(*mBatches, directory, d::kTagBatches);
  if (ok && mPhases) ok = mPhases->WriteToStream(directory.GetOutput(d::kTagPhases));
  ok = ok && WriteToStreamDir(mName, directory, d::kTagName) &&
       WriteToStreamDir(mRowIDs, directory, d::kTagObservationIDs) &&
       WriteToStreamDir(mVarIDs, directory, d::kTagVariableIDs) &&
       WriteToStreamDir(mData, directory, d::kTagMatrix) &&
       d::WritePreTrimValues(mPreTrimValues, directory.GetOutput(d::kTagPreTrimValues)) &&
       d::WriteTrimmedIndex(mTrimmedIndex, directory.GetOutput(d::kTagTrimmedIndex)) &&
       d::WriteTrimRecords(mTrimRecords, directory.GetOutput(d::kTagTrimRecords)) &&
       WriteToStreamDir(mSortFlagsValid, directory, d::kTagSortFlagsValid) &&
       WriteToStreamDir(mVariablesSorted, directory, d::kTagVariablesSorted) &&
       WriteToStreamDir(mObservationsSorted, directory, d::kTagObservationsSorted);
  if (ok && mLocalCentering) {
    ok = WriteToStreamDir(*mLocalCentering, directory, d::kTagLocalCentering);
  }
  ok = ok && WriteToStreamDir(static_cast<std::int32_t>(mDataType), directory, d::kTagDataType) &&
       d::WriteUInt32(mSourceID, directory.GetOutput(d::kTagSourceID)) &&
       d::WriteAliases(mUsedObsAliases, directory.GetOutput(d::kTagUsedObsAliases)) &&
       d::WriteAliases(mUsedVarAliases, directory.GetOutput(d::kTagUsedVarAliases));
  if (ok && mAlignment) ok = WriteToStreamDir(*mAlignment, directory, d::kTagAlignment);
  if (ok && mLocalCenters) ok = WriteToStreamDir(*mLocalCenters, directory, d::kTagLocalCenters);
  if (ok && mBatchLevel) ok = WriteToStreamDir(*mBatchLevel, directory, d::kTagBatchLevel);
  if (!ok) os.setstate(std::ios_base::badbit);
  if (!directory.Close() || !ok) return false;
  mDirty = false;
  return true;
}

bool NCDataSet::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version)) return false;
  try {
    return VStreamableRead(is, version);
  } catch (...) {
    // The refusal of unknown observations leaves through the stream operator, which then
    // does not end the pass.
    mGuard.Reset();
    throw;
  }
}

bool NCDataSet::VStreamableReadBases(std::istream& is) { return static_cast<bool>(is); }

bool NCDataSet::VStreamableRead(std::istream& is, std::int16_t version) {
  if (!VStreamableReadBases(is) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool NCDataSet::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  const auto project = GetProject();
  if (!project) return false;  // the rows cannot be found without the project

  bool batchInfoNeedsUpdate = false;
  std::string importLog;
  boost::shared_ptr<BatchInfoVector> batches;
  boost::shared_ptr<ClassInfoVector> phases;
  std::string name;
  NCIntegralVector<unsigned long, 0> observationIDs;
  NCIntegralVector<unsigned long, 0> varIDs;
  NCDataMatrix<float> data;
  d::PreTrimValues preTrimValues;
  d::TrimmedIndex trimmedIndex;
  d::TrimRecords trimRecords;
  bool sortFlagsValid = false;
  bool variablesSorted = false;
  bool observationsSorted = false;
  std::unique_ptr<LocalCenteringInfo> localCentering;
  std::unique_ptr<DataSetAlignment> alignment;
  std::unique_ptr<LocalCenteringData> localCenters;
  std::unique_ptr<CreateBatchLevelInfo> batchLevel;
  std::int32_t dataType = mDataType;
  std::uint32_t sourceID = NCUniqueIDs::kNone;
  std::vector<int> obsAliases;
  std::vector<int> varAliases;
  bool hasObsAliases = false;
  bool hasVarAliases = false;

  InputStreamDirectory directory(is);
  bool ok = directory.IsValid();
  try {
    if (ok) {
      ReadFromStreamDir(batchInfoNeedsUpdate, directory, d::kTagBatchInfoNeedsUpdate, true);
      ReadFromStreamDir(importLog, directory, d::kTagImportLog, true);
      if (directory.HasTag(d::kTagBatches)) {
        batches = boost::make_shared<BatchInfoVector>();
        ReadFromStreamDir(*batches, directory, d::kTagBatches, true);
      }
      if (std::istream* input = directory.GetInput(d::kTagPhases)) {
        phases.reset(ClassInfoVector::ReadFromStream(*input).release());
      }
      ReadFromStreamDir(name, directory, d::kTagName, true);
      ReadFromStreamDir(observationIDs, directory, d::kTagObservationIDs, true);
      ReadFromStreamDir(varIDs, directory, d::kTagVariableIDs, true);
      ReadFromStreamDir(data, directory, d::kTagMatrix, true);
      preTrimValues = d::ReadPreTrimValues(GetRequiredInput(directory, d::kTagPreTrimValues));
      trimmedIndex = d::ReadTrimmedIndex(GetRequiredInput(directory, d::kTagTrimmedIndex));
      trimRecords = d::ReadTrimRecords(GetRequiredInput(directory, d::kTagTrimRecords));
      ReadFromStreamDir(sortFlagsValid, directory, d::kTagSortFlagsValid, true);
      ReadFromStreamDir(variablesSorted, directory, d::kTagVariablesSorted, true);
      ReadFromStreamDir(observationsSorted, directory, d::kTagObservationsSorted, true);
      if (directory.HasTag(d::kTagLocalCentering)) {
        localCentering = std::make_unique<LocalCenteringInfo>();
        ReadFromStreamDir(*localCentering, directory, d::kTagLocalCentering, true);
      }
      // Streams written before the dataset kept its kind: a batch project's datasets are
      // batch datasets.
      if (!ReadFromStreamDir(dataType, directory, d::kTagDataType, false) &&
          project->GetObservations().HasBatches()) {
        dataType = kBatchBit;
      }
      ReadFromStreamDir(sourceID, directory, d::kTagSourceID, false);
      if (std::istream* input = directory.GetInput(d::kTagUsedObsAliases)) {
        obsAliases = d::ReadAliases(*input);
        hasObsAliases = true;
      }
      if (std::istream* input = directory.GetInput(d::kTagUsedVarAliases)) {
        varAliases = d::ReadAliases(*input);
        hasVarAliases = true;
      }
      if (directory.HasTag(d::kTagAlignment)) {
        alignment = std::make_unique<DataSetAlignment>();
        ReadFromStreamDir(*alignment, directory, d::kTagAlignment, true);
      }
      if (directory.HasTag(d::kTagLocalCenters)) {
        localCenters = std::make_unique<LocalCenteringData>();
        ReadFromStreamDir(*localCenters, directory, d::kTagLocalCenters, true);
      }
      if (directory.HasTag(d::kTagBatchLevel)) {
        batchLevel = std::make_unique<CreateBatchLevelInfo>();
        ReadFromStreamDir(*batchLevel, directory, d::kTagBatchLevel, true);
      }
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  // Every row and column has its cells, and the trim record is whole.
  if (data.SizeRows() != observationIDs.size() || data.SizeColumns() != varIDs.size() ||
      !d::TrimRecordIsConsistent(preTrimValues, trimmedIndex, trimRecords)) {
    return false;
  }

  // Rows whose observations the project no longer holds come without a record (null).
  VarObsInfoVector<ObservationInfo> rows = project->GetObservations().GetInfoVector(observationIDs);

  // Streams written before the aliases were kept: the project's description of this dataset
  // knows them, or else every series the project has is in use.
  if (!hasObsAliases || !hasVarAliases) {
    const auto stored = project->GetDataContainer(mNumber);
    if (!hasObsAliases) {
      obsAliases = stored ? stored->GetUsedObsAliases()
                          : AliasAccess(project->GetObservations()).GetUsedAliases();
    }
    if (!hasVarAliases) {
      varAliases = stored ? stored->GetUsedVarAliases()
                          : AliasAccess(project->GetVariables()).GetUsedAliases();
    }
  }

  mBatchInfoNeedsUpdate = batchInfoNeedsUpdate;
  mImportLog = std::move(importLog);
  mBatches = std::move(batches);
  mPhases = std::move(phases);
  mName = std::move(name);
  mObsInfos = std::move(rows);
  mRowIDs = std::move(observationIDs);
  mVarIDs = std::move(varIDs);
  mData = std::move(data);
  mPreTrimValues = std::move(preTrimValues);
  mTrimmedIndex = std::move(trimmedIndex);
  mTrimRecords = std::move(trimRecords);
  mSortFlagsValid = sortFlagsValid;
  mVariablesSorted = variablesSorted;
  mObservationsSorted = observationsSorted;
  mLocalCentering = std::move(localCentering);
  mAlignment = std::move(alignment);
  mLocalCenters = std::move(localCenters);
  mBatchLevel = std::move(batchLevel);
  mDataType = dataType;
  // An ordinary dataset has the fixed source whatever a stream says.
  mSourceID = mDataType == kOrdinary ? NCUniqueIDs::kNone : sourceID;
  mUsedObsAliases = std::move(obsAliases);
  mUsedVarAliases = std::move(varAliases);
  mDirty = false;
  return true;
}

void NCDataSet::VStreamableReset() const { mGuard.Reset(); }
