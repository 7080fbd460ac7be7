#include "ncds/derived/GenVarEvaluator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"

namespace {

using ncds::test::BatchRows;
using Floats = std::vector<float>;
constexpr float M = -99.0F;

// Batches B1 (4 rows) and B2 (3 rows); X is the row (0..6), V has a gap at row 2.
struct Series : BatchRows {
  Series() : BatchRows({{"B1", "P1", 4}, {"B2", "P1", 3}}) {
    x = "vid" + std::to_string(dataSet->GetVarID(1));
    v = "vid" + std::to_string(AddColumn("V", {1, 2, M, 4, 5, 6, 7}));
  }
  Floats Eval(const std::string& recipe) const {
    return GenVarEvaluator(*dataSet).Evaluate(recipe);
  }
  std::string x, v;
};

std::string Message(const std::function<void()>& evaluate) {
  try {
    evaluate();
  } catch (const NCError& error) {
    return error.what();
  }
  return "no error";
}

TEST(GenVarEvaluator, ComputesArithmeticWithStrictMissingValues) {
  BatchRows rows({{"B1", "P1", 5}});
  NCDataSet& dataSet = *rows.dataSet;
  const Floats xs{1, 4, M, 0, -2};
  ASSERT_TRUE(dataSet.SetColValues(xs.data(), 1));
  const std::string x = "vid" + std::to_string(dataSet.GetVarID(1));
  const std::string w = "vid" + std::to_string(rows.AddColumn("W", {2, 2, 2, M, 2}));
  GenVarEvaluator evaluator(dataSet);
  const auto eval = [&](const std::string& recipe) { return evaluator.Evaluate(recipe); };
  EXPECT_EQ(eval(x + " + " + w + " * 0.5"), (Floats{2, 5, M, M, -1}));
  EXPECT_EQ(eval("v1 - 2 - 3 + 8 / 4 / 2 * 3"), (Floats{-1, 2, M, -2, -4}));
  EXPECT_EQ(eval("-" + x + "^2 + 2^3^2"), (Floats{511, 496, M, 512, 508}));
  EXPECT_EQ(eval("pow(" + x + ", 2) - abs(" + x + ")"), (Floats{0, 12, M, 0, 2}));
  EXPECT_EQ(eval("exp(0) + log10(100) + ln(1) + sqrt(" + x + ")"), (Floats{4, 5, M, 3, M}));
  const Floats logs = eval("log(" + x + ")");
  EXPECT_FLOAT_EQ(logs[1], std::log(4.0F));
  EXPECT_EQ(logs[3], M);  // log 0 is not finite
  EXPECT_EQ(logs[4], M);
  EXPECT_EQ(eval(x + " / (" + w + " - 2)"), (Floats{M, M, M, M, M}));
  EXPECT_EQ(eval(x + " * 1e300"), (Floats{M, M, M, 0, M}));  // beyond float
  // Comparisons, logic, min, max and if() see every missing value they read.
  EXPECT_EQ(eval(x + " >= 1 && " + w + " == 2 || " + x + " < -1"), (Floats{1, 1, M, M, 1}));
  EXPECT_EQ(eval("min(" + x + ", " + w + ") + max(" + x + ", 3)"), (Floats{4, 6, M, M, 1}));
  EXPECT_EQ(eval("if(" + x + " > 1, " + w + ", 0)"), (Floats{0, 2, M, M, 0}));
  EXPECT_EQ(eval("7"), (Floats{7, 7, 7, 7, 7}));

  NCIntegralVector<int, -99> all;
  for (int i = 1; i <= 5; ++i) all.push_back(i);
  ASSERT_TRUE(dataSet.RemoveObservation(&all, false, true));
  EXPECT_EQ(GenVarEvaluator(dataSet).Evaluate("log(" + x + ") + Lag(" + x + ", 1)"), Floats{});
}

TEST(GenVarEvaluator, SeriesFunctionsStayInsideBatches) {
  Series s;
  const std::string& x = s.x;
  EXPECT_EQ(s.Eval("Lag(" + x + ", 1)"), (Floats{M, 0, 1, 2, M, 4, 5}));
  EXPECT_EQ(s.Eval("Lag(Lag(" + x + ", 1), 1) - Lag(" + x + ",2)"), (Floats{M, M, 0, 0, M, M, 0}));
  EXPECT_EQ(s.Eval("Lag(" + x + ", 3)"), (Floats{M, M, M, 0, M, M, M}));
  EXPECT_EQ(s.Eval("Lag(" + x + ", 0) + Lag(" + x + ", 9)"), (Floats{M, M, M, M, M, M, M}));
  EXPECT_EQ(s.Eval("Shift(" + x + ", 1)"), (Floats{1, 2, 3, M, 5, 6, M}));
  EXPECT_EQ(s.Eval("Delta(" + x + " * " + x + ", 2)"), (Floats{M, M, 4, 8, M, M, 20}));
  EXPECT_EQ(s.Eval("Diff1(" + x + ") + Diff2(" + x + " * " + x + ")"),
            (Floats{M, M, 3, 3, M, M, 3}));
  EXPECT_EQ(s.Eval("CuSum(" + x + ")"), (Floats{0, 1, 3, 6, 4, 9, 15}));
  EXPECT_EQ(s.Eval("EWMA(" + x + ", 0.5)"), (Floats{0, 0.5, 1.25, 2.125, 4, 4.5, 5.25}));
  EXPECT_EQ(s.Eval("2 * Lag(" + x + " + 1, 1)"), (Floats{M, 2, 4, 6, M, 10, 12}));

  // Nothing is skipped: the gap reaches every row that reads it.
  const std::string& v = s.v;
  EXPECT_EQ(s.Eval("Lag(" + v + ", 1)"), (Floats{M, 1, 2, M, M, 5, 6}));
  EXPECT_EQ(s.Eval("Diff1(" + v + ")"), (Floats{M, 1, M, M, M, 1, 1}));
  EXPECT_EQ(s.Eval("CuSum(" + v + ")"), (Floats{1, 3, M, M, 5, 11, 18}));
  EXPECT_EQ(s.Eval("EWMA(" + v + ", 0.5)"), (Floats{1, 1.5, M, M, 5, 5.5, 6.25}));

  // Batches from the batch records when the observations carry no batch names; one series
  // without batches.
  s.project->GetObservations().SetBatchID(0);
  EXPECT_EQ(s.Eval("Lag(" + x + ", 1)"), (Floats{M, 0, 1, 2, M, 4, 5}));
  s.dataSet->SetBatchInfoVector(nullptr);
  EXPECT_EQ(s.Eval("Lag(" + x + ", 1)"), (Floats{M, 0, 1, 2, 3, 4, 5}));
}

TEST(GenVarEvaluator, GeneratedVariablesComeFromTheirRecipes) {
  Series s;
  NCVariables& variables = s.project->GetVariables();
  const auto add = [&](const char* name, unsigned long id, const std::string& recipe) {
    variables.Add(std::make_unique<QuantitativeVariableInfo>(name, id, recipe));
    return "vid" + std::to_string(id);
  };
  // G is a column whose stored values are stale; H is no column at all.
  const std::string g = "vid" + std::to_string(s.AddColumn("G", Floats(7, 0)));
  variables[s.dataSet->GetVarID(3)]->SetRecipe("v1 * 10");
  const std::string h = add("H", 900, g + " + 1");
  EXPECT_EQ(s.Eval(h + " - " + g), Floats(7, 1));
  EXPECT_EQ(GenVarEvaluator(*s.dataSet).EvaluateVariable(900), (Floats{1, 11, 21, 31, 41, 51, 61}));

  const std::string p = add("P", 901, "vid902 + 1");
  add("Q", 902, "2 * vid901");
  std::string chain = s.x;
  for (unsigned long id = 1000; id < 1065; ++id) chain = add("C", id, chain + " + 1");
  const auto refusal = [&](const std::string& recipe) { return Message([&] { s.Eval(recipe); }); };
  EXPECT_EQ(refusal(p), "Illegal recursion in generated variable: vid902 + 1");
  EXPECT_EQ(refusal("vid1063"), "no error");
  EXPECT_EQ(refusal(chain), "Generated variables refer to each other more than 64 levels deep.");
  EXPECT_EQ(refusal("vid0"),
            "Invalid generated variable, possible due to a deleted source variable.");
  EXPECT_EQ(refusal("vid777"),
            "Invalid generated variable, possible due to a deleted source variable.");
  EXPECT_EQ(refusal("v4"),
            "Invalid variable identifier, possible due to incorrect conversion of the project.");
  EXPECT_EQ(refusal("Lag(" + s.v + ")"),
            "Wrong number of arguments to Lag at position 1: 2 expected, 1 given.");
  EXPECT_EQ(refusal("Temperature"), "Unexpected Temperature at position 1.");
}

int ThreadCount() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                        std::filesystem::directory_iterator()));
}

// Long enough for muparser to take the rows in several blocks.
TEST(GenVarEvaluator, EvaluatesLongColumnsOnTheCallingThreadOnly) {
  BatchRows rows({{"B1", "P1", 20000}, {"B2", "P1", 5000}});
  const std::string x = "vid" + std::to_string(rows.dataSet->GetVarID(1));
  const int before = ThreadCount();
  const Floats values =
      GenVarEvaluator(*rows.dataSet).Evaluate("sqrt(" + x + ") * 2 - Lag(" + x + ", 1)");
  EXPECT_EQ(ThreadCount(), before);
  ASSERT_EQ(values.size(), 25000U);
  int wrong = 0;
  for (int i = 0; i < 25000; ++i) {
    const float expected =
        i == 0 || i == 20000 ? M
                             : static_cast<float>(std::sqrt(static_cast<double>(i)) * 2 - (i - 1));
    wrong += values[static_cast<std::size_t>(i)] != expected;
  }
  EXPECT_EQ(wrong, 0);
}

}  // namespace
