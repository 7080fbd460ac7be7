#ifndef NCDS_BATCH_BATCHLEVELCOMPONENT_H
#define NCDS_BATCH_BATCHLEVELCOMPONENT_H

// Builds a batch-level dataset from a batch dataset: one row per included batch, one column per
// variable × (phase) × statistic, as a `CreateBatchLevelInfo` describes.
//
// Columns come variable by variable, in the order of the description's variables (none: every
// quantitative column of the source that is not a date-time), then phase by phase in the
// order of its phases (none, by phase: every phase of the source's phase list), then statistic
// by statistic. They are named "<variable>_<phase>_<statistic>", or "<variable>_<statistic>"
// for whole batches, after the variables' primary IDs and the statistics' names
// (`BatchStatistics::Name`). Each column is a quantitative variable of the project: a project
// variable of that name (ignoring case) is taken when it is quantitative and not a column of the
// source, so that summaries of new batches land in the same variables and merge into the
// batch-level dataset; otherwise a new variable is made under a unique name. Statistics that
// keep the variable's unit (First, Last, Min, Max, Range, Mean, Median, StdDev) take its unit.
// With batch conditions, the batch vector's condition variables follow as columns, each
// batch's condition values in its row.
//
// Every statistic is computed over the valid cells of the batch (of the phase run within the
// batch) by `BatchStatistics`, over the maturity variable when the description names one and
// over the row positions otherwise. A batch without a phase, or without valid cells, gives
// missing cells. Each new row has a new observation record named by its batch, with the batch
// name in the batch series; the dataset is ordinary data, records the source's number in its
// import log and keeps the description it was built from (variables and phases resolved, the
// source's number set), so that the same summaries can be made for other batches.
//
// Throws `NCError` (nothing added to the project) for a source that is not a batch dataset, a
// variable or a maturity that is not a column of it, an unknown statistic, no statistics, a
// phase the source does not have, or a phase that is not in one piece within a batch.

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "ncds/batch/CreateBatchLevelInfo.h"
#include "ncds/ncds_export.h"

class NCDataSet;

class NCDS_EXPORT BatchLevelComponent {
 public:
  explicit BatchLevelComponent(CreateBatchLevelInfo info);

  const CreateBatchLevelInfo& GetInfo() const { return mInfo; }

  // The names of the summary columns `Create` makes from `source` (batch conditions aside), in
  // column order, before they are made unique.
  std::vector<std::string> GetColumnNames(const NCDataSet& source) const;

  // A new batch-level dataset `name` with `number` in the project of `source`; it is not saved.
  boost::shared_ptr<NCDataSet> Create(const NCDataSet& source, const std::string& name,
                                      int number) const;

 private:
  CreateBatchLevelInfo mInfo;
};

#endif  // NCDS_BATCH_BATCHLEVELCOMPONENT_H
