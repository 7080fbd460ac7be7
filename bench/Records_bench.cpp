// Variable and observation records: 1,000,000 observation records with two IDs each written to
// a file and read back through their streams (peer: `peers.py records`, Python's pickle of the
// same records), and encoding text through a qualitative variable with 1,000 levels.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

constexpr std::size_t kRecords = 1000000;

const std::vector<std::unique_ptr<ObservationInfo>>& Records() {
  static const auto records = [] {
    std::vector<std::unique_ptr<ObservationInfo>> all;
    all.reserve(kRecords);
    for (std::size_t i = 0; i < kRecords; ++i) {
      all.push_back(std::make_unique<ObservationInfo>(
          std::vector<std::string>{"Obs" + std::to_string(i), "B" + std::to_string(i / 200)},
          1000 + i));
    }
    return all;
  }();
  return records;
}

// The records one after another under one entry, as a container stores them.
bool WriteRecords(std::ostream& os) {
  OutputStreamDirectory directory(os, 1);
  std::ostream& body = directory.GetOutput(0);
  for (const auto& record : Records()) body << *record;
  return directory.Close();
}

void SetRate(benchmark::State& state) {
  state.counters["records/s"] =
      benchmark::Counter(double(kRecords), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_ObservationInfosToFile(benchmark::State& state) {
  Records();
  const std::string path = ncds::bench::ScratchPath("ncds_bench_obs_out.bin");
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    OutputFileStream os(path);
    if (!WriteRecords(os) || !os.close()) state.SkipWithError("write failed");
  }
  std::ifstream size(path, std::ios::binary | std::ios::ate);
  state.counters["bytes/record"] = double(size.tellg()) / kRecords;
  std::remove(path.c_str());
  SetRate(state);
}
BENCHMARK(BM_ObservationInfosToFile)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

void BM_ObservationInfosFromFile(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_bench_obs_in.bin");
  {
    OutputFileStream os(path);
    WriteRecords(os);
  }
  for (auto _ : state) {
    std::ifstream is(path, std::ios::binary);
    InputStreamDirectory directory(is);
    std::istream* body = directory.GetInput(0);
    std::vector<std::unique_ptr<ObservationInfo>> records;
    records.reserve(kRecords);
    for (std::size_t i = 0; body && i < kRecords; ++i) {
      records.push_back(std::make_unique<ObservationInfo>());
      if (!(*body >> *records.back())) state.SkipWithError("read failed");
    }
    benchmark::DoNotOptimize(records.data());
    state.PauseTiming();
    records.clear();
    state.ResumeTiming();
  }
  std::remove(path.c_str());
  SetRate(state);
}
BENCHMARK(BM_ObservationInfosFromFile)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime();

void BM_QualitativeEncode(benchmark::State& state) {
  QualitativeVariableInfo variable("Lot", 1, nullptr);
  std::vector<std::string> queries;
  const auto levels = static_cast<int>(state.range(0));
  for (int k = 1; k <= levels; ++k) {
    variable.AppendSetting(("Level_" + std::to_string(k * 7919 % 100003)).c_str());
    queries.push_back("LEVEL_" + std::to_string(k * 7919 % 100003));
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(variable.Encode(queries[i].c_str()));
    if (++i == queries.size()) i = 0;
  }
}
BENCHMARK(BM_QualitativeEncode)->Arg(10)->Arg(1000)->Arg(100000);

}  // namespace
