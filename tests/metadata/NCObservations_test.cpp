#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using IDs = NCIntegralVector<unsigned long, 0>;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

// The common part with any record in it, to make streams that an observation container
// must refuse.
class AnyRecords : public VarObs {
 public:
  using VarObs::Add;
};

// An "NCO" stream around `common` with the reserved series `batch` and `phase` at tag 1.
std::string HandMadeNCO(const VarObs& common, std::int32_t batch, std::int32_t phase,
                        std::uint16_t version = 1) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, version, "NCO");
  os << common;
  OutputStreamDirectory directory(os, 2);
  const std::int32_t series[2] = {batch, phase};
  WriteFourBytes(series, 2, directory.GetOutput(1));
  directory.Close();
  return os.str();
}

IDs MakeIDs(const std::vector<unsigned long>& values) {
  IDs ids;
  for (const unsigned long v : values) ids.push_back(v);
  return ids;
}

TEST(NCObservations, StreamsObservationsAndReservedSeries) {
  NCObservations observations;
  observations.AddSecondaryID("$batchID");
  observations.AddSecondaryID("Phase");
  const Strings labels{"", "$batchID", "$CLASSID"};
  observations.Set_ID_Labels(&labels);
  EXPECT_EQ(observations.GetBatchLabelSeries(), 2);
  EXPECT_EQ(observations.GetClassLabelSeries(), 3);
  EXPECT_FALSE(observations.HasBatches());
  observations.SetBatchID(2);
  EXPECT_TRUE(observations.HasBatches());
  for (unsigned long id = 1; id <= 3; ++id) {
    auto obs = std::make_unique<ObservationInfo>(
        Strings{"O" + std::to_string(id), "B" + std::to_string(id), "P"}, id * 10);
    obs->SetBatch(id + 100);
    ObservationInfo* added = observations.Add(std::move(obs));
    EXPECT_EQ(observations[id * 10], added);
  }

  const std::string bytes = WriteToString(observations);
  NCObservations read;
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read.size(), 3u);
  EXPECT_EQ(read[20]->GetUserIDs(), (Strings{"O2", "B2", "P"}));
  EXPECT_EQ(read[20]->GetBatch(), 102u);
  EXPECT_EQ(read[20]->GetBatchName(read), "B2");
  EXPECT_EQ(read.GetBatchLabelSeries(), 2);
  EXPECT_EQ(read.GetClassLabelSeries(), 3);
  EXPECT_TRUE(read.HasBatches());
  EXPECT_EQ(WriteToString(read), bytes);

  // Removing a labelled series moves the roles along.
  read.RemoveSecondaryID("$batchID");
  EXPECT_EQ(read.GetBatchLabelSeries(), 0);
  EXPECT_EQ(read.GetClassLabelSeries(), 2);

  // Versions: 1 is read, 2 is refused; streams without the entry have no reserved series.
  std::string newer = bytes;
  newer[4] = 2;  // the "NCO" version
  EXPECT_FALSE(ReadFromString(newer, read));
  AnyRecords common;
  common.AddSecondaryID("B");
  common.Add(std::make_unique<ObservationInfo>("O", 1), nullptr);
  std::ostringstream noEntry;
  VStreamLight::WriteMagicStringAndVersionNumber(noEntry, 1, "NCO");
  noEntry << common;
  OutputStreamDirectory(noEntry, 2).Close();
  ASSERT_TRUE(ReadFromString(noEntry.str(), read));
  EXPECT_EQ(read.GetBatchLabelSeries(), 0);
  EXPECT_EQ(read.size(), 1u);

  // Refusals leave the container as it was: a variable among the records, a reserved
  // series beyond the series read, a variable container's stream.
  ASSERT_TRUE(ReadFromString(HandMadeNCO(common, 2, 0), read));
  EXPECT_EQ(read.GetBatchLabelSeries(), 2);
  AnyRecords withVariable;
  withVariable.Add(std::make_unique<QuantitativeVariableInfo>("V", 9), nullptr);
  EXPECT_FALSE(ReadFromString(HandMadeNCO(withVariable, 0, 0), read));
  EXPECT_FALSE(ReadFromString(HandMadeNCO(common, 3, 0), read));
  EXPECT_FALSE(ReadFromString(HandMadeNCO(common, 0, -1), read));
  EXPECT_FALSE(ReadFromString(WriteToString(NCVariables()), read));
  EXPECT_EQ(read.size(), 1u);
  EXPECT_NE(read[1], nullptr);
  EXPECT_EQ(read.GetBatchLabelSeries(), 2);
}

TEST(NCObservations, InfoVectorsKeepPositions) {
  NCObservations observations;
  for (unsigned long id = 1; id <= 40; id += 3) {
    observations.Add(std::make_unique<ObservationInfo>("O" + std::to_string(id), id));
  }
  // Increasing with gaps and unknown IDs, then decreasing, repeated and 0.
  const IDs ids = MakeIDs({1, 4, 5, 16, 37, 40, 41, 28, 1, 1, 0, 13});
  const VarObsInfoVector<ObservationInfo> infos = observations.GetInfoVector(ids);
  ASSERT_EQ(infos.size(), ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(infos[i], observations[ids[i]]) << i;
  }
  EXPECT_EQ(infos[2], nullptr);
  EXPECT_EQ(infos[12], nullptr);  // beyond the end
  EXPECT_EQ(infos.GetUniqueIDs(), MakeIDs({1, 4, 0, 16, 37, 40, 0, 28, 1, 1, 0, 13}));
  EXPECT_TRUE(observations.GetInfoVector(IDs()).empty());
  EXPECT_TRUE(NCObservations().GetInfoVector(ids).GetUniqueIDs() == IDs(ids.size(), 0));

  EXPECT_TRUE(EmptyObservationInfoVector().empty());
  EXPECT_EQ(&EmptyObservationInfoVector(), &EmptyObservationInfoVector());
}

TEST(NCObservations, DamagedStreamsFailOrRoundTrip) {
  NCObservations observations;
  observations.AddSecondaryID("$BatchID");
  observations.SetBatchID(2);
  for (unsigned long id = 1; id <= 3; ++id) {
    observations.Add(
        std::make_unique<ObservationInfo>(Strings{"O" + std::to_string(id), "B1"}, id));
  }
  const std::string valid = WriteToString(observations);
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    NCObservations read;
    if (!ncds::test::ReadDamaged(bytes, read)) {
      EXPECT_TRUE(read.empty());
      EXPECT_EQ(read.SizeAliases(), 1);
      return;
    }
    const std::string again = WriteToString(read);
    NCObservations second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(WriteToString(second), again);
  });
}

}  // namespace
