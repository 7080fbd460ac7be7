#ifndef NCDS_DATASET_DATASETCOMPONENTS_H
#define NCDS_DATASET_DATASETCOMPONENTS_H

// The parts of a dataset that editing its batch and phase structure works on: its rows with
// their observation records (whose batch and phase series name each row's batch and phase),
// working copies of its batch vector and its phase list, the runs of rows to remove and the
// phase names to change. Nothing reaches the dataset or its records until `Apply`, which
// writes everything back at once: the marked rows go in one pass over the matrix, the rows'
// phase names change, and the dataset takes the batch vector and phase list. A refused change
// leaves the dataset and the records as they were.

#include <boost/shared_ptr.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class NCDataSet;
class NCObservations;
class ObservationInfo;

class NCDS_EXPORT DatasetComponents {
 public:
  // Working copies of the batch vector and phase list of `dataSet` (null where it has none).
  // Throws `InvalidArgument` for a null dataset or one whose project is gone.
  explicit DatasetComponents(boost::shared_ptr<NCDataSet> dataSet);
  ~DatasetComponents();
  DatasetComponents(const DatasetComponents&) = delete;
  DatasetComponents& operator=(const DatasetComponents&) = delete;

  // The project's observation container: which series hold batch and phase names.
  const NCObservations& GetObservations() const { return *mObservations; }
  // The dataset's rows as they are before `Apply`.
  const VarObsInfoVector<ObservationInfo>& GetObservationInfos() const;
  BatchInfoVector* GetBatchInfoVector() { return mBatches.get(); }
  ClassInfoVector* GetPhaseInfoVector() { return mPhases.get(); }

  // Marks `count` rows from the 1-based `position` for removal and returns the position just
  // after them, where a walk over the rows goes on (rows do not move until `Apply`). Runs
  // outside the rows are cut to them.
  int RemoveObservations(int position, int count);
  // The number of rows marked so far.
  int GetRemovedCount() const { return mRemovedCount; }
  // Rows whose phase is `from` get the phase name `to` (applied to the rows kept).
  void RenamePhase(const std::string& from, const std::string& to);
  const std::map<std::string, std::string>& GetPhaseRenames() const { return mRenames; }

  // Writes everything back to the dataset. The removal of rows goes through the project's
  // change check first (muted unless `confirm`); false when it refuses, and then nothing
  // changes.
  bool Apply(bool confirm);

 private:
  boost::shared_ptr<NCDataSet> mDataSet;
  NCObservations* mObservations = nullptr;
  std::unique_ptr<BatchInfoVector> mBatches;
  std::unique_ptr<ClassInfoVector> mPhases;
  // Runs of rows to remove, 0-based [first, end), in the order marked.
  std::vector<std::pair<int, int>> mRemoved;
  int mRemovedCount = 0;
  std::map<std::string, std::string> mRenames;
};

#endif  // NCDS_DATASET_DATASETCOMPONENTS_H
