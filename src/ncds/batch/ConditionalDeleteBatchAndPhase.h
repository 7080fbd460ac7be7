#ifndef NCDS_BATCH_CONDITIONALDELETEBATCHANDPHASE_H
#define NCDS_BATCH_CONDITIONALDELETEBATCHANDPHASE_H

// Brings a dataset's rows in line with its batch and phase records after the user excluded
// batches or phases or renamed phases: the rows of excluded batches, and of excluded phases
// inside included batches, are removed; rows take the new names of renamed phases (phases
// renamed to one name become one phase); deleted batches and phases leave the batch vector,
// and phase records merged into one name leave one record. Each action can be logged.
//
// It works on a `DatasetComponents` bundle, whose batch counts must match the runs of rows on
// entry: rows are only marked here, and removed in one pass when the bundle is applied. An
// included batch whose phases are all excluded would be left empty and is removed as a batch.

#include <set>
#include <string>

#include "ncds/ncds_export.h"

class BatchInfo;
class ClassInfo;
class DatasetComponents;

class NCDS_EXPORT ConditionalDeleteBatchAndPhase {
 public:
  // Keeps `components`, which must outlive this object.
  explicit ConditionalDeleteBatchAndPhase(DatasetComponents* components);

  // Runs the whole update on the bundle; appends one line per action to `log` when given.
  void UpdateDataAccordingToBatchAndPhaseInfo(std::string* log);

 private:
  // Classes (phases of a dataset without batches) that are excluded lose their rows.
  void DeleteExcludedClasses(std::string* log);
  // Walks the batches in order with the running row position.
  void DeleteBatchesAndPhases(std::string* log);
  int RemoveBatch(const BatchInfo& batch, int position, int count);
  int RemovePhase(const ClassInfo& phase, int position, int count);
  void MergeAndRenamePhases(std::string* log);
  void RemoveDeletedBatchesAndPhasesFromBatchInfoVector();
  void ExcludeDuplicateMergedPhaseInfos();

  DatasetComponents* mComponents;
  std::set<const void*> mDeleted;  // the batch and phase records whose rows were removed
};

#endif  // NCDS_BATCH_CONDITIONALDELETEBATCHANDPHASE_H
