#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using Strings = std::vector<std::string>;

boost::shared_ptr<ClassInfo> Phase(const char* name, int numObs, bool included) {
  auto phase = boost::make_shared<ClassInfo>(name);
  phase->SetNumObs(numObs);
  phase->SetIncluded(included);
  return phase;
}

// A batch with every streamed field away from its default.
boost::shared_ptr<BatchInfo> FullBatch(const char* name) {
  auto batch = boost::make_shared<BatchInfo>(name);
  batch->SetIncluded(false);
  batch->SetNumObs(30);
  auto* phases = new ClassInfoVector;
  phases->push_back(Phase("P1", 10, true));
  phases->push_back(Phase("P2", 20, false));
  phases->back()->SetIncluded(11, false);
  batch->SetClassVectorPtr(phases);
  NCDataVector<float> values;
  for (const float v : {1.5F, -99.0F, 3.0F}) values.push_back(v);
  batch->SetBatchConditionValues(&values);
  batch->SetBatchConditionSecIDs(Strings{"a", "", "c"});
  batch->OBSOLETE_GetQualitativeValues().push_back("red");
  return batch;
}

// A "DBINFO" stream holding the required entries (name, count, included, values) except
// `skipTag`, of the given version.
std::string HandMadeBatch(std::int16_t version, int skipTag) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, static_cast<std::uint16_t>(version), "DBINFO");
  OutputStreamDirectory directory(os, 7);
  if (skipTag != 0) WriteToStreamDir(std::string("B9"), directory, 0);
  if (skipTag != 1) WriteToStreamDir(std::int32_t{6}, directory, 1);
  if (skipTag != 2) WriteToStreamDir(true, directory, 2);
  if (skipTag != 4) WriteToStreamDir(NCDataVector<float>(2, 4.0F), directory, 4);
  directory.Close();
  return os.str();
}

TEST(BatchInfo, CountsOfObservations) {
  BatchInfo batch("B1");
  batch.SetNumObs(12);
  EXPECT_EQ(batch.GetNumObs(nullptr, false), 12);  // no phase list: the batch's own count
  EXPECT_EQ(batch.GetNumObs("P1", true), 12);

  auto* phases = new ClassInfoVector;
  batch.SetClassVectorPtr(phases);
  EXPECT_EQ(batch.GetNumObs(nullptr, true), 0);
  phases->push_back(Phase("P1", 3, false));
  phases->push_back(Phase("P2", 4, false));
  phases->push_back(boost::shared_ptr<ClassInfo>());
  phases->push_back(Phase("P1", 5, false));
  EXPECT_EQ(batch.GetNumObs(nullptr, false), 0);  // every phase excluded
  EXPECT_EQ(batch.GetNumObs(nullptr, true), 12);
  EXPECT_EQ(batch.GetNumObs("P1", false), 8);  // both listings, included or not
  EXPECT_EQ(batch.GetNumObs("p1", false), 0);
  (*phases)[1]->SetIncluded(true);
  EXPECT_EQ(batch.GetNumObs(nullptr, false), 4);

  batch.SetClassVectorPtr(phases);  // the held list itself: kept
  EXPECT_EQ(batch.GetClassVector()->size(), 4u);
  batch.SetClassVectorPtr(nullptr);
  EXPECT_EQ(batch.GetNumObs(nullptr, false), 12);
  EXPECT_STREQ(BatchInfo::GetGeneratedTimeVariableName(), "$Time");
}

TEST(BatchInfo, ConditionValuesAndDeepCopies) {
  const auto batch = FullBatch("B1");
  batch->SetBatchConditionValue(0, 7.0F);
  batch->SetBatchConditionValue(4, 7.0F);
  batch->SetBatchConditionValue(-1, 7.0F);
  batch->SetBatchConditionValue(3, 8.0F);
  const NCDataVector<float>& values = *batch->GetBatchConditionValues();
  ASSERT_EQ(values.size(), 3u);
  EXPECT_EQ(values[0], 1.5F);
  EXPECT_EQ(values[2], 8.0F);
  batch->SetBatchConditionValues(batch->GetBatchConditionValues());  // itself: kept
  EXPECT_EQ(batch->GetBatchConditionValues()->size(), 3u);

  const auto clone = batch->Clone();
  EXPECT_EQ(*clone, *batch);
  EXPECT_NE(clone->GetClassVector(), batch->GetClassVector());
  EXPECT_NE((*clone->GetClassVector())[0].get(), (*batch->GetClassVector())[0].get());
  (*clone->GetClassVector())[0]->SetPhaseName("renamed");
  EXPECT_EQ((*batch->GetClassVector())[0]->GetPhaseName(), "P1");
  EXPECT_NE(*clone, *batch);

  // A missing phase list differs from an empty one; old-format values do not count.
  const auto other = batch->Clone();
  other->OBSOLETE_GetQualitativeValues().Clear();
  EXPECT_EQ(*other, *batch);
  other->SetClassVectorPtr(nullptr);
  EXPECT_NE(*other, *batch);
  other->SetBatchConditionValues(nullptr);
  EXPECT_TRUE(other->GetBatchConditionValues()->empty());
  BatchInfo none("B");
  BatchInfo empty("B");
  empty.SetClassVectorPtr(new ClassInfoVector);
  EXPECT_NE(none, empty);
  EXPECT_NE(empty, none);
  EXPECT_EQ(*empty.Clone(), empty);
}

TEST(BatchInfo, StreamRoundTripAndRefusals) {
  const auto written = FullBatch("B1");
  const std::string bytes = WriteToString(*written);
  ASSERT_FALSE(bytes.empty());
  BatchInfo read("old");
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read, *written);
  EXPECT_EQ(read.OBSOLETE_GetQualitativeValues(), written->OBSOLETE_GetQualitativeValues());
  EXPECT_EQ(WriteToString(read), bytes);

  // Optional entries absent: no phase list (not an empty one), no secondary IDs, and nothing
  // left over from before the read.
  ASSERT_TRUE(ReadFromString(HandMadeBatch(2, -1), read));
  EXPECT_EQ(read.GetBatchName(), "B9");
  EXPECT_EQ(read.GetClassVector(), nullptr);
  EXPECT_TRUE(read.GetBatchConditionSecIDs().empty());
  EXPECT_EQ(read.OBSOLETE_GetQualitativeValues().size(), 0u);
  EXPECT_EQ(read.GetNumObs(nullptr, false), 6);
  BatchInfo emptyPhases("E");
  emptyPhases.SetClassVectorPtr(new ClassInfoVector);
  ASSERT_TRUE(ReadFromString(WriteToString(emptyPhases), read));
  ASSERT_NE(read.GetClassVector(), nullptr);
  EXPECT_TRUE(read.GetClassVector()->empty());

  for (const std::int16_t version : {1, 3}) {
    EXPECT_FALSE(ReadFromString(HandMadeBatch(version, -1), read)) << version;
  }
  for (const int tag : {0, 1, 2, 4}) {
    EXPECT_FALSE(ReadFromString(HandMadeBatch(2, tag), read)) << tag;
  }
}

}  // namespace
