#include "ncds/derived/GenVarFormula.h"

#include <algorithm>
#include <set>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/GenVarEvaluator.h"
#include "ncds/derived/detail/GenVarSyntax.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/VariableInfo.h"

namespace GenVarFormula {
namespace {

using ncds::detail::GenVarNode;
using IDs = NCIntegralVector<unsigned long, 0>;

// A span of the formula and what the recipe writes there instead.
struct Edit {
  std::size_t begin;
  std::size_t end;
  std::string text;
};

class Compiler {
 public:
  Compiler(const NCDataSet& dataSet, const std::string& formula, unsigned long definedVariable)
      : mDataSet(dataSet),
        mFormula(formula),
        mDefined(definedVariable),
        mProject(dataSet.GetProject()),
        mColumnIDs(dataSet.GetVarIDs()) {}

  std::string Run() {
    if (ncds::detail::CharacterPosition(mFormula, mFormula.size()) - 1 >
        static_cast<int>(kMaxFormulaLength)) {
      throw NCError(ExceptionMessage::translate("The formula is longer than {1} characters.") %
                    kMaxFormulaLength);
    }
    const auto root = ncds::detail::ParseGenVarText(mFormula, ncds::detail::GenVarSyntax::kFormula);
    Collect(*root);
    std::sort(mEdits.begin(), mEdits.end(),
              [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    std::string recipe;
    std::size_t copied = 0;
    for (const Edit& edit : mEdits) {
      recipe.append(mFormula, copied, edit.begin - copied);
      recipe += edit.text;
      copied = edit.end;
    }
    return recipe.append(mFormula, copied);
  }

 private:
  int Position(std::size_t offset) const {
    return ncds::detail::CharacterPosition(mFormula, offset);
  }

  // Gathers the edits of the tree in the order of the text, so that the first error is told.
  void Collect(const GenVarNode& node) {
    if (node.kind == GenVarNode::Kind::kReference) {
      const unsigned long id = Resolve(node);
      mEdits.push_back({node.begin, node.end, "vid" + std::to_string(id)});
      return;
    }
    if (node.kind == GenVarNode::Kind::kCall) {
      mEdits.push_back({node.begin, node.end, node.name});
      if (node.parameterEnd > node.parameterBegin &&
          node.function != ncds::detail::GenVarFunction::kEWMA) {
        mEdits.push_back({node.parameterBegin, node.parameterEnd,
                          std::to_string(static_cast<long>(node.value))});
      }
    }
    for (const auto& child : node.children) Collect(*child);
  }

  // The variable `node` names, which the formula may use.
  unsigned long Resolve(const GenVarNode& node) {
    int found = 0;
    for (int column = 1; column <= mDataSet.SizeVariables(); ++column) {
      const std::string& name = mDataSet.GetVariableID(column, 1);
      if (name == node.name) {
        found = column;
        break;
      }
      if (found == 0 && VxStdString::CompareNoCase(name, node.name) == 0) found = column;
    }
    if (found == 0) {
      throw NCError(ExceptionMessage::translate("Unknown variable {1} at position {2}.") %
                    node.name % Position(node.begin));
    }
    const unsigned long id = mDataSet.GetVarID(found);
    if (mDefined != NCUniqueIDs::kNone && ComputedFrom(id)) {
      throw NCError(
          ExceptionMessage::translate("The formula refers to itself through {1} at position {2}.") %
          node.name % Position(node.begin));
    }
    return id;
  }

  // Whether variable `id` is the defined variable or its recipes lead there.
  bool ComputedFrom(unsigned long id) const {
    const NCVariables* variables = mProject ? &mProject->GetVariables() : nullptr;
    std::vector<unsigned long> pending{id};
    std::set<unsigned long> seen{id};
    while (!pending.empty()) {
      const unsigned long next = pending.back();
      pending.pop_back();
      if (next == mDefined) return true;
      const VariableInfo* info = variables ? (*variables)[next] : nullptr;
      if (!info) continue;
      ncds::detail::ForEachRecipeToken(
          info->GetRecipe(), [&](const ncds::detail::RecipeToken& token) {
            unsigned long referenced = token.number;
            if (!token.idForm) {
              referenced = token.number >= 1 && token.number <= mColumnIDs.size()
                               ? mColumnIDs[token.number - 1]
                               : NCUniqueIDs::kNone;
            }
            if (seen.insert(referenced).second) pending.push_back(referenced);
          });
    }
    return false;
  }

  const NCDataSet& mDataSet;
  const std::string& mFormula;
  unsigned long mDefined;
  boost::shared_ptr<NCProjectBase const> mProject;
  IDs mColumnIDs;
  std::vector<Edit> mEdits;
};

}  // namespace

std::string Compile(const NCDataSet& dataSet, const std::string& formula,
                    unsigned long definedVariable) {
  return Compiler(dataSet, formula, definedVariable).Run();
}

int AddGeneratedVariable(NCDataSet& dataSet, const std::string& name, const std::string& formula) {
  const std::string recipe = Compile(dataSet, formula);
  const std::vector<float> values = GenVarEvaluator(dataSet).Evaluate(recipe);
  const auto project = dataSet.GetProject();
  // Another dataset's variable of this name and recipe is the same variable.
  const VarObsInfo* known = project->GetVariables().GetInfosByUserID(1)->GetInfo(name);
  const VariableInfo* same = known ? project->GetVariables()[known->GetUniqueID()] : nullptr;
  if (same && same->GetRecipe() == recipe && !same->IsQualitative() &&
      !same->AsDateTimeVariableInfo() && dataSet.GetVarIDs().Find(same->GetUniqueID()) < 0) {
    const IDs ids(1, same->GetUniqueID());
    if (!dataSet.AddVariables(&ids, 0, false)) return 0;
    const int column = dataSet.SizeVariables();
    dataSet.SetColValues(values.data(), column);
    return column;
  }
  if (!dataSet.AddVariables(1, name.c_str(), false, true)) return 0;
  const int column = dataSet.SizeVariables();
  VariableInfo* info = project->GetVariables()[dataSet.GetVarID(column)];
  info->SetRecipe(recipe);
  dataSet.SetColValues(values.data(), column);
  return column;
}

int RecomputeGeneratedVariables(NCDataSet& dataSet, const IDs* only) {
  const auto project = dataSet.GetProject();
  if (!project) return 0;
  const IDs columnIDs = dataSet.GetVarIDs();
  auto generated = NCDataSet::GetGenVarList(*project, columnIDs);
  if (only) {
    generated->remove_if(
        [only](const DSGenVarData& variable) { return only->Find(variable.GetVariableID()) < 0; });
  }
  GenVarEvaluator evaluator(dataSet);
  std::vector<std::vector<float>> values;
  values.reserve(generated->size());
  for (const DSGenVarData& variable : *generated) {
    values.push_back(evaluator.EvaluateVariable(variable.GetVariableID()));
  }
  int stored = 0;
  auto next = values.begin();
  for (const DSGenVarData& variable : *generated) {
    const int column = static_cast<int>(columnIDs.Find(variable.GetVariableID())) + 1;
    if (dataSet.SetColValues((next++)->data(), column)) ++stored;
  }
  return stored;
}

}  // namespace GenVarFormula
