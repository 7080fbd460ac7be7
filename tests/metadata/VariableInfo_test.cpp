#include <gtest/gtest.h>

#include <cfloat>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

// Writes a record as the containers do: its registered class name, then the record.
std::string WritePolymorphic(const VarObsInfo& info) {
  std::ostringstream os;
  WriteBinaryString(OBJCREAT_Details::FactoryRepositoryBase::Instance().GetRealName(typeid(info)),
                    os);
  os << info;
  return os.str();
}

std::unique_ptr<VarObsInfo> ReadPolymorphic(const std::string& bytes) {
  std::istringstream is(bytes);
  std::string name;
  try {
    ReadBinaryString(name, is);
  } catch (const VxStreamError&) {
    return nullptr;
  }
  const auto* factory = OBJCREAT_Details::FactoryRepositoryBase::Instance().GetFactory(name);
  if (!factory) return nullptr;
  std::unique_ptr<VStreamBase> object = factory->Create();
  auto* info = dynamic_cast<VarObsInfo*>(object.get());
  if (!info || !(is >> *object)) return nullptr;
  object.release();
  return std::unique_ptr<VarObsInfo>(info);
}

// A variable stream assembled by hand: the identity part of `id`, then a directory with the
// entries that `fill` writes.
template <class Fill>
std::string HandMadeVariable(const std::string& id, unsigned long uniqueID, Fill fill) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, 4, "VIO");
  os << VarObsInfo(id, uniqueID);
  {
    OutputStreamDirectory directory(os, 12);
    fill(directory);
  }
  return os.str();
}

void WriteRequiredVariableTags(OutputStreamDirectory& directory, std::int32_t sourceModel,
                               std::int32_t reference) {
  WriteToStreamDir(std::string("kg"), directory, 1);
  WriteToStreamDir(std::int16_t{1}, directory, 2);
  WriteToStreamDir(std::string("a+b"), directory, 5);
  WriteToStreamDir(sourceModel, directory, 6);
  WriteToStreamDir(std::int16_t{0}, directory, 7);
  WriteToStreamDir(reference, directory, 8);
}

TEST(VariableInfo, BlocksTypesAndReferences) {
  QuantitativeVariableInfo v("Temp", 1);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eX);
  EXPECT_EQ(v.GetTreatment(), 8);
  EXPECT_EQ(v.GetMaturity(), -99.0F);
  EXPECT_EQ(v.GetSourceModel(), -1);
  EXPECT_TRUE(v.IsIncluded() && v.IsX() && !v.IsY() && !v.IsGenerated());

  v.SetVariableBlock(VariableInfo::eY);
  v.SetIncluded(false);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eExcludedY);
  EXPECT_TRUE(v.IsY() && !v.IsIncluded());
  v.SetIncluded(false);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eExcludedY);
  v.SetIncluded(true);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eY);
  v.SetIncluded(true);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eY);
  v.SetVariableBlock(VariableInfo::eX);
  v.SetIncluded(false);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eExcludedX);
  v.SetVariableBlock(static_cast<VariableInfo::EVariableBlock>(9));
  v.SetIncluded(false);
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eExcludedY);

  for (int type = 0; type <= 21; ++type) {
    const QuantitativeVariableInfo g("G", 2, "", 1, 77,
                                     static_cast<VariableInfo::EVariableType>(type));
    SCOPED_TRACE(type);
    EXPECT_EQ(g.IsGenerated(), type != 0);
    EXPECT_EQ(g.IsSummary(), type >= 6 && type <= 13);
    EXPECT_EQ(g.IsHierarchical(), type >= 14 && type <= 20 && type != 16);
    const bool component = type == 4 || type == 14 || type == 15 || (type >= 17 && type <= 20);
    EXPECT_EQ(g.GetComponent(), component ? 77 : -1);
    EXPECT_EQ(g.GetDAClass(), type == 16 ? 77 : -1);
    EXPECT_EQ(g.GetSourceVariable(), type >= 5 && type <= 13 ? 77UL : NCUniqueIDs::kNone);
  }
}

TEST(VariableInfo, ClassesSourceNamesAndClones) {
  QuantitativeVariableInfo v("Temp", 1);
  v.AddClasses({5}, 3);
  EXPECT_EQ(v.GetClasses(), (std::set<int>{1, 2, 3, 5}));
  v.AddClasses({7}, 9);  // already has classes: only 7 is added
  EXPECT_EQ(v.GetClasses(), (std::set<int>{1, 2, 3, 5, 7}));
  QuantitativeVariableInfo none("P", 2);
  none.AddClasses({2}, 0);
  EXPECT_EQ(none.GetClasses(), std::set<int>{2});

  NCVariables vars;
  vars.AddSecondaryID("Tag");
  vars.AddSecondaryID("$sourceid");
  const Strings labels{"", "Tag", "$SOURCEID"};
  vars.Set_ID_Labels(&labels);
  EXPECT_EQ(vars.GetSourceIDSeries(), 3);
  QuantitativeVariableInfo derived("dT", 3);
  derived.AddID("t1");
  derived.AddID("Temp");
  EXPECT_EQ(derived.GetSourceName(vars, {1, 2, 3}), "Temp");
  EXPECT_EQ(derived.GetSourceName(vars, {1, 3}), "t1");  // the map puts the series at 2
  EXPECT_EQ(derived.GetSourceName(vars, {1, 2}), "");
  EXPECT_EQ(QuantitativeVariableInfo("x", 4).GetSourceName(vars, {1, 2, 3}), "");
  EXPECT_EQ(derived.GetSourceName(NCVariables(), {1, 2, 3}), "");

  v.SetUnit("°C");
  v.SetTreatment(3);
  std::unique_ptr<VariableInfo> copy(v.Clone());
  EXPECT_EQ(copy->AsQuantitativeVariableInfo(), copy.get());
  EXPECT_EQ(copy->GetUnit(), "°C");
  EXPECT_EQ(copy->GetClasses(), v.GetClasses());
  EXPECT_EQ(copy->GetUniqueID(), 1u);
  EXPECT_EQ(copy->AsVariableInfo(), copy.get());
  EXPECT_EQ(copy->AsObservationInfo(), nullptr);
  EXPECT_EQ(copy->AsQualitativeVariableInfo(), nullptr);
  EXPECT_EQ(copy->AsDateTimeVariableInfo(), nullptr);
}

TEST(VariableInfo, QuantitativeTextRoundTrips) {
  QuantitativeVariableInfo v("Temp", 1);
  EXPECT_FLOAT_EQ(v.Encode("1.5"), 1.5F);
  EXPECT_FLOAT_EQ(v.Encode("  -2e3 "), -2000.0F);
  EXPECT_EQ(v.Encode("abc"), -99.0F);
  EXPECT_EQ(v.Encode(""), -99.0F);
  EXPECT_EQ(v.Encode("1,5"), -99.0F);
  EXPECT_EQ(v.Encode(nullptr), -99.0F);
  EXPECT_EQ(v.Decode(-99.0F), "");
  EXPECT_EQ(v.Decode(0.5F), "0.5");
  EXPECT_EQ(v.Decode(1234567.0F), "1.23457e+06");
  EXPECT_EQ(v.Decode(100.0F), "100");
  EXPECT_EQ(v.Decode(0.0001F), "0.0001");
  EXPECT_FLOAT_EQ(v.Encode(v.Decode(3.14159F).c_str()), 3.14159F);
}

TEST(VariableInfo, QualitativeLevelsEncodeAndDecode) {
  const NCStringVector levels(Strings{"Low", "High"});
  QualitativeVariableInfo q("Grade", 1, &levels);
  EXPECT_TRUE(q.IsQualitative());
  EXPECT_EQ(q.GetSourceModel(), -1);
  EXPECT_EQ(q.GetReference(), -1);
  EXPECT_EQ(q.Encode("  high"), 2.0F);
  EXPECT_EQ(q.Encode("LOW"), 1.0F);
  EXPECT_EQ(q.Encode(""), -99.0F);
  EXPECT_EQ(q.Encode(" \t"), -99.0F);
  EXPECT_EQ(q.Encode("Mid"), FLT_MAX);
  EXPECT_EQ(q.Encode("High "), FLT_MAX);  // trailing blanks are part of the text
  EXPECT_EQ(q.Decode(1.99999F), "High");
  EXPECT_EQ(q.Decode(1.0F), "Low");
  EXPECT_EQ(q.Decode(0.0F), "");
  EXPECT_EQ(q.Decode(3.0F), "");
  EXPECT_EQ(q.Decode(-99.0F), "");
  EXPECT_EQ(q.Decode(FLT_MAX), "");
  EXPECT_EQ(q.Decode(-FLT_MAX), "");

  q.AppendSetting("   ");
  q.AppendSetting("");
  q.AppendSetting(nullptr);
  EXPECT_EQ(q.SizeSettings(), 2);
  q.AppendSetting(" Mid");  // kept as given: leading blanks make it unreachable by text
  q.AppendSetting("low");   // a duplicate name: the first level still encodes
  EXPECT_EQ(q.SizeSettings(), 4);
  EXPECT_EQ(q.GetSettingName(3), " Mid");
  EXPECT_EQ(q.GetSettingName(5), "");
  EXPECT_EQ(q.GetSettingName(0), "");
  EXPECT_EQ(q.Encode("LOW"), 1.0F);
  EXPECT_EQ(q.Decode(4.0F), "low");

  // Many levels: each one is found whatever its case.
  QualitativeVariableInfo many("Lot", 2, nullptr);
  for (int k = 1; k <= 1000; ++k) many.AppendSetting(("Level" + std::to_string(k)).c_str());
  for (int k = 1; k <= 1000; k += 37) {
    EXPECT_EQ(many.Encode(("LEVEL" + std::to_string(k)).c_str()), static_cast<float>(k));
  }
  EXPECT_EQ(many.Encode("Level1001"), FLT_MAX);
}

TEST(VariableInfo, QualitativeIndicatorColumns) {
  EXPECT_EQ(QualitativeVariableInfo::Expand(-99.0F, 1), -99.0F);
  EXPECT_EQ(QualitativeVariableInfo::Expand(2.0F, 2), 1.0F);
  EXPECT_EQ(QualitativeVariableInfo::Expand(1.99995F, 2), 1.0F);
  EXPECT_EQ(QualitativeVariableInfo::Expand(3.0F, 2), 0.0F);
  EXPECT_EQ(QualitativeVariableInfo::Expand(FLT_MAX, 2), 0.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({0.0F, 1.0F, 0.0F}), 2.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({0.0F, 0.0F}), 0.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({}), 0.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({1.0F, 1.0F}), -99.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({0.0F, 0.5F}), -99.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({2.0F}), -99.0F);
  EXPECT_EQ(QualitativeVariableInfo::Collapse({-99.0F}), -99.0F);
  // Expanding a column into indicators and collapsing them gives the codes back.
  for (float code : {1.0F, 2.0F, 3.0F}) {
    std::vector<float> indicators;
    for (int level = 1; level <= 3; ++level) {
      indicators.push_back(QualitativeVariableInfo::Expand(code, level));
    }
    EXPECT_EQ(QualitativeVariableInfo::Collapse(indicators), code);
  }
}

TEST(VariableInfo, StreamsKeepEveryFieldThroughTheFactory) {
  QuantitativeVariableInfo v("Temp", 4000000000UL, "x*2", 3, 12,
                             static_cast<VariableInfo::EVariableType>(7));
  v.AddID("T-1");
  v.SetUnit("°C");
  v.SetVariableBlock(VariableInfo::eExcludedY);
  v.SetTreatment(2);
  v.SetClasses({1, 4, 9});
  std::unique_ptr<VarObsInfo> read = ReadPolymorphic(WritePolymorphic(v));
  ASSERT_TRUE(read);
  const QuantitativeVariableInfo* q = read->AsVariableInfo()->AsQuantitativeVariableInfo();
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(q->GetUserIDs(), v.GetUserIDs());
  EXPECT_EQ(q->GetUniqueID(), 4000000000UL);
  EXPECT_EQ(q->GetUnit(), "°C");
  EXPECT_EQ(q->GetRecipe(), "x*2");
  EXPECT_EQ(q->GetVariableBlock(), VariableInfo::eExcludedY);
  EXPECT_EQ(q->GetVariableType(), 7);
  EXPECT_EQ(q->GetSourceModel(), 3);
  EXPECT_EQ(q->GetSourceVariable(), 12u);
  EXPECT_EQ(q->GetTreatment(), 2);
  EXPECT_EQ(q->GetClasses(), (std::set<int>{1, 4, 9}));
  EXPECT_EQ(q->GetMaturity(), -99.0F);

  const NCStringVector levels(Strings{"b", "A", "c"});
  QualitativeVariableInfo grade("Grade", 5, &levels, "recipe");
  grade.AppendSetting("D");
  read = ReadPolymorphic(WritePolymorphic(grade));
  ASSERT_TRUE(read);
  const QualitativeVariableInfo* g = read->AsVariableInfo()->AsQualitativeVariableInfo();
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->GetSettings(), grade.GetSettings());
  EXPECT_EQ(g->GetSettingsMap(), grade.GetSettingsMap());
  EXPECT_EQ(g->GetRecipe(), "recipe");
  EXPECT_EQ(g->Encode("d"), 4.0F);

  ObservationInfo obs(Strings{"O1", "B7"}, 9);
  obs.SetBatch(77);
  obs.SetDefaultClass(2);
  read = ReadPolymorphic(WritePolymorphic(obs));
  ASSERT_TRUE(read && read->AsObservationInfo());
  EXPECT_EQ(read->AsObservationInfo()->GetBatch(), 77u);
  EXPECT_EQ(read->GetUserIDs(), obs.GetUserIDs());
}

TEST(VariableInfo, ReadingRepairsModelVariablesAndAppliesDefaults) {
  const auto repaired = [](const std::string& id, std::int32_t sourceModel,
                           std::int32_t reference) {
    auto v = std::make_unique<QuantitativeVariableInfo>();
    const std::string bytes = HandMadeVariable(id, 1, [&](OutputStreamDirectory& d) {
      WriteRequiredVariableTags(d, sourceModel, reference);
    });
    EXPECT_TRUE(ReadFromString(bytes, *v)) << id;
    return v;
  };
  auto score = repaired("$M3.t2", 3, 0);
  EXPECT_EQ(score->GetVariableType(), VariableInfo::eScore);
  EXPECT_EQ(score->GetComponent(), 2);
  auto residual = repaired("$M3.XVarRes4", 3, 0);
  EXPECT_EQ(residual->GetVariableType(), VariableInfo::eXResidual);
  EXPECT_EQ(residual->GetComponent(), 4);
  EXPECT_EQ(repaired("$M3.t2", 0, 0)->GetVariableType(), 0);  // no model: left alone
  EXPECT_EQ(repaired("$M3.t2", 3, 5)->GetReference(), 5);     // has its reference
  EXPECT_EQ(repaired("Temp", 3, 0)->GetVariableType(), 0);

  // Optional entries absent: no classes, treatment 8, maturity missing.
  QuantitativeVariableInfo v("old", 1);
  v.SetTreatment(1);
  v.SetClasses({3});
  ASSERT_TRUE(ReadFromString(
      HandMadeVariable("x", 2,
                       [](OutputStreamDirectory& d) { WriteRequiredVariableTags(d, -1, 0); }),
      v));
  EXPECT_EQ(v.GetTreatment(), 8);
  EXPECT_TRUE(v.GetClasses().empty());
  EXPECT_EQ(v.GetMaturity(), -99.0F);
  EXPECT_EQ(v.GetUnit(), "kg");
  EXPECT_EQ(v.GetVariableBlock(), VariableInfo::eY);
  EXPECT_EQ(v.GetPrimaryAlias(), "x");

  // A required entry absent: the read fails.
  EXPECT_FALSE(ReadFromString(HandMadeVariable("x", 2,
                                               [](OutputStreamDirectory& d) {
                                                 WriteToStreamDir(std::string("kg"), d, 1);
                                                 WriteToStreamDir(std::int16_t{1}, d, 2);
                                               }),
                              v));
}

TEST(VariableInfo, VersionsAndHandMadeQualitativeStreams) {
  const std::string quantitative = WriteToString(QuantitativeVariableInfo("Temp", 1));
  QuantitativeVariableInfo v;
  std::string old = quantitative;
  old[4] = 3;  // "VIO" version 3
  EXPECT_FALSE(ReadFromString(old, v));
  old[4] = 5;
  EXPECT_FALSE(ReadFromString(old, v));

  const NCStringVector levels(Strings{"Low", "High"});
  const std::string qualitative = WriteToString(QualitativeVariableInfo("Grade", 1, &levels));
  QualitativeVariableInfo q;
  for (char version : {1, 2, 3, 4}) {
    std::string bytes = qualitative;
    bytes[4] = version;  // "QVI" version
    EXPECT_EQ(ReadFromString(bytes, q), version == 2 || version == 3) << int{version};
  }

  // Without its sorted map, or with one that does not match the levels, the map is rebuilt.
  const auto handMade = [&](bool withMap, const std::string& mapName) {
    std::ostringstream os;
    VStreamLight::WriteMagicStringAndVersionNumber(os, 3, "QVI");
    os << quantitative;
    OutputStreamDirectory directory(os, 2);
    WriteToStreamDir(levels, directory, 0);
    if (withMap) {
      std::ostream& map = directory.GetOutput(1);
      const std::uint32_t count = 1;
      const std::int32_t code = 1;
      WriteFourBytes(&count, 1, map);
      WriteBinaryString(mapName, map);
      WriteFourBytes(&code, 1, map);
    }
    directory.Close();
    return os.str();
  };
  for (const std::string& bytes : {handMade(false, ""), handMade(true, "Low")}) {
    QualitativeVariableInfo r;
    ASSERT_TRUE(ReadFromString(bytes, r));
    EXPECT_EQ(r.GetSettingsMap().size(), 2u);
    EXPECT_EQ(r.Encode("high"), 2.0F);
    EXPECT_EQ(r.GetPrimaryAlias(), "Temp");
  }
}

TEST(VariableInfo, DamagedStreamsFailCleanly) {
  const NCStringVector levels(Strings{"Low", "High", "Mid"});
  QualitativeVariableInfo q("Grade", 3, &levels, "r");
  q.AddID("G");
  q.SetClasses({1, 2});
  const std::string valid = WritePolymorphic(q);
  std::size_t succeeded = 0;
  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    std::unique_ptr<VarObsInfo> read = ReadPolymorphic(bytes);
    if (read) {
      ++succeeded;
      WriteToString(*read);  // whatever was read can be written again
    }
  });
  // Every truncation fails; only flips inside values may still read.
  EXPECT_LT(succeeded, valid.size());
  for (std::size_t length = 0; length < valid.size(); ++length) {
    ASSERT_FALSE(ReadPolymorphic(valid.substr(0, length))) << length;
  }
}

}  // namespace
