#include "ncds/dataset/NCDataSet.h"

#include <boost/make_shared.hpp>
#include <set>
#include <utility>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/batch/CreateBatchLevelInfo.h"
#include "ncds/batch/DataSetAlignment.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/LocalCenteringData.h"
#include "ncds/derived/LocalCenteringInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCSignals.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/metadata/AliasAccess.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"

using ncds::detail::ToPosition;

namespace ncds::detail {
namespace {

// The 0-based positions of a removal list, which must hold 1-based positions within
// 1..`size`, strictly ascending. Throws `InvalidArgument` otherwise, before anything changes.
NCIntegralVector<int, -99> CheckedRemovalList(const NCIntegralVector<int, -99>* positions,
                                              std::size_t size, const char* operation) {
  if (!positions) {
    throw InvalidArgument(std::string("NCDataSet::") + operation + ": no positions");
  }
  NCIntegralVector<int, -99> zeroBased(positions->size());
  int previous = 0;
  for (std::size_t k = 0; k < positions->size(); ++k) {
    const int position = (*positions)[k];
    std::size_t at = 0;
    if (!ToPosition(position, size, at)) {
      throw InvalidArgument(std::string("NCDataSet::") + operation + ": position " +
                            std::to_string(position) + " is outside 1.." + std::to_string(size));
    }
    if (position <= previous) {
      throw InvalidArgument(std::string("NCDataSet::") + operation +
                            ": positions must be strictly ascending (" + std::to_string(position) +
                            " follows " + std::to_string(previous) + ")");
    }
    previous = position;
    zeroBased(k) = static_cast<int>(at);
  }
  return zeroBased;
}

// The 0-based positions of 0..`size`-1 that `removed` (0-based, ascending) does not list.
NCIntegralVector<int, -99> KeptPositions(std::size_t size,
                                         const NCIntegralVector<int, -99>& removed) {
  NCIntegralVector<int, -99> kept;
  kept.reserve(size - removed.size());
  for (std::size_t at = 0, k = 0; at < size; ++at) {
    if (k < removed.size() && static_cast<std::size_t>(removed[k]) == at) {
      ++k;
    } else {
      kept.push_back(static_cast<int>(at));
    }
  }
  return kept;
}

// `count` primary IDs based on `base` that no record of `records` has and that differ from
// each other: `base` itself when free, then `base`_1, `base`_2, ... The suffix only rises, so
// naming many records costs one lookup per name tried.
std::vector<std::string> NewPrimaryIDs(const VarObs& records, const std::string& base, int count) {
  const boost::shared_ptr<InfosByUserID> lookup = records.GetInfosByUserID(1);
  std::vector<std::string> names;
  names.reserve(static_cast<std::size_t>(std::max(count, 0)));
  std::set<std::string> taken;
  for (unsigned long suffix = 0; static_cast<int>(names.size()) < count; ++suffix) {
    std::string candidate = suffix == 0 ? base : base + "_" + std::to_string(suffix);
    if (!lookup->GetInfo(candidate) && taken.insert(candidate).second) {
      names.push_back(std::move(candidate));
    }
  }
  return names;
}

}  // namespace
}  // namespace ncds::detail

NCDataSet::NCDataSet(boost::shared_ptr<NCProjectBase> project, int number)
    : NCDataContainer(std::move(project)), mNumber(number), mSourceID(NCUniqueIDs::kNone) {}

NCDataSet::~NCDataSet() = default;

boost::shared_ptr<NCDataSet> NCDataSet::Create(boost::shared_ptr<NCProjectBase> project,
                                               int number) {
  return boost::shared_ptr<NCDataSet>(new NCDataSet(std::move(project), number));
}

boost::shared_ptr<NCDataSet> NCDataSet::Create(
    boost::shared_ptr<NCProjectBase> project, const char* name, int number,
    const NCDataMatrix<float>* data, VarObsInfoVector<ObservationInfo>&& obsInfos,
    const NCIntegralVector<unsigned long, 0>* varIDs, const std::vector<int>& obsAliases,
    const std::vector<int>& varAliases, const char* importLog, const BatchInfoVector* batches,
    const ClassInfoVector* phases) {
  return Create(std::move(project), name, number,
                data ? NCDataMatrix<float>(*data) : NCDataMatrix<float>(), std::move(obsInfos),
                varIDs, obsAliases, varAliases, importLog, batches, phases);
}

boost::shared_ptr<NCDataSet> NCDataSet::Create(
    boost::shared_ptr<NCProjectBase> project, const char* name, int number,
    NCDataMatrix<float>&& data, VarObsInfoVector<ObservationInfo>&& obsInfos,
    const NCIntegralVector<unsigned long, 0>* varIDs, const std::vector<int>& obsAliases,
    const std::vector<int>& varAliases, const char* importLog, const BatchInfoVector* batches,
    const ClassInfoVector* phases) {
  const std::size_t rows = data.SizeRows();
  const std::size_t columns = data.SizeColumns();
  if (rows != obsInfos.size() || columns != (varIDs ? varIDs->size() : 0)) {
    throw InvalidArgument("NCDataSet::Create: a " + std::to_string(rows) + " x " +
                          std::to_string(columns) + " matrix for " +
                          std::to_string(obsInfos.size()) + " observations and " +
                          std::to_string(varIDs ? varIDs->size() : 0) + " variables");
  }
  boost::shared_ptr<NCDataSet> dataSet(new NCDataSet(std::move(project), number));
  dataSet->mData = std::move(data);
  if (varIDs) dataSet->mVarIDs = *varIDs;
  dataSet->mObsInfos = std::move(obsInfos);
  dataSet->mRowIDs = dataSet->mObsInfos.GetUniqueIDs();
  dataSet->mUsedObsAliases = obsAliases;
  dataSet->mUsedVarAliases = varAliases;
  dataSet->mName = name ? name : "";
  dataSet->mImportLog = importLog ? importLog : "";
  dataSet->SetBatchInfoVector(batches);
  dataSet->SetPhaseInfoVector(phases);
  dataSet->mDirty = true;
  return dataSet;
}

void NCDataSet::SetName(const char* name) {
  mName = name ? name : "";
  mDirty = true;
}

void NCDataSet::SetImportLog(const char* log) {
  mImportLog = log ? log : "";
  mDirty = true;
}

bool NCDataSet::AskChange(const NCIntegralVector<unsigned long, 0>* varIDs, bool confirm) const {
  const auto project = boost::const_pointer_cast<NCProjectBase>(GetProject());
  if (!project) return true;  // nothing depends on a dataset whose project is gone
  static const NCIntegralVector<unsigned long, 0> kWholeDataSet;
  const NCIntegralVector<unsigned long, 0>& ids = varIDs ? *varIDs : kWholeDataSet;
  if (confirm) return project->CanChangeVariables(mNumber, ids);
  MuteUserComm mute;
  const ScopedUserComm quiet(&mute);
  return project->CanChangeVariables(mNumber, ids);
}

// ---- Structure ----

bool NCDataSet::AddVariables(const NCIntegralVector<unsigned long, 0>* varIDs, int position,
                             bool confirm) {
  if (!varIDs || varIDs->empty()) return true;
  const auto project = GetProject();
  if (project) {
    const NCVariables& variables = project->GetVariables();
    for (const unsigned long id : *varIDs) {
      if (!variables[id]) {
        throw InvalidArgument("NCDataSet::AddVariables: the project has no variable " +
                              std::to_string(id));
      }
    }
  }
  if (!AskChange(varIDs, confirm)) return false;
  std::size_t at = mVarIDs.size();
  if (!ToPosition(position, mVarIDs.size(), at)) at = mVarIDs.size();
  InsertVariables(*varIDs, at);
  return true;
}

void NCDataSet::InsertVariables(const NCIntegralVector<unsigned long, 0>& varIDs, std::size_t at) {
  if (at == mVarIDs.size()) {
    for (const unsigned long id : varIDs) mVarIDs.push_back(id);
  } else {
    mVarIDs.InsertValues(at, varIDs);
  }
  mData.InsertColumns(at, varIDs.size());
  mSortFlagsValid = false;
  mDirty = true;
  NCSignals::RaiseVarObsAdded(this);
}

bool NCDataSet::AddVariables(int count, const char* name, bool confirm, bool checkQuietly) {
  if (count <= 0) return true;
  const auto project = GetProject();
  if (!project) return false;
  NCVariables& variables = project->GetVariables();
  const std::string base =
      name && *name ? std::string(name)
                    : NCMessages::Translate("Default variable name (short, no spaces)", "New_Var");
  NCIntegralVector<unsigned long, 0> ids;
  ids.reserve(static_cast<std::size_t>(count));
  for (int k = 0; k < count; ++k) ids.push_back(project->CreateUniqueID());
  if ((confirm || checkQuietly) && !AskChange(&ids, confirm)) return false;
  const std::vector<std::string> names = ncds::detail::NewPrimaryIDs(variables, base, count);
  for (int k = 0; k < count; ++k) {
    variables.Add(std::make_unique<QuantitativeVariableInfo>(names[k], ids[k]));
  }
  InsertVariables(ids, mVarIDs.size());
  return true;
}

bool NCDataSet::AddObservationInfos(const VarObsInfoVector<ObservationInfo>& infos, int position,
                                    bool confirm) {
  if (infos.empty()) return true;
  const auto project = GetProject();
  if (project) {
    const NCObservations& observations = project->GetObservations();
    for (const ObservationInfo* info : infos) {
      if (!info || observations[info->GetUniqueID()] != info) {
        throw InvalidArgument(
            "NCDataSet::AddObservationInfos: an observation record the project does not hold");
      }
    }
  }
  if (!AskChange(nullptr, confirm)) return false;
  std::size_t at = mObsInfos.size();
  if (!ToPosition(position, mObsInfos.size(), at)) at = mObsInfos.size();
  const NCIntegralVector<unsigned long, 0> ids = infos.GetUniqueIDs();
  mData.InsertRows(at, infos.size());
  mRowIDs.InsertValues(at, ids);
  mObsInfos.insert(mObsInfos.begin() + static_cast<std::ptrdiff_t>(at), infos.begin(), infos.end());
  mSortFlagsValid = false;
  mBatchInfoNeedsUpdate = true;
  mDirty = true;
  NCSignals::RaiseVarObsAdded(this);
  return true;
}

bool NCDataSet::AddObservationInfos(int count) {
  if (count <= 0) return true;
  const auto project = GetProject();
  if (!project) return false;
  NCObservations& observations = project->GetObservations();
  const std::vector<std::string> names = ncds::detail::NewPrimaryIDs(
      observations,
      NCMessages::Translate("Default name of observations (short and no spaces)", "New_Obs"),
      count);
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(static_cast<std::size_t>(count));
  observations.Reserve(static_cast<std::size_t>(count));
  for (const std::string& name : names) {
    infos.push_back(
        observations.Add(std::make_unique<ObservationInfo>(name, project->CreateUniqueID())));
  }
  return AddObservationInfos(infos, 0, false);
}

bool NCDataSet::RemoveVariable(NCIntegralVector<int, -99>* positions, bool confirm,
                               bool unchecked) {
  const NCIntegralVector<int, -99> removed =
      ncds::detail::CheckedRemovalList(positions, mVarIDs.size(), "RemoveVariable");
  mDirty = true;
  mBatchInfoNeedsUpdate = true;
  NCIntegralVector<unsigned long, 0> ids(removed.size());
  for (std::size_t k = 0; k < removed.size(); ++k) ids(k) = mVarIDs[removed[k]];
  if (!unchecked && !AskChange(&ids, confirm)) {
    positions->clear();
    return false;
  }
  if (removed.empty()) return true;
  // The kept columns, in one pass over the matrix.
  const NCIntegralVector<int, -99> kept = ncds::detail::KeptPositions(mVarIDs.size(), removed);
  mData.ReduceColumns(kept);
  mVarIDs.Reduce(kept);
  NCSignals::RaiseVarObsDeleted(this);
  return true;
}

bool NCDataSet::RemoveObservation(NCIntegralVector<int, -99>* positions, bool confirm,
                                  bool unchecked) {
  const NCIntegralVector<int, -99> removed =
      ncds::detail::CheckedRemovalList(positions, mObsInfos.size(), "RemoveObservation");
  mDirty = true;
  mBatchInfoNeedsUpdate = true;
  if (!unchecked && !AskChange(nullptr, confirm)) {
    positions->clear();
    return false;
  }
  if (removed.empty()) return true;
  mData.RemoveRows(removed);
  // The records stay with the project; the dataset drops its pointers, in one pass.
  const NCIntegralVector<int, -99> kept = ncds::detail::KeptPositions(mObsInfos.size(), removed);
  for (std::size_t to = 0; to < kept.size(); ++to) mObsInfos(to) = mObsInfos[kept[to]];
  mObsInfos.resize(kept.size());
  mRowIDs.Reduce(kept);
  NCSignals::RaiseVarObsDeleted(this);
  return true;
}

void NCDataSet::RemoveObservationID(int k) {
  if (k < 0 || static_cast<std::size_t>(k) >= mUsedObsAliases.size()) return;
  mUsedObsAliases.erase(mUsedObsAliases.begin() + k);
  mDirty = true;
  mBatchInfoNeedsUpdate = true;
  NCSignals::RaiseVarObsDeleted(this);
}

void NCDataSet::ChangeVarID(unsigned long newID, int column) {
  std::size_t at = 0;
  if (mNumber == 1 || !ToPosition(column, mVarIDs.size(), at)) return;
  mVarIDs(at) = newID;
  mDirty = true;
  mSortFlagsValid = false;
}

void NCDataSet::ReserveVars(int count) {
  if (count <= 0) return;
  mVarIDs.reserve(static_cast<std::size_t>(count));
  mData.ReserveColumns(static_cast<std::size_t>(count));
}

void NCDataSet::ReserveObservations(int count) {
  if (count <= 0) return;
  mObsInfos.reserve(static_cast<std::size_t>(count));
  mRowIDs.reserve(static_cast<std::size_t>(count));
  mData.ReserveRows(static_cast<std::size_t>(count));
}

void NCDataSet::clear() {
  mData.Clear();
  mVarIDs.clear();
  mObsInfos.clear();
  mRowIDs.clear();
  mPreTrimValues.clear();
  mTrimmedIndex.clear();
  mTrimRecords.clear();
  mSortFlagsValid = false;
  mBatchInfoNeedsUpdate = true;
  mDirty = true;
  NCSignals::RaiseVarObsDeleted(this);
}

// ---- Values ----

bool NCDataSet::SetValue(int obs, int var, float value, bool keepPreTrim, bool confirm,
                         bool checkQuietly) {
  std::size_t row = 0;
  std::size_t column = 0;
  if (!ToPosition(obs, mObsInfos.size(), row) || !ToPosition(var, mVarIDs.size(), column)) {
    return false;
  }
  if (keepPreTrim) KeepPreTrimValue(row, column);
  if (confirm || checkQuietly) {
    const NCIntegralVector<unsigned long, 0> ids(1, mVarIDs[column]);
    if (!AskChange(&ids, confirm)) return false;
  }
  mData(row, column) = value;
  mDirty = true;
  const ObservationInfo* info = mObsInfos[row];
  NCSignals::RaiseDataSetValueChanged(this, info ? info->GetUniqueID() : NCUniqueIDs::kNone,
                                      mVarIDs[column]);
  return true;
}

bool NCDataSet::SetValue(int obs, int var, const char* text, bool keepPreTrim, bool confirm,
                         bool checkQuietly) {
  const auto project = GetProject();
  const VariableInfo* info = project ? project->GetVariables()[GetVarID(var)] : nullptr;
  if (!info) return false;
  return SetValue(obs, var, info->Encode(text ? text : ""), keepPreTrim, confirm, checkQuietly);
}

bool NCDataSet::SetValues(const NCDataMatrix<float>* data) {
  if (!data) throw InvalidArgument("NCDataSet::SetValues: no values");
  if (data->SizeRows() != mObsInfos.size() || data->SizeColumns() != mVarIDs.size()) {
    throw InvalidArgument("NCDataSet::SetValues: a " + std::to_string(data->SizeRows()) + " x " +
                          std::to_string(data->SizeColumns()) + " matrix for a " +
                          std::to_string(mObsInfos.size()) + " x " +
                          std::to_string(mVarIDs.size()) + " dataset");
  }
  if (!AskChange(&mVarIDs, false)) return false;
  mData = *data;  // same shape: copied into the cells in place
  mDirty = true;
  NCSignals::RaiseDataSetValuesChanged(this);
  return true;
}

bool NCDataSet::SetColValues(const float* values, int column) {
  std::size_t at = 0;
  if (!values || !ToPosition(column, mVarIDs.size(), at)) return false;
  const NCIntegralVector<unsigned long, 0> ids(1, mVarIDs[at]);
  if (!AskChange(&ids, false)) return false;
  mData.SetColumn(at, values);
  mDirty = true;
  NCSignals::RaiseDataSetValuesChanged(this);
  return true;
}

bool NCDataSet::SetColValues(const NCIntegralVector<int, -99>& values, int column) {
  if (values.size() != mObsInfos.size()) {
    throw InvalidArgument("NCDataSet::SetColValues: " + std::to_string(values.size()) +
                          " values for " + std::to_string(mObsInfos.size()) + " observations");
  }
  // Missing stays missing: -99 is the missing value of both.
  std::vector<float> converted(values.begin(), values.end());
  return SetColValues(converted.data(), column);
}

float NCDataSet::GetValue(int obs, int var) const {
  std::size_t row = 0;
  std::size_t column = 0;
  if (!ToPosition(obs, mObsInfos.size(), row) || !ToPosition(var, mVarIDs.size(), column)) {
    return NCDataMatrix<float>::kMissing;
  }
  return mData(row, column);
}

// ---- Container interface and identity ----

unsigned long NCDataSet::GetVarID(int index) const {
  std::size_t position = 0;
  return ToPosition(index, mVarIDs.size(), position) ? mVarIDs[position] : 0;
}

const ObservationInfo* NCDataSet::GetObservationInfo(int index) const {
  std::size_t position = 0;
  return ToPosition(index, mObsInfos.size(), position) ? mObsInfos[position] : nullptr;
}

const std::string& NCDataSet::GetVariableID(int index, int aliasSeries) const {
  const auto project = GetProject();
  std::size_t position = 0;
  if (!project || !ToPosition(index, mVarIDs.size(), position)) return VxStdString::Empty();
  const NCVariables& variables = project->GetVariables();
  const VariableInfo* info = variables[mVarIDs[position]];
  if (!info) return VxStdString::Empty();
  return AliasAccess(variables).GetAlias(aliasSeries, *info);
}

boost::shared_ptr<BatchInfoVector const> NCDataSet::GetBatchInfoVector() const { return mBatches; }

boost::shared_ptr<ClassInfoVector const> NCDataSet::GetPhaseInfoVector() const { return mPhases; }

std::string NCDataSet::GetStrValue(int obs, int var) const {
  std::size_t row = 0;
  std::size_t column = 0;
  const auto project = GetProject();
  if (!project || !ToPosition(obs, mObsInfos.size(), row) ||
      !ToPosition(var, mVarIDs.size(), column)) {
    return std::string();
  }
  VariableInfo* info = project->GetVariables()[mVarIDs[column]];
  return info ? info->Decode(mData(row, column)) : std::string();
}

namespace ncds::detail {
namespace {

// The columns whose variables are included in `block`, and in the phase `phaseName` when
// the dataset has it.
NCIntegralVector<unsigned long, 0> IncludedOfBlock(const NCDataSet& dataSet,
                                                   const NCIntegralVector<unsigned long, 0>& ids,
                                                   VariableInfo::EVariableBlock block,
                                                   const char* phaseName) {
  NCIntegralVector<unsigned long, 0> result;
  const auto project = dataSet.GetProject();
  if (!project) return result;
  const ClassInfo* phase = nullptr;
  if (phaseName) {
    if (const auto phases = dataSet.GetPhaseInfoVector()) {
      for (const auto& candidate : *phases) {
        if (candidate && candidate->GetPhaseName() == phaseName) {
          phase = candidate.get();
          break;
        }
      }
    }
  }
  const NCVariables& variables = project->GetVariables();
  for (const unsigned long id : ids) {
    const VariableInfo* info = variables[id];
    if (info && info->GetVariableBlock() == block && (!phase || phase->IsIncluded(id))) {
      result.push_back(id);
    }
  }
  return result;
}

}  // namespace
}  // namespace ncds::detail

NCIntegralVector<unsigned long, 0> NCDataSet::GetXVariables(const char* phaseName) const {
  return ncds::detail::IncludedOfBlock(*this, mVarIDs, VariableInfo::eX, phaseName);
}

NCIntegralVector<unsigned long, 0> NCDataSet::GetYVariables(const char* phaseName) const {
  return ncds::detail::IncludedOfBlock(*this, mVarIDs, VariableInfo::eY, phaseName);
}

void NCDataSet::SetUsedAliases(const std::vector<int>& obsAliases,
                               const std::vector<int>& varAliases) {
  mUsedObsAliases = obsAliases;
  mUsedVarAliases = varAliases;
  mDirty = true;
}

void NCDataSet::SetSource(int dataType, unsigned long sourceID) {
  mDirty = true;
  if (!(dataType & kKeptKindBits)) dataType |= mDataType & kKeptKindBits;
  mDataType = dataType;
  mSourceID = mDataType == kOrdinary ? NCUniqueIDs::kNone : sourceID;
}

void NCDataSet::SetBatchInfoVector(const BatchInfoVector* batches) {
  mBatchInfoNeedsUpdate = false;
  mDirty = true;
  if (!batches) {
    mDataType &= ~kBatchBit;
    mBatches.reset();
    return;
  }
  if (!(mDataType & kKeptKindBits)) mDataType |= kBatchBit;
  if (!mBatches) mBatches = boost::make_shared<BatchInfoVector>();
  if (batches != mBatches.get()) *mBatches = *batches;
  // The project keeps its batch import settings in step with its batch datasets.
  if (const auto project = GetProject()) {
    const BatchImportSettings settings = project->GetBatchImportSettings();
    project->SetBatchImportSettings(settings);
  }
}

void NCDataSet::SetPhaseInfoVector(const ClassInfoVector* phases) {
  mPhases.reset();
  if (phases) mPhases = boost::make_shared<ClassInfoVector>(*phases);
  mDirty = true;
}

void NCDataSet::SetAlignment(const DataSetAlignment* alignment) {
  mAlignment = alignment ? std::make_unique<DataSetAlignment>(*alignment) : nullptr;
  mDirty = true;
}

void NCDataSet::SetBatchLevelInfo(const CreateBatchLevelInfo* info) {
  mBatchLevel = info ? std::make_unique<CreateBatchLevelInfo>(*info) : nullptr;
  mDirty = true;
}

int NCDataSet::GetDerivedFromNumber() const {
  if (mAlignment) return static_cast<int>(mSourceID);
  return mBatchLevel ? mBatchLevel->GetSourceNumber() : 0;
}

const SourceBatches* NCDataSet::GetDerivedFromBatches() const {
  if (mAlignment) return &mAlignment->GetSourceBatches();
  return mBatchLevel ? &mBatchLevel->GetSourceBatches() : nullptr;
}

void NCDataSet::SetLocalCenteringData(const LocalCenteringData* centers) {
  mLocalCenters = centers ? std::make_unique<LocalCenteringData>(*centers) : nullptr;
  mDirty = true;
}

void NCDataSet::SetLocalCenteringInfo(const LocalCenteringInfo* info) {
  mLocalCentering = info ? std::make_unique<LocalCenteringInfo>(*info) : nullptr;
  mDirty = true;
}

boost::shared_ptr<BatchInfoVector> NCDataSet::GetMutableBatchInfoVector(NCProjectBase& project,
                                                                        int number) {
  // The project hands its datasets out read-only; editing the batches of one it owns is what
  // this accessor is for.
  const auto dataSet =
      boost::dynamic_pointer_cast<NCDataSet const>(project.GetDataContainer(number));
  return dataSet ? boost::const_pointer_cast<NCDataSet>(dataSet)->mBatches : nullptr;
}

NCIntegralVector<unsigned long, 0> NCDataSet::GetVariableIDs(const NCProjectBase& project,
                                                             int number) {
  const auto container = project.GetDataContainer(number);
  return container ? container->GetVarIDs() : NCIntegralVector<unsigned long, 0>();
}

bool NCDataSet::HasGeneratedVariables(const NCProjectBase& project,
                                      const NCIntegralVector<unsigned long, 0>& varIDs) {
  const NCVariables& variables = project.GetVariables();
  for (const unsigned long id : varIDs) {
    const VariableInfo* info = variables[id];
    if (info && !info->GetRecipe().empty()) return true;
  }
  return false;
}

boost::shared_ptr<std::list<DSGenVarData>> NCDataSet::GetGenVarList(
    const NCProjectBase& project, const NCIntegralVector<unsigned long, 0>& varIDs) {
  auto list = boost::make_shared<std::list<DSGenVarData>>();
  const NCVariables& variables = project.GetVariables();
  for (const unsigned long id : varIDs) {
    const VariableInfo* info = variables[id];
    if (info && !info->GetRecipe().empty()) list->emplace_back(info->GetRecipe(), id);
  }
  return list;
}

void NCDataSet::Save() const {
  if (const auto project = boost::const_pointer_cast<NCProjectBase>(GetProject())) {
    project->SaveDataSet(shared_from_this());
  }
}

void NCDataSet::UpdateSortFlags() const {
  mVariablesSorted = mVarIDs.IsSorted(true);
  mObservationsSorted = true;
  unsigned long previous = 0;
  for (const unsigned long id : mRowIDs) {
    if (id < previous) {
      mObservationsSorted = false;
      break;
    }
    previous = id;
  }
  mSortFlagsValid = true;
}

NCDataMatrix<float> NCDataSet::DoGetData(
    bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const {
  NCDataMatrix<float> values = mData;
  // Without local centers the centered values are the values themselves.
  const auto project = GetProject();
  if (!centered || !mLocalCenters || !project) return values;
  if (!defaults) {
    defaults = boost::make_shared<const DefaultCenterValues>(mLocalCenters->GetDefaultCenters());
  }
  mLocalCenters->Subtract(values, mObsInfos, mVarIDs, *project, defaults);
  return values;
}

void NCDataSet::ImportLocalCenters(const LocalCenteringInfo& info) {
  const auto project = GetProject();
  if (!project) return;
  std::vector<VariableInfo*> columns;
  columns.reserve(mVarIDs.size());
  for (const unsigned long id : mVarIDs) {
    columns.push_back(project->GetVariables()[id]);
  }
  const NCObservations& observations = project->GetObservations();
  LocalCenteringData centers = mLocalCenters ? *mLocalCenters : LocalCenteringData();
  info.AddTo(centers, &columns, project->GetBatchIdentifierSeries(), observations.GetPhaseIDRaw());
  mLocalCentering = std::make_unique<LocalCenteringInfo>(info);
  mLocalCenters = std::make_unique<LocalCenteringData>(std::move(centers));
  mDirty = true;
}
