#include "ncds/dataset/TrimdVarStruct.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

// The header is a one-byte magic length, "TVS" and a two-byte version.
constexpr std::size_t kVersionOffset = 4;

std::string FloatBytes(float value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// `bytes` with the first occurrence of `from` replaced by `to` (both the same length).
std::string Patched(std::string bytes, const std::string& from, const std::string& to) {
  const std::size_t at = bytes.find(from);
  EXPECT_NE(at, std::string::npos);
  if (at != std::string::npos) bytes.replace(at, from.size(), to);
  return bytes;
}

TEST(TrimdVarStruct, MatchingToleranceScalesWithTheLargerMagnitude) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    float a;
    float b;
    bool match;
  };
  const Case cases[] = {
      {1.0F, 1.00009F, true},  // 1 = 0.5 · 2^1: tolerance 1e-4
      {1.0F, 1.00011F, false},
      {10.0F, 10.0001F, true},  // 10 = 0.625 · 2^4: tolerance 8e-4
      {10.0F, 10.00079F, true},
      {10.0F, 10.00081F, false},
      {-10.0F, -10.0001F, true},
      {-10.0F, 10.0F, false},
      {0.99995F, 1.00004F, true},  // the larger magnitude decides: 5e-5 alone would refuse
      {1.00004F, 0.99995F, true},
      {0.9999F, 0.99996F, false},  // below 1 the tolerance is 5e-5
      {1e30F, 1.00004e30F, true},
      {1e30F, 1.0002e30F, false},
      {1e-30F, 1.00004e-30F, true},
      {0.0F, 1e-30F, false},
      {0.0F, -0.0F, true},
      {inf, inf, true},  // infinities match only themselves, NaN nothing
      {inf, -inf, false},
      {inf, FLT_MAX, false},
      {nan, nan, false},
      {nan, 1.0F, false},
      {FLT_MAX, std::nextafter(FLT_MAX, 0.0F), true},
      {FLT_MAX, -FLT_MAX, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TrimdVarStruct::ValuesMatch(c.a, c.b), c.match) << c.a << " " << c.b;
  }
}

TEST(TrimdVarStruct, FindTrimValueTakesTheSmallestMatch) {
  TrimdVarStruct record;
  float match = 0.0F;
  EXPECT_FALSE(record.FindTrimValue(0.0F, match)) << "an empty record matches nothing";

  EXPECT_TRUE(record.AddTrimValue(5.0F));
  EXPECT_TRUE(record.AddTrimValue(1.00005F));
  EXPECT_TRUE(record.AddTrimValue(1.0F));
  EXPECT_FALSE(record.AddTrimValue(1.0F)) << "already there";
  EXPECT_FALSE(record.AddTrimValue(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_EQ(record.GetTrimValues(), (std::set<float>{1.0F, 1.00005F, 5.0F}));

  // Both 1 and 1.00005 match 1.00003: the smaller one decides.
  ASSERT_TRUE(record.FindTrimValue(1.00003F, match));
  EXPECT_EQ(match, 1.0F);
  // 1.00014 is beyond 1 but within reach of 1.00005.
  ASSERT_TRUE(record.FindTrimValue(1.00014F, match));
  EXPECT_EQ(match, 1.00005F);
  match = -1.0F;
  EXPECT_FALSE(record.FindTrimValue(3.0F, match));
  EXPECT_FALSE(record.FindTrimValue(std::numeric_limits<float>::quiet_NaN(), match));
  EXPECT_EQ(match, -1.0F) << "untouched without a match";
  EXPECT_TRUE(record.IsTrimValue(4.9999F));
  EXPECT_FALSE(record.IsTrimValue(-5.0F));

  // The search looks only near the value; it must agree with a scan of the whole set from
  // the smallest value up, over dense values of every sign and magnitude.
  TrimdVarStruct dense;
  const float inf = std::numeric_limits<float>::infinity();
  std::vector<float> probes{0.0F, -0.0F, inf, -inf, FLT_MAX, -FLT_MAX, FLT_MIN, 1e-45F};
  for (const float base : {1e-38F, 1e-3F, 0.75F, 1.0F, 10.0F, 1e6F, 3e38F}) {
    for (int i = -40; i <= 40; ++i) {
      for (const float sign : {1.0F, -1.0F}) {
        const float value = sign * base * (1.0F + static_cast<float>(i) * 3e-5F);
        dense.AddTrimValue(value);
        probes.push_back(value * (1.0F + 1.3e-5F));
        probes.push_back(value * (1.0F - 9.7e-5F));
      }
    }
  }
  dense.AddTrimValue(0.0F);
  dense.AddTrimValue(-inf);
  dense.AddTrimValue(FLT_MAX);
  for (const float probe : probes) {
    bool expected = false;
    float expectedMatch = 0.0F;
    for (const float t : dense.GetTrimValues()) {
      if (TrimdVarStruct::ValuesMatch(t, probe)) {
        expected = true;
        expectedMatch = t;
        break;
      }
    }
    float found = 0.0F;
    ASSERT_EQ(dense.FindTrimValue(probe, found), expected) << probe;
    if (expected) {
      EXPECT_EQ(found, expectedMatch) << probe;
    }
  }
}

TEST(TrimdVarStruct, RoundTripsItsValuesAndOnlyVersionOne) {
  TrimdVarStruct empty;
  TrimdVarStruct record;
  for (const float value :
       {-std::numeric_limits<float>::infinity(), -99.0F, -0.0F, 1e-45F, 10.0F, FLT_MAX}) {
    record.AddTrimValue(value);
  }
  EXPECT_NE(record, empty);

  TrimdVarStruct copy(record);
  EXPECT_EQ(copy, record);
  copy.AddTrimValue(3.0F);
  EXPECT_NE(copy, record) << "copies share nothing";

  // A read replaces what the record held.
  for (const TrimdVarStruct* original : {&empty, &record}) {
    const std::string bytes = WriteToString(*original);
    TrimdVarStruct read(copy);
    ASSERT_TRUE(ReadFromString(bytes, read));
    EXPECT_EQ(read, *original);
    EXPECT_EQ(WriteToString(read), bytes);
    EXPECT_EQ(TrimdVarStruct::GetVStreamVersionNumber(), 1);
  }
  EXPECT_EQ(WriteToString(empty).substr(0, 4), std::string("\x03TVS", 4));

  // Another version, older or newer, is refused and leaves the record as it was.
  for (const char version : {'\x00', '\x02'}) {
    std::string bytes = WriteToString(record);
    bytes[kVersionOffset] = version;
    TrimdVarStruct read(copy);
    EXPECT_FALSE(ReadFromString(bytes, read)) << static_cast<int>(version);
    EXPECT_EQ(read, copy);
  }
}

TEST(TrimdVarStruct, DamagedStreamsFailCleanly) {
  TrimdVarStruct record;
  record.AddTrimValue(1.0F);
  record.AddTrimValue(2.0F);
  const std::string valid = WriteToString(record);
  TrimdVarStruct before;
  before.AddTrimValue(-7.0F);

  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    TrimdVarStruct read(before);
    if (ReadFromString(bytes, read)) {
      // What reads is a proper set again and writes back to bytes that read the same.
      TrimdVarStruct again;
      ASSERT_TRUE(ReadFromString(WriteToString(read), again));
      EXPECT_EQ(again, read);
    } else {
      EXPECT_EQ(read, before) << "a failed read keeps the record";
    }
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    TrimdVarStruct read;
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), read)) << length;
  }

  // Values the writer never produces: NaN, a value out of order, a value twice, and a count
  // far beyond the bytes present (which must fail before anything is allocated for it).
  const std::string one = FloatBytes(1.0F);
  const std::string two = FloatBytes(2.0F);
  const std::string count = std::string("\x02\x00\x00\x00", 4) + one;
  const std::vector<std::string> damaged{
      Patched(valid, two, FloatBytes(std::numeric_limits<float>::quiet_NaN())),
      Patched(valid, two, FloatBytes(0.5F)),
      Patched(valid, two, one),
      Patched(valid, count, std::string("\xFF\xFF\xFF\xFF", 4) + one),
  };
  for (const std::string& bytes : damaged) {
    TrimdVarStruct read(before);
    EXPECT_FALSE(ReadFromString(bytes, read));
    EXPECT_EQ(read, before);
  }
  // The same two values in order read fine, which shows the patches hit the values.
  TrimdVarStruct read;
  EXPECT_TRUE(ReadFromString(Patched(valid, two, FloatBytes(3.0F)), read));
  EXPECT_EQ(read.GetTrimValues(), (std::set<float>{1.0F, 3.0F}));
}

}  // namespace
