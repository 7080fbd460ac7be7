// Editing a dataset at scale: removing 100,000 scattered rows of a 1,000,000 x 100 dataset
// (peer: `peers.py remove-rows`, numpy.delete), adding variables one at a time and
// observations in batches (the cost per column or row must stay flat as the dataset grows),
// and setting values cell by cell and as a whole matrix.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kColumns = 100;

// A project holding 1,000,000 observation records and 10,000 variables, made once.
struct Fixture {
  Fixture() {
    NCVariables& variables = project->GetVariables();
    for (unsigned long k = 0; k < 10000; ++k) {
      variables.Add(std::make_unique<QuantitativeVariableInfo>("V" + std::to_string(k), 1 + k));
      variableIDs.push_back(1 + k);
    }
    NCObservations& observations = project->GetObservations();
    rows.reserve(kRows);
    for (unsigned long k = 0; k < kRows; ++k) {
      rows.push_back(observations.Add(
          std::make_unique<ObservationInfo>("Obs" + std::to_string(k), 100000 + k)));
    }
  }
  boost::shared_ptr<NCProject> project = NCProject::Create();
  NCIntegralVector<unsigned long, 0> variableIDs;
  VarObsInfoVector<ObservationInfo> rows;
};

Fixture& Shared() {
  static Fixture fixture;
  return fixture;
}

// Records `from` .. `from` + `count` of the shared project.
VarObsInfoVector<ObservationInfo> Slice(std::size_t from, std::size_t count) {
  VarObsInfoVector<ObservationInfo> infos;
  const auto& rows = Shared().rows;
  infos.insert(infos.end(), rows.begin() + static_cast<std::ptrdiff_t>(from),
               rows.begin() + static_cast<std::ptrdiff_t>(from + count));
  return infos;
}

NCIntegralVector<unsigned long, 0> FirstIDs(std::size_t count) {
  NCIntegralVector<unsigned long, 0> ids;
  for (std::size_t k = 0; k < count; ++k) ids.push_back(Shared().variableIDs[k]);
  return ids;
}

// A full dataset of `rows` x `columns` with every cell set.
boost::shared_ptr<NCDataSet> FullDataSet(std::size_t rows, std::size_t columns) {
  Fixture& f = Shared();
  NCDataMatrix<float> values(rows, columns);
  for (std::size_t j = 0; j < columns; ++j) {
    float* column = values.ColumnData(j);
    for (std::size_t i = 0; i < rows; ++i) column[i] = float((i * 31 + j) % 1000);
  }
  VarObsInfoVector<ObservationInfo> infos = Slice(0, rows);
  const NCIntegralVector<unsigned long, 0> ids = FirstIDs(columns);
  return NCDataSet::Create(f.project, "bench", 2, &values, std::move(infos), &ids, {1}, {1},
                           nullptr, nullptr, nullptr);
}

void BM_DataSetRemoveScatteredObservations(benchmark::State& state) {
  std::vector<int> chosen(kRows);
  for (std::size_t i = 0; i < kRows; ++i) chosen[i] = static_cast<int>(i) + 1;
  std::shuffle(chosen.begin(), chosen.end(), std::mt19937(2));
  chosen.resize(kRows / 10);
  std::sort(chosen.begin(), chosen.end());
  for (auto _ : state) {
    state.PauseTiming();
    auto dataSet = FullDataSet(kRows, kColumns);
    NCIntegralVector<int, -99> positions;
    for (const int row : chosen) positions.push_back(row);
    state.ResumeTiming();
    if (!dataSet->RemoveObservation(&positions, false, true)) state.SkipWithError("refused");
    state.PauseTiming();
    dataSet.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_DataSetRemoveScatteredObservations)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

// Variables added one at a time to a dataset of 1,000 rows: the time per column must not
// grow with the number of columns (compare the two sizes).
void BM_DataSetAddVariablesOneAtATime(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Fixture& f = Shared();
  for (auto _ : state) {
    state.PauseTiming();
    auto dataSet = NCDataSet::Create(f.project, 3);
    dataSet->AddObservationInfos(Slice(0, 1000), 0, false);
    state.ResumeTiming();
    for (std::size_t k = 0; k < count; ++k) {
      const NCIntegralVector<unsigned long, 0> one(1, f.variableIDs[k]);
      dataSet->AddVariables(&one, 0, false);
    }
    state.PauseTiming();
    dataSet.reset();
    state.ResumeTiming();
  }
  state.counters["us/column"] =
      benchmark::Counter(double(count) * 1e-6, benchmark::Counter::kIsIterationInvariantRate |
                                                   benchmark::Counter::kInvert);
}
BENCHMARK(BM_DataSetAddVariablesOneAtATime)
    ->Arg(1000)
    ->Arg(2500)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Observations added in batches of 1,000 to a dataset of 100 variables: the time per row must
// not grow with the number of rows (compare the two sizes).
void BM_DataSetAddObservationsInBatches(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Fixture& f = Shared();
  const NCIntegralVector<unsigned long, 0> ids = FirstIDs(kColumns);
  for (auto _ : state) {
    state.PauseTiming();
    auto dataSet = NCDataSet::Create(f.project, 4);
    dataSet->AddVariables(&ids, 0, false);
    state.ResumeTiming();
    for (std::size_t at = 0; at < count; at += 1000) {
      dataSet->AddObservationInfos(Slice(at, 1000), 0, false);
    }
    state.PauseTiming();
    dataSet.reset();
    state.ResumeTiming();
  }
  state.counters["ns/row"] =
      benchmark::Counter(double(count) * 1e-9, benchmark::Counter::kIsIterationInvariantRate |
                                                   benchmark::Counter::kInvert);
}
BENCHMARK(BM_DataSetAddObservationsInBatches)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Cell by cell, with no one listening to the change signal.
void BM_DataSetSetValue(benchmark::State& state) {
  auto dataSet = FullDataSet(10000, kColumns);
  const int rows = dataSet->SizeObservations();
  const int columns = dataSet->SizeVariables();
  for (auto _ : state) {
    for (int var = 1; var <= columns; ++var) {
      for (int obs = 1; obs <= rows; ++obs) {
        dataSet->SetValue(obs, var, float(obs), false, false, false);
      }
    }
  }
  state.counters["cells/s"] =
      benchmark::Counter(double(rows) * columns, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_DataSetSetValue)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole 1,000,000 x 100 matrix at once.
void BM_DataSetSetValues(benchmark::State& state) {
  auto dataSet = FullDataSet(kRows, kColumns);
  NCDataMatrix<float> values = dataSet->GetMatrix();
  for (auto _ : state) {
    if (!dataSet->SetValues(&values)) state.SkipWithError("refused");
  }
  state.counters["GB/s"] = benchmark::Counter(double(kRows) * kColumns * sizeof(float) / 1e9,
                                              benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_DataSetSetValues)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
