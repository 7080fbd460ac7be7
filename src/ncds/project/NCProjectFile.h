#ifndef NCDS_PROJECT_NCPROJECTFILE_H
#define NCDS_PROJECT_NCPROJECTFILE_H

// A project kept in one file: an `NCProject` whose variables, observations, batch import
// settings and saved datasets live in an SQLite database on disk (embedded, no server).
//
// `SaveDataSet` writes the dataset and the metadata in one transaction and throws `NCError`
// when the file fails (the file and the project then keep what they had).
//
// Compound datasets and auxiliary data are part of the metadata: each change of them
// (`SetCompoundDataset`, `RemoveCompoundDataset`, `SetAuxiliaryData`, `RemoveAuxiliaryData`) is
// written at once in a transaction of its own, and every save writes them again with the rest
// of the metadata. A file from before them opens without any.
//
// Opening a project reads its metadata and the description (`NCDataSetInfo`) of every
// dataset, never a matrix; a dataset's values are read when it is loaded (`LoadDataSet`).
// Each save (`SaveDataSet`, `SaveMetadata`, `RemoveDataSet`) is one transaction that writes
// the project's metadata with it: when the process dies in the middle, the file is as it was
// before the save began. Streams are stored in checksummed chunks; a damaged dataset is
// reported by number and the others stay readable, and damaged observation records cost only
// the rows that name them (`GetLostObservationRecords`).
//
// A save frees the pages of what it replaces and the next save reuses them. When free pages
// beyond those pass a quarter of the file (left by earlier saves, or by a removed dataset),
// the save or the removal compacts the file (see `Compact`).
//
// Failures of the file (not a project, written by a newer version, in use by another process,
// damaged, disk full) throw `NCError` with a translated message naming the file; a failed save
// leaves the file and the project as they were. One thread at a time; the file is opened for
// as long as the object lives.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/ncds_export.h"
#include "ncds/project/NCProject.h"

namespace ncds::detail {
class SaveWriter;
class SqliteDatabase;
}  // namespace ncds::detail

class NCDS_EXPORT NCProjectFile : public NCProject {
 public:
  // The format version this build writes; files of a higher version are refused.
  static constexpr int kFormatVersion = 2;

  // What a listing shows of a stored dataset.
  struct DataSetSummary {
    int number = 0;
    std::string name;
    int observations = 0;
    int variables = 0;
    int dataType = 0;
    // For an aligned or batch-level dataset: how many of its source's batches it lacks (new,
    // replaced or gone; `ncds update` brings them in); -1 when not known or not derived.
    int behind = -1;
  };
  // The datasets stored in the project file at `path`, by number, read from a small table
  // of the file without opening the project: fast for any size of project. Throws `NCError`
  // as `Open` does.
  static std::vector<DataSetSummary> ListDataSets(const std::string& path);
  // What a listing shows of a stored compound dataset.
  struct CompoundSummary {
    int number = 0;
    std::string name;
    std::vector<int> members;
  };
  // The compound datasets stored in the project file at `path`, by number, read without
  // opening the project. Throws `NCError` as `Open` does, and for a damaged list.
  static std::vector<CompoundSummary> ListCompoundDatasets(const std::string& path);

  // The size of a project file before and after `Compact`, in bytes.
  struct Compacted {
    std::uint64_t before = 0;
    std::uint64_t after = 0;
  };
  // Rewrites the project file at `path` without its free pages, without opening the project.
  // Like a save it is whole or not at all when the process dies. Throws `NCError` as `Open`
  // does, and when the file cannot be rewritten (disk full, in use).
  static Compacted Compact(const std::string& path);

  // Reads everything the project file at `path` holds: the database's own integrity check,
  // the checksum of every chunk of every stream, and every dataset as a command reads it.
  // Returns one sentence per damaged part, saying what it costs; none when nothing is
  // damaged. Changes nothing. Throws `NCError` as `Open` does for a file that is no project.
  static std::vector<std::string> Check(const std::string& path);

  // Opens the project file at `path`; with `create`, an absent (or empty) file becomes a new,
  // empty project. Throws `NCError` when the file cannot serve as a project.
  static boost::shared_ptr<NCProjectFile> Open(const std::string& path, bool create);
  ~NCProjectFile() override;

  const std::string& GetPath() const;

  // Whether a save returns only once its bytes are on the disk (the default). Either way a
  // save is whole or not at all when the process dies. With syncing, a power cut or a crash
  // of the system loses no save either; without it a save costs no wait for the disk, but a
  // power cut shortly after one may damage the file. Off suits scratch projects that can be
  // made again.
  void SetSyncToDisk(bool sync);
  bool GetSyncToDisk() const { return mSyncToDisk; }

  // Writes the variables, observations and batch import settings.
  void SaveMetadata();
  // Removes dataset `number` from the file, a damaged one too.
  bool RemoveDataSet(int number) override;

  // The datasets whose description could not be read when the file was opened: their data
  // is damaged. They are not among `GetDataSetNumbers`.
  const std::set<int>& GetDamagedDataSets() const { return mDamaged; }
  // The name dataset `number` is listed under in the file, a damaged one's too; empty when the
  // file lists no such dataset.
  std::string GetListedName(int number) const;
  // The sentence that says dataset `number` of this file is damaged and cannot be read.
  ExceptionMessage DamagedDataSetMessage(int number) const;
  // How many observation records could not be read when the file was opened, their part of
  // the file being damaged: the rows that name them are rows without a record. A save then
  // keeps the records that were read.
  std::size_t GetLostObservationRecords() const { return mLostRecords; }

 protected:
  bool WriteDataSetStream(const NCDataSet& dataSet, const NCDataSetInfo& info,
                          std::string& kept) override;
  // Throws `NCError` naming the dataset when its stored data is damaged.
  bool ReadDataSetStream(int number, const std::string& kept, NCDataSet& dataSet) override;
  void EraseDataSetStream(int number) override;
  void WriteCompoundDatasets(const CompoundDatasets& compounds) override;
  void WriteAuxiliaryData(const AuxiliaryDataByName& data) override;
  bool IsDataSetNumber(int number) const override;

 private:
  NCProjectFile();
  // A project object on the database at `path`, not yet read. Throws `NCError` for a path
  // that is missing (unless `create`) or a folder.
  static boost::shared_ptr<NCProjectFile> Connect(const std::string& path, bool create);

  // Checks that the open file is a project this build reads; a new, empty file becomes one.
  void CheckFormat(bool mayInitialise);
  void Initialise();
  // Compacts the file when its free pages, less the `keptPages` that a save just freed (the
  // room the next save of the same data reuses), pass a quarter of it; after a commit.
  void CompactIfWasteful(std::int64_t keptPages);
  void ReadProject();
  // Writes the project's metadata and, when given, a dataset and its info, then frees what
  // they replace; returns the number of pages freed.
  std::int64_t WriteStreams(ncds::detail::SaveWriter& writer, const NCDataSet* dataSet,
                            const NCDataSetInfo* info);

  std::unique_ptr<ncds::detail::SqliteDatabase> mDb;
  bool mSyncToDisk = true;
  std::set<int> mDamaged;
  std::size_t mLostRecords = 0;
};

#endif  // NCDS_PROJECT_NCPROJECTFILE_H
