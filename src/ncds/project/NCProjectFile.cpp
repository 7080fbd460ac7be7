#include "ncds/project/NCProjectFile.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <charconv>
#include <filesystem>
#include <future>
#include <istream>
#include <map>
#include <ostream>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/RUSPData.h"
#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCDataSetInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/project/detail/AuxiliaryDataStream.h"
#include "ncds/project/detail/BatchListing.h"
#include "ncds/project/detail/BlobChunks.h"
#include "ncds/project/detail/CompoundDatasetsStream.h"
#include "ncds/project/detail/EncodedStream.h"
#include "ncds/project/detail/LightObjectStream.h"
#include "ncds/project/detail/ObservationBlocks.h"
#include "ncds/project/detail/Sqlite.h"

namespace ncds::detail {
namespace {

// "NCDS" in the file header, so that other tools can tell what the file is.
constexpr std::int64_t kApplicationID = 0x4E434453;

const char* const kVariablesStream = "variables";
const char* const kObservationsStream = "observations";
const char* const kSettingsStream = "settings";
const char* const kRUSPStream = "rusp";
const char* const kCompoundsStream = "compounds";
const char* const kAuxiliaryStream = "auxiliary";

std::string DataSetStream(int number) { return "dataset/" + std::to_string(number); }

std::string InfoStream(int number) { return "info/" + std::to_string(number); }

std::int64_t QueryInt(SqliteDatabase& db, const char* sql) {
  SqliteStatement query(db, sql);
  return query.Step() ? query.Int(0) : 0;
}

}  // namespace

// Writes the streams of one save, inside the caller's transaction. Each replaces the stream of
// its name; the bytes replaced are freed by Finish, once everything is written, so that the
// save never reuses pages it freed itself (those SQLite would have to journal).
//
// Streams made in memory (the project's metadata) have their fingerprint kept in the file, in
// `ncds_stream`; such a stream is not written again while the file holds the same bytes.
class SaveWriter {
 public:
  explicit SaveWriter(SqliteDatabase& db, ChunkWriter::StoredCallback onStored = nullptr)
      : mDb(db), mOnStored(std::move(onStored)) {
    // Files from before fingerprints lack the table.
    mDb.Execute(
        "CREATE TABLE IF NOT EXISTS ncds_stream(name TEXT PRIMARY KEY, size INTEGER NOT NULL, "
        "crc INTEGER NOT NULL, adler INTEGER NOT NULL) WITHOUT ROWID");
  }

  void Write(const std::string& name, const VStreamBase& object) {
    ChunkWriter chunks(mDb, name, kDefaultChunkSize, mOnStored);
    std::ostream os(&chunks);
    if (!(os << object)) ThrowNotWritten();
    chunks.Close(&mReplaced);
    SqliteStatement forget(mDb, "DELETE FROM ncds_stream WHERE name = ?");
    forget.Bind(1, name).Step();
  }

  // Writes a stream made beforehand, unless the file holds the same bytes under its name. Its
  // full blocks are stored without a copy.
  void Write(const std::string& name, const EncodedStream& stream) {
    const StreamFingerprint& print = stream.fingerprint;
    SqliteStatement stored(mDb, "SELECT size, crc, adler FROM ncds_stream WHERE name = ?");
    if (stored.Bind(1, name).Step() &&
        StreamFingerprint{static_cast<std::uint64_t>(stored.Int(0)),
                          static_cast<std::uint32_t>(stored.Int(1)),
                          static_cast<std::uint32_t>(stored.Int(2))} == print) {
      return;
    }
    stored.Reset();
    ChunkWriter chunks(mDb, name, kDefaultChunkSize, mOnStored);
    bool written = true;
    stream.blocks->ForEachBlock([&chunks, &written](const char* data, std::size_t size) {
      written = written && chunks.sputn(data, static_cast<std::streamsize>(size)) ==
                               static_cast<std::streamsize>(size);
    });
    if (!written) ThrowNotWritten();
    chunks.Close(&mReplaced);
    SqliteStatement keep(mDb,
                         "INSERT OR REPLACE INTO ncds_stream(name, size, crc, adler) "
                         "VALUES(?, ?, ?, ?)");
    keep.Bind(1, name)
        .Bind(2, static_cast<std::int64_t>(print.size))
        .Bind(3, std::int64_t{print.crc})
        .Bind(4, std::int64_t{print.adler})
        .Step();
  }

  // Removes the streams whose names begin with `prefix`, except those in `kept`.
  void DropStreams(const std::string& prefix, const std::set<std::string>& kept) {
    std::string past = prefix;
    ++past.back();
    std::vector<std::string> names;
    SqliteStatement streams(
        mDb, "SELECT DISTINCT stream FROM ncds_chunk WHERE stream >= ? AND stream < ?");
    streams.Bind(1, prefix).Bind(2, past);
    while (streams.Step()) {
      std::string name = streams.Text(0);
      if (kept.count(name) == 0) names.push_back(std::move(name));
    }
    streams.Reset();
    SqliteStatement forget(mDb, "DELETE FROM ncds_stream WHERE name = ?");
    for (const std::string& name : names) {
      DetachChunks(mDb, name, mReplaced);
      forget.Reset();
      forget.Bind(1, name).Step();
    }
  }

  // Frees what the streams written replace; returns the number of pages freed.
  std::int64_t Finish() {
    const std::int64_t before = QueryInt(mDb, "PRAGMA freelist_count");
    DeleteBlobs(mDb, mReplaced);
    mReplaced.clear();
    return QueryInt(mDb, "PRAGMA freelist_count") - before;
  }

 private:
  [[noreturn]] void ThrowNotWritten() const {
    throw NCError(ExceptionMessage::translate("The project could not be written to {1}.") %
                  mDb.Path());
  }

  SqliteDatabase& mDb;
  ChunkWriter::StoredCallback mOnStored;
  std::vector<std::int64_t> mReplaced;
};

namespace {

// Reads `object` from stream `name`; false when it is missing or does not read.
bool ReadObject(SqliteDatabase& db, const std::string& name, VStreamBase& object) {
  ChunkReader chunks(db, name);
  std::istream is(&chunks);
  return chunks.Size() > 0 && static_cast<bool>(is >> object);
}

// Reads `object` from stream `name` when the file holds one (files from before that stream
// lack it and read as they are); false when it is there but does not read.
bool ReadOptionalObject(SqliteDatabase& db, const std::string& name, VStreamBase& object) {
  ChunkReader chunks(db, name);
  std::istream is(&chunks);
  return chunks.Size() == 0 || static_cast<bool>(is >> object);
}

// The observation records as the file keeps them: the container's stream without its records
// and the records in blocks with their list; or, when some record is of a kind blocks do not
// hold, the container's stream with all of them.
struct EncodedObservations {
  EncodedStream container;
  std::vector<std::pair<std::string, EncodedStream>> blocks;
};

EncodedObservations EncodeObservations(const NCObservations& observations, std::size_t blockSize,
                                       const std::string& path) {
  EncodedObservations encoded;
  if (!FitsObservationBlocks(observations)) {
    encoded.container = Encode(observations, blockSize, path);
    return encoded;
  }
  encoded.container =
      Encode([&observations](std::ostream& os) { return observations.WriteWithoutRecords(os); },
             kDefaultChunkSize, path);
  ObservationBlockList list;
  for (auto first = observations.begin(); first != observations.end();) {
    const unsigned long key = first->first / kObservationBlockSpan;
    const auto last = observations.lower_bound((key + 1) * kObservationBlockSpan);
    encoded.blocks.emplace_back(ObservationBlockStream(key),
                                Encode(EncodeObservationBlock(first, last), blockSize, path));
    list.emplace_back(key, static_cast<std::size_t>(last - first));
    first = last;
  }
  encoded.blocks.emplace_back(kObservationListStream,
                              Encode(EncodeObservationBlockList(list), blockSize, path));
  return encoded;
}

// The blocks of observation records the file holds: from their list, or, when the list is
// missing or damaged, from the names of the streams (their record counts then unknown, 0).
ObservationBlockList ListObservationBlocks(SqliteDatabase& db) {
  std::string listed;
  ObservationBlockList list;
  if (ReadStreamBytes(db, kObservationListStream, listed) &&
      DecodeObservationBlockList(listed, list)) {
    return list;
  }
  list.clear();
  // The names of the blocks sort between the prefix and the prefix with its '/' turned '0'.
  const std::string prefix = kObservationBlockPrefix;
  const std::string past = prefix.substr(0, prefix.size() - 1) + '0';
  SqliteStatement streams(db,
                          "SELECT DISTINCT stream FROM ncds_chunk WHERE stream > ? AND stream < ?");
  streams.Bind(1, prefix).Bind(2, past);
  while (streams.Step()) {
    const std::string name = streams.Text(0);
    unsigned long key = 0;
    const char* const end = name.data() + name.size();
    const auto parsed = std::from_chars(name.data() + prefix.size(), end, key);
    if (parsed.ec == std::errc() && parsed.ptr == end &&
        key <= 0xFFFFFFFFUL / kObservationBlockSpan) {
      list.emplace_back(key, 0);
    }
  }
  std::sort(list.begin(), list.end());
  return list;
}

// Adds the records kept in blocks to `observations`, which holds the container read from its
// own stream; true at once for a file that keeps them all there. A block that is missing or
// damaged is left out, its records (as many as the list says) counted in `lost`: the rows that
// name them become rows without a record. False when the blocks hold records the container's
// stream holds too.
bool ReadObservationBlocks(SqliteDatabase& db, NCObservations& observations, std::size_t& lost) {
  lost = 0;
  const ObservationBlockList list = ListObservationBlocks(db);
  if (list.empty()) return true;
  std::vector<std::string> blocks(list.size());
  std::vector<char> damaged(list.size(), 0);
  for (std::size_t k = 0; k < list.size(); ++k) {
    damaged[k] = !ReadStreamBytes(db, ObservationBlockStream(list[k].first), blocks[k]);
  }
  // Building the records is most of a large project's opening: the blocks are decoded in two
  // halves at once, the later half on another thread.
  using Records = std::vector<std::unique_ptr<ObservationInfo>>;
  const int series = observations.SizeAliases();
  const auto decode = [&](std::size_t first, std::size_t last, Records& records) {
    for (std::size_t k = first; k < last; ++k) {
      const std::size_t before = records.size();
      if (damaged[k] ||
          !DecodeObservationBlock(blocks[k].data(), blocks[k].size(), list[k].first, series,
                                  records) ||
          (list[k].second != 0 && records.size() - before != list[k].second)) {
        records.resize(before);
        damaged[k] = 1;
      }
    }
  };
  const std::size_t half = list.size() / 2;
  Records early;
  Records late;
  std::future<void> lateRead = std::async(half >= 2 ? std::launch::async : std::launch::deferred,
                                          [&] { decode(half, list.size(), late); });
  decode(0, half, early);
  lateRead.get();
  for (std::size_t k = 0; k < list.size(); ++k) {
    if (damaged[k]) lost += list[k].second;
  }
  observations.Reserve(early.size() + late.size());
  try {
    for (Records* records : {&early, &late}) {
      for (auto& record : *records) observations.Add(std::move(record));
    }
  } catch (const NCInternalError&) {
    return false;
  }
  observations.SetIsDirty(false);
  return true;
}

// About what a save of `dataSet` writes, for its progress: the values and IDs, and the
// project's records (some 6 bytes an observation in blocks, 200 a variable).
float EstimatedSaveBytes(const NCDataSet& dataSet, const NCProject& project) {
  const double values = 4.0 * dataSet.SizeObservations() * dataSet.SizeVariables();
  const double ids = 8.0 * (dataSet.SizeObservations() + dataSet.SizeVariables());
  const double records = 6.0 * static_cast<double>(project.GetObservations().size()) +
                         200.0 * static_cast<double>(project.GetVariables().size());
  return static_cast<float>(values + ids + records);
}

// From this many observations on, a save encodes their records on another thread while it
// writes the rest.
constexpr std::size_t kParallelRecords = 20000;

std::uint64_t FileBytes(SqliteDatabase& db) {
  return static_cast<std::uint64_t>(QueryInt(db, "PRAGMA page_count") *
                                    QueryInt(db, "PRAGMA page_size"));
}

// Rewrites the file without its free pages. SQLite copies the database into a temporary one
// and back under its journal, so a process that dies leaves the old file or the new one.
void Vacuum(SqliteDatabase& db) { db.Execute("VACUUM"); }

[[noreturn]] void ThrowDamaged(const std::string& path) {
  throw NCError(ExceptionMessage::translate("The project file {1} is damaged.") % path);
}

}  // namespace
}  // namespace ncds::detail

using ncds::detail::SqliteDatabase;
using ncds::detail::SqliteStatement;
using ncds::detail::SqliteTransaction;

NCProjectFile::NCProjectFile() = default;
NCProjectFile::~NCProjectFile() = default;

boost::shared_ptr<NCProjectFile> NCProjectFile::Connect(const std::string& path, bool create) {
  std::error_code error;
  const bool exists = std::filesystem::exists(path, error);
  if (!exists && !create) {
    throw NCError(ExceptionMessage::translate("The project file {1} does not exist.") % path);
  }
  if (exists && std::filesystem::is_directory(path, error)) {
    throw NCError(ExceptionMessage::translate("{1} is not an ncds project file.") % path);
  }
  boost::shared_ptr<NCProjectFile> project(new NCProjectFile());
  project->mDb = std::make_unique<SqliteDatabase>(path, create);
  // Large pages suit streams of megabytes. Freed pages are not zeroed: that would make SQLite
  // save their old bytes in its journal before the next save reuses them, doubling what a save
  // writes.
  project->mDb->Execute("PRAGMA page_size = 65536; PRAGMA secure_delete = OFF");
  // No auto-vacuum: its pointer map makes SQLite search the free list for every page of a
  // chunk it writes. Chunks of one overflow page free without being read anyway, and the free
  // pages stay in the file for the next save. Only a new file takes this and the page size.
  if (!exists || std::filesystem::file_size(path, error) == 0) {
    project->mDb->Execute("PRAGMA auto_vacuum = NONE");
  }
  project->SetSyncToDisk(true);
  return project;
}

boost::shared_ptr<NCProjectFile> NCProjectFile::Open(const std::string& path, bool create) {
  boost::shared_ptr<NCProjectFile> project = Connect(path, create);
  project->ReadProject();
  return project;
}

const std::string& NCProjectFile::GetPath() const { return mDb->Path(); }

void NCProjectFile::SetSyncToDisk(bool sync) {
  mDb->Execute(sync ? "PRAGMA synchronous = NORMAL" : "PRAGMA synchronous = OFF");
  mSyncToDisk = sync;
}

void NCProjectFile::ReadProject() {
  SqliteDatabase& db = *mDb;
  // A file another process is writing is refused rather than read half-way through a save;
  // a read-only file is read as it is.
  SqliteTransaction transaction(db, SqliteTransaction::kWriteIfWritable);
  CheckFormat(true);

  using ncds::detail::ReadObject;
  BatchImportSettings settings;
  ncds::detail::LightObjectStream<RUSPData> rusp(GetRUSPData());
  // What every dataset needs: damage here refuses the project, naming the part.
  if (!ReadObject(db, ncds::detail::kVariablesStream, GetVariables())) {
    throw NCError(ExceptionMessage::translate(
                      "The project file {1} is damaged: its variables cannot be read.") %
                  db.Path());
  }
  if (!ReadObject(db, ncds::detail::kObservationsStream, GetObservations()) ||
      !ncds::detail::ReadObservationBlocks(db, GetObservations(), mLostRecords)) {
    throw NCError(ExceptionMessage::translate(
                      "The project file {1} is damaged: its observation series cannot be read.") %
                  db.Path());
  }
  if (!ReadObject(db, ncds::detail::kSettingsStream, settings) ||
      !ncds::detail::ReadOptionalObject(db, ncds::detail::kRUSPStream, rusp)) {
    throw NCError(ExceptionMessage::translate(
                      "The project file {1} is damaged: its batch settings cannot be read.") %
                  db.Path());
  }
  SetBatchImportSettings(settings);

  SqliteStatement numbers(db, "SELECT number FROM ncds_dataset ORDER BY number");
  while (numbers.Step()) {
    const int number = static_cast<int>(numbers.Int(0));
    auto info = boost::make_shared<NCDataSetInfo>(shared_from_this());
    bool read = false;
    try {
      read = ReadObject(db, ncds::detail::InfoStream(number), *info);
    } catch (const NCError&) {
      read = false;  // it names records the project does not hold
    }
    if (read && info->GetNumber() == number) {
      RestoreDataSet(std::string(), std::move(info));
    } else {
      mDamaged.insert(number);
    }
  }
  numbers.Reset();

  // Compounds and auxiliary data came later: files from before them have neither stream.
  ncds::detail::CompoundDatasetsStream compounds(shared_from_this());
  ncds::detail::AuxiliaryDataStream auxiliary;
  if (!ncds::detail::ReadOptionalObject(db, ncds::detail::kCompoundsStream, compounds) ||
      !ncds::detail::ReadOptionalObject(db, ncds::detail::kAuxiliaryStream, auxiliary)) {
    throw NCError(ExceptionMessage::translate("The project file {1} is damaged: its compound "
                                              "datasets or auxiliary data cannot be read.") %
                  db.Path());
  }
  for (const auto& entry : compounds.GetCompounds()) {
    if (IsDataSetNumber(entry.first)) ncds::detail::ThrowDamaged(db.Path());
  }
  RestoreCompoundDatasets(compounds.TakeCompounds());
  RestoreAuxiliaryData(auxiliary.TakeData());
  transaction.Commit();
}

void NCProjectFile::CheckFormat(bool mayInitialise) {
  SqliteDatabase& db = *mDb;
  const std::int64_t application = ncds::detail::QueryInt(db, "PRAGMA application_id");
  const std::int64_t tables = ncds::detail::QueryInt(db, "SELECT count(*) FROM sqlite_master");
  if (application == 0 && tables == 0 && mayInitialise) {
    Initialise();  // a new, empty file
  } else if (application != ncds::detail::kApplicationID) {
    throw NCError(ExceptionMessage::translate("{1} is not an ncds project file.") % db.Path());
  }
  const std::int64_t version = ncds::detail::QueryInt(db, "PRAGMA user_version");
  if (version > kFormatVersion) {
    throw NCError(ExceptionMessage::translate(
                      "The project file {1} was written by a newer version of ncds (format {2}); "
                      "this version reads format {3} and older.") %
                  db.Path() % version % kFormatVersion);
  }
}

std::vector<NCProjectFile::DataSetSummary> NCProjectFile::ListDataSets(const std::string& path) {
  const boost::shared_ptr<NCProjectFile> project = Connect(path, false);
  SqliteTransaction transaction(*project->mDb, SqliteTransaction::kWriteIfWritable);
  project->CheckFormat(false);
  std::vector<DataSetSummary> summaries;
  const std::map<int, int> lags = ncds::detail::ReadBatchLags(*project->mDb);
  SqliteStatement list(*project->mDb,
                       "SELECT number, name, observations, variables, data_type FROM "
                       "ncds_dataset ORDER BY number");
  while (list.Step()) {
    const auto number = static_cast<int>(list.Int(0));
    const auto lag = lags.find(number);
    summaries.push_back({number, list.Text(1), static_cast<int>(list.Int(2)),
                         static_cast<int>(list.Int(3)), static_cast<int>(list.Int(4)),
                         lag == lags.end() ? -1 : lag->second});
  }
  return summaries;
}

std::vector<NCProjectFile::CompoundSummary> NCProjectFile::ListCompoundDatasets(
    const std::string& path) {
  const boost::shared_ptr<NCProjectFile> project = Connect(path, false);
  SqliteTransaction transaction(*project->mDb, SqliteTransaction::kWriteIfWritable);
  project->CheckFormat(false);
  ncds::detail::CompoundDatasetsStream compounds(project);
  if (!ncds::detail::ReadOptionalObject(*project->mDb, ncds::detail::kCompoundsStream, compounds)) {
    ncds::detail::ThrowDamaged(path);
  }
  std::vector<CompoundSummary> summaries;
  for (const auto& [number, compound] : compounds.GetCompounds()) {
    summaries.push_back({number, compound->GetName(), compound->GetMembers()});
  }
  return summaries;
}

NCProjectFile::Compacted NCProjectFile::Compact(const std::string& path) {
  const boost::shared_ptr<NCProjectFile> project = Connect(path, false);
  {
    SqliteTransaction transaction(*project->mDb, SqliteTransaction::kWriteIfWritable);
    project->CheckFormat(false);
  }
  Compacted sizes;
  sizes.before = ncds::detail::FileBytes(*project->mDb);
  ncds::detail::Vacuum(*project->mDb);
  sizes.after = ncds::detail::FileBytes(*project->mDb);
  return sizes;
}

void NCProjectFile::CompactIfWasteful(std::int64_t keptPages) {
  const std::int64_t free = ncds::detail::QueryInt(*mDb, "PRAGMA freelist_count") - keptPages;
  if (free * 4 <= ncds::detail::QueryInt(*mDb, "PRAGMA page_count")) return;
  try {
    ncds::detail::Vacuum(*mDb);
  } catch (const NCError&) {
    // The save is in the file; without room for a compacted copy the free pages stay for the
    // next save to reuse.
  }
}

void NCProjectFile::Initialise() {
  SqliteDatabase& db = *mDb;
  ncds::detail::CreateChunkTable(db);
  // What listings show, kept beside the streams so that they need not be read.
  db.Execute(
      "CREATE TABLE ncds_dataset(number INTEGER PRIMARY KEY, name TEXT NOT NULL, "
      "observations INTEGER NOT NULL, variables INTEGER NOT NULL, data_type INTEGER NOT NULL)");
  db.Execute(("PRAGMA application_id = " + std::to_string(ncds::detail::kApplicationID)).c_str());
  ncds::detail::SaveWriter writer(db);
  WriteStreams(writer, nullptr, nullptr);
}

std::int64_t NCProjectFile::WriteStreams(ncds::detail::SaveWriter& writer, const NCDataSet* dataSet,
                                         const NCDataSetInfo* info) {
  using ncds::detail::Encode;
  // Blocks of whole chunks, each stored without a copy.
  constexpr std::size_t kBlockSize = 64 * ncds::detail::kDefaultChunkSize;
  const std::string& path = mDb->Path();
  // Many observation records take about as long to encode as a dataset's values take to
  // write: the two happen at once. Encoding only reads the records.
  const auto policy = GetObservations().size() < ncds::detail::kParallelRecords
                          ? std::launch::deferred
                          : std::launch::async;
  std::future<ncds::detail::EncodedObservations> observations = std::async(policy, [this, &path] {
    return ncds::detail::EncodeObservations(GetObservations(), kBlockSize, path);
  });
  writer.Write(ncds::detail::kVariablesStream,
               Encode(GetVariables(), ncds::detail::kDefaultChunkSize, path));
  writer.Write(ncds::detail::kSettingsStream,
               Encode(GetBatchImportSettings(), ncds::detail::kDefaultChunkSize, path));
  writer.Write(ncds::detail::kRUSPStream,
               Encode(ncds::detail::LightObjectStream<const RUSPData>(GetRUSPData()),
                      ncds::detail::kDefaultChunkSize, path));
  writer.Write(ncds::detail::kCompoundsStream,
               Encode(ncds::detail::CompoundDatasetsStream(nullptr, GetCompoundDatasets()),
                      ncds::detail::kDefaultChunkSize, path));
  writer.Write(ncds::detail::kAuxiliaryStream,
               Encode(ncds::detail::AuxiliaryDataStream(GetAuxiliaryDataByName()),
                      ncds::detail::kDefaultChunkSize, path));
  // The dataset's rows and columns refer to records: they are saved with it.
  if (dataSet) writer.Write(ncds::detail::DataSetStream(info->GetNumber()), *dataSet);
  ncds::detail::EncodedObservations records = observations.get();
  writer.Write(ncds::detail::kObservationsStream, records.container);
  std::set<std::string> blocks;
  for (const auto& [name, stream] : records.blocks) {
    writer.Write(name, stream);
    blocks.insert(name);
  }
  writer.DropStreams(ncds::detail::kObservationBlockPrefix, blocks);
  // A file of an earlier format holds this one's streams now.
  mDb->Execute(("PRAGMA user_version = " + std::to_string(kFormatVersion)).c_str());
  if (info) writer.Write(ncds::detail::InfoStream(info->GetNumber()), *info);
  return writer.Finish();
}

void NCProjectFile::SaveMetadata() {
  SqliteTransaction transaction(*mDb);
  ncds::detail::SaveWriter writer(*mDb);
  const std::int64_t freed = WriteStreams(writer, nullptr, nullptr);
  transaction.Commit();
  CompactIfWasteful(freed);
}

bool NCProjectFile::WriteDataSetStream(const NCDataSet& dataSet, const NCDataSetInfo& info,
                                       std::string&) {
  const int number = info.GetNumber();
  NCProgress progress(
      (ExceptionMessage::translate("Saving dataset {1} \"{2}\"") % number % info.GetName()).str(),
      0, ncds::detail::EstimatedSaveBytes(dataSet, *this), false, false, true);
  double stored = 0;
  const auto onStored = [&progress, &stored](std::size_t bytes) {
    stored += static_cast<double>(bytes);
    progress.SetValue(static_cast<float>(stored));
  };
  SqliteTransaction transaction(*mDb);
  ncds::detail::SaveWriter writer(*mDb, onStored);
  const std::int64_t freed = WriteStreams(writer, &dataSet, &info);
  SqliteStatement add(*mDb,
                      "INSERT OR REPLACE INTO ncds_dataset(number, name, observations, variables, "
                      "data_type) VALUES(?, ?, ?, ?, ?)");
  add.Bind(1, std::int64_t{number})
      .Bind(2, std::string_view(info.GetName()))
      .Bind(3, std::int64_t{info.SizeObservations()})
      .Bind(4, std::int64_t{info.SizeVariables()})
      .Bind(5, std::int64_t{info.GetDataType()})
      .Step();
  ncds::detail::WriteBatchListing(*mDb, number, dataSet);
  transaction.Commit();
  mDamaged.erase(number);
  CompactIfWasteful(freed);
  return true;
}

bool NCProjectFile::ReadDataSetStream(int number, const std::string&, NCDataSet& dataSet) {
  SqliteTransaction transaction(*mDb, SqliteTransaction::kRead);
  if (ncds::detail::ReadObject(*mDb, ncds::detail::DataSetStream(number), dataSet)) return true;
  throw NCError(DamagedDataSetMessage(number));
}

ExceptionMessage NCProjectFile::DamagedDataSetMessage(int number) const {
  return ExceptionMessage::translate(
             "Dataset {1} in the project file {2} is damaged and cannot be read; the other "
             "datasets are not affected.") %
         number % mDb->Path();
}

std::string NCProjectFile::GetListedName(int number) const {
  SqliteStatement name(*mDb, "SELECT name FROM ncds_dataset WHERE number = ?");
  return name.Bind(1, std::int64_t{number}).Step() ? name.Text(0) : std::string();
}

void NCProjectFile::EraseDataSetStream(int number) {
  SqliteTransaction transaction(*mDb);
  ncds::detail::DeleteChunks(*mDb, ncds::detail::DataSetStream(number));
  ncds::detail::DeleteChunks(*mDb, ncds::detail::InfoStream(number));
  SqliteStatement remove(*mDb, "DELETE FROM ncds_dataset WHERE number = ?");
  remove.Bind(1, std::int64_t{number}).Step();
  ncds::detail::EraseBatchListing(*mDb, number);
  transaction.Commit();
  mDamaged.erase(number);
  CompactIfWasteful(0);
}

void NCProjectFile::WriteCompoundDatasets(const CompoundDatasets& compounds) {
  SqliteTransaction transaction(*mDb);
  ncds::detail::SaveWriter writer(*mDb);
  writer.Write(ncds::detail::kCompoundsStream,
               ncds::detail::Encode(ncds::detail::CompoundDatasetsStream(nullptr, compounds),
                                    ncds::detail::kDefaultChunkSize, mDb->Path()));
  writer.Finish();
  transaction.Commit();
}

void NCProjectFile::WriteAuxiliaryData(const AuxiliaryDataByName& data) {
  SqliteTransaction transaction(*mDb);
  ncds::detail::SaveWriter writer(*mDb);
  writer.Write(ncds::detail::kAuxiliaryStream,
               ncds::detail::Encode(ncds::detail::AuxiliaryDataStream(data),
                                    ncds::detail::kDefaultChunkSize, mDb->Path()));
  writer.Finish();
  transaction.Commit();
}

bool NCProjectFile::IsDataSetNumber(int number) const {
  return NCProject::IsDataSetNumber(number) || mDamaged.count(number) > 0;
}

bool NCProjectFile::RemoveDataSet(int number) {
  if (mDamaged.count(number) > 0) {
    EraseDataSetStream(number);
    return true;
  }
  return NCProject::RemoveDataSet(number);
}
