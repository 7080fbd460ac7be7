#include "ncds/project/detail/BatchListing.h"

#include <boost/shared_ptr.hpp>
#include <sstream>
#include <string>
#include <utility>

#include "ncds/batch/SourceBatches.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/project/detail/Sqlite.h"

namespace ncds::detail {
namespace {

void CreateTable(SqliteDatabase& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS ncds_batches(number INTEGER PRIMARY KEY, source INTEGER NOT "
      "NULL, batches BLOB NOT NULL, made_from BLOB NOT NULL)");
}

std::string Encode(const SourceBatches& batches) {
  std::ostringstream out;
  batches.Write(out);
  return out.str();
}

// The batches of column `column` of `row`; false when they do not read.
bool Decode(const SqliteStatement& row, int column, SourceBatches& batches) {
  std::size_t size = 0;
  const void* bytes = row.Blob(column, size);
  std::istringstream in(std::string(static_cast<const char*>(bytes), bytes ? size : 0));
  try {
    batches.Read(in);
  } catch (const VxStreamError&) {
    return false;
  }
  return true;
}

}  // namespace

void WriteBatchListing(SqliteDatabase& db, int number, const NCDataSet& dataSet) {
  CreateTable(db);
  const boost::shared_ptr<NCProjectBase const> project = dataSet.GetProject();
  const SourceBatches held =
      project && dataSet.GetBatchInfoVector()
          ? SourceBatches::Of(project->GetObservations(), dataSet.GetObservationInfoVector())
          : SourceBatches();
  const SourceBatches* madeFrom = dataSet.GetDerivedFromBatches();
  const std::string heldBytes = Encode(held);
  const std::string madeFromBytes = Encode(madeFrom ? *madeFrom : SourceBatches());
  SqliteStatement add(db,
                      "INSERT OR REPLACE INTO ncds_batches(number, source, batches, made_from) "
                      "VALUES(?, ?, ?, ?)");
  add.Bind(1, std::int64_t{number})
      .Bind(2, std::int64_t{madeFrom ? dataSet.GetDerivedFromNumber() : 0})
      .BindBlob(3, heldBytes.data(), heldBytes.size())
      .BindBlob(4, madeFromBytes.data(), madeFromBytes.size())
      .Step();
}

void EraseBatchListing(SqliteDatabase& db, int number) {
  CreateTable(db);
  SqliteStatement remove(db, "DELETE FROM ncds_batches WHERE number = ?");
  remove.Bind(1, std::int64_t{number}).Step();
}

std::map<int, int> ReadBatchLags(SqliteDatabase& db) {
  std::map<int, int> lags;
  SqliteStatement exists(
      db, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'ncds_batches'");
  if (!exists.Step()) return lags;
  std::map<int, SourceBatches> held;
  std::map<int, std::pair<int, SourceBatches>> derived;
  SqliteStatement rows(db, "SELECT number, source, batches, made_from FROM ncds_batches");
  while (rows.Step()) {
    const auto number = static_cast<int>(rows.Int(0));
    const auto source = static_cast<int>(rows.Int(1));
    SourceBatches batches;
    if (Decode(rows, 2, batches)) held.emplace(number, std::move(batches));
    SourceBatches madeFrom;
    if (source > 0 && Decode(rows, 3, madeFrom)) {
      derived.emplace(number, std::make_pair(source, std::move(madeFrom)));
    }
  }
  for (const auto& [number, entry] : derived) {
    const auto source = held.find(entry.first);
    if (source != held.end()) {
      lags[number] = static_cast<int>(entry.second.LagBehind(source->second).size());
    }
  }
  return lags;
}

}  // namespace ncds::detail
