// Maturity smoothing at full scale: 1,000,000 maturities in 10,000 batches of 100, each a rising
// ramp with noise large enough to turn it back, so that every batch takes the windowed fit with
// the hat matrix of GetHatMatrix(100) (11 points, quadratic). Items are observations.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>

#include "BenchSupport.h"
#include "ncds/smoothing/Smooth.h"

namespace {

constexpr int kRows = 1000000;
constexpr int kBatches = 10000;
constexpr int kPerBatch = kRows / kBatches;

void BM_SmoothVector(benchmark::State& state) {
  NCDataVector<float> maturity(kRows);
  NCIntegralVector<int, -99> starts;
  std::mt19937 random(11);
  std::uniform_real_distribution<float> noise(-2.0F, 2.0F);
  for (int b = 0; b < kBatches; ++b) {
    starts.push_back(b * kPerBatch + 1);
    for (int k = 0; k < kPerBatch; ++k) {
      maturity[static_cast<std::size_t>(b * kPerBatch + k)] = static_cast<float>(k) + noise(random);
    }
  }
  const NCDataMatrix<float> hat = Smooth::GetHatMatrix(kPerBatch);
  NCDataVector<float> smoothed;
  for (auto _ : state) {
    smoothed = Smooth::SmoothVector(&maturity, &starts, 0.0F, 100.0F, &hat, false);
    benchmark::DoNotOptimize(smoothed.data());
  }
  for (int i = 1; i < kRows; ++i) {
    const std::size_t at = static_cast<std::size_t>(i);
    if (i % kPerBatch != 0 && !(smoothed[at] > smoothed[at - 1])) {
      state.SkipWithError("not rising within a batch");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_SmoothVector)->Apply(ncds::bench::Repeated);

}  // namespace
