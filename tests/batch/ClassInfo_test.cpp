#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <sstream>
#include <string>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

boost::shared_ptr<ClassInfo> Phase(const char* name, int numObs, bool included = true) {
  auto phase = boost::make_shared<ClassInfo>(name);
  phase->SetNumObs(numObs);
  phase->SetIncluded(included);
  return phase;
}

// A phase with every streamed field away from its default.
boost::shared_ptr<ClassInfo> FullPhase() {
  auto phase = Phase("Heating", 17, false);
  phase->SetPhaseName("Heat-up");
  phase->SetYVariableID(4000000000UL);
  phase->SetAverageLength(12);
  phase->SetIncluded(7, false);
  phase->SetIncluded(3262240002UL, false);
  return phase;
}

// Exposes one stream pass so that a test can write twice before the pass ends.
class PassClassInfo : public ClassInfo {
 public:
  PassClassInfo() : ClassInfo("P") {}
  using ClassInfo::VStreamableReset;
  using ClassInfo::VStreamableStartWrite;
};

// A "DPINFO" stream of `version` with the entries of tags 1..7 except `skipTag`.
std::string HandMadePhase(std::int16_t version, std::uint16_t skipTag) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, static_cast<std::uint16_t>(version), "DPINFO");
  OutputStreamDirectory directory(os, 7);
  if (skipTag != 1) WriteToStreamDir(std::int32_t{5}, directory, 1);
  if (skipTag != 2) WriteToStreamDir(std::string("orig"), directory, 2);
  if (skipTag != 3) WriteToStreamDir(std::string("name"), directory, 3);
  if (skipTag != 4) WriteToStreamDir(std::uint32_t{9}, directory, 4);
  if (skipTag != 5) WriteToStreamDir(std::int32_t{3}, directory, 5);
  if (skipTag != 6) WriteToStreamDir(false, directory, 6);
  if (skipTag != 7) WriteToStreamDir(NCIntegralVector<unsigned long, 0>(2, 8UL), directory, 7);
  directory.Close();
  return os.str();
}

TEST(ClassInfo, ExclusionListAndEquality) {
  ClassInfo phase("P1");
  EXPECT_TRUE(phase.IsIncluded(42));

  phase.SetIncluded(42, false);
  phase.SetIncluded(42, false);
  phase.SetIncluded(7, true);  // not listed: nothing happens
  EXPECT_EQ(phase.GetExcludedVariablesVector().size(), 1u);
  EXPECT_FALSE(phase.IsIncluded(42));
  EXPECT_TRUE(phase.IsIncluded(7));
  // A list edited by hand to hold an ID twice loses one listing per inclusion.
  phase.GetExcludedVariablesVector().push_back(42);
  phase.SetIncluded(42, true);
  EXPECT_FALSE(phase.IsIncluded(42));
  phase.SetIncluded(42, true);
  EXPECT_TRUE(phase.IsIncluded(42));
  EXPECT_TRUE(phase.GetExcludedVariablesVector().empty());

  phase.SetPhaseName(nullptr);
  EXPECT_EQ(phase.GetPhaseName(), "");
  EXPECT_EQ(phase.GetOriginalName(), "P1");

  // Every field takes part in equality, the in-memory status too.
  const auto base = FullPhase();
  const auto clone = base->Clone();
  EXPECT_EQ(*clone, *base);
  EXPECT_NE(clone.get(), base.get());
  const auto edits = {
      +[](ClassInfo& p) { p.SetOriginalName("x"); },
      +[](ClassInfo& p) { p.SetPhaseName("x"); },
      +[](ClassInfo& p) { p.SetYVariableID(1); },
      +[](ClassInfo& p) { p.SetNumObs(1); },
      +[](ClassInfo& p) { p.SetAverageLength(1); },
      +[](ClassInfo& p) { p.SetIncluded(true); },
      +[](ClassInfo& p) { p.SetIncluded(7, true); },
      +[](ClassInfo& p) { p.SetPhaseStatus(static_cast<ClassInfo::EPhaseStatus>(3)); }};
  for (const auto& edit : edits) {
    const auto changed = base->Clone();
    edit(*changed);
    EXPECT_NE(*changed, *base);
  }
}

TEST(ClassInfo, StreamRoundTripAndRefusals) {
  const auto written = FullPhase();
  written->SetPhaseStatus(static_cast<ClassInfo::EPhaseStatus>(5));
  const std::string bytes = WriteToString(*written);
  ASSERT_FALSE(bytes.empty());

  ClassInfo read("other");
  read.SetPhaseStatus(static_cast<ClassInfo::EPhaseStatus>(9));
  ASSERT_TRUE(ReadFromString(bytes, read));
  // The status is not streamed: it reads back as 0 whatever either side had.
  EXPECT_EQ(read.GetPhaseStatus(), ClassInfo::eNormal);
  read.SetPhaseStatus(written->GetPhaseStatus());
  EXPECT_EQ(read, *written);
  EXPECT_EQ(WriteToString(read), bytes);  // a second pass writes the same again

  EXPECT_TRUE(ReadFromString(HandMadePhase(4, 0), read));
  EXPECT_EQ(read.GetNumObs(), 3);
  EXPECT_EQ(read.GetExcludedVariablesVector().size(), 2u);
  for (const std::int16_t version : {3, 5, -4}) {
    ClassInfo refused("keep");
    refused.SetAverageLength(8);
    EXPECT_FALSE(ReadFromString(HandMadePhase(version, 0), refused)) << version;
    EXPECT_EQ(refused.GetPhaseName(), "keep");
    EXPECT_EQ(refused.GetAverageLength(), -1);  // reset before anything is checked
  }
  for (std::uint16_t tag = 1; tag <= 7; ++tag) {
    ClassInfo missing("keep");
    EXPECT_FALSE(ReadFromString(HandMadePhase(4, tag), missing)) << tag;
    if (tag == 7) {
      // What came before the missing entry stays read.
      EXPECT_EQ(missing.GetPhaseName(), "name");
      EXPECT_EQ(missing.GetNumObs(), 3);
    }
  }
}

TEST(ClassInfo, WrittenOncePerPass) {
  PassClassInfo phase;
  std::ostringstream os;
  ASSERT_TRUE(phase.VStreamableStartWrite(os));
  const std::size_t once = os.str().size();
  ASSERT_TRUE(phase.VStreamableStartWrite(os));
  EXPECT_EQ(os.str().size(), once);
  phase.VStreamableReset();
  ASSERT_TRUE(phase.VStreamableStartWrite(os));
  EXPECT_EQ(os.str().size(), 2 * once);
}

// ---------------------------------------------------------------------------------------------

ClassInfoVector ThreePhases() {
  ClassInfoVector phases;
  phases.push_back(Phase("P1", 4));
  phases.push_back(boost::shared_ptr<ClassInfo>());  // an empty slot
  phases.push_back(FullPhase());
  return phases;
}

std::string StreamForm(const ClassInfoVector& phases) {
  std::ostringstream os;
  EXPECT_TRUE(phases.WriteToStream(os));
  return os.str();
}

TEST(ClassInfoVector, CopiesAreDeepAndCompareByValue) {
  const ClassInfoVector source = ThreePhases();
  ClassInfoVector copy(source);
  ASSERT_EQ(copy.size(), 3u);
  EXPECT_EQ(copy, source);
  EXPECT_EQ(copy[1], nullptr);
  for (std::size_t i : {0u, 2u}) EXPECT_NE(copy[i].get(), source[i].get());
  copy[0]->SetPhaseName("renamed");
  EXPECT_EQ(source[0]->GetPhaseName(), "P1");
  EXPECT_NE(copy, source);

  ClassInfoVector assigned;
  assigned = source;
  EXPECT_EQ(assigned, source);
  EXPECT_NE(assigned[2].get(), source[2].get());
  const ClassInfoVector& self = assigned;
  assigned = self;
  EXPECT_EQ(assigned, source);
  ClassInfoVector moved(std::move(assigned));
  EXPECT_EQ(moved, source);

  // An empty slot equals only an empty slot; length counts.
  ClassInfoVector filled(source);
  filled[1] = Phase("P1", 4);
  EXPECT_NE(filled, source);
  EXPECT_NE(source, filled);
  filled.erase(filled.begin() + 1, filled.end());
  EXPECT_NE(filled, source);
  EXPECT_EQ(ClassInfoVector(), ClassInfoVector());
}

TEST(ClassInfoVector, StreamFormRoundTripsAndRefusesDamage) {
  const ClassInfoVector source = ThreePhases();
  const std::string bytes = StreamForm(source);
  ASSERT_GE(bytes.size(), 6u);
  EXPECT_EQ(bytes.substr(0, 5), std::string("\x03\x00\x00\x00\x01", 5));
  std::istringstream is(bytes);
  const auto read = ClassInfoVector::ReadFromStream(is);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(*read, source);
  EXPECT_EQ(is.tellg(), static_cast<std::streamoff>(bytes.size()));

  const std::string empty = StreamForm(ClassInfoVector());
  EXPECT_EQ(empty, std::string(4, '\0'));
  std::istringstream emptyStream(empty);
  EXPECT_TRUE(ClassInfoVector::ReadFromStream(emptyStream)->empty());

  // A presence byte other than 0 or 1, and a count the bytes cannot hold.
  for (const std::string& bad :
       {std::string("\x01\x00\x00\x00\x02", 5), std::string("\xff\xff\xff\xff\x00\x00", 6)}) {
    std::istringstream badStream(bad);
    EXPECT_THROW(ClassInfoVector::ReadFromStream(badStream), VxStreamError);
  }
}

}  // namespace
