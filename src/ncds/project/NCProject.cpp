#include "ncds/project/NCProject.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstring>
#include <istream>
#include <iterator>
#include <ostream>
#include <streambuf>
#include <utility>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/RUSPData.h"
#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/FullCompoundDataset.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCDataSetInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/project/detail/StringStreams.h"

namespace ncds::detail {
namespace {

// About the size of a dataset's stream: its cells and IDs, and room for the rest.
std::size_t ExpectedStreamSize(const NCDataSet& dataSet) {
  const NCDataMatrix<float>& data = dataSet.GetMatrix();
  return data.SizeRows() * data.SizeColumns() * sizeof(float) +
         (data.SizeRows() + data.SizeColumns()) * 8 + 4096;
}

}  // namespace
}  // namespace ncds::detail

NCProject::NCProject()
    : mVariables(std::make_unique<NCVariables>()),
      mObservations(std::make_unique<NCObservations>()),
      mSettings(std::make_unique<BatchImportSettings>()),
      mRUSPData(std::make_unique<RUSPData>(*this)) {}

NCProject::~NCProject() = default;

boost::shared_ptr<NCProject> NCProject::Create() {
  return boost::shared_ptr<NCProject>(new NCProject());
}

bool NCProject::IsTaken(unsigned long id) const {
  return id == 0 || id == NCUniqueIDs::kNone || id == NCUniqueIDs::kConstant ||
         (*mVariables)[id] != nullptr || (*mObservations)[id] != nullptr;
}

unsigned long NCProject::CreateUniqueID() {
  // IDs are 32-bit; after the last one the search wraps round once to fill gaps left by
  // deleted records, and only a project holding every ID runs out.
  constexpr unsigned long kLast = 0xFFFFFFFFUL;
  if (mLastUniqueID == 0) {
    // Go on after the highest ordinary ID of records the project holds already (read from a
    // stream, say), so that new IDs come in one step.
    for (const VarObs* records : {static_cast<const VarObs*>(mVariables.get()),
                                  static_cast<const VarObs*>(mObservations.get())}) {
      const auto below = records->lower_bound(NCUniqueIDs::kNone);
      if (below != records->begin())
        mLastUniqueID = std::max(mLastUniqueID, std::prev(below)->first);
    }
  }
  for (unsigned long tried = 0; tried < kLast; ++tried) {
    mLastUniqueID = mLastUniqueID >= kLast ? 1 : mLastUniqueID + 1;
    if (!IsTaken(mLastUniqueID)) return mLastUniqueID;
  }
  throw NCInternalError("the project has no unique ID left");
}

bool NCProject::CanChangeVariables(int dataSetNumber,
                                   const NCIntegralVector<unsigned long, 0>& variableIDs) {
  return !mChangeCheck || mChangeCheck(dataSetNumber, variableIDs);
}

void NCProject::SetBatchImportSettings(const BatchImportSettings& settings) {
  if (&settings != mSettings.get()) *mSettings = settings;
}

bool NCProject::SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) {
  if (!dataSet || mCompounds.count(dataSet->GetNumber()) > 0) return false;
  auto info = boost::make_shared<NCDataSetInfo>(dataSet);
  std::string stream;
  if (!WriteDataSetStream(*dataSet, *info, stream)) return false;
  StoredDataSet& stored = mDataSets[info->GetNumber()];
  stored.stream = std::move(stream);
  stored.info = std::move(info);
  stored.loaded = std::move(dataSet);
  RefreshCompounds();
  return true;
}

bool NCProject::WriteDataSetStream(const NCDataSet& dataSet, const NCDataSetInfo&,
                                   std::string& kept) {
  ncds::detail::StringSink sink;
  sink.Reserve(ncds::detail::ExpectedStreamSize(dataSet));
  std::ostream os(&sink);
  if (!(os << dataSet)) return false;
  kept = sink.Take();
  return true;
}

bool NCProject::ReadDataSetStream(int, const std::string& kept, NCDataSet& dataSet) {
  ncds::detail::StringSource source(kept);
  std::istream is(&source);
  return static_cast<bool>(is >> dataSet);
}

void NCProject::EraseDataSetStream(int) {}

boost::shared_ptr<NCDataContainerBase const> NCProject::GetDataContainer(int number) const {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end()) {
    const auto compound = mCompounds.find(number);
    return compound == mCompounds.end() ? nullptr : compound->second;
  }
  if (it->second.loaded) return it->second.loaded;
  return it->second.info;
}

boost::shared_ptr<NCDataSetInfo const> NCProject::GetDataSetInfo(int number) const {
  const auto it = mDataSets.find(number);
  return it == mDataSets.end() ? nullptr : it->second.info;
}

std::vector<int> NCProject::GetDataSetNumbers() const {
  std::vector<int> numbers;
  numbers.reserve(mDataSets.size());
  for (const auto& entry : mDataSets) numbers.push_back(entry.first);
  return numbers;
}

int NCProject::GetFreeNumber() const {
  int number = 1;
  while (IsDataSetNumber(number) || mCompounds.count(number) > 0) ++number;
  return number;
}

boost::shared_ptr<NCDataSet> NCProject::LoadDataSet(int number) {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end()) return nullptr;
  const boost::shared_ptr<NCDataSet> dataSet = NCDataSet::Create(shared_from_this(), number);
  if (!ReadDataSetStream(number, it->second.stream, *dataSet)) return nullptr;
  it->second.loaded = dataSet;
  RefreshCompounds();
  return dataSet;
}

bool NCProject::IsDataSetLoaded(int number) const {
  const auto it = mDataSets.find(number);
  return it != mDataSets.end() && it->second.loaded;
}

bool NCProject::UnloadDataSet(int number) {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end() || !it->second.loaded) return false;
  it->second.loaded.reset();
  RefreshCompounds();
  return true;
}

const std::string* NCProject::GetDataSetStream(int number) const {
  const auto it = mDataSets.find(number);
  return it == mDataSets.end() || it->second.stream.empty() ? nullptr : &it->second.stream;
}

bool NCProject::RestoreDataSet(std::string stream, boost::shared_ptr<NCDataSetInfo const> info) {
  if (!info || mCompounds.count(info->GetNumber()) > 0) return false;
  StoredDataSet stored;
  stored.stream = std::move(stream);
  stored.info = std::move(info);
  mDataSets[stored.info->GetNumber()] = std::move(stored);
  RefreshCompounds();
  return true;
}

int NCProject::GetBatchIdentifierSeries() const {
  return mBatchIdentifierSeries > 0 ? mBatchIdentifierSeries : GetObservations().GetBatchIDRaw();
}

bool NCProject::RemoveDataSet(int number) {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end()) return false;
  EraseDataSetStream(number);
  mDataSets.erase(it);
  RefreshCompounds();
  return true;
}

void NCProject::RefreshCompounds() const {
  for (const auto& entry : mCompounds) entry.second->Refresh();
}

bool NCProject::IsDataSetNumber(int number) const { return mDataSets.count(number) > 0; }

void NCProject::WriteCompoundDatasets(const CompoundDatasets&) {}

void NCProject::WriteAuxiliaryData(const AuxiliaryDataByName&) {}

void NCProject::SetCompoundDataset(const CompoundDataset& compound) {
  if (compound.GetProject().get() != this) {
    throw InvalidArgument("NCProject::SetCompoundDataset: a compound dataset of another project");
  }
  const int number = compound.GetNumber();
  if (IsDataSetNumber(number)) {
    throw NCError(ExceptionMessage::translate(
                      "Number {1} belongs to a dataset; the compound dataset \"{2}\" needs a "
                      "number of its own.") %
                  number % compound.GetName());
  }
  for (const int member : compound.GetMembers()) {
    if (member == number || mCompounds.count(member) > 0) {
      throw NCError(
          ExceptionMessage::translate("Compound dataset {1} cannot include compound dataset {2}.") %
          number % member);
    }
  }
  CompoundDatasets compounds = mCompounds;
  compounds[number] = boost::make_shared<CompoundDataset>(compound);
  WriteCompoundDatasets(compounds);
  mCompounds.swap(compounds);
}

boost::shared_ptr<CompoundDataset const> NCProject::GetCompoundDataset(int number) const {
  const auto it = mCompounds.find(number);
  return it == mCompounds.end() ? nullptr : it->second;
}

std::vector<int> NCProject::GetCompoundDatasetNumbers() const {
  std::vector<int> numbers;
  numbers.reserve(mCompounds.size());
  for (const auto& entry : mCompounds) numbers.push_back(entry.first);
  return numbers;
}

bool NCProject::RemoveCompoundDataset(int number) {
  if (mCompounds.count(number) == 0) return false;
  CompoundDatasets compounds = mCompounds;
  compounds.erase(number);
  WriteCompoundDatasets(compounds);
  mCompounds.swap(compounds);
  return true;
}

boost::shared_ptr<FullCompoundDataset> NCProject::MakeFullCompoundDataset(int number) {
  auto compound = GetCompoundDataset(number);
  if (!compound) return nullptr;
  return boost::make_shared<FullCompoundDataset>(shared_from_this(), std::move(compound),
                                                 GetDataSetLoader());
}

NCProject::DataSetLoader NCProject::GetDataSetLoader() {
  const boost::weak_ptr<NCProjectBase> weak = shared_from_this();
  return [weak](int number) -> boost::shared_ptr<NCDataSet const> {
    const auto project = boost::static_pointer_cast<NCProject>(weak.lock());
    if (!project) return nullptr;
    if (project->IsDataSetLoaded(number)) {
      return boost::dynamic_pointer_cast<NCDataSet const>(project->GetDataContainer(number));
    }
    return project->LoadDataSet(number);
  };
}

void NCProject::RestoreCompoundDatasets(CompoundDatasets compounds) {
  mCompounds = std::move(compounds);
}

void NCProject::SetAuxiliaryData(const std::string& name, AuxiliaryData data) {
  if (name.empty()) {
    throw NCError(ExceptionMessage::translate("Auxiliary data needs a name."));
  }
  AuxiliaryDataByName kept = mAuxiliary;
  kept[name] = boost::make_shared<AuxiliaryData const>(std::move(data));
  WriteAuxiliaryData(kept);
  mAuxiliary.swap(kept);
}

boost::shared_ptr<AuxiliaryData const> NCProject::GetAuxiliaryData(const std::string& name) const {
  const auto it = mAuxiliary.find(name);
  return it == mAuxiliary.end() ? nullptr : it->second;
}

std::vector<std::string> NCProject::GetAuxiliaryDataNames() const {
  std::vector<std::string> names;
  names.reserve(mAuxiliary.size());
  for (const auto& entry : mAuxiliary) names.push_back(entry.first);
  return names;
}

bool NCProject::RemoveAuxiliaryData(const std::string& name) {
  if (mAuxiliary.count(name) == 0) return false;
  AuxiliaryDataByName kept = mAuxiliary;
  kept.erase(name);
  WriteAuxiliaryData(kept);
  mAuxiliary.swap(kept);
  return true;
}

void NCProject::RestoreAuxiliaryData(AuxiliaryDataByName data) { mAuxiliary = std::move(data); }
