#include "ncds/derived/GenVarFormula.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/derived/GenVarUtilities.h"
#include "ncds/ncds.h"

namespace {

using ncds::test::BatchRows;
using Floats = std::vector<float>;
constexpr float M = -99.0F;

std::string Vid(unsigned long id) { return "vid" + std::to_string(id); }

Floats Column(const NCDataSet& dataSet, int column) {
  const float* values = dataSet.GetMatrix().ColumnData(static_cast<std::size_t>(column) - 1);
  return Floats(values, values + dataSet.SizeObservations());
}

// One batch of three rows: X (the row, 0..2), pH, "Feed rate", `Tank "A"` and Größe.
struct Named : BatchRows {
  Named() : BatchRows({{"B1", "P1", 3}}) {
    x = dataSet->GetVarID(1);
    pH = AddColumn("pH", {7, 6, 5});
    feed = AddColumn("Feed rate", {1, 2, 3});
    tank = AddColumn("Tank \"A\"", {1, 1, 1});
    size = AddColumn("Größe", {1, 1, 1});
  }
  std::string Compile(const std::string& formula, unsigned long defined = NCUniqueIDs::kNone) {
    return GenVarFormula::Compile(*dataSet, formula, defined);
  }
  std::string Refusal(const std::string& formula) {
    try {
      Compile(formula);
    } catch (const NCError& error) {
      EXPECT_EQ(error.GetLevel(), NCError::Error);
      return error.what();
    }
    return "accepted";
  }
  unsigned long x, pH, feed, tank, size;
};

TEST(GenVarFormula, CompilesNamesToRecipesAndBack) {
  Named n;
  EXPECT_EQ(n.Compile("log(X) + Lag(pH, 2) * 0.5"),
            "log(" + Vid(n.x) + ") + Lag(" + Vid(n.pH) + ", 2) * 0.5");
  // Function names and names ignore case; whole numbers are written plainly.
  EXPECT_EQ(n.Compile("LN(ph)-lag( PH ,007)"), "ln(" + Vid(n.pH) + ")-Lag( " + Vid(n.pH) + " ,7)");
  EXPECT_EQ(n.Compile("\"Feed rate\"/`Tank \"A\"` + \"Tank \"\"A\"\"\" + Größe^2"),
            Vid(n.feed) + "/" + Vid(n.tank) + " + " + Vid(n.tank) + " + " + Vid(n.size) + "^2");

  // Shown with names, a recipe compiles back to itself.
  const std::string recipe = n.Compile(
      "EWMA(Diff2(X), 0.25) + if(pH <= 6 || `Feed rate` != 2, -CuSum(Größe), max(1, X, 2))");
  const std::string shown =
      GenVarUtilities::GetExpandedVariableNames(*n.project, recipe, nullptr, nullptr);
  EXPECT_EQ(shown,
            "EWMA(Diff2(X), 0.25) + if(pH <= 6 || \"Feed rate\" != 2, -CuSum(Größe), max(1, X, "
            "2))");
  EXPECT_EQ(n.Compile(shown), recipe);
}

TEST(GenVarFormula, RefusesWithOneSentenceNamingThePosition) {
  Named n;
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "The formula is empty."},
      {" \t ", "The formula is empty."},
      {"Temp + 1", "Unknown variable Temp at position 1."},
      {"Größe + Tmp", "Unknown variable Tmp at position 9."},  // characters, not bytes
      {"log(pH", "The parenthesis at position 4 is not closed."},
      {"min(pH, (X)", "The parenthesis at position 4 is not closed."},
      {"pH)", "The closing parenthesis at position 3 has no opening parenthesis."},
      {"pH +", "An operand is missing at position 5."},
      {"pH pH", "Unexpected pH at position 4."},
      {"(pH,X)", "Unexpected , at position 4."},
      {"X = 1", "Unexpected character = at position 3."},
      {"\"pH", "The quote at position 1 is not closed."},
      {"1e999", "The number at position 1 is out of range."},
      {"foo(pH)", "Unknown function foo at position 1."},
      {"pH * Lag(pH)", "Wrong number of arguments to Lag at position 6: 2 expected, 1 given."},
      {"Diff1(pH, 1)", "Wrong number of arguments to Diff1 at position 1: 1 expected, 2 given."},
      {"if(X, 1)", "Wrong number of arguments to if at position 1: 3 expected, 2 given."},
      {"max()", "max at position 1 needs at least one argument."},
      {"Lag(pH, 1.5)", "The second argument of Lag at position 1 must be a whole number."},
      {"Shift(pH, X)", "The second argument of Shift at position 1 must be a whole number."},
      {"Delta(pH, (2))", "The second argument of Delta at position 1 must be a whole number."},
      {"EWMA(pH, 1.5)",
       "The second argument of EWMA at position 1 must be a number above 0 and at most 1."},
      {std::string(65, '(') + "1" + std::string(65, ')'),
       "The formula is nested more than 64 levels deep at position 65."},
      {std::string(65, '-') + "1",
       "The formula is nested more than 64 levels deep at position 65."},
      {std::string(3001, '1'), "The formula is longer than 3000 characters."},
  };
  for (const auto& [formula, message] : cases) EXPECT_EQ(n.Refusal(formula), message) << formula;
  EXPECT_EQ(n.Refusal(std::string(64, '(') + "1" + std::string(64, ')')), "accepted");
}

TEST(GenVarFormula, RefusesFormulasThatReferToTheirOwnVariable) {
  Named n;
  const int a = GenVarFormula::AddGeneratedVariable(*n.dataSet, "A", "pH + 1");
  const int b = GenVarFormula::AddGeneratedVariable(*n.dataSet, "B", "A * 2");
  const unsigned long aID = n.dataSet->GetVarID(a);
  EXPECT_EQ(n.dataSet->GetVariableInfo(b)->GetRecipe(), Vid(aID) + " * 2");
  const auto refusal = [&](const std::string& formula) {
    try {
      n.Compile(formula, aID);
    } catch (const NCError& error) {
      return std::string(error.what());
    }
    return std::string("accepted");
  };
  EXPECT_EQ(refusal("pH + a"), "The formula refers to itself through a at position 6.");
  EXPECT_EQ(refusal("X + B"), "The formula refers to itself through B at position 5.");
  EXPECT_EQ(refusal("X + pH"), "accepted");
  EXPECT_EQ(n.Compile("B + A"), Vid(n.dataSet->GetVarID(b)) + " + " + Vid(aID));
}

TEST(GenVarFormula, AddsAndRecomputesGeneratedVariablesInDependencyOrder) {
  BatchRows rows({{"B1", "P1", 3}, {"B2", "P1", 2}});  // X = 0..4
  NCDataSet& dataSet = *rows.dataSet;
  const int y = GenVarFormula::AddGeneratedVariable(dataSet, "Y", "X * 2");
  const int z = GenVarFormula::AddGeneratedVariable(dataSet, "Z", "Lag(X, 1)");
  ASSERT_EQ(y, 2);
  ASSERT_EQ(z, 3);
  EXPECT_EQ(Column(dataSet, y), (Floats{0, 2, 4, 6, 8}));
  EXPECT_EQ(Column(dataSet, z), (Floats{M, 0, 1, M, 3}));
  EXPECT_EQ(dataSet.GetVariableID(z, 1), "Z");

  // Y now depends on Z, a later column: with new X, Y must see the new Z.
  VariableInfo* yInfo = rows.project->GetVariables()[dataSet.GetVarID(y)];
  yInfo->SetRecipe(GenVarFormula::Compile(dataSet, "Z * 10", dataSet.GetVarID(y)));
  const Floats x{10, 20, 30, 40, 50};
  ASSERT_TRUE(dataSet.SetColValues(x.data(), 1));
  EXPECT_EQ(GenVarFormula::RecomputeGeneratedVariables(dataSet), 2);
  EXPECT_EQ(Column(dataSet, z), (Floats{M, 10, 20, M, 40}));
  EXPECT_EQ(Column(dataSet, y), (Floats{M, 100, 200, M, 400}));

  // Compile and computation come before any change.
  EXPECT_THROW(GenVarFormula::AddGeneratedVariable(dataSet, "W", "Nope"), NCError);
  EXPECT_EQ(dataSet.SizeVariables(), 3);
  rows.project->SetChangeCheck(
      [](int, const NCIntegralVector<unsigned long, 0>&) { return false; });
  EXPECT_EQ(GenVarFormula::AddGeneratedVariable(dataSet, "W", "X"), 0);
  EXPECT_EQ(dataSet.SizeVariables(), 3);
  EXPECT_EQ(GenVarFormula::RecomputeGeneratedVariables(dataSet), 0);
  rows.project->SetChangeCheck(nullptr);

  // The source column goes: nothing can be computed and nothing changes.
  NCIntegralVector<int, -99> first(1, 1);
  ASSERT_TRUE(dataSet.RemoveVariable(&first, false, true));
  try {
    GenVarFormula::RecomputeGeneratedVariables(dataSet);
    ADD_FAILURE() << "recomputed without a source";
  } catch (const NCError& error) {
    EXPECT_STREQ(error.what(),
                 "Invalid generated variable, possible due to a deleted source variable.");
  }
  EXPECT_EQ(Column(dataSet, 2), (Floats{M, 10, 20, M, 40}));
}

}  // namespace
