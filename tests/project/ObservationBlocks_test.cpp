#include "ncds/project/detail/ObservationBlocks.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/UniqueIDs.h"
#include "support/TestSupport.h"

namespace {

using ncds::detail::DecodeObservationBlock;
using ncds::detail::EncodeObservationBlock;
using ncds::detail::kObservationBlockSpan;
using Records = std::vector<std::unique_ptr<ObservationInfo>>;

// Three series; rows of batches in phases, and the odd records a project also holds: no IDs,
// an empty ID in the middle, long and non-ASCII texts, negative classes, no batch.
void Fill(NCObservations& observations) {
  observations.AddSecondaryID("Batch");
  observations.AddSecondaryID("Phase");
  const unsigned long base = 3 * kObservationBlockSpan;
  for (int k = 0; k < 300; ++k) {
    const std::string batch = "B" + std::to_string(k / 100);
    auto record = std::make_unique<ObservationInfo>(
        std::vector<std::string>{batch + "_" + std::to_string(k % 100), batch,
                                 k % 100 < 40 ? "Heating" : "Reaction"},
        base + 10 + static_cast<unsigned long>(k) * (k % 7 == 0 ? 3 : 1));
    record->SetBatch(base + 1 + static_cast<unsigned long>(k / 100));
    record->SetDefaultClass(k % 100 < 40 ? 1 : 2);
    observations.Add(std::move(record));
  }
  observations.Add(std::make_unique<ObservationInfo>(std::vector<std::string>{}, base + 4000));
  auto odd = std::make_unique<ObservationInfo>(
      std::vector<std::string>{"a rather long primary ID beyond the short-string size", "",
                               "Abkühlung"},
      base + kObservationBlockSpan - 1);
  odd->SetDefaultClass(-7);
  odd->SetBatch(NCUniqueIDs::kNone);
  observations.Add(std::move(odd));
}

void ExpectSame(const NCObservations& expected, const Records& read) {
  ASSERT_EQ(read.size(), expected.size());
  std::size_t k = 0;
  for (const auto& [id, record] : expected) {
    const auto& original = static_cast<const ObservationInfo&>(*record);
    EXPECT_EQ(read[k]->GetUniqueID(), id);
    EXPECT_EQ(read[k]->GetUserIDs(), original.GetUserIDs()) << k;
    EXPECT_EQ(read[k]->GetDefaultClass(), original.GetDefaultClass()) << k;
    EXPECT_EQ(read[k]->GetBatch(), original.GetBatch()) << k;
    ++k;
  }
}

TEST(ObservationBlocks, RecordsRoundTripInAFewBytesEach) {
  NCObservations observations;
  Fill(observations);
  ASSERT_TRUE(ncds::detail::FitsObservationBlocks(observations));
  const std::string block = EncodeObservationBlock(observations.begin(), observations.end());
  // Runs and shared prefixes: the rows cost a few bytes, not their texts.
  EXPECT_LT(block.size(), 300u * 8);
  Records read;
  read.push_back(std::make_unique<ObservationInfo>("kept", 1));
  ASSERT_TRUE(DecodeObservationBlock(block.data(), block.size(), 3, 3, read));
  ASSERT_EQ(read.front()->GetPrimaryAlias(), "kept");
  read.erase(read.begin());
  ExpectSame(observations, read);

  // Only the block's own span, and no more IDs per record than the container has series.
  EXPECT_FALSE(DecodeObservationBlock(block.data(), block.size(), 2, 3, read));
  EXPECT_FALSE(DecodeObservationBlock(block.data(), block.size(), 3, 2, read));
  EXPECT_EQ(read.size(), observations.size());

  // A record with more IDs than series, or of another class, keeps the container's own stream.
  NCObservations wide;
  Fill(wide);
  wide.begin()->second->SetUserID("extra", 4, nullptr);
  EXPECT_FALSE(ncds::detail::FitsObservationBlocks(wide));
}

TEST(ObservationBlocks, DamagedBlocksAndListsAreRefusedWithoutAddingRecords) {
  NCObservations observations;
  Fill(observations);
  const std::string block = EncodeObservationBlock(observations.begin(), observations.end());
  ncds::test::ForEachCorruption(block, [](const std::string& damaged) {
    Records read;
    if (!DecodeObservationBlock(damaged.data(), damaged.size(), 3, 3, read)) {
      EXPECT_TRUE(read.empty());
    }
  });

  const ncds::detail::ObservationBlockList list = {{0, 5}, {3, 4096}, {9, 1}};
  const std::string bytes = ncds::detail::EncodeObservationBlockList(list);
  ncds::detail::ObservationBlockList read;
  ASSERT_TRUE(ncds::detail::DecodeObservationBlockList(bytes, read));
  EXPECT_EQ(read, list);
  for (const auto& wrong : std::vector<ncds::detail::ObservationBlockList>{
           {{3, 5}, {3, 1}}, {{4, 5}, {3, 1}}, {{0, 0}}, {{0, 4097}}}) {
    EXPECT_FALSE(ncds::detail::DecodeObservationBlockList(
        ncds::detail::EncodeObservationBlockList(wrong), read));
  }
  ncds::test::ForEachCorruption(bytes, [](const std::string& damaged) {
    ncds::detail::ObservationBlockList any;
    ncds::detail::DecodeObservationBlockList(damaged, any);
  });
}

}  // namespace
