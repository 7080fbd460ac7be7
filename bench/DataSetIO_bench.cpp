// Dataset persistence at full scale: writing and reading the "NCDS" stream of a 1,000,000 x 100
// dataset (matrix, 1,000,000 observation IDs, 100 variable IDs, no trim) to and from a file,
// with the growth of the resident set during each as a fraction of the matrix. Reading turns
// the stored IDs back into row records; that step is timed alone as well. Reading a dataset's
// description ("NCDSI") at two shapes with the same rows and 100 times the cells shows that
// its cost does not follow the matrix.
// Peer: `peers.py matrix-io` (numpy.save / numpy.load of the matrix alone, the load followed
// by one pass, as the reads here are).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kColumns = 100;
constexpr double kMatrixBytes = double(kRows) * kColumns * sizeof(float);

// A project holding `rows` observations and `columns` variables, and a dataset over all of
// them filled with pseudo-random values.
struct Workload {
  Workload(std::size_t rows, std::size_t columns) {
    NCObservations& observations = project->GetObservations();
    VarObsInfoVector<ObservationInfo> infos;
    infos.reserve(rows);
    for (std::size_t i = 0; i < rows; ++i) {
      infos.push_back(observations.Add(
          std::make_unique<ObservationInfo>(std::to_string(i), project->CreateUniqueID())));
    }
    NCIntegralVector<unsigned long, 0> varIDs;
    for (std::size_t j = 0; j < columns; ++j) {
      const unsigned long id = project->CreateUniqueID();
      project->GetVariables().Add(
          std::make_unique<QuantitativeVariableInfo>("X" + std::to_string(j), id));
      varIDs.push_back(id);
    }
    NCDataMatrix<float> values(rows, columns);
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    for (std::size_t j = 0; j < columns; ++j) {
      float* column = values.ColumnData(j);
      for (std::size_t i = 0; i < rows; ++i) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        column[i] =
            static_cast<float>(static_cast<std::int64_t>(state >> 40) - (1 << 23)) / (1 << 21);
      }
    }
    dataSet = NCDataSet::Create(project, "Bench", 2, &values, std::move(infos), &varIDs, {1}, {1},
                                nullptr, nullptr, nullptr);
  }

  boost::shared_ptr<NCProject> project = NCProject::Create();
  boost::shared_ptr<NCDataSet> dataSet;
};

Workload& Full() {
  static Workload workload(kRows, kColumns);
  return workload;
}

void SetThroughput(benchmark::State& state) {
  state.counters["GB/s"] =
      benchmark::Counter(kMatrixBytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

// One pass over every cell, as the peer does after numpy.load.
double Sum(const NCDataMatrix<float>& m) {
  double total = 0.0;
  for (std::size_t j = 0; j < m.SizeColumns(); ++j) {
    const float* column = m.ColumnData(j);
    float partial[8] = {};
    std::size_t i = 0;
    for (; i + 8 <= m.SizeRows(); i += 8) {
      for (int k = 0; k < 8; ++k) partial[k] += column[i + k];
    }
    for (; i < m.SizeRows(); ++i) partial[0] += column[i];
    for (const float p : partial) total += p;
  }
  return total;
}

// The file the read benchmarks read: written once, removed when the program ends.
const std::string& DataSetFile() {
  static const struct File {
    std::string path = ncds::bench::ScratchPath("ncds_bench_dataset_in.ncds");
    File() {
      OutputFileStream os(path);
      os << *Full().dataSet;
      os.close();
    }
    ~File() { std::remove(path.c_str()); }
  } file;
  return file.path;
}

void BM_DataSetWriteToFile(benchmark::State& state) {
  ncds::bench::TimeWriteToNewFile(state, *Full().dataSet,
                                  ncds::bench::ScratchPath("ncds_bench_dataset_out.ncds"),
                                  kMatrixBytes);
  SetThroughput(state);
}
BENCHMARK(BM_DataSetWriteToFile)->Apply(ncds::bench::Repeated);

// Read into a new dataset each time, then one pass over the matrix. The growth includes the
// new dataset's matrix; the extra is what the read needs beyond it.
void BM_DataSetReadFromFile(benchmark::State& state) {
  const std::string& path = DataSetFile();
  Workload& workload = Full();
  double growth = 0.0;
  for (auto _ : state) {
    ncds::bench::ResetPeakRss();
    const std::int64_t before = ncds::bench::CurrentRssBytes();
    {
      const auto dataSet = NCDataSet::Create(workload.project, 2);
      std::ifstream is(path, std::ios::binary);
      if (!(is >> *dataSet) || dataSet->SizeObservations() != static_cast<int>(kRows)) {
        state.SkipWithError("read failed");
      }
      benchmark::DoNotOptimize(Sum(dataSet->GetMatrix()));
    }
    growth = std::max(growth, double(ncds::bench::PeakRssBytes() - before) / kMatrixBytes);
  }
  SetThroughput(state);
  state.counters["rss_growth/matrix"] = growth;
  state.counters["rss_extra/matrix"] = growth - 1.0;
}
BENCHMARK(BM_DataSetReadFromFile)->Apply(ncds::bench::Repeated);

// The step of the read that finds the record of every row by its stored unique ID.
void BM_DataSetRowsFromIDs(benchmark::State& state) {
  Workload& workload = Full();
  const NCIntegralVector<unsigned long, 0> ids =
      workload.dataSet->GetObservationInfoVector().GetUniqueIDs();
  for (auto _ : state) {
    benchmark::DoNotOptimize(workload.project->GetObservations().GetInfoVector(ids));
  }
  state.counters["ns/row"] = benchmark::Counter(
      double(kRows), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_DataSetRowsFromIDs)->Apply(ncds::bench::Repeated);

// Reading a description, at 100,000 rows by 10 and by 1,000 columns: the same work, as the
// description holds no cells.
void BM_DataSetInfoRead(benchmark::State& state) {
  static std::map<std::int64_t, std::pair<std::unique_ptr<Workload>, std::string>> shapes;
  auto& shape = shapes[state.range(0)];
  if (!shape.first) {
    shape.first = std::make_unique<Workload>(100000, static_cast<std::size_t>(state.range(0)));
    std::ostringstream os;
    os << NCDataSetInfo(shape.first->dataSet);
    shape.second = os.str();
  }
  for (auto _ : state) {
    NCDataSetInfo info(shape.first->project);
    std::istringstream is(shape.second);
    if (!(is >> info)) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(info.SizeObservations());
  }
  state.counters["cells"] = double(100000) * double(state.range(0));
  state.counters["stream_bytes"] = double(shape.second.size());
}
BENCHMARK(BM_DataSetInfoRead)
    ->Arg(10)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

}  // namespace
