// Local centering at full scale, like `peers.py center`: a 1,000,000 x 100 matrix with every
// 97th row missing, whose rows are 10,000 batches of 100 observations; every variable has a
// center per batch. `Subtract` subtracts them in place, one loop per run of a batch. The peer
// subtracts a full 1,000,000 x 100 matrix under a mask; throughput counts the matrix read and
// written (2 x 400 MB), as the peer's does.
// Beside it, the subtraction of a full matrix of centers (`SubtractMatrix`), counted the same.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kColumns = 100;
constexpr std::size_t kPerBatch = 100;

// The rows, their values and one center per batch and variable, made once for all benchmarks.
struct Batches {
  Batches() : project(NCProject::Create()), data(kRows, kColumns) {
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    project->SetBatchIdentifierSeries(2);
    rows.reserve(kRows);
    for (std::size_t r = 0; r < kRows; ++r) {
      const unsigned long id = project->CreateUniqueID();
      std::vector<std::string> ids{std::to_string(id), "B" + std::to_string(r / kPerBatch)};
      rows.push_back(
          observations.Add(std::make_unique<ObservationInfo>(std::move(ids), id), nullptr));
    }
    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    for (std::size_t c = 0; c < kColumns; ++c) {
      varIDs.push_back(1000 + c);
      for (std::size_t b = 0; b < kRows / kPerBatch; ++b) {
        centers.AddInfo(normal(random), 1000 + c, 2, ("B" + std::to_string(b)).c_str(), -1, "");
      }
    }
    for (std::size_t c = 0; c < kColumns; ++c) {
      for (std::size_t r = 0; r < kRows; ++r) data(r, c) = r % 97 == 0 ? -99.0F : normal(random);
    }
  }

  static Batches& Get() {
    static Batches batches;
    return batches;
  }

  boost::shared_ptr<NCProject> project;
  VarObsInfoVector<ObservationInfo> rows;
  NCIntegralVector<unsigned long, 0> varIDs;
  LocalCenteringData centers;
  NCDataMatrix<float> data;
};

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kRows * kColumns * 8));
}

void BM_SubtractLocalCenters(benchmark::State& state) {
  Batches& b = Batches::Get();
  // Once untimed: the first subtraction lays the centers out for the rows.
  b.centers.Subtract(b.data, b.rows, b.varIDs, *b.project, nullptr);
  for (auto _ : state) {
    b.centers.Subtract(b.data, b.rows, b.varIDs, *b.project, nullptr);
    benchmark::DoNotOptimize(b.data.ColumnData(0));
  }
  CountBytes(state);
}
BENCHMARK(BM_SubtractLocalCenters)->Apply(ncds::bench::Repeated);

// A full subtraction matrix, as the peer subtracts it: a center for every cell.
void BM_SubtractMatrix(benchmark::State& state) {
  Batches& b = Batches::Get();
  NCDataMatrix<float> centers(kRows, kColumns);
  std::mt19937 random(11);
  std::normal_distribution<float> normal;
  for (std::size_t c = 0; c < kColumns; ++c) {
    for (std::size_t r = 0; r < kRows; ++r) centers(r, c) = normal(random);
  }
  for (auto _ : state) {
    LocalCenteringData::SubtractMatrix(b.data, b.varIDs, centers, b.varIDs);
    benchmark::DoNotOptimize(b.data.ColumnData(0));
  }
  CountBytes(state);
}
BENCHMARK(BM_SubtractMatrix)->Apply(ncds::bench::Repeated);

}  // namespace
