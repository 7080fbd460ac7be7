// Feeds arbitrary bytes to generated variables, as a formula and as a recipe, over a small
// batch dataset. A formula either is refused with `NCError` or compiles to a recipe that
// computes without error, one value per row; the recipe shown with names compiles back to
// itself, and refusing self-reference never changes an accepted recipe. As a recipe the bytes
// go through every `GenVarUtilities` function and the evaluator, which may refuse them only
// with the library's exceptions. No crash, no hang, no unbounded recursion.

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "ncds/derived/GenVarEvaluator.h"
#include "ncds/derived/GenVarFormula.h"
#include "ncds/derived/GenVarUtilities.h"
#include "ncds/ncds.h"

namespace {

constexpr float M = -99.0F;

// Two batches (4 and 3 rows) with X, Y (gaps), "Feed rate", pH and G = X * 2 as columns; H,
// no column, is Lag(G, 1); P and Q refer to each other by ID; S, no column, takes the recipe
// under test.
struct Fixture {
  Fixture() {
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    VarObsInfoVector<ObservationInfo> rows;
    for (int i = 0; i < 7; ++i) {
      const std::vector<std::string> ids{"o" + std::to_string(i), i < 4 ? "B1" : "B2"};
      rows.push_back(observations.Add(
          std::make_unique<ObservationInfo>(ids, project->CreateUniqueID()), nullptr));
    }
    const std::vector<std::tuple<const char*, std::vector<float>>> columns = {
        {"X", {0, 1, 2, 3, 4, 5, 6}},         {"Y", {1.5F, M, -2, 0, 1e30F, 3, M}},
        {"Feed rate", {1, 2, 3, 4, 5, 6, 7}}, {"pH", {7, 7.1F, 6.9F, 7, 7.2F, M, 6.8F}},
        {"G", {0, 2, 4, 6, 8, 10, 12}},
    };
    NCDataMatrix<float> values(rows.size(), columns.size());
    NCIntegralVector<unsigned long, 0> ids;
    for (const auto& [name, column] : columns) {
      const unsigned long id = project->CreateUniqueID();
      project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(name, id));
      for (std::size_t r = 0; r < rows.size(); ++r) values(r, ids.size()) = column[r];
      ids.push_back(id);
    }
    generated = ids[4];
    const std::string x = "vid" + std::to_string(ids[0]);
    project->GetVariables()[generated]->SetRecipe(x + " * 2");
    const unsigned long h = project->CreateUniqueID();
    const unsigned long p = project->CreateUniqueID();
    const unsigned long q = project->CreateUniqueID();
    const auto add = [&](const char* name, unsigned long id, const std::string& recipe) {
      project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(name, id, recipe));
    };
    add("H", h, "Lag(vid" + std::to_string(generated) + ", 1)");
    add("P", p, "vid" + std::to_string(q) + " + 1");
    add("Q", q, "vid" + std::to_string(p) + " * 2");
    scratch = project->CreateUniqueID();
    add("S", scratch, "");
    dataSet = NCDataSet::Create(project, "fuzz", 1, &values, std::move(rows), &ids, {1}, {1},
                                nullptr, nullptr, nullptr);
    BatchUtilities::MakeBatchDataSet(*dataSet, 2, 0);
  }

  boost::shared_ptr<NCProject> project = NCProject::Create();
  boost::shared_ptr<NCDataSet> dataSet;
  unsigned long generated = 0;
  unsigned long scratch = 0;
};

void Formula(const Fixture& f, const std::string& text) {
  std::string recipe;
  try {
    recipe = GenVarFormula::Compile(*f.dataSet, text);
  } catch (const NCError&) {
    return;
  }
  const std::vector<float> values = GenVarEvaluator(*f.dataSet).Evaluate(recipe);  // no throw
  if (values.size() != 7) std::abort();
  const std::string shown =
      GenVarUtilities::GetExpandedVariableNames(*f.project, recipe, nullptr, nullptr);
  if (GenVarFormula::Compile(*f.dataSet, shown) != recipe) std::abort();
  try {
    if (GenVarFormula::Compile(*f.dataSet, text, f.generated) != recipe) std::abort();
  } catch (const NCError&) {
  }
  (void)GenVarUtilities::GetMaxLag(recipe.c_str());
}

void Recipe(const Fixture& f, const std::string& recipe) {
  const NCIntegralVector<unsigned long, 0> columns = f.dataSet->GetVarIDs();
  VariableInfo* scratch = f.project->GetVariables()[f.scratch];
  scratch->SetRecipe(recipe);
  (void)GenVarUtilities::GetSourceOfGeneratedVariable(f.scratch, &columns,
                                                      &f.project->GetVariables());
  try {
    (void)GenVarUtilities::ExpandRecipe(recipe, &columns, &f.project->GetVariables(), nullptr);
  } catch (const Exception&) {
  }
  const auto indexes = GenVarUtilities::GetIndexInDatasetForRecipe(recipe, columns);
  const std::string original = GenVarUtilities::GetOriginalRecipe(recipe, columns);
  const auto again = GenVarUtilities::GetIndexInDatasetForRecipe(original, columns);
  if ((indexes ? indexes->size() : 0) != (again ? again->size() : 0)) std::abort();
  (void)GenVarUtilities::GetMaxLag(recipe.c_str());
  (void)GenVarUtilities::GetExpandedVariableNames(*f.project, recipe, &columns, nullptr);
  try {
    if (GenVarEvaluator(*f.dataSet).EvaluateVariable(f.scratch).size() != 7) std::abort();
  } catch (const NCError&) {
  }
  scratch->SetRecipe("");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Fixture fixture;
  const std::string text(reinterpret_cast<const char*>(data), size);
  Formula(fixture, text);
  Recipe(fixture, text);
  return 0;
}
