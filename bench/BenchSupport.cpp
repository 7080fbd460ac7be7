#include "BenchSupport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "ncds/foundations/OutputFileStream.h"
#include "ncds/foundations/VStreamBase.h"

namespace ncds::bench {

void Repeated(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(true);
  b->UseRealTime();
}

namespace {
std::int64_t StatusField(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, key.size(), key) == 0) return std::atoll(line.c_str() + key.size()) * 1024;
  }
  return -1;
}
}  // namespace

bool ResetPeakRss() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  return static_cast<bool>(clear);
}

std::int64_t PeakRssBytes() { return StatusField("VmHWM:"); }
std::int64_t CurrentRssBytes() { return StatusField("VmRSS:"); }

std::string ScratchPath(const std::string& name) {
  const char* dir = std::getenv("NCDS_BENCH_DIR");
  if (!dir || !*dir) dir = std::getenv("TMPDIR");
  return std::string(dir && *dir ? dir : "/tmp") + "/" + name;
}

void TimeWriteToNewFile(benchmark::State& state, const VStreamBase& object, const std::string& path,
                        double matrixBytes) {
  double growth = 0.0;
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    ResetPeakRss();
    const std::int64_t before = CurrentRssBytes();
    OutputFileStream os(path);
    os << object;
    if (!os.close()) state.SkipWithError("write failed");
    growth = std::max(growth, double(PeakRssBytes() - before) / matrixBytes);
  }
  std::remove(path.c_str());
  state.counters["rss_growth/matrix"] = growth;
}

}  // namespace ncds::bench
