#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

// The common part alone, with any record in it.
class Common : public VarObs {
 public:
  using VarObs::Add;
};

// An "NCV" stream around `common` whose first `count` roles are all `series`.
std::string WithRoles(const VarObs& common, int count, std::int32_t series) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, 2, "NCV");
  os << common;
  OutputStreamDirectory directory(os, 5);
  for (int tag = 1; tag <= count; ++tag) {
    WriteToStreamDir(series, directory, static_cast<std::uint16_t>(tag));
  }
  directory.Close();
  return os.str();
}

TEST(NCVariables, ReservedSeriesFollowTheLabels) {
  NCVariables vars;
  vars.AddSecondaryID("$phaseid");
  vars.AddSecondaryID("Tag");
  vars.AddSecondaryID("$Original ID");
  EXPECT_EQ(vars.GetPhaseIDSeries(), 2);
  EXPECT_EQ(vars.GetOriginalIDSeries(), 4);
  vars.SetIDLabel(3, "$MATURITYID");
  EXPECT_EQ(vars.GetMaturityIDSeries(), 3);
  EXPECT_EQ(vars.GetMaturityID({1, 3}), 2);
  EXPECT_EQ(vars.GetSourceID({1, 2, 3, 4}), -1);
  const Strings labels{"", "$PhaseID", "$SourceID", "$Original ID"};
  vars.Set_ID_Labels(&labels);
  EXPECT_EQ(vars.GetMaturityIDSeries(), 0);
  EXPECT_EQ(vars.GetSourceIDSeries(), 3);
  vars.RemoveSecondaryID("$PhaseID");
  EXPECT_EQ(vars.GetPhaseIDSeries(), 0);
  EXPECT_EQ(vars.GetSourceIDSeries(), 2);
  EXPECT_EQ(vars.GetOriginalIDSeries(), 3);
  EXPECT_EQ(NCVariables::GetConstantInfoID(), 3262240002UL);
}

TEST(NCVariables, StreamsVariablesAndRoles) {
  NCVariables vars;
  vars.AddSecondaryID("$SourceID");
  vars.AddSecondaryID("$MaturityID");
  EXPECT_FALSE(vars.IncludedYExsists());
  auto y = std::make_unique<QuantitativeVariableInfo>("Yield", 5);
  y->SetVariableBlock(VariableInfo::eExcludedY);
  VariableInfo* added = vars.Add(std::move(y));
  EXPECT_EQ(vars[5], added);
  EXPECT_FALSE(vars.IncludedYExsists());  // an excluded Y does not count
  added->SetIncluded(true);
  EXPECT_TRUE(vars.IncludedYExsists());
  NCStringVector levels;
  levels.push_back("a");
  vars.Add(std::make_unique<QualitativeVariableInfo>("Grade", 2, &levels));

  const std::string bytes = WriteToString(vars);
  NCVariables read;
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read.GetSourceIDSeries(), 2);
  EXPECT_EQ(read.GetMaturityIDSeries(), 3);
  ASSERT_NE(read[2], nullptr);
  EXPECT_TRUE(read[2]->IsQualitative());
  EXPECT_TRUE(read.IncludedYExsists());
  EXPECT_EQ(WriteToString(read), bytes);

  // Only version 2; the roles are required and must name a series that exists.
  std::string other = bytes;
  for (const char version : {1, 3}) {
    other[4] = version;
    EXPECT_FALSE(ReadFromString(other, read));
  }
  Common plain;
  plain.AddSecondaryID("x");
  EXPECT_TRUE(ReadFromString(WithRoles(plain, 4, 2), read));
  EXPECT_EQ(read.GetOriginalIDSeries(), 2);
  EXPECT_EQ(read.size(), 0u);
  EXPECT_FALSE(ReadFromString(WithRoles(plain, 3, 0), read));
  EXPECT_FALSE(ReadFromString(WithRoles(plain, 4, 3), read));
  EXPECT_FALSE(ReadFromString(WithRoles(plain, 4, -1), read));
  // Observations are no variables.
  Common observations;
  observations.Add(std::make_unique<ObservationInfo>("O", 1), nullptr);
  EXPECT_FALSE(ReadFromString(WithRoles(observations, 4, 0), read));
  EXPECT_EQ(read.GetOriginalIDSeries(), 2);
}

TEST(NCVariables, DamagedStreamsFailOrRoundTrip) {
  NCVariables vars;
  vars.AddSecondaryID("$SourceID");
  vars.Add(std::make_unique<QuantitativeVariableInfo>("V", 1));
  NCStringVector levels;
  levels.push_back("lo");
  vars.Add(std::make_unique<QualitativeVariableInfo>("Q", 2, &levels));
  vars.Add(std::make_unique<DateTimeVariableInfo>());
  const std::string valid = WriteToString(vars);
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    NCVariables read;
    if (!ncds::test::ReadDamaged(bytes, read)) {
      EXPECT_TRUE(read.empty());
      return;
    }
    const std::string again = WriteToString(read);
    NCVariables second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(WriteToString(second), again);
  });
}

}  // namespace
