#include "ncds/project/NCProject.h"

#include <algorithm>
#include <iterator>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"

NCProject::NCProject()
    : mVariables(std::make_unique<NCVariables>()),
      mObservations(std::make_unique<NCObservations>()),
      mSettings(std::make_unique<BatchImportSettings>()) {}

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
  if (!dataSet) return false;
  mDataSets[dataSet->GetNumber()] = std::move(dataSet);
  return true;
}

boost::shared_ptr<NCDataContainerBase const> NCProject::GetDataContainer(int number) const {
  const auto it = mDataSets.find(number);
  return it == mDataSets.end() ? nullptr : it->second;
}

std::vector<int> NCProject::GetDataSetNumbers() const {
  std::vector<int> numbers;
  numbers.reserve(mDataSets.size());
  for (const auto& entry : mDataSets) numbers.push_back(entry.first);
  return numbers;
}

bool NCProject::RemoveDataSet(int number) { return mDataSets.erase(number) > 0; }
