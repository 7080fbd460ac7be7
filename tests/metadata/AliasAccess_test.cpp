#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using Strings = std::vector<std::string>;

TEST(AliasAccess, NamesAndIDsOfEverySeries) {
  NCVariables vars;
  vars.AddSecondaryID("Unit");
  vars.AddSecondaryID("");
  NCObservations observations;
  observations.AddSecondaryID("Batch");
  const AliasAccess variables(vars);
  const AliasAccess rows(observations);
  vars.AddSecondaryID("later");  // the view keeps the series it was made with

  EXPECT_TRUE(variables.IsVariable());
  EXPECT_FALSE(rows.IsVariable());
  EXPECT_EQ(variables.GetUsedAliases(), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(variables.SizeAliases(), 4);
  EXPECT_EQ(variables.GetRawAliasName(1), "Primary ID");
  EXPECT_EQ(variables.GetRawAliasName(2), "Unit");
  EXPECT_EQ(variables.GetRawAliasName(3), "Sec. ID:3");
  EXPECT_EQ(variables.GetRawAliasName(5), "");
  EXPECT_EQ(variables.GetAliasNameWithDescription(1), "Var ID (Primary)");
  EXPECT_EQ(variables.GetAliasNameWithDescription(3), "Var ID (3): Sec. ID:3");
  EXPECT_EQ(rows.GetAliasNameWithDescription(1), "Obs ID (Primary)");
  EXPECT_EQ(rows.GetAliasNameWithDescription(2), "Obs ID (2): Batch");
  EXPECT_EQ(rows.GetAliasNameWithDescription(0), "");

  ObservationInfo* obs =
      observations.Add(std::make_unique<ObservationInfo>(Strings{"O1", "", "12.5"}, 4));
  observations.AddSecondaryID("Value");
  observations.UpdateAllIDNumericalState();
  const AliasAccess updated(observations);
  EXPECT_EQ(updated.GetAlias(1, *obs), "O1");
  EXPECT_EQ(updated.GetAlias(9, *obs), "");
  EXPECT_EQ(updated.GetPreferredAlias(2, *obs), "O1");  // empty: the primary ID instead
  EXPECT_EQ(updated.GetPreferredAlias(3, *obs), "12.5");
  EXPECT_EQ(updated.GetAliasAsFloat(3, *obs), 12.5F);
  EXPECT_EQ(updated.GetAliasAsFloat(1, *obs), -99.0F);
  EXPECT_TRUE(updated.IsAliasNumeral(3));
  EXPECT_FALSE(updated.IsAliasNumeral(2));
  const NCDataVector<float> values = updated.GetNumeralValues(3, nullptr);
  ASSERT_EQ(values.size(), 1u);
  EXPECT_EQ(values[0], 12.5F);
}

}  // namespace
