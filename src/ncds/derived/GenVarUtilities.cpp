#include "ncds/derived/GenVarUtilities.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/detail/GenVarSyntax.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxString.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VariableInfo.h"

namespace GenVarUtilities {
namespace {

using IDs = NCIntegralVector<unsigned long, 0>;
using ncds::detail::RecipeToken;

// A loop of references by ID is not in the visited set; this bound ends it before the stack
// does. Real recipes nest a handful of levels.
constexpr int kMaxExpansionDepth = 256;

const VariableInfo* Lookup(const NCVariables* variables, unsigned long id) {
  return variables ? (*variables)[id] : nullptr;
}

[[noreturn]] void ThrowRecursion(const VariableInfo& info) {
  const std::string& shown =
      info.GetRecipe().empty() && info.GetNumIDs() > 0 ? info.GetPrimaryAlias() : info.GetRecipe();
  throw Exception(ExceptionMessage::translate("Illegal recursion in generated variable: {1}") %
                  shown);
}

std::string Expand(std::string recipe, const IDs* sourceIDs, const NCVariables* variables,
                   const std::set<int>* visited, int depth) {
  const std::string whole = recipe;
  std::size_t i = 0;
  while (i < recipe.size()) {
    const auto token = ncds::detail::ScanRecipeToken(recipe, i);
    if (!token) {
      ++i;
      continue;
    }
    std::set<int> working = visited ? *visited : std::set<int>();
    const VariableInfo* info = nullptr;
    if (token->idForm) {
      info = Lookup(variables, token->number);
      if (!info) {
        throw NCError(ExceptionMessage::translate(
                          "Invalid generated variable, possible due to a deleted source variable."),
                      NCError::Error);
      }
    } else {
      if (token->number < 1 || !sourceIDs || token->number > sourceIDs->size()) {
        throw Exception(ExceptionMessage::translate(
                            "Index out of range in GenVarUtilities::ExpandRecipe: {1}") %
                        whole);
      }
      const unsigned long id = (*sourceIDs)[token->number - 1];
      info = Lookup(variables, id);
      if (!info) {
        throw NCError(ExceptionMessage::translate("Invalid variable identifier, possible due to "
                                                  "incorrect conversion of the project."),
                      NCError::Error);
      }
      if (!working.insert(static_cast<int>(id)).second) ThrowRecursion(*info);
    }
    const std::string& inner = info->GetRecipe();
    if (inner.empty()) {
      i = token->end;
      continue;
    }
    if (depth >= kMaxExpansionDepth) ThrowRecursion(*info);
    const std::string expansion = Expand(inner, sourceIDs, variables, &working, depth + 1);
    recipe = recipe.substr(0, token->begin) + "(" + expansion + ")" + recipe.substr(token->end);
    i = token->begin + expansion.size() + 2;
  }
  return recipe;
}

// The 1-based position of `id` in `ids`; 0 when it is not there.
int PositionOf(const IDs& ids, unsigned long id) { return static_cast<int>(ids.Find(id) + 1); }

// The first occurrence of `word` in `text`, ignoring ASCII case.
std::size_t FindNoCase(std::string_view text, std::string_view word) {
  for (std::size_t i = 0; i + word.size() <= text.size(); ++i) {
    if (VxStdString::CompareNoCase(text.substr(i, word.size()), word) == 0) return i;
  }
  return std::string_view::npos;
}

// The integer that scanf's " %i" reads at `text` (decimal, 0x hexadecimal or 0 octal, with a
// sign), clamped to the int range.
bool ReadInteger(const char* text, int& value) {
  char* end = nullptr;
  const long read = std::strtol(text, &end, 0);
  if (end == text) return false;
  value = read > INT_MAX ? INT_MAX : read < INT_MIN ? INT_MIN : static_cast<int>(read);
  return true;
}

}  // namespace

std::string ExpandRecipe(std::string recipe, const IDs* sourceIDs, const NCVariables* variables,
                         std::set<int>* visited) {
  return Expand(std::move(recipe), sourceIDs, variables, visited, 0);
}

boost::shared_ptr<NCIntegralVector<int, -99>> GetIndexInDatasetForRecipe(std::string recipe,
                                                                         const IDs& datasetIDs) {
  auto indexes = boost::make_shared<NCIntegralVector<int, -99>>();
  ncds::detail::ForEachRecipeToken(recipe, [&](const RecipeToken& token) {
    if (!token.idForm) {
      indexes->push_back(token.number > INT_MAX ? INT_MAX : static_cast<int>(token.number));
    } else {
      indexes->push_back(token.number == NCUniqueIDs::kNone ? -1
                                                            : PositionOf(datasetIDs, token.number));
    }
  });
  if (indexes->empty()) return {};
  return indexes;
}

std::string GetOriginalRecipe(const std::string& recipe, const IDs& sourceIDs) {
  std::string original;
  std::size_t copied = 0;
  ncds::detail::ForEachRecipeToken(recipe, [&](const RecipeToken& token) {
    original.append(recipe, copied, token.begin - copied);
    original += 'v';
    original += token.idForm ? std::to_string(PositionOf(sourceIDs, token.number))
                             : std::to_string(token.number);
    copied = token.end;
  });
  return original.append(recipe, copied);
}

std::unique_ptr<IDs> GetSourceOfGeneratedVariable(unsigned long varID, const IDs* datasetIDs,
                                                  const NCVariables* variables) {
  if (varID == NCUniqueIDs::kNone) return nullptr;
  const VariableInfo* info = Lookup(variables, varID);
  if (!info) return nullptr;
  if (info->GetRecipe().empty()) return std::make_unique<IDs>(1, varID);
  const IDs none;
  const IDs& columns = datasetIDs ? *datasetIDs : none;
  try {
    const std::string expanded = ExpandRecipe(info->GetRecipe(), &columns, variables, nullptr);
    const auto indexes = GetIndexInDatasetForRecipe(expanded, columns);
    auto sources = std::make_unique<IDs>();
    if (!indexes) return sources;
    for (const int k : *indexes) {
      if (k < 1 || static_cast<std::size_t>(k) > columns.size()) continue;
      const unsigned long id = columns[static_cast<std::size_t>(k) - 1];
      if (sources->Find(id) < 0) sources->push_back(id);
    }
    return sources;
  } catch (const Exception&) {
    return nullptr;
  }
}

int GetMaxLag(const char* recipe) {
  if (!recipe) return 0;
  const std::string_view text(recipe);
  constexpr auto npos = std::string_view::npos;
  if (FindNoCase(text, "CuSum") != npos) return -1;
  if (FindNoCase(text, "Shift") != npos) return -2;
  int lag = 0;
  if (const std::size_t at = FindNoCase(text, "EWMA"); at != npos) {
    if (const std::size_t comma = text.find(',', at + 4); comma != npos) {
      const char* start = recipe + comma + 1;
      char* end = nullptr;
      const double lambda = vxstrtod(start, &end);
      if (end == start || !(lambda > 0 && lambda < 1)) return 0;
      const double steps = std::ceil(std::log10(0.01) / std::log10(1 - lambda));
      // Lambda too small to tell 1 - lambda from 1 remembers for ever.
      lag =
          std::isfinite(steps) && steps >= 0 && steps < INT_MAX ? static_cast<int>(steps) : INT_MAX;
    }
  }
  for (const std::string_view name : {std::string_view("Delta"), std::string_view("Lag")}) {
    const std::size_t at = FindNoCase(text, name);
    if (at == npos) continue;
    const std::size_t comma = text.find(',', at + name.size());
    int value = 0;
    if (comma == npos || !ReadInteger(recipe + comma + 1, value)) return 0;
    lag = std::max(lag, value);
  }
  if (FindNoCase(text, "Diff1") != npos) lag = std::max(lag, 1);
  if (FindNoCase(text, "Diff2") != npos) lag = std::max(lag, 2);
  return lag;
}

std::string GetExpandedVariableNames(const NCProjectBase& project, const std::string& recipe,
                                     const IDs* sourceIDs, const NCVariables* variables) {
  const NCVariables& names = variables ? *variables : project.GetVariables();
  std::string shown;
  std::size_t copied = 0;
  ncds::detail::ForEachRecipeToken(recipe, [&](const RecipeToken& token) {
    unsigned long id = NCUniqueIDs::kNone;
    if (token.idForm) {
      id = token.number;
    } else if (sourceIDs && token.number >= 1 && token.number <= sourceIDs->size()) {
      id = (*sourceIDs)[token.number - 1];
    }
    const VariableInfo* info = id == NCUniqueIDs::kNone ? nullptr : names[id];
    shown.append(recipe, copied, token.begin - copied);
    if (info && info->GetNumIDs() > 0) {
      shown += ncds::detail::QuoteGenVarName(info->GetPrimaryAlias());
    } else {
      shown.append(recipe, token.begin, token.end - token.begin);
    }
    copied = token.end;
  });
  return shown.append(recipe, copied);
}

}  // namespace GenVarUtilities
