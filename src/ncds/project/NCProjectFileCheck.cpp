// NCProjectFile::Check: reads everything a project file holds and says what is damaged.

#include <boost/shared_ptr.hpp>
#include <charconv>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/project/NCProjectFile.h"
#include "ncds/project/detail/BlobChunks.h"
#include "ncds/project/detail/ObservationBlocks.h"
#include "ncds/project/detail/Sqlite.h"

namespace ncds::detail {
namespace {

// Whether every chunk of stream `name` is there and matches its checksum.
bool ChunksIntact(SqliteDatabase& db, const std::string& name) {
  ChunkReader chunks(db, name);
  std::vector<char> buffer(1 << 20);
  std::uint64_t read = 0;
  for (std::streamsize n = 0;
       (n = chunks.sgetn(buffer.data(), static_cast<std::streamsize>(buffer.size()))) > 0;) {
    read += static_cast<std::uint64_t>(n);
  }
  return !chunks.IsDamaged() && read == chunks.Size();
}

// The number after `prefix` in `name` (as in "info/3"), or -1.
long NumberAfter(const std::string& name, const std::string& prefix) {
  if (name.compare(0, prefix.size(), prefix) != 0) return -1;
  long number = -1;
  const char* const end = name.data() + name.size();
  const auto parsed = std::from_chars(name.data() + prefix.size(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end ? number : -1;
}

// The record count of each block of observation records, as their list gives it.
std::map<unsigned long, std::size_t> BlockCounts(SqliteDatabase& db) {
  std::map<unsigned long, std::size_t> counts;
  std::string bytes;
  ObservationBlockList list;
  if (ReadStreamBytes(db, kObservationListStream, bytes) &&
      DecodeObservationBlockList(bytes, list)) {
    counts.insert(list.begin(), list.end());
  }
  return counts;
}

// What the damage of stream `name` costs, in one sentence.
std::string DescribeDamagedStream(const std::string& name, const std::map<int, std::string>& names,
                                  const std::map<unsigned long, std::size_t>& blocks) {
  const auto dataSetName = [&names](long number) {
    const auto it = names.find(static_cast<int>(number));
    return it == names.end() ? std::string() : it->second;
  };
  if (const long number = NumberAfter(name, "info/"); number >= 0) {
    return (ExceptionMessage::translate("The description of dataset {1} \"{2}\" is damaged: the "
                                        "dataset cannot be read; `ncds delete` removes it.") %
            number % dataSetName(number))
        .str();
  }
  if (const long number = NumberAfter(name, "dataset/"); number >= 0) {
    return (ExceptionMessage::translate("The values of dataset {1} \"{2}\" are damaged: the "
                                        "dataset cannot be read; `ncds delete` removes it.") %
            number % dataSetName(number))
        .str();
  }
  if (name == kObservationListStream) {
    return ExceptionMessage::translate(
               "The list of the blocks of observation records is damaged: the blocks are found "
               "by their names, nothing is lost.")
        .str();
  }
  if (const long key = NumberAfter(name, kObservationBlockPrefix); key >= 0) {
    const auto count = blocks.find(static_cast<unsigned long>(key));
    if (count == blocks.end()) {
      return ExceptionMessage::translate(
                 "A block of observation records is damaged: the rows that name its records "
                 "lose them; `ncds drop-lost` removes such rows.")
          .str();
    }
    return (ExceptionMessage::translate(
                "A block of {1} observation records is damaged: the rows that name them lose "
                "their records; `ncds drop-lost` removes such rows.") %
            count->second)
        .str();
  }
  return (ExceptionMessage::translate(
              "The project's stream \"{1}\" is damaged: the project cannot be opened.") %
          name)
      .str();
}

}  // namespace
}  // namespace ncds::detail

std::vector<std::string> NCProjectFile::Check(const std::string& path) {
  using ncds::detail::SqliteStatement;
  const boost::shared_ptr<NCProjectFile> file = Connect(path, false);
  ncds::detail::SqliteDatabase& db = *file->mDb;
  std::vector<std::string> found;
  std::map<int, std::string> names;
  std::set<int> reported;  // datasets whose damage is said already
  bool opens = true;       // no damage that refuses the whole project
  {
    ncds::detail::SqliteTransaction transaction(db,
                                                ncds::detail::SqliteTransaction::kWriteIfWritable);
    file->CheckFormat(false);
    SqliteStatement integrity(db, "PRAGMA integrity_check(10)");
    while (integrity.Step()) {
      const std::string text = integrity.Text(0);
      if (text == "ok") continue;
      found.push_back(
          (ExceptionMessage::translate("The file's database is damaged: {1}.") % text).str());
    }
    SqliteStatement listed(db, "SELECT number, name FROM ncds_dataset");
    while (listed.Step()) names[static_cast<int>(listed.Int(0))] = listed.Text(1);
    const std::map<unsigned long, std::size_t> blocks = ncds::detail::BlockCounts(db);
    std::vector<std::string> streams;
    SqliteStatement all(db, "SELECT DISTINCT stream FROM ncds_chunk ORDER BY stream");
    while (all.Step()) streams.push_back(all.Text(0));
    for (const std::string& name : streams) {
      if (ncds::detail::ChunksIntact(db, name)) continue;
      found.push_back(ncds::detail::DescribeDamagedStream(name, names, blocks));
      const long info = ncds::detail::NumberAfter(name, "info/");
      const long values = ncds::detail::NumberAfter(name, "dataset/");
      if (info >= 0 || values >= 0) {
        reported.insert(static_cast<int>(info >= 0 ? info : values));
      } else if (ncds::detail::NumberAfter(name, ncds::detail::kObservationBlockPrefix) < 0 &&
                 name != ncds::detail::kObservationListStream) {
        opens = false;
      }
    }
  }
  if (!opens) return found;
  // Bytes whose checksums hold may still not read (a writer of another version, say): every
  // dataset is read as a command would read it.
  try {
    const boost::shared_ptr<NCProjectFile> project = Open(path, false);
    for (const int number : project->GetDamagedDataSets()) {
      if (reported.insert(number).second) {
        found.push_back(
            ncds::detail::DescribeDamagedStream("info/" + std::to_string(number), names, {}));
      }
    }
    for (const int number : project->GetDataSetNumbers()) {
      if (reported.count(number) > 0) continue;
      try {
        const boost::shared_ptr<NCDataSet> dataSet = project->LoadDataSet(number);
        int lost = 0;
        for (int row = 1; dataSet && row <= dataSet->SizeObservations(); ++row) {
          if (!dataSet->GetObservationInfo(row)) ++lost;
        }
        if (lost > 0) {
          found.push_back((ExceptionMessage::translate(
                               "Dataset {1} \"{2}\": {3} observations have lost their records; "
                               "`ncds drop-lost` removes them.") %
                           number % names[number] % lost)
                              .str());
        }
        project->UnloadDataSet(number);
      } catch (const NCError& error) {
        found.push_back(error.what());
      }
    }
  } catch (const NCError& error) {
    found.push_back(error.what());
  }
  return found;
}
