#include "BenchSupport.h"

#include <cstdlib>
#include <fstream>

namespace ncds::bench {

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

}  // namespace ncds::bench
