#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;

ClassInfoVector DefaultPhases() {
  ClassInfoVector phases;
  phases.push_back(boost::make_shared<ClassInfo>("P1"));
  phases.push_back(boost::make_shared<ClassInfo>("P2"));
  phases.back()->SetYVariableID(77);
  return phases;
}

// Settings with every streamed field away from its default.
BatchImportSettings FullSettings() {
  BatchImportSettings settings;
  settings.SetBatchID(2);
  settings.SetPhaseID(3);
  settings.SetProjectType(static_cast<BatchImportSettings::EProjectType>(-7));
  settings.SetSourceVar(4000000000UL, 12);
  settings.SetSourceVar(5, 6);
  const ClassInfoVector phases = DefaultPhases();
  settings.SetDefaultClassInfoVector(&phases);
  return settings;
}

// A "WSINFO" stream of version 2 whose source-variable entry holds `map` as given.
std::string WithSourceMap(const std::string& map, bool skipMap = false) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, 2, "WSINFO");
  OutputStreamDirectory directory(os, 5);
  WriteToStreamDir(std::int16_t{1}, directory, 0);
  WriteToStreamDir(std::int32_t{1}, directory, 5);
  WriteToStreamDir(std::int32_t{0}, directory, 6);
  if (!skipMap) directory.GetOutput(7) << map;
  directory.Close();
  return os.str();
}

TEST(BatchImportSettings, SourcesDefaultPhasesAndCopies) {
  BatchImportSettings settings;
  EXPECT_FALSE(settings.IsBatch());
  EXPECT_EQ(settings.GetSourceVar(5, nullptr), NCUniqueIDs::kNone);
  settings.SetSourceVar(5, 6);
  settings.SetSourceVar(5, 8);
  EXPECT_EQ(settings.GetSourceVar(5, nullptr), 8u);
  EXPECT_EQ(settings.GetSourceVar(6, nullptr), NCUniqueIDs::kNone);
  EXPECT_THROW(settings.SetSourceVar(1UL << 32, 1), InvalidArgument);
  settings.SetBatchID(1);
  EXPECT_TRUE(settings.IsBatch());

  const ClassInfoVector phases = DefaultPhases();
  settings.SetDefaultClassInfoVector(&phases);
  ASSERT_NE(settings.GetDefaultClassInfoVector(), nullptr);
  EXPECT_EQ(*settings.GetDefaultClassInfoVector(), phases);
  EXPECT_NE((*settings.GetDefaultClassInfoVector())[0].get(), phases[0].get());
  settings.SetDefaultClassInfoVector(settings.GetDefaultClassInfoVector());  // itself: kept
  ASSERT_NE(settings.GetDefaultClassInfoVector(), nullptr);

  BatchImportSettings copy(settings);
  EXPECT_EQ(copy, settings);
  (*copy.GetDefaultClassInfoVector())[0]->SetPhaseName("renamed");
  EXPECT_EQ((*settings.GetDefaultClassInfoVector())[0]->GetPhaseName(), "P1");
  EXPECT_NE(copy, settings);
  copy = settings;
  EXPECT_EQ(copy, settings);
  EXPECT_NE((*copy.GetDefaultClassInfoVector())[1].get(),
            (*settings.GetDefaultClassInfoVector())[1].get());

  settings.SetDefaultClassInfoVector(nullptr);
  EXPECT_EQ(settings.GetDefaultClassInfoVector(), nullptr);
  EXPECT_NE(copy, settings);
  EXPECT_NE(settings, copy);
}

VariableInfo* AddVariable(NCVariables& variables, unsigned long id,
                          VariableInfo::EVariableBlock block) {
  VariableInfo* variable =
      variables.Add(std::make_unique<QuantitativeVariableInfo>("V" + std::to_string(id), id));
  variable->SetVariableBlock(block);
  return variable;
}

TEST(BatchImportSettings, NewVariablesFitIntoTheDefaultPhases) {
  NCVariables variables;
  VariableInfo* first = AddVariable(variables, 10, VariableInfo::eX);
  VariableInfo* second = AddVariable(variables, 11, VariableInfo::eExcludedX);
  VariableInfo* third = AddVariable(variables, 12, VariableInfo::eX);

  BatchImportSettings settings = FullSettings();  // P1 without a Y, P2 with Y 77
  const ClassInfoVector before = *settings.GetDefaultClassInfoVector();
  settings.IncludeNewVar(99, &variables);  // no such variable
  settings.IncludeNewVar(10, nullptr);
  EXPECT_EQ(*settings.GetDefaultClassInfoVector(), before);
  EXPECT_EQ(first->GetVariableBlock(), VariableInfo::eX);

  // The first one becomes the Y of P1, the only included Y.
  settings.IncludeNewVar(10, &variables);
  const ClassInfoVector& phases = *settings.GetDefaultClassInfoVector();
  EXPECT_EQ(phases[0]->GetYVariableID(), 10u);
  EXPECT_TRUE(phases[0]->IsIncluded(10));
  EXPECT_EQ(phases[1]->GetYVariableID(), 77u);
  EXPECT_FALSE(phases[1]->IsIncluded(10));
  EXPECT_EQ(first->GetVariableBlock(), VariableInfo::eY);

  // Every phase has a Y now: the next one is excluded from all of them, and from models
  // since an included Y exists.
  settings.IncludeNewVar(11, &variables);
  EXPECT_FALSE(phases[0]->IsIncluded(11));
  EXPECT_FALSE(phases[1]->IsIncluded(11));
  EXPECT_EQ(phases[0]->GetYVariableID(), 10u);
  EXPECT_EQ(second->GetVariableBlock(), VariableInfo::eExcludedY);

  // Outside a batch import the phases stay as they are. An included Y that is the only one
  // does not count itself.
  settings.SetBatchID(0);
  first->SetVariableBlock(VariableInfo::eExcludedX);
  third->SetVariableBlock(VariableInfo::eY);
  const ClassInfoVector after = phases;
  settings.IncludeNewVar(12, &variables);
  EXPECT_EQ(phases, after);
  EXPECT_EQ(third->GetVariableBlock(), VariableInfo::eY);
}

TEST(BatchImportSettings, StreamRoundTripAndRefusals) {
  const BatchImportSettings written = FullSettings();
  const std::string bytes = WriteToString(written);
  ASSERT_FALSE(bytes.empty());
  BatchImportSettings read;
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, written);
  EXPECT_EQ(read.GetSourceVar(4000000000UL, nullptr), 12u);
  EXPECT_EQ(WriteToString(read), bytes);

  // Reading starts from empty settings: nothing of the former default phases is left.
  ASSERT_TRUE(ReadFromString(WriteToString(BatchImportSettings()), read));
  EXPECT_EQ(read, BatchImportSettings());

  ASSERT_TRUE(ReadFromString(WithSourceMap(std::string(4, '\0')), read));
  EXPECT_EQ(read.GetProjectType(), 1);
  EXPECT_FALSE(ReadFromString(WithSourceMap("", true), read));
  const std::string outOfOrder("\x02\0\0\0\x05\0\0\0\x01\0\0\0\x05\0\0\0\x02\0\0\0", 20);
  EXPECT_FALSE(ReadFromString(WithSourceMap(outOfOrder), read));
  const std::string tooMany("\xff\xff\xff\x0f\x05\0\0\0\x01\0\0\0", 12);
  EXPECT_FALSE(ReadFromString(WithSourceMap(tooMany), read));

  for (const std::uint16_t version : {1, 3}) {
    std::string other = bytes;
    other[7] = static_cast<char>(version);
    EXPECT_FALSE(ReadFromString(other, read)) << version;
  }
}

TEST(BatchImportSettings, DamagedStreamsFailOrRoundTrip) {
  const std::string valid = WriteToString(FullSettings());
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    BatchImportSettings read;
    if (!ReadFromString(bytes, read)) return;
    const std::string again = WriteToString(read);
    BatchImportSettings second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(second, read);
    EXPECT_EQ(WriteToString(second), again);
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    BatchImportSettings read;
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), read)) << length;
  }
}

}  // namespace
