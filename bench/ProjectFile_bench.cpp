// The project file: saving a 1,000,000 x 100 dataset (matrix, IDs, and the project's metadata
// with its million observation records) into a new project file and saving it again, and
// listing a project of 20 datasets of 100 MB each.
// Peer: `peers.py matrix-io` (numpy.save of the matrix alone).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

// Adds `rows` observations and `columns` variables to `project` and returns a dataset of them
// with pseudo-random values.
boost::shared_ptr<NCDataSet> MakeDataSet(const boost::shared_ptr<NCProject>& project, int number,
                                         std::size_t rows, std::size_t columns) {
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(rows);
  for (std::size_t i = 0; i < rows; ++i) {
    infos.push_back(project->GetObservations().Add(std::make_unique<ObservationInfo>(
        "D" + std::to_string(number) + "_" + std::to_string(i), project->CreateUniqueID())));
  }
  NCIntegralVector<unsigned long, 0> varIDs;
  for (std::size_t j = 0; j < columns; ++j) {
    const unsigned long id = project->CreateUniqueID();
    project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(
        "X" + std::to_string(number) + "_" + std::to_string(j), id));
    varIDs.push_back(id);
  }
  NCDataMatrix<float> values(rows, columns);
  std::uint32_t state = 2463534242u + static_cast<std::uint32_t>(number);
  for (std::size_t j = 0; j < columns; ++j) {
    float* column = values.ColumnData(j);
    for (std::size_t i = 0; i < rows; ++i) {
      state ^= state << 13;
      state ^= state >> 17;
      state ^= state << 5;
      column[i] = static_cast<float>(state >> 8) / 65536.0F;
    }
  }
  return NCDataSet::Create(project, ("Set " + std::to_string(number)).c_str(), number, &values,
                           std::move(infos), &varIDs, {1}, {1}, "", nullptr, nullptr);
}

// Saving a dataset with a million observation records. Argument 1: the save waits until its
// bytes are on the disk (the default); 0: it does not, like numpy.save. Argument 2: how many
// saves come first, untimed. With none, the save is of new records into a new project file, as
// an import makes it. After two, the records are in the file and only the values and IDs are
// written, into the room that the earlier saves freed, as once a project has been saved a few
// times.
void BM_ProjectFileSave(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_bench_save.ncds");
  std::remove(path.c_str());
  auto project = NCProjectFile::Open(path, true);
  project->SetSyncToDisk(state.range(0) != 0);
  const auto dataSet = MakeDataSet(project, 1, 1000000, 100);
  for (std::int64_t k = 0; k < state.range(1); ++k) {
    if (!project->SaveDataSet(dataSet)) state.SkipWithError("save failed");
  }
  // Earlier files still going to the disk would compete for the CPU.
  ::sync();
  for (auto _ : state) {
    if (!project->SaveDataSet(dataSet)) state.SkipWithError("save failed");
  }
  state.counters["GB/s"] = benchmark::Counter(4e8, benchmark::Counter::kIsIterationInvariantRate);
  project.reset();
  std::remove(path.c_str());
}
BENCHMARK(BM_ProjectFileSave)
    ->ArgNames({"sync", "saved"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 2})
    ->Args({1, 2})
    ->Apply(ncds::bench::Repeated);

void BM_ProjectFileList(benchmark::State& state) {
  const std::string path = ncds::bench::ScratchPath("ncds_bench_list.ncds");
  std::remove(path.c_str());
  {
    auto project = NCProjectFile::Open(path, true);
    for (int number = 1; number <= 20; ++number) {
      // 250,000 x 100 floats: 100 MB.
      const auto dataSet = MakeDataSet(project, number, 250000, 100);
      project->SaveDataSet(dataSet);
      project->UnloadDataSet(number);
    }
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(NCProjectFile::ListDataSets(path).size());
  }
  std::remove(path.c_str());
}
BENCHMARK(BM_ProjectFileList)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
