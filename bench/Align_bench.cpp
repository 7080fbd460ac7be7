// Batch alignment at full scale, like `peers.py align`: 10,000 batches of 200 observations x 50
// variables, each batch's maturity a cumulative sum of uniform(0.5, 1.5) steps rescaled to end
// at 100, aligned onto 100 evenly spaced points from 0 to 100 (short batches cut). The values
// sit in one column-major matrix as a dataset holds them; each batch's columns are aligned
// together, so each grid point's bracket is searched once per batch. Items are output values.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <vector>

#include "BenchSupport.h"
#include "ncds/batch/BatchAligner.h"

namespace {

constexpr std::size_t kBatches = 10000;
constexpr std::size_t kPerBatch = 200;
constexpr std::size_t kVariables = 50;
constexpr std::size_t kGrid = 100;

void BM_AlignBatches(benchmark::State& state) {
  const std::size_t rows = kBatches * kPerBatch;
  NCDataMatrix<float> data(rows, kVariables);
  std::vector<float> maturity(rows);
  std::mt19937 random(6);
  std::uniform_real_distribution<float> step(0.5F, 1.5F);
  std::normal_distribution<float> value;
  for (std::size_t b = 0; b < kBatches; ++b) {
    float sum = 0;
    for (std::size_t k = 0; k < kPerBatch; ++k) maturity[b * kPerBatch + k] = sum += step(random);
    for (std::size_t k = 0; k < kPerBatch; ++k) maturity[b * kPerBatch + k] *= 100.0F / sum;
  }
  for (std::size_t c = 0; c < kVariables; ++c) {
    for (std::size_t r = 0; r < rows; ++r) data(r, c) = value(random);
  }
  NCDataVector<float> grid(kGrid);
  for (std::size_t j = 0; j < kGrid; ++j) grid[j] = 100.0F * j / (kGrid - 1);
  const BatchAligner aligner(grid, true, false);
  NCDataMatrix<float> out(kBatches * kGrid, kVariables);
  std::vector<const float*> columns(kVariables);
  std::vector<float*> outs(kVariables);
  for (auto _ : state) {
    for (std::size_t b = 0; b < kBatches; ++b) {
      for (std::size_t c = 0; c < kVariables; ++c) {
        columns[c] = data.ColumnData(c) + b * kPerBatch;
        outs[c] = out.ColumnData(c) + b * kGrid;
      }
      aligner.AlignColumns(columns.data(), kVariables, maturity.data() + b * kPerBatch,
                           static_cast<int>(kPerBatch), outs.data());
    }
    benchmark::DoNotOptimize(out.ColumnData(0));
  }
  state.SetItemsProcessed(
      static_cast<std::int64_t>(state.iterations() * kBatches * kVariables * kGrid));
}
BENCHMARK(BM_AlignBatches)->Apply(ncds::bench::Repeated);

}  // namespace
