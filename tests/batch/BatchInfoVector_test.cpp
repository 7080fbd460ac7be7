#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using Strings = std::vector<std::string>;

boost::shared_ptr<BatchInfo> Batch(const char* name, const char* phaseName) {
  auto batch = boost::make_shared<BatchInfo>(name);
  auto* phases = new ClassInfoVector;
  phases->push_back(boost::make_shared<ClassInfo>(phaseName));
  batch->SetClassVectorPtr(phases);
  const NCDataVector<float> values(1, 2.5F);
  batch->SetBatchConditionValues(&values);
  return batch;
}

BatchInfoVector TwoBatchesAndAGap() {
  BatchInfoVector batches;
  batches.push_back(Batch("B1", "P1"));
  batches.push_back(boost::shared_ptr<BatchInfo>());
  batches.push_back(Batch("B2", "P2"));
  batches.back()->SetIncluded(false);
  NCIntegralVector<unsigned long, 0> ids;
  ids.push_back(4000000000UL);
  batches.SetBCVariableIDs(ids);
  return batches;
}

// A "BI" stream of `version` holding the entries whose tags are listed.
std::string HandMadeVector(std::int16_t version, const std::vector<int>& tags) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, static_cast<std::uint16_t>(version), "BI");
  OutputStreamDirectory directory(os, 5);
  for (const int tag : tags) {
    if (tag == 0) WriteToStreamDir(std::uint32_t{0}, directory, 0);
    if (tag == 3) WriteToStreamDir(NCIntegralVector<unsigned long, 0>(1, 5UL), directory, 3);
  }
  directory.Close();
  return os.str();
}

TEST(BatchInfoVector, CopiesAreDeepToThePhases) {
  const BatchInfoVector source = TwoBatchesAndAGap();
  EXPECT_EQ(source.GetBatchNames().GetVector(), (Strings{"B1", "", "B2"}));

  BatchInfoVector copy(source);
  EXPECT_EQ(copy, source);
  EXPECT_EQ(copy[1], nullptr);
  EXPECT_NE(copy[0].get(), source[0].get());
  (*copy[0]->GetClassVector())[0]->SetPhaseName("renamed");
  EXPECT_EQ((*source[0]->GetClassVector())[0]->GetPhaseName(), "P1");
  EXPECT_NE(copy, source);

  BatchInfoVector assigned;
  assigned = source;
  EXPECT_EQ(assigned, source);
  EXPECT_NE(assigned[2].get(), source[2].get());

  // The batch-condition IDs take part in equality; the old-format conditions do not.
  assigned.SetBCVariableIDs(NCIntegralVector<unsigned long, 0>());
  EXPECT_NE(assigned, source);
  BatchInfoVector legacy(source);
  legacy.OBSOLETE_SetBatchConditions(NCStringVector(Strings{"Temp"}), {2});
  EXPECT_EQ(legacy, source);
  EXPECT_EQ(BatchInfoVector(legacy).OBSOLETE_GetBatchConditionKinds(), std::vector<int>{2});
  legacy.erase(legacy.begin());
  EXPECT_NE(legacy, source);
}

// An old-format batch: its numeric conditions as values, all conditions as texts.
boost::shared_ptr<BatchInfo> OldBatch(const char* name, const NCDataVector<float>& values,
                                      const Strings& texts) {
  auto batch = boost::make_shared<BatchInfo>(name);
  batch->SetBatchConditionValues(&values);
  batch->OBSOLETE_GetQualitativeValues() = NCStringVector(texts);
  return batch;
}

NCDataVector<float> Values(std::initializer_list<float> values) {
  NCDataVector<float> vector;
  for (const float v : values) vector.push_back(v);
  return vector;
}

TEST(BatchInfoVector, OldBatchConditionsBecomeVariables) {
  const auto project = NCProject::Create();
  BatchInfoVector batches;
  batches.push_back(OldBatch("B1", Values({20, 1}), {"red", "", "", "round"}));
  batches.push_back(boost::shared_ptr<BatchInfo>());
  batches.push_back(OldBatch("B2", Values({21, 2}), {"blue", "", "", ""}));
  batches.push_back(OldBatch("B3", Values({22, 3}), {"red", "", "", "square"}));
  batches.OBSOLETE_SetBatchConditions(NCStringVector(Strings{"Color", "Temp", "Size", "Shape"}),
                                      {1, 2, 0, 1});
  BatchInfoVector failing(batches);
  ASSERT_TRUE(batches.UpdateBCIDsVectorFormat(*project, nullptr));

  EXPECT_EQ(*batches[0]->GetBatchConditionValues(), Values({1, 20, 1, 1}));
  EXPECT_EQ(*batches[2]->GetBatchConditionValues(), Values({2, 21, 2, -99}));
  EXPECT_EQ(*batches[3]->GetBatchConditionValues(), Values({1, 22, 3, 2}));
  const NCIntegralVector<unsigned long, 0> ids = batches.GetBCVariableIDs();
  ASSERT_EQ(ids.size(), 4u);
  const NCVariables& variables = project->GetVariables();
  const Strings names{"Color", "Temp", "Size", "Shape"};
  const VariableInfo::EVariableBlock blocks[] = {VariableInfo::eX, VariableInfo::eY,
                                                 VariableInfo::eX, VariableInfo::eX};
  for (std::size_t i = 0; i < ids.size(); ++i) {
    const VariableInfo* variable = variables[ids[i]];
    ASSERT_NE(variable, nullptr) << i;
    EXPECT_EQ(variable->GetPrimaryAlias(), names[i]);
    EXPECT_EQ(variable->GetVariableType(), VariableInfo::eBatchCondition);
    EXPECT_EQ(variable->GetVariableBlock(), blocks[i]);
    EXPECT_EQ(variable->IsQualitative(), i == 0 || i == 3);
  }
  EXPECT_EQ(variables[ids[0]]->AsQualitativeVariableInfo()->GetSettings().GetVector(),
            (Strings{"red", "blue"}));
  EXPECT_EQ(batches.OBSOLETE_GetBatchConditionNames().size(), 0u);
  EXPECT_TRUE(batches.OBSOLETE_GetBatchConditionKinds().empty());

  // Converted once: a second call changes nothing.
  const BatchInfoVector converted(batches);
  const std::size_t count = variables.size();
  EXPECT_TRUE(batches.UpdateBCIDsVectorFormat(*project, nullptr));
  EXPECT_EQ(batches, converted);
  EXPECT_EQ(variables.size(), count);

  // A batch without the text of a qualitative condition stops the conversion; the batches
  // before it keep their values.
  failing.back()->OBSOLETE_GetQualitativeValues().Clear();
  EXPECT_FALSE(failing.UpdateBCIDsVectorFormat(*project, nullptr));
  EXPECT_EQ(failing[0]->GetBatchConditionValues()->size(), 3u);
  EXPECT_TRUE(failing.GetBCVariableIDs().empty());

  // Names given by the caller are quantitative conditions.
  BatchInfoVector named;
  named.push_back(OldBatch("B", Values({5}), {}));
  const NCStringVector weight(Strings{"Weight"});
  ASSERT_TRUE(named.UpdateBCIDsVectorFormat(*project, &weight));
  ASSERT_EQ(named.GetBCVariableIDs().size(), 1u);
  EXPECT_FALSE(variables[named.GetBCVariableIDs()[0]]->IsQualitative());
  EXPECT_EQ(*named[0]->GetBatchConditionValues(), Values({5}));
}

TEST(BatchInfoVector, StreamRoundTripAndVersions) {
  const BatchInfoVector source = TwoBatchesAndAGap();
  const std::string bytes = WriteToString(source);
  ASSERT_FALSE(bytes.empty());
  BatchInfoVector read;
  read.push_back(Batch("stale", "P"));
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, source);
  EXPECT_EQ(read[1], nullptr);
  EXPECT_EQ(WriteToString(read), bytes);

  // Another version reads nothing but the soundness of the directory: the batches stay, the
  // batch-condition IDs are cleared.
  for (const std::int16_t version : {1, 3}) {
    BatchInfoVector other(source);
    ASSERT_TRUE(ReadFromString(HandMadeVector(version, {}), other)) << version;
    EXPECT_EQ(other.size(), 3u);
    EXPECT_TRUE(other.GetBCVariableIDs().empty());
  }
  ASSERT_TRUE(ReadFromString(HandMadeVector(2, {0, 3}), read));
  EXPECT_TRUE(read.empty());
  EXPECT_EQ(read.GetBCVariableIDs().size(), 1u);
  EXPECT_FALSE(ReadFromString(HandMadeVector(2, {0}), read));
  EXPECT_FALSE(ReadFromString(HandMadeVector(2, {3}), read));
}

TEST(BatchInfoVector, DamagedStreamsFailOrRoundTrip) {
  const std::string valid = WriteToString(TwoBatchesAndAGap());
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    BatchInfoVector read;
    if (!ReadFromString(bytes, read)) return;
    const std::string again = WriteToString(read);
    BatchInfoVector second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(second, read);
    EXPECT_EQ(WriteToString(second), again);
  });
  for (std::size_t length = 0; length < valid.size(); ++length) {
    BatchInfoVector read;
    EXPECT_FALSE(ReadFromString(valid.substr(0, length), read)) << length;
  }
}

}  // namespace
