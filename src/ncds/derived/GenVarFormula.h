#ifndef NCDS_DERIVED_GENVARFORMULA_H
#define NCDS_DERIVED_GENVARFORMULA_H

// Formulas of generated variables as users write them, and the generated variables of a
// dataset. A formula names the dataset's variables by their primary IDs:
//
//   log(Temperature) + Lag(pH, 2) * 0.5
//   if("Feed rate" > 0, `Flow [l/h]` / "Feed rate", 0)
//
// A name is an identifier (a letter, '_', '$' or any non-ASCII character, followed also by
// digits and '.') that is not followed by '(' (which makes it a function). Any other name is
// written in double quotes or backticks, the quote doubled where the name holds it
// ("Tank ""A"""). Names compare ignoring case; a name spelt exactly as written wins over
// others that differ in case only.
//
// Operators, loosest binding first: ||, &&, == !=, < <= > >=, + -, * /, unary - and +,
// ^ (to the right: 2^3^2 is 2^9, -2^2 is -4). Functions, names ignoring case: log (natural;
// also ln), log10, exp, sqrt, abs, min and max (one or more arguments), pow(x, y),
// if(condition, then, else), and the series functions Lag(x, k), Delta(x, k), Shift(x, k),
// Diff1(x), Diff2(x), EWMA(x, lambda), CuSum(x), whose second argument is a number written
// out: a whole number for k, 0 < lambda <= 1 (see `GenVarEvaluator` for what they compute).
// Parentheses, calls, signs and powers nest at most 64 deep.
//
// A compiled formula is a recipe: the formula's text with each name replaced by the token
// "vid<unique ID>" and each function name and whole-number argument written in one way, so
// that `GenVarUtilities` reads it ("log(vid12) + Lag(vid7, 2) * 0.5"). Refusals throw
// `NCError` with one translated sentence that names the 1-based character position.

#include <cstddef>
#include <string>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/ncds_export.h"

class NCDataSet;

namespace GenVarFormula {

// The longest formula, in characters, that `Compile` takes.
constexpr std::size_t kMaxFormulaLength = 3000;

// The recipe of `formula` over the columns of `dataSet`. `definedVariable` is the variable
// the formula is for, when it exists already: a formula that refers to it, or to a variable
// computed from it, is refused. Refuses empty and over-long formulas, unknown names and
// functions, unbalanced parentheses and quotes, wrong argument counts and other syntax errors.
NCDS_EXPORT std::string Compile(const NCDataSet& dataSet, const std::string& formula,
                                unsigned long definedVariable = NCUniqueIDs::kNone);

// Appends a generated variable named `name` (made unique as `NCDataSet::AddVariables` does)
// whose recipe is `formula` compiled and whose values are computed from it; a project variable
// of that name (ignoring case) with the same recipe, which another dataset holds, is taken
// instead of a new one. Returns its
// column, or 0 when the project's change check refused the new variable. Compilation and
// computation come first: when they throw, the dataset is unchanged.
NCDS_EXPORT int AddGeneratedVariable(NCDataSet& dataSet, const std::string& name,
                                     const std::string& formula);

// Computes every generated variable of `dataSet` (every column with a recipe) from its recipe
// and stores the values; returns how many columns took them (the change check may refuse a
// column). A generated variable that refers to another is computed after it, from the other's
// recipe rather than its stored values. All are computed before any is stored, so when one
// cannot be computed (it throws as `GenVarEvaluator` does, e.g. "Invalid generated variable,
// possible due to a deleted source variable.") the dataset is unchanged. With `only`, just the
// generated variables among those unique IDs are stored.
NCDS_EXPORT int RecomputeGeneratedVariables(
    NCDataSet& dataSet, const NCIntegralVector<unsigned long, 0>* only = nullptr);

}  // namespace GenVarFormula

#endif  // NCDS_DERIVED_GENVARFORMULA_H
