// A tall, narrow batch history as plants keep them, like `peers.py tall`: 1,000,000 rows x 10
// variables in 10,000 batches of 100 rows, each in three phases (Heating, Reaction, Cooling),
// rows named `<batch>_<position>`. Timed: the import of its CSV into a project file, opening
// the file and loading the dataset, a save after an edit, and aligning and summarizing it, each
// with its peak memory ("peak_MB"). Beside them two floors: building the million observation
// records alone (each a record with a vector of three ID strings, which every load pays) and
// reading the project file's bytes once.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"
#include "tools/ncds/BatchCommands.h"
#include "tools/ncds/CombineCommands.h"
#include "tools/ncds/CsvImport.h"

namespace {

constexpr int kBatches = 10000;
constexpr int kRows = 100;
constexpr int kValues = 10;
constexpr int kObservations = kBatches * kRows;

const char* Phase(int k) {
  return k < kRows / 4 ? "Heating" : k < 3 * kRows / 4 ? "Reaction" : "Cooling";
}

const std::string& TallCsv() {
  static const std::string text = [] {
    std::string csv = "batch,phase";
    for (int j = 0; j < kValues; ++j) csv += ",X" + std::to_string(j);
    csv += '\n';
    csv.reserve(static_cast<std::size_t>(kObservations) * 100);
    std::mt19937 random(12);
    std::normal_distribution<float> normal(10.0F, 1.0F);
    char cell[32];
    for (int b = 0; b < kBatches; ++b) {
      for (int k = 0; k < kRows; ++k) {
        std::snprintf(cell, sizeof cell, "B%05d,%s", b, Phase(k));
        csv += cell;
        for (int j = 0; j < kValues; ++j) {
          std::snprintf(cell, sizeof cell, ",%.7g", normal(random));
          csv += cell;
        }
        csv += '\n';
      }
    }
    return csv;
  }();
  return text;
}

ncds::tool::CsvImportOptions TallOptions() {
  ncds::tool::CsvImportOptions options;
  options.batchColumn = "batch";
  options.phaseColumn = "phase";
  options.name = "tall";
  return options;
}

// The project file holding the tall dataset, made once.
const std::string& StoredTall() {
  static const std::string path = [] {
    const std::string stored = ncds::bench::ScratchPath("ncds_tall_stored.ncds");
    std::remove(stored.c_str());
    const auto project = NCProjectFile::Open(stored, true);
    project->SetSyncToDisk(false);
    ncds::tool::CsvImport::ImportText(project, TallCsv(), "tall.csv", TallOptions());
    return stored;
  }();
  return path;
}

void ReportPeak(benchmark::State& state, std::int64_t peak) {
  state.counters["peak_MB"] = static_cast<double>(peak) / 1e6;
}

void BM_TallImport(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_tall_import.ncds");
  std::int64_t peak = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    ncds::bench::ResetPeakRss();
    state.ResumeTiming();
    const auto project = NCProjectFile::Open(path, true);
    ncds::tool::CsvImport::ImportText(project, TallCsv(), "tall.csv", TallOptions());
    peak = std::max(peak, ncds::bench::PeakRssBytes());
  }
  ReportPeak(state, peak);
  state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
  std::remove(path.c_str());
}
BENCHMARK(BM_TallImport)->Apply(ncds::bench::Repeated);

void BM_TallOpenAndLoad(benchmark::State& state) {
  const std::string& path = StoredTall();
  std::int64_t peak = 0;
  boost::shared_ptr<NCProjectFile> project;
  for (auto _ : state) {
    state.PauseTiming();
    project.reset();  // freeing the million records is not part of loading them
    ncds::bench::ResetPeakRss();
    state.ResumeTiming();
    project = NCProjectFile::Open(path, false);
    benchmark::DoNotOptimize(project->LoadDataSet(1).get());
    peak = std::max(peak, ncds::bench::PeakRssBytes());
  }
  ReportPeak(state, peak);
  state.SetItemsProcessed(state.iterations() * kObservations);
}
BENCHMARK(BM_TallOpenAndLoad)->Apply(ncds::bench::Repeated);

// The floor of a load: the million records of the data model, each a record with its vector of
// three ID strings, added to an observation container, from texts already in memory.
void BM_TallRecordsFloor(benchmark::State& state) {
  std::vector<std::string> names(kObservations);
  for (int i = 0; i < kObservations; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "B%05d_%03d", i / kRows, i % kRows + 1);
    names[static_cast<std::size_t>(i)] = name;
  }
  for (auto _ : state) {
    auto observations = std::make_unique<NCObservations>();
    observations->Reserve(kObservations);
    for (int i = 0; i < kObservations; ++i) {
      const std::string& name = names[static_cast<std::size_t>(i)];
      std::vector<std::string> ids;
      ids.reserve(3);
      ids.push_back(name);
      ids.emplace_back(name, 0, 6);
      ids.emplace_back(Phase(i % kRows));
      auto record = std::make_unique<ObservationInfo>(std::move(ids), 1000UL + i);
      record->SetBatch(10UL + i / kRows);
      observations->Add(std::move(record));
    }
    benchmark::DoNotOptimize(observations.get());
    state.PauseTiming();
    observations.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kObservations);
}
BENCHMARK(BM_TallRecordsFloor)->Apply(ncds::bench::Repeated);

// The other floor: the project file's bytes (values, IDs and all) read once from the cache.
void BM_TallReadFileFloor(benchmark::State& state) {
  const std::string& path = StoredTall();
  const auto size = static_cast<std::size_t>(std::filesystem::file_size(path));
  std::int64_t sum = 0;
  for (auto _ : state) {
    std::vector<char> bytes(size);
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(size));
    for (std::size_t k = 0; k < size; k += 4096) sum += bytes[k];
  }
  benchmark::DoNotOptimize(sum);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}
BENCHMARK(BM_TallReadFileFloor)->Apply(ncds::bench::Repeated);

void BM_TallSaveAfterEdit(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_tall_edit.ncds");
  boost::shared_ptr<NCProjectFile> project;
  for (auto _ : state) {
    state.PauseTiming();
    project.reset();
    std::filesystem::copy_file(StoredTall(), path,
                               std::filesystem::copy_options::overwrite_existing);
    project = NCProjectFile::Open(path, false);
    project->SetSyncToDisk(false);
    const auto data = project->LoadDataSet(1);
    data->SetValue(17, 3, 1.5F, false, false, true);
    state.ResumeTiming();
    if (!project->SaveDataSet(data)) state.SkipWithError("save");
  }
  project.reset();
  std::remove(path.c_str());
}
BENCHMARK(BM_TallSaveAfterEdit)->Apply(ncds::bench::Repeated);

boost::shared_ptr<NCDataSet> LoadedTall() {
  static const boost::shared_ptr<NCProjectFile> project = NCProjectFile::Open(StoredTall(), false);
  static const boost::shared_ptr<NCDataSet> data = project->LoadDataSet(1);
  return data;
}

// Times `make(number)`, which makes a dataset from the loaded tall one, and reports the largest
// growth of the resident set while it works.
template <class Make>
void TimeDerivation(benchmark::State& state, Make make) {
  std::int64_t growth = 0;
  int number = 1;
  for (auto _ : state) {
    state.PauseTiming();
    ncds::bench::ResetPeakRss();
    const std::int64_t before = ncds::bench::CurrentRssBytes();
    state.ResumeTiming();
    make(++number);
    growth = std::max(growth, ncds::bench::PeakRssBytes() - before);
  }
  state.counters["growth_MB"] = static_cast<double>(growth) / 1e6;
  state.SetItemsProcessed(state.iterations() * kObservations);
}

void BM_TallAlign(benchmark::State& state) {
  ncds::tool::BatchCommands::AlignChoice choice;
  choice.maturity = "$Time";
  choice.relative = true;
  choice.phasePoints = {{"Heating", 25}, {"Reaction", 50}, {"Cooling", 25}};
  TimeDerivation(state, [&choice](int number) {
    boost::shared_ptr<NCDataSet> aligned;
    ncds::tool::BatchCommands::Align(*LoadedTall(), choice, "aligned", number, aligned);
  });
}
BENCHMARK(BM_TallAlign)->Apply(ncds::bench::Repeated);

void BM_TallSummarize(benchmark::State& state) {
  ncds::tool::CombineCommands::SummaryChoice choice;
  choice.byPhase = true;
  TimeDerivation(state, [&choice](int number) {
    boost::shared_ptr<NCDataSet> summary;
    ncds::tool::CombineCommands::Summarize(*LoadedTall(), choice, "summary", number, summary);
  });
}
BENCHMARK(BM_TallSummarize)->Apply(ncds::bench::Repeated);

}  // namespace
