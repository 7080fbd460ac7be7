// Generated variables at full scale, like `peers.py genvar`: 1,000,000 observations of 10,000
// contiguous batches of 100 rows, with X0 and X1 around 10 (positive). Each pass makes a new
// evaluator, so it finds the batches and reads the columns afresh, and returns a new column
// of floats:
//   - log(X0) + Lag(X1, 2) * 0.5, the peer's expression (pandas: np.log(df.X0) +
//     df.groupby("batch").X1.shift(2) * 0.5, the groupby made beforehand);
//   - Lag(X1, 2) alone (pandas: the groupby shift alone).

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/derived/GenVarEvaluator.h"
#include "ncds/derived/GenVarFormula.h"
#include "ncds/ncds.h"

namespace {

constexpr int kRows = 1000000;
constexpr int kPerBatch = 100;

struct GenVarData {
  GenVarData() {
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    VarObsInfoVector<ObservationInfo> rows;
    rows.reserve(kRows);
    for (int r = 0; r < kRows; ++r) {
      const unsigned long id = project->CreateUniqueID();
      rows.push_back(observations.Add(std::make_unique<ObservationInfo>(
          std::vector<std::string>{std::to_string(id), "B" + std::to_string(r / kPerBatch)}, id)));
    }
    std::mt19937 random(11);
    std::normal_distribution<float> normal;
    NCDataMatrix<float> values(kRows, 2);
    NCIntegralVector<unsigned long, 0> ids;
    for (const char* name : {"X0", "X1"}) {
      const unsigned long id = project->CreateUniqueID();
      project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(name, id));
      for (int r = 0; r < kRows; ++r) values(r, ids.size()) = normal(random) + 10;
      ids.push_back(id);
    }
    dataSet = NCDataSet::Create(project, "genvar", 1, std::move(values), std::move(rows), &ids, {1},
                                {1}, nullptr, nullptr, nullptr);
    BatchUtilities::MakeBatchDataSet(*dataSet, 2, 0);
  }
  boost::shared_ptr<NCProject> project = NCProject::Create();
  boost::shared_ptr<NCDataSet> dataSet;
};

const GenVarData& Data() {
  static const GenVarData data;
  return data;
}

void Evaluate(benchmark::State& state, const char* formula) {
  const GenVarData& data = Data();
  const std::string recipe = GenVarFormula::Compile(*data.dataSet, formula);
  for (auto _ : state) {
    const std::vector<float> values = GenVarEvaluator(*data.dataSet).Evaluate(recipe);
    if (values.size() != static_cast<std::size_t>(kRows)) state.SkipWithError("size");
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}

void BM_GenVarLogPlusLag(benchmark::State& state) { Evaluate(state, "log(X0) + Lag(X1, 2) * 0.5"); }
BENCHMARK(BM_GenVarLogPlusLag)->Apply(ncds::bench::Repeated);

void BM_GenVarLag(benchmark::State& state) { Evaluate(state, "Lag(X1, 2)"); }
BENCHMARK(BM_GenVarLag)->Apply(ncds::bench::Repeated);

}  // namespace
