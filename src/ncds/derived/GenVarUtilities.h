#ifndef NCDS_DERIVED_GENVARUTILITIES_H
#define NCDS_DERIVED_GENVARUTILITIES_H

// Reading the recipes of generated variables. A recipe is a formula text kept in a variable's
// `VariableInfo` (empty for an ordinary variable) that names other variables by tokens:
//   "v" and digits, e.g. "v3":     positional, the N-th (from 1) ID of a list the caller passes;
//   "vid" and digits, e.g. "vid12": the variable with unique ID 12; "vid0" names no variable.
// A "v" starts a token only at the start of the text or after a character that is not a
// letter (C `isalpha`), so the "v" of a word never does ("lnv2" holds no token, "2*v2" and
// "(v2)" do). When no digit follows the "v" (or the "vid"), the text is no token and scanning
// goes on at the character after the "v". Letter case matters ("V3" and "VID3" are no tokens).
// All other characters pass through these functions untouched.
//
// These functions only read recipes; computing their values is `GenVarEvaluator`'s task. All
// are pure and may be called from any thread that may read the containers given.

#include <boost/shared_ptr.hpp>
#include <memory>
#include <set>
#include <string>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class NCProjectBase;
class NCVariables;

namespace GenVarUtilities {

// `recipe` with every reference to a generated variable replaced, recursively, by "(" + that
// variable's expanded recipe + ")"; references to ordinary variables stay as written.
// Positional tokens index `sourceIDs`. The IDs of the positional references on the way down
// are kept in `visited` (may be null) to catch a variable that contains itself; references by
// ID are not entered there, so a loop made only of them is caught by the depth bound alone.
// Throws:
//  - `NCError` "Invalid generated variable, possible due to a deleted source variable." for
//    an ID that `variables` does not hold;
//  - `Exception` "Index out of range in GenVarUtilities::ExpandRecipe: {1}" (the recipe) for a
//    positional N outside 1..size of `sourceIDs` ("v0" included);
//  - `NCError` "Invalid variable identifier, possible due to incorrect conversion of the
//    project." when `variables` does not hold the ID at a position;
//  - `Exception` "Illegal recursion in generated variable: {1}" (the recipe of the variable
//    met twice, or its name when it has none), also when expansions nest more than 256 deep.
NCDS_EXPORT std::string ExpandRecipe(std::string recipe,
                                     const NCIntegralVector<unsigned long, 0>* sourceIDs,
                                     const NCVariables* variables, std::set<int>* visited);

// One entry per token of `recipe`, in order: a positional token's N itself (clamped to the
// int range); for a token by ID the 1-based position of the ID in `datasetIDs`, 0 when it is
// not there and -1 for "vid0". Null when the recipe is empty or holds no token.
NCDS_EXPORT boost::shared_ptr<NCIntegralVector<int, -99>> GetIndexInDatasetForRecipe(
    std::string recipe, const NCIntegralVector<unsigned long, 0>& datasetIDs);

// `recipe` with every token written in the positional form: "v" + N for a positional token,
// "v" + (the 1-based position of the ID in `sourceIDs`, 0 when absent) for a token by ID.
NCDS_EXPORT std::string GetOriginalRecipe(const std::string& recipe,
                                          const NCIntegralVector<unsigned long, 0>& sourceIDs);

// The ordinary variables that variable `varID` is computed from, in order of first reference
// in its expanded recipe and each once, as far as they are columns of `datasetIDs` (which the
// positional tokens also index); the variable alone when its recipe is empty. Null for the
// no-variable ID, an unknown variable, and a recipe that cannot be expanded.
NCDS_EXPORT std::unique_ptr<NCIntegralVector<unsigned long, 0>> GetSourceOfGeneratedVariable(
    unsigned long varID, const NCIntegralVector<unsigned long, 0>* datasetIDs,
    const NCVariables* variables);

// How many earlier observations `recipe` needs, from the first occurrence (ignoring case) of
// each series function: -1 when it holds "CuSum" (all earlier ones), -2 when it holds "Shift"
// (later ones); otherwise the largest of the integers after the comma behind "Delta" and
// "Lag", of 1 for "Diff1" and 2 for "Diff2", and of ceil(log10(0.01) / log10(1 - lambda)) for
// the number lambda after the comma behind "EWMA" (the steps until an observation weighs less
// than 1 %). 0 for an empty or null recipe, and when an argument cannot be read or lambda is
// not strictly between 0 and 1.
NCDS_EXPORT int GetMaxLag(const char* recipe);

// `recipe` for display: each token replaced by the primary ID of the variable it names (from
// `variables`, or the project's when null), quoted as formulas quote names that are not plain
// identifiers, so that the text compiles back to the same recipe. Tokens that name no
// variable (a position outside `sourceIDs`, "vid0", an unknown ID) stay as written.
NCDS_EXPORT std::string GetExpandedVariableNames(
    const NCProjectBase& project, const std::string& recipe,
    const NCIntegralVector<unsigned long, 0>* sourceIDs, const NCVariables* variables);

}  // namespace GenVarUtilities

#endif  // NCDS_DERIVED_GENVARUTILITIES_H
