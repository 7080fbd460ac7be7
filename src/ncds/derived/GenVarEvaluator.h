#ifndef NCDS_DERIVED_GENVAREVALUATOR_H
#define NCDS_DERIVED_GENVAREVALUATOR_H

// Computes recipes of generated variables over a dataset: one float per row, -99 (missing)
// where there is no value. Recipes are the stored form of formulas (`GenVarFormula::Compile`):
// the same operators and functions, with variables named by the tokens of `GenVarUtilities`.
// A token by ID ("vid12") names the dataset column of that variable, a positional token "vN"
// the N-th column. A reference to a generated variable (one whose recipe is not empty) is
// computed from that recipe, whether or not the variable is a column, once per evaluator;
// an ordinary variable must be a column.
//
// Arithmetic, comparisons (1 true, 0 false), && and ||, log (natural), log10, exp, sqrt, abs,
// min, max, pow and if(condition, then, else) run in muparser's bulk mode: the expression is
// compiled to byte code once and run over thousands of rows per call, on the caller's thread.
//
// Series functions take their first argument, any expression, as a column; for row i of a
// batch that starts at row s and ends before row e:
//   Lag(x, k)    x[i - k]; missing in the first k rows
//   Delta(x, k)  x[i] - x[i - k]; missing in the first k rows
//   Diff1(x)     x[i] - x[i - 1]
//   Diff2(x)     x[i] - 2 x[i - 1] + x[i - 2], the first difference of the first differences
//   Shift(x, k)  x[i + k], k rows ahead; missing in the last k rows
//   EWMA(x, l)   l x[i] + (1 - l) EWMA(x, l)[i - 1], starting with x[s]
//   CuSum(x)     x[s] + ... + x[i]
// k is a whole number and 0 < l <= 1, both written out. In a batch dataset (one with batches)
// every batch is a series of its own: nothing reads across a batch boundary, and EWMA and
// CuSum start again at each batch. Batches are the runs of rows of one batch name when the
// observations carry batch names, otherwise the consecutive row counts of the batch records.
//
// Missing values. A row is missing when any value that the expression reads for it is
// missing, also one in a branch of if() that is not taken, and when the result is not a
// finite float (the log of a negative number, a division by zero). Series functions skip
// nothing: a missing value makes every row that reads it missing, and for EWMA and CuSum the
// rest of its batch.
//
// Refusals throw `NCError`: a syntax error (with its position), "Invalid generated variable,
// possible due to a deleted source variable." for a variable that is neither a column nor
// generated (or that the project no longer holds), "Invalid variable identifier, possible due
// to incorrect conversion of the project." for a position outside the columns, "Illegal
// recursion in generated variable: {1}" for a variable computed from itself, and messages for
// variables chained more than 64 deep and formulas too long to compute.
//
// The evaluator reads the dataset's rows and batches when it is made and each column when it
// first needs it, and keeps what it computed: the dataset and its project must outlive it and
// stay unchanged while it is used. Not synchronised.

#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds_export.h"

class NCDataSet;

class NCDS_EXPORT GenVarEvaluator {
 public:
  explicit GenVarEvaluator(const NCDataSet& dataSet);
  ~GenVarEvaluator();
  GenVarEvaluator(const GenVarEvaluator&) = delete;
  GenVarEvaluator& operator=(const GenVarEvaluator&) = delete;

  // The values of `recipe`, one per row of the dataset.
  std::vector<float> Evaluate(const std::string& recipe);
  // The same into `values`, which holds a float for each row (a dataset's column, say).
  void Evaluate(const std::string& recipe, float* values);
  // The values of variable `varID`: computed from its recipe when it has one, else its column.
  std::vector<float> EvaluateVariable(unsigned long varID);
  void EvaluateVariable(unsigned long varID, float* values);

 private:
  class Impl;
  std::unique_ptr<Impl> mImpl;
};

#endif  // NCDS_DERIVED_GENVAREVALUATOR_H
