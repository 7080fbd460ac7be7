// CSV import and export of the tool at full scale: a 200,000 x 50 file (about 85 MB) of an
// "ObsID" text column "O<i>" and 50 float columns of normal values times 100 printed with six
// significant digits, the shape `peers.py csv` writes. The file is $NCDS_CSV_BENCH_FILE when
// set (peers.py prints the path of its own), else one generated once in the scratch folder.
// Import reads it into a new in-memory project with ObsID as the primary IDs; import into a
// project file does the same into a new project file and saves it, as `ncds import` does;
// export writes the imported dataset to a file; reading splits the file into fields and nothing
// more. Peer: `peers.py csv` (pandas.read_csv, DataFrame.to_csv with float_format="%.6g").

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include "BenchSupport.h"
#include "ncds/ncds.h"
#include "tools/ncds/CsvExport.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/CsvReader.h"
#include "tools/ncds/MappedFile.h"

namespace {

constexpr int kRows = 200000;
constexpr int kColumns = 50;

std::string MakeFile() {
  const std::string path = ncds::bench::ScratchPath("ncds_csv_bench_200000x50.csv");
  if (std::ifstream(path)) return path;
  const std::string part = path + ".part";
  std::FILE* file = std::fopen(part.c_str(), "wb");
  if (!file) return std::string();
  std::fputs("ObsID", file);
  for (int j = 0; j < kColumns; ++j) std::fprintf(file, ",X%d", j);
  std::fputc('\n', file);
  std::mt19937_64 random(5);
  std::normal_distribution<float> normal;
  for (int i = 0; i < kRows; ++i) {
    std::fprintf(file, "O%d", i);
    for (int j = 0; j < kColumns; ++j) std::fprintf(file, ",%.6g", normal(random) * 100.0F);
    std::fputc('\n', file);
  }
  if (std::fclose(file) != 0 || std::rename(part.c_str(), path.c_str()) != 0) return std::string();
  return path;
}

const std::string& InputPath() {
  static const std::string path = [] {
    const char* given = std::getenv("NCDS_CSV_BENCH_FILE");
    return given && *given ? std::string(given) : MakeFile();
  }();
  return path;
}

ncds::tool::CsvImportOptions Options() {
  ncds::tool::CsvImportOptions options;
  options.idColumns = {"ObsID"};
  return options;
}

void BM_CsvRead(benchmark::State& state) {
  const ncds::tool::MappedFile file(InputPath());
  for (auto _ : state) {
    ncds::tool::CsvReader reader(file.GetText(), InputPath(), ',');
    ncds::tool::CsvRow row;
    std::size_t fields = 0;
    while (reader.ReadRow(row)) fields += row.size();
    if (fields != static_cast<std::size_t>(kRows + 1) * (kColumns + 1))
      state.SkipWithError("shape");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.GetText().size()));
}
BENCHMARK(BM_CsvRead)->Apply(ncds::bench::Repeated);

void BM_CsvImport(benchmark::State& state) {
  const std::string& path = InputPath();
  // Declared outside the loop so that dropping the project is not timed (one iteration).
  boost::shared_ptr<NCProject> project;
  for (auto _ : state) {
    project = NCProject::Create();
    const auto data = ncds::tool::CsvImport::ImportFile(project, path, Options());
    if (data->SizeObservations() != kRows || data->SizeVariables() != kColumns) {
      state.SkipWithError("shape");
    }
  }
}
BENCHMARK(BM_CsvImport)->Apply(ncds::bench::Repeated);

void BM_CsvImportIntoProjectFile(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_csv_bench.ncds");
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
    const auto project = NCProjectFile::Open(path, true);
    const auto data = ncds::tool::CsvImport::ImportFile(project, InputPath(), Options());
    if (data->SizeObservations() != kRows || data->SizeVariables() != kColumns) {
      state.SkipWithError("shape");
    }
  }
  std::remove(path.c_str());
}
BENCHMARK(BM_CsvImportIntoProjectFile)->Apply(ncds::bench::Repeated);

void BM_CsvExport(benchmark::State& state) {
  const auto project = NCProject::Create();
  const auto data = ncds::tool::CsvImport::ImportFile(project, InputPath(), Options());
  const std::string out = ncds::bench::ScratchPath("ncds_csv_bench_out.csv");
  for (auto _ : state) ncds::tool::CsvExport::WriteFile(*data, out, {});
  std::remove(out.c_str());
}
BENCHMARK(BM_CsvExport)->Apply(ncds::bench::Repeated);

}  // namespace
