// Datasets at full scale: sorting the rows of a 1,000,000 x 100 dataset by its primary
// observation IDs, numeric texts in shuffled order, compared as numbers. The whole sort
// (keys, order, moving every row and its record) and the sort order alone are timed.
// Peer: `peers.py sort-rows` (numpy argsort of a shuffled key + take, F order).

#include <benchmark/benchmark.h>

#include <algorithm>
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

// The dataset, built through the library, with the order that shuffles it again once sorted.
struct SortWorkload {
  boost::shared_ptr<NCProject> project = NCProject::Create();
  boost::shared_ptr<NCDataSet> data;
  // Row i holds the observation whose ID is shuffle[i] at first; sorted, row r holds ID r,
  // and giving `shuffle` as the order shuffles the rows again.
  NCIntegralVector<int, -99> shuffle;
};

SortWorkload& Workload() {
  static SortWorkload workload = [] {
    SortWorkload built;
    std::vector<int> ids(kRows);
    for (std::size_t i = 0; i < kRows; ++i) ids[i] = static_cast<int>(i);
    std::mt19937_64 rng(3);
    std::shuffle(ids.begin(), ids.end(), rng);
    built.shuffle.reserve(kRows);
    for (const int id : ids) built.shuffle.push_back(id);

    NCObservations& observations = built.project->GetObservations();
    VarObsInfoVector<ObservationInfo> infos;
    infos.reserve(kRows);
    for (std::size_t i = 0; i < kRows; ++i) {
      infos.push_back(observations.Add(std::make_unique<ObservationInfo>(
          std::to_string(ids[i]), built.project->CreateUniqueID())));
    }
    NCIntegralVector<unsigned long, 0> varIDs;
    for (std::size_t j = 0; j < kColumns; ++j) {
      const unsigned long id = built.project->CreateUniqueID();
      built.project->GetVariables().Add(
          std::make_unique<QuantitativeVariableInfo>("X" + std::to_string(j), id));
      varIDs.push_back(id);
    }
    built.data = NCDataSet::Create(built.project, 2);
    built.data->ReserveObservations(static_cast<int>(kRows));
    built.data->AddVariables(&varIDs, 0, false);
    built.data->AddObservationInfos(infos, 0, false);
    std::vector<float> values(kRows);
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    for (std::size_t j = 0; j < kColumns; ++j) {
      for (float& value : values) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        value = static_cast<float>(static_cast<std::int64_t>(state >> 40) - (1 << 23)) / (1 << 21);
      }
      built.data->SetColValues(values.data(), static_cast<int>(j + 1));
    }
    return built;
  }();
  return workload;
}

void BM_DataSetSortByNumericObservationID(benchmark::State& state) {
  SortWorkload& w = Workload();
  for (auto _ : state) {
    state.PauseTiming();
    if (!w.data->SortDataset(1, false, true, false, &w.shuffle)) state.SkipWithError("shuffle");
    state.ResumeTiming();
    if (!w.data->SortDataset(1, false, true, true, nullptr)) state.SkipWithError("sort refused");
    state.PauseTiming();
    if (w.data->GetObservationID(1, 1) != "0" ||
        w.data->GetObservationID(static_cast<int>(kRows), 1) != "999999") {
      state.SkipWithError("rows out of order");
    }
    state.ResumeTiming();
  }
}
BENCHMARK(BM_DataSetSortByNumericObservationID)->Apply(ncds::bench::Repeated);

void BM_DataSetSortOrderByNumericObservationID(benchmark::State& state) {
  SortWorkload& w = Workload();
  w.data->SortDataset(1, false, true, false, &w.shuffle);
  for (auto _ : state) {
    const NCIntegralVector<int, -99> order = w.data->GetSortOrder(1, false, true, true);
    benchmark::DoNotOptimize(order.data());
  }
}
BENCHMARK(BM_DataSetSortOrderByNumericObservationID)->Apply(ncds::bench::Repeated);

}  // namespace
