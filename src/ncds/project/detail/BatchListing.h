#ifndef NCDS_PROJECT_DETAIL_BATCHLISTING_H
#define NCDS_PROJECT_DETAIL_BATCHLISTING_H

// What a listing of a project file shows of the batches behind its datasets, kept in the table
// ncds_batches beside the streams so that it needs no dataset read: per dataset the batches it
// holds (`SourceBatches` of its rows, for a batch dataset) and, for an aligned or batch-level
// dataset, its source's number and the source's batches it was made from. Files written before
// the table have none, and their listings show no lag until the datasets are saved again.

#include <map>

class NCDataSet;

namespace ncds::detail {

class SqliteDatabase;

// Records `dataSet`, stored as dataset `number`, within the caller's write transaction.
void WriteBatchListing(SqliteDatabase& db, int number, const NCDataSet& dataSet);
// Forgets dataset `number`, within the caller's write transaction.
void EraseBatchListing(SqliteDatabase& db, int number);
// Per derived dataset whose source is recorded: how many of the source's batches it lacks
// (new, replaced or gone). A damaged entry is left out.
std::map<int, int> ReadBatchLags(SqliteDatabase& db);

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_BATCHLISTING_H
