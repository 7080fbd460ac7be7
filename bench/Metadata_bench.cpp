// The metadata containers at project scale: the lookup by user ID over 1,000,000 observations
// (building it, then 1,000,000 lookups that ignore case; peer: `peers.py id-lookup`, a Python
// dict of case-folded keys), an observation container of 1,000,000 records with two IDs each
// written to a file and read back (peer: `peers.py records`, Python's pickle; the bare records
// are in Records_bench.cpp), and the row records of 1,000,000 IDs (`GetInfoVector`).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

constexpr std::size_t kRecords = 1000000;

// One primary ID per observation, as the peer builds its keys.
const NCObservations& LookupContainer() {
  static const auto container = [] {
    auto observations = std::make_unique<NCObservations>();
    for (std::size_t i = 0; i < kRecords; ++i) {
      observations->Add(std::make_unique<ObservationInfo>(
          "Batch" + std::to_string(i / 200) + "_Obs" + std::to_string(i), 1000 + i));
    }
    return observations;
  }();
  return *container;
}

// Every ID once, every second one in upper case, in a fixed random order; made in ID order
// and then shuffled, so that the texts lie in memory in no useful order (as the peer's do).
const std::vector<std::string>& Queries() {
  static const auto queries = [] {
    std::vector<std::string> all;
    all.reserve(kRecords);
    for (std::size_t i = 0; i < kRecords; ++i) {
      std::string id = "Batch" + std::to_string(i / 200) + "_Obs" + std::to_string(i);
      if (i % 2) std::transform(id.begin(), id.end(), id.begin(), ::toupper);
      all.push_back(std::move(id));
    }
    std::shuffle(all.begin(), all.end(), std::mt19937(4));
    return all;
  }();
  return queries;
}

void PerItem(benchmark::State& state, const char* name) {
  state.counters[name] =
      benchmark::Counter(double(kRecords), benchmark::Counter::kIsIterationInvariantRate |
                                               benchmark::Counter::kInvert);
}

void BM_IDLookupBuild(benchmark::State& state) {
  const NCObservations& container = LookupContainer();
  for (auto _ : state) {
    state.PauseTiming();
    const_cast<NCObservations&>(container).ClearInfosByUserID();
    state.ResumeTiming();
    benchmark::DoNotOptimize(container.GetInfosByUserID(1).get());
  }
  PerItem(state, "s/key");
}
BENCHMARK(BM_IDLookupBuild)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// One lookup at a time.
void BM_IDLookupNoCase(benchmark::State& state) {
  const boost::shared_ptr<InfosByUserID> lookup = LookupContainer().GetInfosByUserID(1);
  const std::vector<std::string>& queries = Queries();
  for (auto _ : state) {
    std::size_t found = 0;
    for (const std::string& query : queries) found += lookup->GetInfo(query) != nullptr;
    if (found != kRecords) state.SkipWithError("lookup missed");
  }
  PerItem(state, "s/op");
}
BENCHMARK(BM_IDLookupNoCase)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// All the queries in one call.
void BM_IDLookupNoCaseMany(benchmark::State& state) {
  const boost::shared_ptr<InfosByUserID> lookup = LookupContainer().GetInfosByUserID(1);
  const std::vector<std::string>& queries = Queries();
  std::vector<const VarObsInfo*> infos(queries.size());
  for (auto _ : state) {
    lookup->GetInfos(queries.data(), queries.size(), infos.data());
    if (std::count(infos.begin(), infos.end(), nullptr) != 0) state.SkipWithError("lookup missed");
  }
  PerItem(state, "s/op");
}
BENCHMARK(BM_IDLookupNoCaseMany)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// The observations of Records_bench.cpp, in their container.
const NCObservations& Observations() {
  static const auto container = [] {
    auto observations = std::make_unique<NCObservations>();
    observations->AddSecondaryID("Batch");
    for (std::size_t i = 0; i < kRecords; ++i) {
      observations->Add(std::make_unique<ObservationInfo>(
          std::vector<std::string>{"Obs" + std::to_string(i), "B" + std::to_string(i / 200)},
          1000 + i));
    }
    return observations;
  }();
  return *container;
}

void SetRate(benchmark::State& state) {
  state.counters["records/s"] =
      benchmark::Counter(double(kRecords), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_NCObservationsToFile(benchmark::State& state) {
  const NCObservations& observations = Observations();
  const std::string path = ncds::bench::ScratchPath("ncds_bench_nco_out.bin");
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    OutputFileStream os(path);
    os << observations;
    if (!os || !os.close()) state.SkipWithError("write failed");
  }
  std::ifstream size(path, std::ios::binary | std::ios::ate);
  state.counters["bytes/record"] = double(size.tellg()) / kRecords;
  std::remove(path.c_str());
  SetRate(state);
}
BENCHMARK(BM_NCObservationsToFile)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

void BM_NCObservationsFromFile(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_bench_nco_in.bin");
  {
    OutputFileStream os(path);
    os << Observations();
  }
  for (auto _ : state) {
    state.PauseTiming();
    auto read = std::make_unique<NCObservations>();
    state.ResumeTiming();
    std::ifstream is(path, std::ios::binary);
    if (!(is >> *read) || read->size() != kRecords) state.SkipWithError("read failed");
    state.PauseTiming();
    read.reset();
    state.ResumeTiming();
  }
  std::remove(path.c_str());
  SetRate(state);
}
BENCHMARK(BM_NCObservationsFromFile)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

// The rows of a dataset in unique-ID order, as a dataset read asks for them.
void BM_GetInfoVector(benchmark::State& state) {
  const NCObservations& observations = Observations();
  NCIntegralVector<unsigned long, 0> ids;
  ids.reserve(kRecords);
  for (std::size_t i = 0; i < kRecords; ++i) ids.push_back(1000 + i);
  for (auto _ : state) benchmark::DoNotOptimize(observations.GetInfoVector(ids).size());
  PerItem(state, "s/id");
}
BENCHMARK(BM_GetInfoVector)->Unit(benchmark::kMillisecond);

}  // namespace
