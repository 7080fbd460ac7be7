// Batch structure at full scale. The rows are `peers.py batch-structure`'s: 1,000,000
// observations of 10,000 contiguous batches of 100 rows, each in three phases (25 "Heating",
// 50 "Reaction", 25 "Cooling"). Peers: `peers.py batch-structure` (pandas groupby(batch,
// phase).size()) and `peers.py delete-batches` (numpy boolean row selection of the 1,000,000
// x 100 matrix, dropping 1,000 batches).
//
// Batch import reads a 200,000 x 50 CSV file like `peers.py csv`'s with a batch column (1,000
// batches of 200 rows) and a phase column added into a new project file, as `ncds import`
// does, once as a batch dataset and once as a plain dataset whose batch and phase columns are
// qualitative variables: the figure is their ratio.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"
#include "tools/ncds/CsvImport.h"

namespace {

constexpr int kRows = 1000000;
constexpr int kBatches = 10000;
constexpr int kPerBatch = kRows / kBatches;

const char* PhaseOf(int k) {
  return k < kPerBatch / 4 ? "Heating" : k < 3 * kPerBatch / 4 ? "Reaction" : "Cooling";
}

void BatchName(int b, char* text) { std::snprintf(text, 8, "B%05d", b); }

// A project holding the 1,000,000 observations, and the rows in order.
struct BatchRows {
  BatchRows() {
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    observations.AddSecondaryID("Phase");
    observations.SetBatchID(2);
    observations.SetPhaseID(3);
    rows.reserve(kRows);
    char batch[8];
    for (int b = 0; b < kBatches; ++b) {
      BatchName(b, batch);
      for (int k = 0; k < kPerBatch; ++k) {
        const unsigned long id = project->CreateUniqueID();
        rows.push_back(observations.Add(std::make_unique<ObservationInfo>(
            std::vector<std::string>{std::to_string(id), batch, PhaseOf(k)}, id)));
      }
    }
  }
  boost::shared_ptr<NCProject> project = NCProject::Create();
  VarObsInfoVector<ObservationInfo> rows;
};

BatchRows& Rows() {
  static BatchRows rows;
  return rows;
}

void BM_CreateBatchInfoVector(benchmark::State& state) {
  const BatchRows& rows = Rows();
  for (auto _ : state) {
    const auto batches =
        BatchUtilities::CreateBatchInfoVector(rows.project->GetObservations(), rows.rows);
    if (batches->size() != static_cast<std::size_t>(kBatches)) state.SkipWithError("shape");
    benchmark::DoNotOptimize(batches.get());
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_CreateBatchInfoVector)->Apply(ncds::bench::Repeated);

// The runs alone: the search part of building the structure.
void BM_BatchAndPhaseRuns(benchmark::State& state) {
  const BatchRows& rows = Rows();
  for (auto _ : state) {
    const auto starts =
        BatchUtilities::GetRunStarts(rows.project->GetObservations(), rows.rows, true);
    if (starts.size() != static_cast<std::size_t>(3 * kBatches)) state.SkipWithError("shape");
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_BatchAndPhaseRuns)->Apply(ncds::bench::Repeated);

void BM_DeleteBatches(benchmark::State& state) {
  constexpr int kVariables = 100;
  constexpr int kDeleted = 1000;
  BatchRows& rows = Rows();
  NCIntegralVector<unsigned long, 0> columns;
  for (int j = 0; j < kVariables; ++j) {
    columns.push_back(rows.project->CreateUniqueID());
    rows.project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(
        "X" + std::to_string(j), columns[static_cast<std::size_t>(j)]));
  }
  NCDataMatrix<float> values(kRows, kVariables);
  for (int j = 0; j < kVariables; ++j) {
    float* column = values.ColumnData(static_cast<std::size_t>(j));
    for (int i = 0; i < kRows; ++i) column[i] = static_cast<float>(i % 997 + j);
  }
  std::vector<int> gone(kBatches);
  for (int b = 0; b < kBatches; ++b) gone[static_cast<std::size_t>(b)] = b;
  std::shuffle(gone.begin(), gone.end(), std::mt19937(9));
  gone.resize(kDeleted);
  boost::shared_ptr<NCDataSet> dataSet;
  for (auto _ : state) {
    state.PauseTiming();
    dataSet.reset();  // the last iteration's, freed untimed
    dataSet = NCDataSet::Create(rows.project, "runs", 1, &values,
                                VarObsInfoVector<ObservationInfo>(rows.rows), &columns, {1}, {1},
                                nullptr, nullptr, nullptr);
    BatchUtilities::MakeBatchDataSet(*dataSet, 2, 3);
    state.ResumeTiming();
    DatasetComponents components(dataSet);
    for (const int b : gone)
      (*components.GetBatchInfoVector())[static_cast<std::size_t>(b)]->SetIncluded(false);
    ConditionalDeleteBatchAndPhase(&components).UpdateDataAccordingToBatchAndPhaseInfo(nullptr);
    if (!components.Apply(false) || dataSet->SizeObservations() != kRows - kDeleted * kPerBatch) {
      state.SkipWithError("delete");
    }
  }
}
BENCHMARK(BM_DeleteBatches)->Apply(ncds::bench::Repeated);

// The batch-level dataset of `peers.py summaries`: 1,000,000 x 50 values (standard normal +
// 10) summarized per batch and phase with the peer's eight statistics into 10,000 rows of
// 1,200 columns, records and variables included.
void BM_BatchLevelDataset(benchmark::State& state) {
  constexpr int kVariables = 50;
  BatchRows& rows = Rows();
  NCIntegralVector<unsigned long, 0> columns;
  for (int j = 0; j < kVariables; ++j) {
    columns.push_back(rows.project->CreateUniqueID());
    rows.project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(
        "S" + std::to_string(j), columns[static_cast<std::size_t>(j)]));
  }
  NCDataMatrix<float> values(kRows, kVariables);
  std::mt19937 random(10);
  std::normal_distribution<float> value(10.0F, 1.0F);
  for (int j = 0; j < kVariables; ++j) {
    float* column = values.ColumnData(static_cast<std::size_t>(j));
    for (int i = 0; i < kRows; ++i) column[i] = value(random);
  }
  const auto dataSet = NCDataSet::Create(rows.project, "runs", 1, std::move(values),
                                         VarObsInfoVector<ObservationInfo>(rows.rows), &columns,
                                         {1}, {1}, nullptr, nullptr, nullptr);
  BatchUtilities::MakeBatchDataSet(*dataSet, 2, 3);
  CreateBatchLevelInfo info;
  info.SetStatistics({"Min", "Max", "Mean", "Median", "StdDev", "Variance", "First", "Last"});
  info.SetByPhase(true);
  const BatchLevelComponent component(info);
  for (auto _ : state) {
    const auto summary = component.Create(*dataSet, "levels", 2);
    if (summary->SizeObservations() != kBatches || summary->SizeVariables() != 3 * 8 * kVariables)
      state.SkipWithError("shape");
    state.PauseTiming();
    // The records of this pass go again, untimed, so that every pass makes the same.
    rows.project->GetObservations().DeleteVarObsInfos(summary->GetObservationIDs());
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kRows * kVariables);
}
BENCHMARK(BM_BatchLevelDataset)->Apply(ncds::bench::Repeated);

// The CSV file of the import benchmarks: ObsID, Batch, Phase and 50 columns of numbers.
const std::string& BatchCsv() {
  static const std::string path = [] {
    const std::string file = ncds::bench::ScratchPath("ncds_batch_bench_200000x50.csv");
    if (std::ifstream(file)) return file;
    const std::string part = file + ".part";
    std::FILE* out = std::fopen(part.c_str(), "wb");
    if (!out) return std::string();
    std::fputs("ObsID,Batch,Phase", out);
    for (int j = 0; j < 50; ++j) std::fprintf(out, ",X%d", j);
    std::fputc('\n', out);
    std::mt19937_64 random(5);
    std::normal_distribution<float> normal;
    for (int i = 0; i < 200000; ++i) {
      const int k = i % 200;
      std::fprintf(out, "O%d,B%04d,%s", i, i / 200,
                   k < 50    ? "Heating"
                   : k < 150 ? "Reaction"
                             : "Cooling");
      for (int j = 0; j < 50; ++j) std::fprintf(out, ",%.6g", normal(random) * 100.0F);
      std::fputc('\n', out);
    }
    if (std::fclose(out) != 0 || std::rename(part.c_str(), file.c_str()) != 0) return std::string();
    return file;
  }();
  return path;
}

void ImportBatchCsv(benchmark::State& state, bool asBatches) {
  ncds::tool::CsvImportOptions options;
  options.idColumns = {"ObsID"};
  if (asBatches) {
    options.batchColumn = "Batch";
    options.phaseColumn = "Phase";
  }
  const std::string path = ncds::bench::ScratchPath("ncds_batch_bench.ncds");
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    const auto project = NCProjectFile::Open(path, true);
    const auto data = ncds::tool::CsvImport::ImportFile(project, BatchCsv(), options);
    if (data->SizeObservations() != 200000) state.SkipWithError("shape");
  }
  std::remove(path.c_str());
}

void BM_CsvImportBatches(benchmark::State& state) { ImportBatchCsv(state, true); }
BENCHMARK(BM_CsvImportBatches)->Apply(ncds::bench::Repeated);

void BM_CsvImportSameFilePlain(benchmark::State& state) { ImportBatchCsv(state, false); }
BENCHMARK(BM_CsvImportSameFilePlain)->Apply(ncds::bench::Repeated);

}  // namespace
