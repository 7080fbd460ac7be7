// A batch history that grows: 10,000 batches of 100 rows x 10 variables (1,000,000 rows), to
// which 100 batches (10,000 rows) arrive. Appending them to the stored dataset is timed against
// importing the whole 1,010,000-row file into a new project, and bringing an aligned dataset of
// the history up to date against aligning the 100 new batches alone.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "BenchSupport.h"
#include "ncds/ncds.h"
#include "tools/ncds/BatchCommands.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/UpdateCommands.h"

namespace {

constexpr int kBatches = 10000;
constexpr int kNewBatches = 100;
constexpr int kRows = 100;
constexpr int kValues = 9;  // besides Time

// The CSV rows of batches [first, first + count): Batch, Phase, Time and the values.
std::string BatchRows(int first, int count) {
  std::string text;
  text.reserve(static_cast<std::size_t>(count) * kRows * 80);
  std::mt19937 random(static_cast<unsigned>(first));
  std::normal_distribution<float> normal;
  char cell[32];
  for (int b = first; b < first + count; ++b) {
    for (int k = 0; k < kRows; ++k) {
      std::snprintf(cell, sizeof cell, "B%05d,%s,%d", b, k < kRows / 2 ? "Heat" : "Hold", k);
      text += cell;
      for (int j = 0; j < kValues; ++j) {
        std::snprintf(cell, sizeof cell, ",%.5g", normal(random) + static_cast<float>(j));
        text += cell;
      }
      text += '\n';
    }
  }
  return text;
}

std::string Header() {
  std::string header = "Batch,Phase,Time";
  for (int j = 0; j < kValues; ++j) header += ",X" + std::to_string(j);
  return header + '\n';
}

const std::string& History() {
  static const std::string text = Header() + BatchRows(0, kBatches);
  return text;
}
const std::string& NewBatches() {
  static const std::string text = Header() + BatchRows(kBatches, kNewBatches);
  return text;
}

ncds::tool::CsvImportOptions BatchOptions() {
  ncds::tool::CsvImportOptions options;
  options.batchColumn = "Batch";
  options.phaseColumn = "Phase";
  options.name = "history";
  return options;
}

ncds::tool::BatchCommands::AlignChoice Relative() {
  ncds::tool::BatchCommands::AlignChoice choice;
  choice.maturity = "Time";
  choice.relative = true;
  choice.phasePoints = {{"Heat", 25}, {"Hold", 25}};
  return choice;
}

void BM_HistoryImportWhole(benchmark::State& state) {
  const std::string whole = History() + BatchRows(kBatches, kNewBatches);
  const std::string path = ncds::bench::ScratchPath("ncds_history_whole.ncds");
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    const auto project = NCProjectFile::Open(path, true);
    const auto data =
        ncds::tool::CsvImport::ImportText(project, whole, "whole.csv", BatchOptions());
    if (data->SizeObservations() != (kBatches + kNewBatches) * kRows) state.SkipWithError("rows");
  }
  std::remove(path.c_str());
}
BENCHMARK(BM_HistoryImportWhole)->Apply(ncds::bench::Repeated);

void BM_HistoryAppend(benchmark::State& state) {
  const std::string stored = ncds::bench::ScratchPath("ncds_history_stored.ncds");
  const std::string path = ncds::bench::ScratchPath("ncds_history_append.ncds");
  std::remove(stored.c_str());
  ncds::tool::CsvImport::ImportText(NCProjectFile::Open(stored, true), History(), "history.csv",
                                    BatchOptions());
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::copy_file(stored, path, std::filesystem::copy_options::overwrite_existing);
    state.ResumeTiming();
    const auto project = NCProjectFile::Open(path, false);
    const auto data = project->LoadDataSet(1);
    ncds::tool::CsvImport::AppendText(*data, NewBatches(), "new.csv", BatchOptions(), false);
    if (!project->SaveDataSet(data)) state.SkipWithError("save");
  }
  std::remove(path.c_str());
  std::remove(stored.c_str());
}
BENCHMARK(BM_HistoryAppend)->Apply(ncds::bench::Repeated);

void BM_HistoryUpdateAligned(benchmark::State& state) {
  const auto project = NCProject::Create();
  const auto source =
      ncds::tool::CsvImport::ImportText(project, History(), "history.csv", BatchOptions());
  const auto choice = Relative();
  int number = 2;
  ncds::tool::CsvImport::AppendText(*source, NewBatches(), "new.csv", BatchOptions(), false);
  for (auto _ : state) {
    state.PauseTiming();
    // An aligned dataset of the history before the new batches came: the grown source less them.
    boost::shared_ptr<NCDataSet> aligned;
    ncds::tool::BatchCommands::Align(*source, choice, "aligned", ++number, aligned);
    ncds::tool::BatchCommands::DeleteBatches(*aligned,
                                             [] {
                                               std::vector<std::string> added;
                                               char name[16];
                                               for (int b = kBatches; b < kBatches + kNewBatches;
                                                    ++b) {
                                                 std::snprintf(name, sizeof name, "B%05d", b);
                                                 added.emplace_back(name);
                                               }
                                               return added;
                                             }(),
                                             {});
    SourceBatches before = aligned->GetAlignment()->GetSourceBatches();
    std::vector<SourceBatches::Entry> entries = before.Get();
    entries.resize(kBatches);
    DataSetAlignment alignment(*aligned->GetAlignment());
    alignment.SetSourceBatches(SourceBatches(std::move(entries)));
    aligned->SetAlignment(&alignment);
    state.ResumeTiming();
    bool changed = false;
    ncds::tool::UpdateCommands::Update(*aligned, source.get(), changed);
    if (!changed || aligned->SizeObservations() != (kBatches + kNewBatches) * 50) {
      state.SkipWithError("update");
    }
  }
}
BENCHMARK(BM_HistoryUpdateAligned)->Apply(ncds::bench::Repeated);

void BM_HistoryAlignNewAlone(benchmark::State& state) {
  const auto project = NCProject::Create();
  const auto fresh =
      ncds::tool::CsvImport::ImportText(project, NewBatches(), "new.csv", BatchOptions());
  const auto choice = Relative();
  int number = 2;
  for (auto _ : state) {
    boost::shared_ptr<NCDataSet> aligned;
    ncds::tool::BatchCommands::Align(*fresh, choice, "aligned", ++number, aligned);
    benchmark::DoNotOptimize(aligned.get());
  }
}
BENCHMARK(BM_HistoryAlignNewAlone)->Apply(ncds::bench::Repeated);

}  // namespace
