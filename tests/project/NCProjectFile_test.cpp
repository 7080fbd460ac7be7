#include <gtest/gtest.h>
#include <libdeflate.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/FullCompoundDataset.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::TempFile;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// Adds `rows` observations and `columns` variables to `project` and a dataset `number` of
// them whose cell (i, j) holds `Cell(number, i, j)`.
float Cell(int number, int row, int column) {
  return static_cast<float>(number * 1000003 + row * 131 + column) * 0.25F;
}

boost::shared_ptr<NCDataSet> AddDataSet(const boost::shared_ptr<NCProject>& project, int number,
                                        int rows, int columns) {
  VarObsInfoVector<ObservationInfo> infos;
  for (int i = 0; i < rows; ++i) {
    const std::string id = "D" + std::to_string(number) + "_" + std::to_string(i);
    infos.push_back(project->GetObservations().Add(
        std::make_unique<ObservationInfo>(id, project->CreateUniqueID())));
  }
  NCIntegralVector<unsigned long, 0> varIDs;
  NCDataMatrix<float> values(rows, columns);
  for (int j = 0; j < columns; ++j) {
    const unsigned long id = project->CreateUniqueID();
    project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(
        "V" + std::to_string(number) + "_" + std::to_string(j), id));
    varIDs.push_back(id);
    for (int i = 0; i < rows; ++i) values(i, j) = Cell(number, i, j);
  }
  return NCDataSet::Create(project, ("Set " + std::to_string(number)).c_str(), number, &values,
                           std::move(infos), &varIDs, {1}, {1}, "", nullptr, nullptr);
}

void ExpectValues(const NCDataSet& dataSet, int number, int rows, int columns) {
  ASSERT_EQ(dataSet.SizeObservations(), rows);
  ASSERT_EQ(dataSet.SizeVariables(), columns);
  for (int i = 0; i < rows; i += std::max(1, rows / 97)) {
    for (int j = 0; j < columns; ++j) {
      ASSERT_EQ(dataSet.GetValue(i + 1, j + 1), Cell(number, i, j)) << i << "," << j;
    }
  }
}

// The standard CRC-32 (zlib's crc32), bit by bit.
std::uint32_t ReferenceCrc32(const void* data, std::size_t size) {
  std::uint32_t crc = 0xFFFFFFFFu;
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= bytes[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// The rows holding the bytes of stream `name` in the project file at `path`, read as another
// program would.
std::vector<std::int64_t> BlobRows(const std::string& path, const std::string& name) {
  std::vector<std::int64_t> rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* query = nullptr;
    sqlite3_prepare_v2(db, "SELECT blob FROM ncds_chunk WHERE stream = ? ORDER BY seq", -1, &query,
                       nullptr);
    sqlite3_bind_text(query, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    while (sqlite3_step(query) == SQLITE_ROW) rows.push_back(sqlite3_column_int64(query, 0));
    sqlite3_finalize(query);
  }
  sqlite3_close(db);
  return rows;
}

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const NCError& error) {
    return error.what();
  }
  return "";
}

// The rows of every stream of the observation records, by name.
std::map<std::string, std::vector<std::int64_t>> RecordStreams(const std::string& path) {
  std::map<std::string, std::vector<std::int64_t>> streams;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* query = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT stream, blob FROM ncds_chunk WHERE stream LIKE 'observations/%' "
                       "ORDER BY stream, seq",
                       -1, &query, nullptr);
    while (sqlite3_step(query) == SQLITE_ROW) {
      streams[reinterpret_cast<const char*>(sqlite3_column_text(query, 0))].push_back(
          sqlite3_column_int64(query, 1));
    }
    sqlite3_finalize(query);
  }
  sqlite3_close(db);
  return streams;
}

std::string BlockOf(const ObservationInfo& record) {
  return "observations/" + std::to_string(record.GetUniqueID() / 4096);
}

TEST(NCProjectFile, DataSetsSurviveReopeningAndLoadOnDemand) {
  TempFile file("project_roundtrip.ncds");
  {
    const auto project = NCProjectFile::Open(file.path(), true);
    EXPECT_TRUE(project->GetDataSetNumbers().empty());
    // The second dataset spans several chunks of the file.
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 1, 5, 3)));
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 2, 300000, 5)));
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 3, 0, 0)));
  }
  {
    const auto project = NCProjectFile::Open(file.path(), false);
    EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(project->GetObservations().size(), 300005u);
    EXPECT_EQ(project->GetVariables().size(), 8u);
    // Listed from their descriptions, without their values.
    EXPECT_FALSE(project->IsDataSetLoaded(2));
    const auto info = project->GetDataContainer(2);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->SizeObservations(), 300000);
    EXPECT_EQ(info->SizeVariables(), 5);
    EXPECT_STREQ(project->GetDataSetInfo(2)->GetName(), "Set 2");
    const auto two = project->LoadDataSet(2);
    ASSERT_TRUE(two);
    ExpectValues(*two, 2, 300000, 5);
    EXPECT_EQ(two->GetObservationInfo(7)->GetUserID(1), "D2_6");
    ExpectValues(*project->LoadDataSet(3), 3, 0, 0);
    // Replacing and removing are saved too.
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 1, 2, 2)));
    EXPECT_TRUE(project->RemoveDataSet(3));
    EXPECT_FALSE(project->RemoveDataSet(3));
  }
  const auto project = NCProjectFile::Open(file.path(), false);
  EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{1, 2}));
  ExpectValues(*project->LoadDataSet(1), 1, 2, 2);
  // Listed without opening the project.
  const auto listed = NCProjectFile::ListDataSets(file.path());
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed[0].number, 1);
  EXPECT_EQ(listed[0].name, "Set 1");
  EXPECT_EQ(listed[0].observations, 2);
  EXPECT_EQ(listed[0].variables, 2);
  EXPECT_EQ(listed[1].observations, 300000);
  EXPECT_EQ(listed[1].dataType, NCDataSet::kOrdinary);

  // Every chunk carries the standard crc32 of its bytes, so that other tools can check them.
  ASSERT_EQ(ReferenceCrc32("123456789", 9), 0xCBF43926u);
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(file.path().c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  sqlite3_stmt* chunks = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT crc, data FROM ncds_chunk JOIN ncds_blob ON id = blob",
                               -1, &chunks, nullptr),
            SQLITE_OK);
  int checked = 0;
  while (sqlite3_step(chunks) == SQLITE_ROW) {
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(chunks, 1));
    EXPECT_EQ(static_cast<std::uint32_t>(sqlite3_column_int64(chunks, 0)),
              ReferenceCrc32(sqlite3_column_blob(chunks, 1), size));
    ++checked;
  }
  sqlite3_finalize(chunks);
  sqlite3_close(db);
  EXPECT_GE(checked, 9);  // three for the project, two for each dataset, and more chunks
}

TEST(NCProjectFile, CompoundsAndAuxiliaryDataSurviveReopening) {
  TempFile file("project_compounds.ncds");
  const AuxiliaryData weights(NCDataMatrix<float>(2, 1, 0.5F),
                              NCIntegralVector<unsigned long, 0>(1, 77), "model 1");
  {
    const auto project = NCProjectFile::Open(file.path(), true);
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 1, 4, 2)));
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 2, 3, 1)));
    // Each change is written at once, without a save of the metadata.
    project->SetCompoundDataset(CompoundDataset(project, "Both", 10, {2, 1}));
    project->SetCompoundDataset(CompoundDataset(project, "First", 11, {1}));
    project->SetAuxiliaryData("model 1", weights);
    project->SetAuxiliaryData("model 2", AuxiliaryData());
  }
  {
    const auto project = NCProjectFile::Open(file.path(), false);
    EXPECT_EQ(project->GetCompoundDatasetNumbers(), (std::vector<int>{10, 11}));
    const auto both = project->GetCompoundDataset(10);
    EXPECT_EQ(both->GetName(), "Both");
    EXPECT_EQ(both->GetMembers(), (std::vector<int>{2, 1}));
    EXPECT_EQ(both->SizeObservations(), 7);
    EXPECT_EQ(both->SizeVariables(), 3);
    EXPECT_FALSE(project->IsDataSetLoaded(1));
    // The values come from the file: dataset 2's column first, then dataset 1's two.
    const NCDataMatrix<float> values =
        project->MakeFullCompoundDataset(10)->GetData(false, nullptr);
    ASSERT_EQ(values.SizeRows(), 7u);
    ASSERT_EQ(values.SizeColumns(), 3u);
    EXPECT_EQ(values(2, 0), Cell(2, 2, 0));
    EXPECT_EQ(values(3, 0), -99.0F);
    EXPECT_EQ(values(6, 2), Cell(1, 3, 1));
    EXPECT_EQ(*project->GetAuxiliaryData("model 1"), weights);
    EXPECT_EQ(project->GetAuxiliaryDataNames(), (std::vector<std::string>{"model 1", "model 2"}));
    EXPECT_THROW(project->SetCompoundDataset(CompoundDataset(project, "Clash", 1, {2})), NCError);
    EXPECT_TRUE(project->RemoveDataSet(1));
    EXPECT_TRUE(project->RemoveCompoundDataset(11));
    EXPECT_TRUE(project->RemoveAuxiliaryData("model 2"));
  }
  {
    const auto project = NCProjectFile::Open(file.path(), false);
    EXPECT_EQ(project->GetCompoundDatasetNumbers(), std::vector<int>{10});
    EXPECT_EQ(project->GetCompoundDataset(10)->GetMissingMembers(), std::vector<int>{1});
    EXPECT_EQ(project->GetAuxiliaryDataNames(), std::vector<std::string>{"model 1"});
  }

  // A file from before compounds and auxiliary data lacks their streams and opens as before.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.path().c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "DELETE FROM ncds_chunk WHERE stream IN ('compounds', 'auxiliary');"
                         "DELETE FROM ncds_stream WHERE name IN ('compounds', 'auxiliary')",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  const auto project = NCProjectFile::Open(file.path(), false);
  EXPECT_TRUE(project->GetCompoundDatasetNumbers().empty());
  EXPECT_TRUE(project->GetAuxiliaryDataNames().empty());
  EXPECT_EQ(project->GetDataSetNumbers(), std::vector<int>{2});
  ExpectValues(*project->LoadDataSet(2), 2, 3, 1);
}

TEST(NCProjectFile, RefusesWhatIsNoProjectAndLeavesItAlone) {
  TempFile file("project_refusals.ncds");
  EXPECT_NE(ErrorOf([&] { NCProjectFile::Open(file.path(), false); }).find("does not exist"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(file.path()));

  WriteAll(file.path(), "ObsID,X\nO1,1.5\n");
  EXPECT_NE(ErrorOf([&] { NCProjectFile::Open(file.path(), true); }).find("not an ncds project"),
            std::string::npos);
  EXPECT_EQ(ReadAll(file.path()), "ObsID,X\nO1,1.5\n");

  std::filesystem::remove(file.path());
  NCProjectFile::Open(file.path(), true);
  const std::string valid = ReadAll(file.path());
  ASSERT_GT(valid.size(), 100u);
  // The database header: the user version (format) at byte 60, the application ID at 68.
  std::string newer = valid;
  newer[63] = 99;
  WriteAll(file.path(), newer);
  EXPECT_NE(ErrorOf([&] { NCProjectFile::Open(file.path(), false); }).find("newer version"),
            std::string::npos);
  EXPECT_EQ(ReadAll(file.path()), newer);
  std::string foreign = valid;
  foreign[68] = 'X';
  WriteAll(file.path(), foreign);
  EXPECT_NE(ErrorOf([&] { NCProjectFile::Open(file.path(), false); }).find("not an ncds project"),
            std::string::npos);
  EXPECT_EQ(ReadAll(file.path()), foreign);

  // A project that another process is writing.
  WriteAll(file.path(), valid);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(file.path().c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_NE(ErrorOf([&] { NCProjectFile::Open(file.path(), false); }).find("in use"),
            std::string::npos);
  sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(other);
  EXPECT_NO_THROW(NCProjectFile::Open(file.path(), false));
}

TEST(NCProjectFile, DamagedDataSetIsNamedAndTheOthersStayReadable) {
  TempFile file("project_damaged.ncds");
  {
    const auto project = NCProjectFile::Open(file.path(), true);
    project->SaveDataSet(AddDataSet(project, 1, 10, 2));
    project->SaveDataSet(AddDataSet(project, 2, 1000, 3));
  }
  // Flip one byte of a value of dataset 2 in the file.
  std::string bytes = ReadAll(file.path());
  const float value = Cell(2, 500, 1);
  char pattern[sizeof value];
  std::memcpy(pattern, &value, sizeof value);
  const std::size_t at = bytes.find(std::string(pattern, sizeof value));
  ASSERT_NE(at, std::string::npos);
  bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
  WriteAll(file.path(), bytes);

  const auto project = NCProjectFile::Open(file.path(), false);
  EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{1, 2}));
  const std::string error = ErrorOf([&] { project->LoadDataSet(2); });
  EXPECT_NE(error.find("Dataset 2"), std::string::npos) << error;
  EXPECT_NE(error.find("damaged"), std::string::npos) << error;
  EXPECT_FALSE(project->IsDataSetLoaded(2));
  ExpectValues(*project->LoadDataSet(1), 1, 10, 2);
  // It can still be replaced.
  ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 2, 3, 1)));
  ExpectValues(*project->LoadDataSet(2), 2, 3, 1);
}

TEST(NCProjectFile, DamagedRecordsCostOnlyTheRowsThatNameThem) {
  TempFile file("project_damaged_records.ncds");
  std::string first;
  std::size_t inFirst = 0;
  {
    const auto project = NCProjectFile::Open(file.path(), true);
    project->SetSyncToDisk(false);
    const auto big = AddDataSet(project, 1, 7000, 1);
    first = BlockOf(*big->GetObservationInfo(1));
    while (BlockOf(*big->GetObservationInfo(static_cast<int>(inFirst) + 1)) == first) ++inFirst;
    ASSERT_TRUE(project->SaveDataSet(big));
    ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 2, 10, 2)));
  }
  const std::string intact = ReadAll(file.path());
  EXPECT_TRUE(NCProjectFile::Check(file.path()).empty());
  ASSERT_TRUE(ncds::test::DamageChunk(file.path(), first, 0));
  ASSERT_TRUE(ncds::test::DamageChunk(file.path(), "dataset/2", 0));
  // What is damaged, and what it costs, without changing the file.
  const std::string damaged = ReadAll(file.path());
  EXPECT_EQ(NCProjectFile::Check(file.path()),
            (std::vector<std::string>{
                "The values of dataset 2 \"Set 2\" are damaged: the dataset cannot be read; "
                "`ncds delete` removes it.",
                "A block of " + std::to_string(inFirst) +
                    " observation records is damaged: the rows that name them lose their records; "
                    "`ncds drop-lost` removes such rows.",
                "Dataset 1 \"Set 1\": " + std::to_string(inFirst) +
                    " observations have lost their records; `ncds drop-lost` removes them."}));
  EXPECT_EQ(ReadAll(file.path()), damaged);
  {
    const auto project = NCProjectFile::Open(file.path(), false);
    EXPECT_EQ(project->GetLostObservationRecords(), inFirst);
    EXPECT_THROW(project->LoadDataSet(2), NCError);
    const auto big = project->LoadDataSet(1);
    ExpectValues(*big, 1, 7000, 1);
    EXPECT_EQ(big->GetObservationInfo(static_cast<int>(inFirst)), nullptr);
    EXPECT_EQ(big->GetObservationInfo(static_cast<int>(inFirst) + 1)->GetPrimaryAlias(),
              "D1_" + std::to_string(inFirst));
  }

  // A damaged list of the blocks loses nothing: the blocks are found by their names.
  WriteAll(file.path(), intact);
  ASSERT_TRUE(ncds::test::DamageChunk(file.path(), "observations/list", 0));
  EXPECT_EQ(NCProjectFile::Check(file.path()).size(), 1u);
  const auto project = NCProjectFile::Open(file.path(), false);
  ExpectValues(*project->LoadDataSet(2), 2, 10, 2);
  EXPECT_EQ(project->LoadDataSet(2)->GetObservationInfo(10)->GetPrimaryAlias(), "D2_9");
  EXPECT_EQ(project->GetLostObservationRecords(), 0u);
  EXPECT_EQ(project->GetObservations().size(), 7010u);
  EXPECT_EQ(project->LoadDataSet(1)->GetObservationInfo(1)->GetPrimaryAlias(), "D1_0");
}

TEST(NCProjectFile, DamagedFilesGiveErrorsNeverCrashes) {
  TempFile file("project_corrupt.ncds");
  {
    const auto project = NCProjectFile::Open(file.path(), true);
    project->SaveDataSet(AddDataSet(project, 1, 40, 3));
    project->SaveDataSet(AddDataSet(project, 2, 7, 2));
  }
  const std::string valid = ReadAll(file.path());
  // Opens a damaged copy and reads everything it offers; errors are fine, crashes are not.
  const auto tryAll = [&](const std::string& bytes) {
    WriteAll(file.path(), bytes);
    try {
      const auto project = NCProjectFile::Open(file.path(), false);
      for (const int number : project->GetDataSetNumbers()) {
        try {
          project->LoadDataSet(number);
        } catch (const NCError&) {
        }
      }
    } catch (const NCError&) {
    }
  };
  for (std::size_t k = 0; k < 64; ++k) tryAll(valid.substr(0, valid.size() * k / 64));
  for (std::size_t k = 0; k < 512; ++k) {
    std::string damaged = valid;
    const std::size_t at = (k * 7919) % damaged.size();
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << (k % 8)));
    tryAll(damaged);
  }
}

TEST(NCProjectFile, KilledSaveLeavesTheFileAsItWas) {
  TempFile file("project_killed.ncds");
  {
    const auto project = NCProjectFile::Open(file.path(), true);
    project->SaveDataSet(AddDataSet(project, 1, 100, 4));
  }
  const std::string journal = file.path() + "-journal";
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // A save of two hundred megabytes that replaces dataset 1, killed while it writes.
    try {
      const auto project = NCProjectFile::Open(file.path(), false);
      project->SaveDataSet(AddDataSet(project, 1, 500000, 100));
    } catch (...) {
    }
    _exit(0);
  }
  // The journal exists from the save's first write until its commit.
  bool sawJournal = false;
  int status = 0;
  while (!sawJournal) {
    sawJournal = std::filesystem::exists(journal);
    if (!sawJournal && waitpid(child, &status, WNOHANG) == child) break;
    std::this_thread::yield();
  }
  ASSERT_TRUE(sawJournal) << "the save ended before it could be interrupted";
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));

  const auto project = NCProjectFile::Open(file.path(), false);
  EXPECT_EQ(project->GetDataSetNumbers(), (std::vector<int>{1}));
  EXPECT_EQ(project->GetObservations().size(), 100u);
  EXPECT_EQ(project->GetDataContainer(1)->SizeObservations(), 100);
  ExpectValues(*project->LoadDataSet(1), 1, 100, 4);
  std::filesystem::remove(journal);
}

TEST(NCProjectFile, SavesReportProgressAndReuseTheRoomOfWhatTheyReplace) {
  TempFile file("project_resave.ncds");
  const auto project = NCProjectFile::Open(file.path(), true);
  EXPECT_TRUE(project->GetSyncToDisk());
  project->SetSyncToDisk(false);
  const auto dataSet = AddDataSet(project, 1, 200000, 10);  // 8 MB
  {
    ncds::test::ProgressRecorder progress;
    ASSERT_TRUE(project->SaveDataSet(dataSet));
    ASSERT_EQ(progress.operations.size(), 1u);
    const auto& save = progress.operations[0];
    EXPECT_EQ(save.caption, "Saving dataset 1 \"Set 1\"");
    EXPECT_EQ(progress.depth, 0);
    EXPECT_FALSE(save.backwards);
    // The estimate of what is written is close to what was written.
    EXPECT_GT(save.last, 0.8F * save.maximum);
    EXPECT_LT(save.last, 1.25F * save.maximum);
  }

  // Each save writes the new copy before it frees the old one; the next save reuses that
  // room, so the file stops growing at two copies. Compacting gives the room back.
  ASSERT_TRUE(project->SaveDataSet(dataSet));
  const auto twoCopies = std::filesystem::file_size(file.path());
  for (int k = 0; k < 3; ++k) ASSERT_TRUE(project->SaveDataSet(dataSet));
  EXPECT_LE(std::filesystem::file_size(file.path()), twoCopies + (twoCopies >> 4));
  const NCProjectFile::Compacted sizes = NCProjectFile::Compact(file.path());
  EXPECT_EQ(sizes.before, std::filesystem::file_size(file.path()) + (sizes.before - sizes.after));
  EXPECT_LT(sizes.after, sizes.before * 6 / 10);
  EXPECT_THROW(NCProjectFile::Compact(file.path() + ".absent"), NCError);
  ASSERT_TRUE(project->SaveDataSet(AddDataSet(project, 2, 2000, 10)));
  ExpectValues(*NCProjectFile::Open(file.path(), false)->LoadDataSet(1), 1, 200000, 10);

  // Room that no save will reuse, as a removed dataset's, is given back at once.
  project->SetSyncToDisk(true);
  ASSERT_TRUE(project->RemoveDataSet(1));
  EXPECT_LT(std::filesystem::file_size(file.path()), sizes.after / 3);
  ASSERT_TRUE(project->RemoveDataSet(2));

  const auto reopened = NCProjectFile::Open(file.path(), false);
  EXPECT_TRUE(reopened->GetDataSetNumbers().empty());
  EXPECT_EQ(reopened->GetObservations().size(), 202000u);
}

TEST(NCProjectFile, SavesWriteTheRecordsOnlyWhenTheirBytesChanged) {
  TempFile file("project_unchanged_records.ncds");
  const auto project = NCProjectFile::Open(file.path(), true);
  project->SetSyncToDisk(false);
  const auto dataSet = AddDataSet(project, 1, 10000, 2);
  ASSERT_TRUE(project->SaveDataSet(dataSet));
  const auto records = RecordStreams(file.path());
  const auto values = BlobRows(file.path(), "dataset/1");
  const std::string first = BlockOf(*dataSet->GetObservationInfo(1));
  const std::string last = BlockOf(*dataSet->GetObservationInfo(10000));
  ASSERT_NE(first, last);
  ASSERT_EQ(records.count(first) + records.count(last) + records.count("observations/list"), 3u);

  // Saving again rewrites the dataset but leaves the unchanged records where they are.
  ASSERT_TRUE(project->SaveDataSet(dataSet));
  EXPECT_EQ(RecordStreams(file.path()), records);
  EXPECT_NE(BlobRows(file.path(), "dataset/1"), values);

  // A record edited in place, which no flag tells, is written with the next save; the
  // blocks of the other records stay.
  project->GetObservations()
      .FindVarObsInfo(dataSet->GetObservationInfo(2)->GetUniqueID())
      ->SetUserID("Renamed", 1, nullptr);
  ASSERT_TRUE(project->SaveDataSet(dataSet));
  auto changed = RecordStreams(file.path());
  EXPECT_NE(changed[first], records.at(first));
  EXPECT_EQ(changed[last], records.at(last));

  // What the file holds decides, not what this object wrote last: another project object on
  // the same file saves other records, and the next save here puts these back.
  {
    const auto other = NCProjectFile::Open(file.path(), false);
    other->SetSyncToDisk(false);
    other->GetObservations().Add(std::make_unique<ObservationInfo>("Extra", 999999));
    other->SaveMetadata();
  }
  EXPECT_EQ(NCProjectFile::Open(file.path(), false)->GetObservations().size(), 10001u);
  ASSERT_TRUE(project->SaveDataSet(dataSet));
  {
    const auto reopened = NCProjectFile::Open(file.path(), false);
    EXPECT_EQ(reopened->GetObservations().size(), 10000u);
    EXPECT_EQ(reopened->LoadDataSet(1)->GetObservationInfo(2)->GetUserID(1), "Renamed");
  }

  // A block whose records are all gone leaves the file; the rows that named them lose them.
  NCIntegralVector<unsigned long, 0> gone;
  for (const auto& [id, record] : project->GetObservations()) {
    if (BlockOf(static_cast<const ObservationInfo&>(*record)) == first) gone.push_back(id);
  }
  project->GetObservations().DeleteVarObsInfos(gone);
  project->SaveMetadata();
  EXPECT_EQ(RecordStreams(file.path()).count(first), 0u);
  const auto reopened = NCProjectFile::Open(file.path(), false);
  EXPECT_EQ(reopened->GetObservations().size(), 10000u - gone.size());
  EXPECT_EQ(reopened->LoadDataSet(1)->GetObservationInfo(1), nullptr);
}

// A record with more IDs than its container has series is kept in the container's own stream,
// as files of the first format keep them all; the next save that can puts them in blocks.
TEST(NCProjectFile, RecordsBeyondTheSeriesKeepTheContainersStream) {
  TempFile file("project_wide_record.ncds");
  const auto project = NCProjectFile::Open(file.path(), true);
  project->SetSyncToDisk(false);
  const auto dataSet = AddDataSet(project, 1, 20, 1);
  ObservationInfo& wide = *dataSet->GetObservationInfoVector()[3];
  wide.SetUserID("beyond", 3, nullptr);
  ASSERT_TRUE(project->SaveDataSet(dataSet));
  EXPECT_TRUE(RecordStreams(file.path()).empty());
  EXPECT_EQ(
      NCProjectFile::Open(file.path(), false)->LoadDataSet(1)->GetObservationInfo(4)->GetUserIDs(),
      (std::vector<std::string>{"D1_3", "", "beyond"}));

  wide.RemoveID(3);
  wide.RemoveID(2);
  project->SaveMetadata();
  EXPECT_EQ(RecordStreams(file.path()).size(), 2u);
  const auto reopened = NCProjectFile::Open(file.path(), false);
  EXPECT_EQ(reopened->GetObservations().size(), 20u);
  EXPECT_EQ(reopened->LoadDataSet(1)->GetObservationInfo(4)->GetUserIDs(),
            (std::vector<std::string>{"D1_3"}));
}

std::int64_t UserVersion(const std::string& path) {
  sqlite3* db = nullptr;
  std::int64_t version = -1;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* query = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA user_version", -1, &query, nullptr);
    if (sqlite3_step(query) == SQLITE_ROW) version = sqlite3_column_int64(query, 0);
    sqlite3_finalize(query);
  }
  sqlite3_close(db);
  return version;
}

std::string Gunzip(const std::string& packed) {
  std::string bytes(4 << 20, '\0');
  std::size_t size = 0;
  libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
  const bool ok = libdeflate_gzip_decompress(inflater, packed.data(), packed.size(), bytes.data(),
                                             bytes.size(), &size) == LIBDEFLATE_SUCCESS;
  libdeflate_free_decompressor(inflater);
  bytes.resize(ok ? size : 0);
  return bytes;
}

// A project written by the version before the records moved into blocks: a batch dataset of
// three batches and its alignment.
TEST(NCProjectFile, FileOfTheFirstFormatOpensAndIsSavedInTheCurrentOne) {
  TempFile file("project_format1.ncds");
  WriteAll(file.path(), Gunzip(ReadAll(NCDS_TEST_DATA_DIR "/project-format1.ncds.gz")));
  ASSERT_EQ(UserVersion(file.path()), 1);
  const auto check = [&](NCProjectFile& project) {
    EXPECT_EQ(project.GetObservations().size(), 16u);
    EXPECT_EQ(project.GetObservations().GetIDLabelRaw(2), "Batch");
    const auto raw = project.LoadDataSet(1);
    ASSERT_EQ(raw->SizeObservations(), 7);
    EXPECT_EQ(raw->GetObservationInfo(7)->GetUserIDs(),
              (std::vector<std::string>{"B3_002", "B3", "Hold"}));
    EXPECT_EQ(raw->GetValue(1, 2), 20.5F);
    EXPECT_EQ(raw->GetValue(7, 2), -99.0F);
    EXPECT_EQ(raw->GetBatchInfoVector()->size(), 3u);
    const auto aligned = project.LoadDataSet(2);
    ASSERT_EQ(aligned->SizeObservations(), 9);
    EXPECT_EQ(aligned->GetObservationInfo(2)->GetPrimaryAlias(), "B1@002");
    EXPECT_EQ(aligned->GetValue(5, 2), 19.5F);
  };
  {
    const auto project = NCProjectFile::Open(file.path(), false);
    check(*project);
    project->SaveMetadata();
  }
  EXPECT_EQ(UserVersion(file.path()), NCProjectFile::kFormatVersion);
  EXPECT_EQ(RecordStreams(file.path()).size(), 2u);
  check(*NCProjectFile::Open(file.path(), false));
}

}  // namespace
