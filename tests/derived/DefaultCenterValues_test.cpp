#include "ncds/derived/DefaultCenterValues.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "ncds/metadata/ObservationInfo.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using Key = DefaultCenterValues::ObservationKey;
using Rule = DefaultCenterValues::Rule;

const Key kEmpty{-1, ""};

ObservationInfo Observation(const std::vector<std::string>& ids) { return ObservationInfo(ids, 1); }

// Reaches the protected rule builder.
struct Builder : DefaultCenterValues {
  using DefaultCenterValues::AddBatchDefaults;
};

DefaultCenterValues Sample() {
  DefaultCenterValues values;
  values.SetRules(7, {Rule{2, "B7", 1.5F}, Rule{-1, "", 0.25F}});
  values.SetRules(3, {Rule{5, "", -4.0F}});
  values.SetRules(4000000000UL,
                  {Rule{3, std::string("x\0y", 3), 2.0F}, Rule{0, "ignored", -99.0F}});
  return values;
}

TEST(DefaultCenterValues, RulesMatchInOrder) {
  const DefaultCenterValues values = Sample();
  const ObservationInfo b7 = Observation({"obs1", "B7"});
  const ObservationInfo b8 = Observation({"obs2", "B8", "x"});
  const ObservationInfo single("only", 3);

  EXPECT_EQ(values.GetDefaultValue(99, b7), 0.0F) << "an unknown variable is 0, not missing";
  EXPECT_EQ(values.GetDefaultValue(7, b7), 1.5F);
  EXPECT_EQ(values.GetDefaultValue(7, b8), 0.25F);
  EXPECT_EQ(values.GetDefaultValue(7, single), 0.25F);
  // An observation with fewer IDs than the rule's index compares as the empty text.
  EXPECT_EQ(values.GetDefaultValue(3, single), -4.0F);
  EXPECT_EQ(values.GetDefaultValue(3, Observation({"1", "2", "3", "4", "5"})), 0.0F);
  EXPECT_EQ(values.GetDefaultValue(4000000000UL, b8), -99.0F) << "the catch-all ends the list";

  EXPECT_EQ(values.GetDefaultValue(7, std::string("B7")), 1.5F);
  EXPECT_EQ(values.GetDefaultValue(7, std::string("b7")), 0.25F) << "case-sensitive";
  EXPECT_EQ(values.GetDefaultValue(3, std::string("B7")), 0.0F) << "no rule matched";
  EXPECT_EQ(values.GetDefaultValue(3, std::string()), -4.0F);
  EXPECT_EQ(values.GetDefaultValue(99, std::string("B7")), 0.0F);

  EXPECT_TRUE(values.HasVar(3));
  EXPECT_FALSE(values.HasVar(99));
  const NCIntegralVector<unsigned long, 0> ids = values.GetVariableIDs();
  ASSERT_EQ(ids.size(), 3u);
  EXPECT_EQ(ids[0], 3u);
  EXPECT_EQ(ids[1], 7u);
  EXPECT_EQ(ids[2], 4000000000UL);
}

TEST(DefaultCenterValues, AddVarBuildsBatchRulesAndACatchAll) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // One level: a center per batch (ID series 2).
  DefaultCenterValues values;
  values.AddVar(5, {{{{2, "B1"}, kEmpty}, 1.0F},
                    {{{2, "B2"}, kEmpty}, 4.0F},
                    {{{2, "B3"}, kEmpty}, -99.0F},
                    {{{2, "B4"}, kEmpty}, nan},
                    {{{2, ""}, kEmpty}, 10.0F}});
  ASSERT_NE(values.GetRules(5), nullptr);
  EXPECT_EQ(*values.GetRules(5),
            (DefaultCenterValues::Rules{Rule{2, "B1", 1.0F}, Rule{2, "B2", 4.0F},
                                        Rule{-1, "", 5.0F}}));  // (1 + 4 + 10) / 3
  EXPECT_EQ(values.GetDefaultValue(5, Observation({"o", "B2"})), 4.0F);
  EXPECT_EQ(values.GetDefaultValue(5, Observation({"o", "B3"})), 5.0F);

  // Two levels: per phase (ID series 3), the mean over the batches.
  values.AddVar(6, {{{{2, "B1"}, {3, "P1"}}, 1.0F},
                    {{{2, "B2"}, {3, "P1"}}, 2.0F},
                    {{{2, "B1"}, {3, "P2"}}, 10.0F},
                    {{{2, "B2"}, {3, "P2"}}, -99.0F},
                    {{{2, "B1"}, {3, "P3"}}, -99.0F}});
  EXPECT_EQ(
      *values.GetRules(6),
      (DefaultCenterValues::Rules{Rule{3, "P1", 1.5F}, Rule{3, "P2", 10.0F}, Rule{-1, "", 5.75F}}));
  const ObservationInfo unknownBatch = Observation({"o", "B9", "P2"});
  EXPECT_EQ(values.GetDefaultValue(6, unknownBatch), 10.0F);
  EXPECT_EQ(values.GetDefaultValue(6, Observation({"o", "B9", "P3"})), 5.75F);

  // A table without usable centers leaves the variable without rules: it is gone.
  values.AddVar(5, {{{{2, "B1"}, kEmpty}, -99.0F}});
  EXPECT_FALSE(values.HasVar(5));
  values.AddVar(5, {});
  EXPECT_FALSE(values.HasVar(5));
  EXPECT_TRUE(Builder::AddBatchDefaults({}).empty());
  EXPECT_EQ(Builder::AddBatchDefaults({{{1, "x"}, 2.0F}, {{0, "y"}, 4.0F}}),
            (DefaultCenterValues::Rules{Rule{1, "x", 2.0F}, Rule{-1, "", 3.0F}}));

  // Add takes over the other's variables, replacing the same ones.
  DefaultCenterValues merged = Sample();
  merged.Add(values);
  EXPECT_EQ(merged.SizeVars(), 4u);
  EXPECT_EQ(*merged.GetRules(6), *values.GetRules(6));
  EXPECT_EQ(*merged.GetRules(7), *Sample().GetRules(7));
  merged.Add(merged);
  EXPECT_EQ(merged.SizeVars(), 4u);
  merged.Clear();
  EXPECT_EQ(merged.SizeVars(), 0u);
}

TEST(DefaultCenterValues, StreamsRoundTripAndReadOnlyVersionOne) {
  const DefaultCenterValues original = Sample();
  const std::string bytes = WriteToString(original);
  EXPECT_EQ(bytes.substr(0, 6), std::string("\x03"
                                            "DCV\x01\x00",
                                            6));
  DefaultCenterValues read;
  read.SetRules(1, {Rule{}});
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, original);
  EXPECT_EQ(read.GetRules(4000000000UL)->front().idValue, std::string("x\0y", 3));
  EXPECT_EQ(WriteToString(read), bytes);
  EXPECT_TRUE(ReadFromString(WriteToString(DefaultCenterValues()), read));
  EXPECT_EQ(read.SizeVars(), 0u);

  const DefaultCenterValues before = Sample();
  for (const char version : {'\x00', '\x02'}) {
    std::string other = bytes;
    other[4] = version;
    DefaultCenterValues refused(before);
    EXPECT_FALSE(ReadFromString(other, refused)) << int{version};
    EXPECT_EQ(refused, before);
  }
}

TEST(DefaultCenterValues, DamagedStreamsFailCleanly) {
  const std::string valid = WriteToString(Sample());
  DefaultCenterValues before;
  before.SetRules(11, {Rule{1, "kept", 1.0F}});
  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    DefaultCenterValues read(before);
    if (ReadFromString(bytes, read)) {
      const std::string again = WriteToString(read);
      DefaultCenterValues second;
      ASSERT_TRUE(ReadFromString(again, second));
      EXPECT_EQ(WriteToString(second), again);
    } else {
      EXPECT_EQ(read, before);
    }
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    DefaultCenterValues read;
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), read)) << length;
  }

  // Variable IDs out of order, and a rule count far beyond the bytes present.
  DefaultCenterValues two;
  two.SetRules(1, {Rule{1, "a", 1.0F}});
  two.SetRules(2, {Rule{1, "b", 2.0F}});
  std::string swapped = WriteToString(two);
  const std::string first("\x01\x00\x00\x00\x01\x00\x00\x00", 8);
  const std::size_t at = swapped.find(first);
  ASSERT_NE(at, std::string::npos);
  swapped[at] = '\x03';
  DefaultCenterValues read(before);
  EXPECT_FALSE(ReadFromString(swapped, read));
  std::string huge = WriteToString(two);
  huge.replace(at + 4, 4, std::string("\xFF\xFF\xFF\x7F", 4));
  EXPECT_FALSE(ReadFromString(huge, read));
  EXPECT_EQ(read, before);
  swapped[at] = '\x00';  // IDs 0 and 2 are in order again
  EXPECT_TRUE(ReadFromString(swapped, read));
}

}  // namespace
