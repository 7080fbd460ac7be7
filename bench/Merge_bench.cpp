// Merging datasets at scale: a 1,000,000 x 50 dataset takes in another of the same 1,000,000
// observations with 50 other variables (the result is 1,000,000 x 100), once with the rows in
// the same order, once shuffled (matched through the hash table), and once where half of the
// other dataset's rows are new observations (1,500,000 x 100 afterwards).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kColumns = 50;
constexpr unsigned long kFirstObservation = 100000;

// A project holding 1,500,000 observation records and 100 variables, made once.
struct Fixture {
  Fixture() {
    NCVariables& variables = project->GetVariables();
    for (unsigned long k = 0; k < 2 * kColumns; ++k) {
      variables.Add(std::make_unique<QuantitativeVariableInfo>("V" + std::to_string(k), 1 + k));
    }
    NCObservations& observations = project->GetObservations();
    rows.reserve(kRows + kRows / 2);
    for (unsigned long k = 0; k < kRows + kRows / 2; ++k) {
      rows.push_back(observations.Add(
          std::make_unique<ObservationInfo>("Obs" + std::to_string(k), kFirstObservation + k)));
    }
  }
  boost::shared_ptr<NCProject> project = NCProject::Create();
  VarObsInfoVector<ObservationInfo> rows;
};

Fixture& Shared() {
  static Fixture fixture;
  return fixture;
}

NCDataMatrix<float> Values(std::size_t rows, std::size_t firstColumn) {
  NCDataMatrix<float> values(rows, kColumns);
  for (std::size_t j = 0; j < kColumns; ++j) {
    float* column = values.ColumnData(j);
    for (std::size_t i = 0; i < rows; ++i) column[i] = float((i * 31 + firstColumn + j) % 1000);
  }
  return values;
}

// Dataset `number` of the records at `positions` in the fixture, with the variables
// `firstColumn` + 1 .. `firstColumn` + 50 holding `values`.
boost::shared_ptr<NCDataSet> MakeDataSet(int number, const std::vector<std::size_t>& positions,
                                         std::size_t firstColumn,
                                         const NCDataMatrix<float>& values) {
  Fixture& f = Shared();
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(positions.size());
  for (const std::size_t at : positions) infos.push_back(f.rows[at]);
  NCIntegralVector<unsigned long, 0> ids;
  for (std::size_t j = 0; j < kColumns; ++j) ids.push_back(1 + firstColumn + j);
  return NCDataSet::Create(f.project, ("D" + std::to_string(number)).c_str(), number, &values,
                           std::move(infos), &ids, {1}, {1}, nullptr, nullptr, nullptr);
}

std::vector<std::size_t> Positions(std::size_t from, std::size_t count) {
  std::vector<std::size_t> positions(count);
  for (std::size_t i = 0; i < count; ++i) positions[i] = from + i;
  return positions;
}

// Merges the other dataset, 50 new variables over `otherPositions`, into a fresh copy of the
// 1,000,000 x 50 dataset in each pass.
void TimeMerge(benchmark::State& state, const std::vector<std::size_t>& otherPositions) {
  const std::vector<std::size_t> here = Positions(0, kRows);
  const NCDataMatrix<float> hereValues = Values(kRows, 0);
  const auto other = MakeDataSet(3, otherPositions, kColumns, Values(otherPositions.size(), 50));
  std::size_t rows = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto dataSet = MakeDataSet(2, here, 0, hereValues);
    state.ResumeTiming();
    if (!dataSet->Merge(*other, true, false)) state.SkipWithError("refused");
    state.PauseTiming();
    rows = static_cast<std::size_t>(dataSet->SizeObservations());
    if (dataSet->SizeVariables() != static_cast<int>(2 * kColumns)) state.SkipWithError("shape");
    dataSet.reset();
    state.ResumeTiming();
  }
  state.counters["rows"] = static_cast<double>(rows);
}

void BM_MergeSameObservations(benchmark::State& state) { TimeMerge(state, Positions(0, kRows)); }
BENCHMARK(BM_MergeSameObservations)->Apply(ncds::bench::Repeated);

void BM_MergeSameObservationsShuffled(benchmark::State& state) {
  std::vector<std::size_t> positions = Positions(0, kRows);
  std::shuffle(positions.begin(), positions.end(), std::mt19937(3));
  TimeMerge(state, positions);
}
BENCHMARK(BM_MergeSameObservationsShuffled)->Apply(ncds::bench::Repeated);

// Rows 500,000 .. 1,499,999: the first half are here, the second half are new.
void BM_MergeHalfNewObservations(benchmark::State& state) {
  TimeMerge(state, Positions(kRows / 2, kRows));
}
BENCHMARK(BM_MergeHalfNewObservations)->Apply(ncds::bench::Repeated);

}  // namespace
