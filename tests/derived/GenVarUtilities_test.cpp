#include "ncds/derived/GenVarUtilities.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using IDs = NCIntegralVector<unsigned long, 0>;

IDs Ids(std::initializer_list<unsigned long> values) {
  IDs ids;
  for (const unsigned long value : values) ids.push_back(value);
  return ids;
}

std::vector<int> Indexes(const std::string& recipe, const IDs& ids) {
  const auto indexes = GenVarUtilities::GetIndexInDatasetForRecipe(recipe, ids);
  if (!indexes) return {-1000};  // no list at all
  return std::vector<int>(indexes->begin(), indexes->end());
}

// Ordinary X1 (1) and X2 (2); B (3) = "v2*2"; A (4) = "v1+1"; C (5) = "v1"; D (6) and E (7)
// refer to each other by ID.
struct Recipes {
  Recipes() {
    Add("X1", 1, "");
    Add("X2", 2, "");
    Add("B", 3, "v2*2");
    Add("A", 4, "v1+1");
    Add("C", 5, "v1");
    Add("D", 6, "vid7");
    Add("E", 7, "vid6+1");
  }
  void Add(const char* name, unsigned long id, const char* recipe) {
    variables.Add(std::make_unique<QuantitativeVariableInfo>(name, id, recipe));
  }
  std::string Expand(const std::string& recipe, const IDs& sources,
                     std::set<int>* visited = nullptr) const {
    return GenVarUtilities::ExpandRecipe(recipe, &sources, &variables, visited);
  }
  NCVariables variables;
};

TEST(GenVarUtilities, TokensFollowTheScanningRules) {
  const IDs ids = Ids({5, 12});
  EXPECT_EQ(Indexes("lnv2", ids), std::vector<int>{-1000});  // the v follows a letter
  EXPECT_EQ(Indexes("", ids), std::vector<int>{-1000});
  EXPECT_EQ(Indexes("2*v2", ids), std::vector<int>{2});
  EXPECT_EQ(Indexes("(v2)", ids), std::vector<int>{2});
  // ID form: 1-based position, 0 when absent, -1 for vid0; case matters; "vidx" and "vvid3"
  // hold no token (scanning resumes after the first v, whose successor follows a letter).
  EXPECT_EQ(Indexes("vid12+vid0+vid99+v007+V3+VID3+vidx+vvid3+v", ids),
            (std::vector<int>{2, -1, 0, 7}));
  EXPECT_EQ(Indexes("v99999999999999999999999", ids), std::vector<int>{INT_MAX});

  EXPECT_EQ(GenVarUtilities::GetOriginalRecipe("log(vid12)+v03*vid99-vid5", ids),
            "log(v2)+v3*v0-v1");
  EXPECT_EQ(GenVarUtilities::GetOriginalRecipe("Delta(x,2)", ids), "Delta(x,2)");
}

TEST(GenVarUtilities, ExpandRecipeInlinesGeneratedVariablesAndRefusesBadReferences) {
  const Recipes r;
  const IDs sources = Ids({3, 2});  // v1 = B, v2 = X2
  EXPECT_EQ(r.Expand("v1+1", sources), "(v2*2)+1");
  EXPECT_EQ(r.Expand("vid4", Ids({3, 2})), "((v2*2)+1)");            // A by ID, then B by position
  EXPECT_EQ(r.Expand("v1+v1*vid1", sources), "(v2*2)+(v2*2)*vid1");  // siblings don't collide
  EXPECT_EQ(r.Expand("", sources), "");

  const auto message = [&](const std::string& recipe, const IDs& ids, std::set<int>* visited) {
    try {
      r.Expand(recipe, ids, visited);
    } catch (const NCError& error) {
      EXPECT_EQ(error.GetLevel(), NCError::Error);
      return "NCError: " + std::string(error.what());
    } catch (const Exception& error) {
      return std::string(error.what());
    }
    return std::string("no exception");
  };
  EXPECT_EQ(message("1+v0", sources, nullptr),
            "Index out of range in GenVarUtilities::ExpandRecipe: 1+v0");
  EXPECT_EQ(message("v3", sources, nullptr),
            "Index out of range in GenVarUtilities::ExpandRecipe: v3");
  EXPECT_EQ(message("vid0", sources, nullptr),
            "NCError: Invalid generated variable, possible due to a deleted source variable.");
  EXPECT_EQ(message("v1", Ids({99}), nullptr),
            "NCError: Invalid variable identifier, possible due to incorrect conversion of the "
            "project.");
  // C = "v1" with v1 = C; a visited ordinary variable is named by its ID.
  EXPECT_EQ(message("v1", Ids({5}), nullptr), "Illegal recursion in generated variable: v1");
  std::set<int> visited{2};
  EXPECT_EQ(message("v1", sources, &visited), "Illegal recursion in generated variable: X2");
  EXPECT_EQ(visited, std::set<int>{2});
  // A loop through IDs only is not in the visited set; the depth bound ends it.
  EXPECT_EQ(message("vid6", sources, nullptr), "Illegal recursion in generated variable: vid7");
}

TEST(GenVarUtilities, SourcesAreTheOrdinaryColumnsEachOnce) {
  Recipes r;
  r.Add("F", 8, "vid3+v1+vid1+vid2+vid9");  // B (X2 twice), X1 twice, X2, and a non-column 9
  r.Add("X9", 9, "");
  r.Add("G", 10, "vid11");
  const IDs columns = Ids({1, 2, 3});
  const auto sources = [&](unsigned long id) {
    const auto found = GenVarUtilities::GetSourceOfGeneratedVariable(id, &columns, &r.variables);
    return found ? std::vector<unsigned long>(found->begin(), found->end())
                 : std::vector<unsigned long>{0};
  };
  EXPECT_EQ(sources(8), (std::vector<unsigned long>{2, 1}));
  EXPECT_EQ(sources(3), std::vector<unsigned long>{2});   // v2 of the columns
  EXPECT_EQ(sources(1), std::vector<unsigned long>{1});   // ordinary: itself
  EXPECT_EQ(sources(10), std::vector<unsigned long>{0});  // vid11 is gone: no list
  EXPECT_EQ(sources(42), std::vector<unsigned long>{0});
  EXPECT_EQ(sources(NCUniqueIDs::kNone), std::vector<unsigned long>{0});
}

TEST(GenVarUtilities, MaxLagReadsTheFirstArgumentOfEachSeriesFunction) {
  EXPECT_EQ(GenVarUtilities::GetMaxLag("EWMA(v1,1)"), 0);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("EWMA(v1,0)"), 0);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("EWMA(v1, 0.2)"), 21);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("EWMA(v1,x)+Lag(v1,3)"), 0);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("EWMA(v1,1e-300)"), INT_MAX);  // 1 - lambda is 1
  EXPECT_EQ(GenVarUtilities::GetMaxLag("EWMA(v1)+Diff1(v2)"), 1);     // no comma: no change
  EXPECT_EQ(GenVarUtilities::GetMaxLag("Diff2(v1)+Lag(v2,5)"), 5);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("Lag(v1,3)+Lag(v1,9)"), 3);  // the first only
  EXPECT_EQ(GenVarUtilities::GetMaxLag("DELTA(v1, 0x10)+lag(v1,-4)"), 16);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("Diff2(v1)+Lag(v1)"), 0);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("Delta(v1, v2)"), 0);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("cusum(v1)"), -1);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("Shift(CuSum(v1),1)"), -1);
  EXPECT_EQ(GenVarUtilities::GetMaxLag("Shift(v1,1)+Lag(v1,2)"), -2);
  EXPECT_EQ(GenVarUtilities::GetMaxLag(""), 0);
  EXPECT_EQ(GenVarUtilities::GetMaxLag(nullptr), 0);
}

TEST(GenVarUtilities, ExpandedNamesQuoteWhatFormulasQuote) {
  const auto project = NCProject::Create();
  NCVariables& variables = project->GetVariables();
  variables.Add(std::make_unique<QuantitativeVariableInfo>("pH", 21));
  variables.Add(std::make_unique<QuantitativeVariableInfo>("Feed \"A\" rate", 22));
  variables.Add(std::make_unique<QuantitativeVariableInfo>("2nd", 23));
  const IDs sources = Ids({23, 21});
  EXPECT_EQ(GenVarUtilities::GetExpandedVariableNames(*project, "log(vid21)+v1*vid22-vid0+vid99+v3",
                                                      &sources, nullptr),
            "log(pH)+\"2nd\"*\"Feed \"\"A\"\" rate\"-vid0+vid99+v3");
  NCVariables other;
  other.Add(std::make_unique<QuantitativeVariableInfo>("Temp.1", 21));
  EXPECT_EQ(GenVarUtilities::GetExpandedVariableNames(*project, "vid21*2", nullptr, &other),
            "Temp.1*2");
}

}  // namespace
