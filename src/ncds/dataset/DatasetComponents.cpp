#include "ncds/dataset/DatasetComponents.h"

#include <algorithm>

#include "ncds/batch/BatchUtilities.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"

DatasetComponents::DatasetComponents(boost::shared_ptr<NCDataSet> dataSet)
    : mDataSet(std::move(dataSet)) {
  const boost::shared_ptr<NCProjectBase> project = mDataSet ? mDataSet->GetProject() : nullptr;
  if (!project) throw InvalidArgument("DatasetComponents needs a dataset of a project.");
  mObservations = &project->GetObservations();
  if (const auto batches = mDataSet->GetBatchInfoVector()) {
    mBatches = std::make_unique<BatchInfoVector>(*batches);
  }
  if (const auto phases = mDataSet->GetPhaseInfoVector()) {
    mPhases = std::make_unique<ClassInfoVector>(*phases);
  }
}

DatasetComponents::~DatasetComponents() = default;

const VarObsInfoVector<ObservationInfo>& DatasetComponents::GetObservationInfos() const {
  return mDataSet->GetObservationInfoVector();
}

int DatasetComponents::RemoveObservations(int position, int count) {
  const int rows = mDataSet->SizeObservations();
  const int first = std::max(position, 1);
  const int end = std::min(position + std::max(count, 0), rows + 1);
  if (first < end) {
    mRemoved.emplace_back(first - 1, end - 1);
    mRemovedCount += end - first;
  }
  return position + std::max(count, 0);
}

void DatasetComponents::RenamePhase(const std::string& from, const std::string& to) {
  if (from != to) mRenames[from] = to;
}

bool DatasetComponents::Apply(bool confirm) {
  if (!mRemoved.empty()) {
    // One ascending list of the marked rows, each once, however the runs were marked.
    std::sort(mRemoved.begin(), mRemoved.end());
    NCIntegralVector<int, -99> positions;
    positions.reserve(static_cast<std::size_t>(mRemovedCount));
    int next = 0;
    for (const auto& [first, end] : mRemoved) {
      for (int row = std::max(first, next); row < end; ++row) positions.push_back(row + 1);
      next = std::max(next, end);
    }
    if (!mDataSet->RemoveObservation(&positions, confirm, false)) return false;
    mRemoved.clear();
    mRemovedCount = 0;
  }
  const int phaseSeries = mObservations->GetPhaseIDRaw();
  if (!mRenames.empty() && phaseSeries > 0) {
    // A run of rows shares one phase name: it is looked up once.
    const VarObsInfoVector<ObservationInfo>& rows = mDataSet->GetObservationInfoVector();
    std::vector<int> starts = BatchUtilities::GetRunStarts(*mObservations, rows, true);
    starts.push_back(static_cast<int>(rows.size()) + 1);
    for (std::size_t r = 0; r + 1 < starts.size(); ++r) {
      const ObservationInfo* head = rows[static_cast<std::size_t>(starts[r] - 1)];
      if (!head) continue;
      const auto renamed = mRenames.find(head->GetUserID(phaseSeries));
      if (renamed == mRenames.end()) continue;
      const std::string to = renamed->second;
      for (int row = starts[r]; row < starts[r + 1]; ++row) {
        if (ObservationInfo* record = rows[static_cast<std::size_t>(row - 1)]) {
          record->SetUserID(to, phaseSeries, mObservations);
        }
      }
    }
    mRenames.clear();
  }
  if (mBatches) mDataSet->SetBatchInfoVector(mBatches.get());
  mDataSet->SetPhaseInfoVector(mPhases.get());
  return true;
}
