// Batch-level summaries at full scale, like `peers.py summaries`: 1,000,000 rows x 50 variables
// in 10,000 batches of 100 rows, each in three phases (the first quarter, the middle half and the
// last quarter), and the eight statistics Min, Max, Mean, Median, StdDev, Variance, First and
// Last of every column over all 30,000 runs. Values are standard normal + 10, none missing, in
// one column-major block as a dataset holds them. Items are input cells.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <vector>

#include "BenchSupport.h"
#include "ncds/batch/BatchStatistics.h"

namespace {

constexpr std::size_t kBatches = 10000;
constexpr std::size_t kPerBatch = 100;
constexpr std::size_t kVariables = 50;

void BM_SummariesOfBatchPhases(benchmark::State& state) {
  using BatchStatistics::Statistic;
  const std::size_t rows = kBatches * kPerBatch;
  std::vector<float> data(rows * kVariables);
  std::mt19937 random(10);
  std::normal_distribution<float> value(10.0F, 1.0F);
  for (float& cell : data) cell = value(random);
  std::vector<BatchStatistics::Run> runs;
  for (std::size_t b = 0; b < kBatches; ++b) {
    const std::size_t first = b * kPerBatch;
    runs.push_back({first, first + kPerBatch / 4});
    runs.push_back({first + kPerBatch / 4, first + 3 * kPerBatch / 4});
    runs.push_back({first + 3 * kPerBatch / 4, first + kPerBatch});
  }
  const std::vector<Statistic> statistics = {
      Statistic::Min,    Statistic::Max,      Statistic::Mean,  Statistic::Median,
      Statistic::StdDev, Statistic::Variance, Statistic::First, Statistic::Last};
  const std::size_t perColumn = runs.size() * statistics.size();
  std::vector<float> out(perColumn * kVariables);
  std::vector<float> scratch;
  for (auto _ : state) {
    for (std::size_t c = 0; c < kVariables; ++c) {
      BatchStatistics::Compute(data.data() + c * rows, nullptr, runs, statistics,
                               out.data() + c * perColumn, scratch);
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * rows * kVariables));
}
BENCHMARK(BM_SummariesOfBatchPhases)->Apply(ncds::bench::Repeated);

}  // namespace
