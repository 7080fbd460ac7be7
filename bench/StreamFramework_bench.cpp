// Cost of the framework itself: many small directories (the shape of a record stream), to a
// file and to memory, each way.

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

constexpr int kRecords = 1000000;

void WriteRecords(std::ostream& os) {
  std::string id = "Obs";
  OutputStreamDirectory outer(os, 1);
  std::ostream& body = outer.GetOutput(0);
  for (int i = 0; i < kRecords; ++i) {
    OutputStreamDirectory dir(body, 2);
    WriteToStreamDir(std::int32_t{i}, dir, 0);
    id.resize(3);
    id += std::to_string(i);
    WriteToStreamDir(id, dir, 1);
  }
}

std::int64_t ReadRecords(std::istream& is) {
  InputStreamDirectory outer(is);
  std::istream* body = outer.GetInput(0);
  std::int64_t sum = 0;
  std::string id;
  for (int i = 0; i < kRecords; ++i) {
    InputStreamDirectory dir(*body);
    std::int32_t value = 0;
    ReadFromStreamDir(value, dir, 0, true);
    ReadFromStreamDir(id, dir, 1, true);
    sum += value + static_cast<std::int64_t>(id.size());
  }
  return sum;
}

void BM_SmallDirectoriesToFile(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_bench_records.bin");
  for (auto _ : state) {
    std::ofstream os(path, std::ios::binary | std::ios::trunc);
    WriteRecords(os);
  }
  state.counters["records/s"] = benchmark::Counter(static_cast<double>(kRecords),
                                                   benchmark::Counter::kIsIterationInvariantRate);
  std::ifstream size(path, std::ios::binary | std::ios::ate);
  state.counters["bytes/record"] = static_cast<double>(size.tellg()) / kRecords;
}
BENCHMARK(BM_SmallDirectoriesToFile)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_SmallDirectoriesFromFile(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_bench_records.bin");
  {
    std::ofstream os(path, std::ios::binary | std::ios::trunc);
    WriteRecords(os);
  }
  for (auto _ : state) {
    std::ifstream is(path, std::ios::binary);
    benchmark::DoNotOptimize(ReadRecords(is));
  }
  state.counters["records/s"] = benchmark::Counter(static_cast<double>(kRecords),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_SmallDirectoriesFromFile)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_SmallDirectoriesInMemory(benchmark::State& state) {
  std::string bytes;
  for (auto _ : state) {
    std::stringstream ss;
    WriteRecords(ss);
    bytes = ss.str();
  }
  state.counters["records/s"] = benchmark::Counter(static_cast<double>(kRecords),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_SmallDirectoriesInMemory)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
