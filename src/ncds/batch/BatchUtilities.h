#ifndef NCDS_BATCH_BATCHUTILITIES_H
#define NCDS_BATCH_BATCHUTILITIES_H

// Look-ups of batches and phases by name, their names, the phases a variable belongs to by
// default, and the batch and phase structure read out of a dataset's observations.
//
// In a batch dataset every observation carries its batch name in the batch ID series of the
// observation container (and its phase name in the phase series, when there is one). The
// observations of one batch are consecutive and in time order, and so are those of one
// phase inside a batch: each batch and each phase is a run of rows. The functions that read
// observations rely on that and find the ends of runs by galloping search, so that they touch
// a few rows per run rather than every row.
//
// Every function that reads observations has two overloads, over the rows' records and over
// their unique IDs (looked up in the container); they answer the same. Positions are 1-based.

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class NCDataSet;
class NCObservations;
class ObservationInfo;
class VariableInfo;

namespace BatchUtilities {

using Rows = VarObsInfoVector<ObservationInfo>;
using RowIDs = NCIntegralVector<unsigned long, 0>;

// The first phase whose name (original name with `byOriginalName`) equals `name` exactly,
// letter case included; null when none does or `phases` is null.
NCDS_EXPORT boost::shared_ptr<ClassInfo> FindPhase(ClassInfoVector* phases, const char* name,
                                                   bool byOriginalName);
NCDS_EXPORT boost::shared_ptr<ClassInfo const> FindPhase(const ClassInfoVector* phases,
                                                         const char* name, bool byOriginalName);
// The first batch named exactly `name`; null when none is or `batches` is null.
NCDS_EXPORT boost::shared_ptr<BatchInfo> FindBatch(BatchInfoVector* batches, const char* name);
NCDS_EXPORT boost::shared_ptr<BatchInfo const> FindBatch(const BatchInfoVector* batches,
                                                         const char* name);
// The 0-based position of the first phase whose name (original name) equals `name` ignoring
// letter case; -1 when none does. Unlike `FindPhase`, this look-up ignores case.
NCDS_EXPORT int FindPhaseIndex(const ClassInfoVector& phases, const char* name,
                               bool byOriginalName);

// The batch names in order (only the included batches with `includedOnly`), duplicates kept.
NCDS_EXPORT std::unique_ptr<NCStringVector> GetBatchNames(const BatchInfoVector& batches,
                                                          bool includedOnly);
// The distinct phase names in order of first appearance (of included phases only with
// `includedOnly`).
NCDS_EXPORT std::unique_ptr<NCStringVector> GetPhaseNames(const ClassInfoVector& phases,
                                                          bool includedOnly);
// The phases `variable` belongs to by default: the included phases it is not excluded from
// and, for a Y variable, whose Y it is ("$Time" is the Y of the phases whose Y is one of the
// reserved IDs). Names are unique, in phase order; empty for a null or empty list.
NCDS_EXPORT NCStringVector GetDefaultVarClasses(const ClassInfoVector* phases,
                                                const VariableInfo& variable);

// The sums, over the batches (`batchCounts` of the `size` values each, in order), of each
// batch's first and last valid maturity, missing values skipped at both ends; a batch without
// two valid values counts for nothing. Sums of pieces of the batches add up to the whole's.
NCDS_EXPORT std::pair<double, double> SumMaturityEnds(const float* maturity, std::size_t size,
                                                      const std::vector<int>& batchCounts);
// Whether the maturity rises over the batches: the sum of the batches' last valid values
// (`SumMaturityEnds`) is not below that of their first ones. True with no batches.
NCDS_EXPORT bool IsAscendingMaturity(const NCDataVector<float>& maturity,
                                     const std::vector<int>& batchCounts);

// 0 when `maturity` (one value per row) never turns back within a batch, else the 1-based
// number of the first batch where it does. A batch's direction is that of its last value
// against its first; equal neighbours are fine; missing values count as values.
NCDS_EXPORT int IsMonotonic(const NCObservations& observations, const Rows& rows,
                            const NCDataVector<float>& maturity);
NCDS_EXPORT int IsMonotonic(const NCObservations& observations, const RowIDs& rows,
                            const NCDataVector<float>& maturity);

// The position of the first row after `start` in another batch (with `orPhase`: another
// batch or another phase); -1 when the rows after `start` all share its group, when there are
// no rows or when row `start` has no record; 1 for a `start` below 1. A row without a record
// belongs to no group, so it ends a run.
NCDS_EXPORT int FindNextBatchOrPhase(const NCObservations& observations, const Rows& rows,
                                     int start, bool orPhase);
NCDS_EXPORT int FindNextBatchOrPhase(const NCObservations& observations, const RowIDs& rows,
                                     int start, bool orPhase);

// The 1-based first row of every batch (with `orPhase`: of every batch and phase run), in
// order; empty when there are no rows.
NCDS_EXPORT std::vector<int> GetRunStarts(const NCObservations& observations, const Rows& rows,
                                          bool orPhase);
NCDS_EXPORT std::vector<int> GetRunStarts(const NCObservations& observations, const RowIDs& rows,
                                          bool orPhase);

// The dataset-wide phase list: one `ClassInfo` per distinct phase name, in order of first
// appearance. Null when the container has no phase series.
NCDS_EXPORT std::unique_ptr<ClassInfoVector> CreatePhaseInfoVector(
    const NCObservations& observations, const Rows& rows);
NCDS_EXPORT std::unique_ptr<ClassInfoVector> CreatePhaseInfoVector(
    const NCObservations& observations, const RowIDs& rows);
// One included `BatchInfo` per batch run, named by its first row, with the run's length and,
// when the container has a phase series, the phases of the run in order of appearance with
// their counts in the run. Null when the container has no batch series.
NCDS_EXPORT std::unique_ptr<BatchInfoVector> CreateBatchInfoVector(
    const NCObservations& observations, const Rows& rows);
NCDS_EXPORT std::unique_ptr<BatchInfoVector> CreateBatchInfoVector(
    const NCObservations& observations, const RowIDs& rows);

// Makes `dataSet` a batch dataset whose batches (and phases) are the runs of its rows in the
// observation series `batchSeries` (`phaseSeries`, 0 for none): the project's observation
// container and batch import settings record the two series, the dataset shows them among its
// observation IDs and receives the batch vector and phase list found in its rows, which sets
// its batch bit. Throws `InvalidArgument` for a series the container does not have or a
// dataset without a project.
NCDS_EXPORT void MakeBatchDataSet(NCDataSet& dataSet, int batchSeries, int phaseSeries);

}  // namespace BatchUtilities

#endif  // NCDS_BATCH_BATCHUTILITIES_H
