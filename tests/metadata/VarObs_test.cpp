#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using IDs = NCIntegralVector<unsigned long, 0>;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

// A container that takes records of every kind, as the common part does.
class AnyRecords : public VarObs {
 public:
  using VarObs::Add;
  VarObsInfo* Add(std::unique_ptr<VarObsInfo> info) { return Add(std::move(info), nullptr); }
};

// A registered product that is not a record.
const FactoryRegistration<SelectedLabel> kNotARecord("VarObsTestNotARecord");

std::string ExceptionText(const std::string& bytes) {
  std::istringstream is(bytes);
  try {
    VarObs::ReadVarObsInfo(is);
  } catch (const Exception& e) {
    return e.what();
  }
  return "no exception";
}

// A "VO" part made by hand with the tags that `tags` selects (bit k for tag k).
std::string HandMadeVO(unsigned tags, std::int16_t version = 2, std::uint32_t records = 1) {
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, static_cast<std::uint16_t>(version), "VO");
  OutputStreamDirectory directory(os, 8);
  if (tags & 1) WriteToStreamDir(records, directory, 0);
  if (tags & 2) WriteToStreamDir(std::int32_t{2}, directory, 1);
  if (tags & 4) WriteBytes("\0\1", 2, directory.GetOutput(2));
  if (tags & 8) {
    std::ostream& labels = directory.GetOutput(3);
    const std::uint32_t count = 2;
    WriteFourBytes(&count, 1, labels);
    WriteBinaryString("", labels);
    WriteBinaryString("Batch", labels);
  }
  if (tags & 16)
    VarObs::WriteVarObsInfo(ObservationInfo(Strings{"O1", "B1"}, 7), directory.GetOutput(4));
  if (tags & 32) WriteToStreamDir(SelectedLabel(), directory, 5);
  if (tags & 64) WriteToStreamDir(std::int32_t{2}, directory, 6);
  if (tags & 128) WriteToStreamDir(std::int32_t{0}, directory, 7);
  directory.Close();
  return os.str();
}

TEST(VarObs, StreamsRecordsOfEveryKindWithAllFields) {
  AnyRecords container;
  container.AddSecondaryID("Batch");
  container.AddSecondaryID("");
  container.SetIDIsNumeral(3, true);
  container.SetBatchID(2);
  container.SetPhaseID(3);
  container.GetSelectedLabel()->SetSelected(2, container.GetAllUsedAliases(), false);

  auto quantitative = std::make_unique<QuantitativeVariableInfo>("Temp", 30);
  NCStringVector levels;
  levels.push_back("Low");
  levels.push_back("High");
  auto qualitative = std::make_unique<QualitativeVariableInfo>("Grade", 20, &levels);
  auto dateTime = std::make_unique<DateTimeVariableInfo>();
  dateTime->AddID("When");
  dateTime->SetUniqueID(10);
  dateTime->SetDatasetFormatString("HH:mm");
  auto observation = std::make_unique<ObservationInfo>(Strings{"O1", "B1", "7"}, 40);
  observation->SetBatch(99);
  observation->SetDefaultClass(2);
  // Added out of order: iteration and the stream are in increasing unique ID.
  container.Add(std::move(observation));
  container.Add(std::move(quantitative));
  container.Add(std::move(dateTime));
  container.Add(std::move(qualitative));
  EXPECT_THROW(container.Add(std::make_unique<ObservationInfo>("again", 20)), NCInternalError);
  EXPECT_THROW(container.Add(nullptr), NCInternalError);
  ASSERT_EQ(container.size(), 4u);
  EXPECT_TRUE(container.IsDirty());

  const std::string bytes = WriteToString(container);
  ASSERT_FALSE(bytes.empty());
  EXPECT_FALSE(container.IsDirty());

  AnyRecords read;
  read.Add(std::make_unique<ObservationInfo>("replaced", 1));
  read.SetIsDirty(true);
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_FALSE(read.IsDirty());
  std::vector<unsigned long> order;
  for (const auto& record : read) order.push_back(record.first);
  EXPECT_EQ(order, (std::vector<unsigned long>{10, 20, 30, 40}));
  EXPECT_EQ(read.SizeAliases(), 3);
  EXPECT_EQ(read.GetIDLabelRaw(2), "Batch");
  EXPECT_FALSE(read.IsIDNumeral(2));
  EXPECT_TRUE(read.IsIDNumeral(3));
  EXPECT_EQ(read.GetBatchIDRaw(), 2);
  EXPECT_EQ(read.GetPhaseIDRaw(), 3);
  EXPECT_EQ(read.GetSelectedLabel()->GetLongLabelSeries(),
            container.GetSelectedLabel()->GetLongLabelSeries());

  ASSERT_NE(read[10]->AsVariableInfo(), nullptr);
  const DateTimeVariableInfo* when = read[10]->AsVariableInfo()->AsDateTimeVariableInfo();
  ASSERT_NE(when, nullptr);
  EXPECT_EQ(when->GetDatasetFormat(), "HH:mm");
  const QualitativeVariableInfo* grade = read[20]->AsVariableInfo()->AsQualitativeVariableInfo();
  ASSERT_NE(grade, nullptr);
  EXPECT_EQ(grade->Encode("high"), 2.0F);
  EXPECT_NE(read[30]->AsVariableInfo()->AsQuantitativeVariableInfo(), nullptr);
  ASSERT_NE(read[40]->AsObservationInfo(), nullptr);
  EXPECT_EQ(read[40]->AsObservationInfo()->GetBatch(), 99u);
  EXPECT_EQ(read[1], nullptr);            // the old content is gone
  EXPECT_EQ(WriteToString(read), bytes);  // every field of every record came back

  // An empty container writes no record entry and reads back empty.
  ASSERT_TRUE(ReadFromString(WriteToString(AnyRecords()), read));
  EXPECT_TRUE(read.empty());
  EXPECT_EQ(read.SizeAliases(), 1);
}

TEST(VarObs, RefusesUnknownClassesVersionsAndMissingTags) {
  // Polymorphic records: an unregistered name and a product that is not a record.
  std::ostringstream unknown;
  WriteBinaryString("NoSuchInfo", unknown);
  unknown << ObservationInfo("O", 1);
  EXPECT_EQ(ExceptionText(unknown.str()),
            "Internal error: Could not find a factory method for 'NoSuchInfo'.");
  std::ostringstream notRecord;
  WriteBinaryString("VarObsTestNotARecord", notRecord);
  notRecord << SelectedLabel();
  EXPECT_EQ(ExceptionText(notRecord.str()),
            "Internal error: No factory found that produces 'VarObsInfo'.");
  EXPECT_THROW(VarObs::WriteVarObsInfo(VarObsInfo("unregistered", 1), unknown), NCInternalError);

  // Inside a container the message passes on, and the container is left alone.
  AnyRecords container;
  container.Add(std::make_unique<ObservationInfo>("O1", 5));
  std::string bytes = WriteToString(container);
  const std::size_t name = bytes.find("ObservationInfo");
  ASSERT_NE(name, std::string::npos);
  AnyRecords read;
  read.Add(std::make_unique<ObservationInfo>("kept", 3));
  std::string renamed = bytes;
  renamed.replace(name, 15, "ObservationInfX");
  try {
    ReadFromString(renamed, read);
    ADD_FAILURE() << "no exception";
  } catch (const Exception& e) {
    EXPECT_STREQ(e.what(),
                 "Internal error: Could not find a factory method for 'ObservationInfX'.");
  }
  ASSERT_EQ(read.size(), 1u);
  EXPECT_EQ(read[3]->GetPrimaryAlias(), "kept");

  // Only version 2.
  ASSERT_TRUE(ReadFromString(HandMadeVO(0xFF), read));
  EXPECT_EQ(read[7]->GetUserID(2), "B1");
  EXPECT_FALSE(ReadFromString(HandMadeVO(0xFF, 1), read));
  EXPECT_FALSE(ReadFromString(HandMadeVO(0xFF, 3), read));
  // Tags 0 to 4 are required (4 because there is a record), 5 to 7 are not.
  for (unsigned tag = 0; tag < 5; ++tag) {
    EXPECT_FALSE(ReadFromString(HandMadeVO(0xFF & ~(1u << tag)), read)) << tag;
  }
  ASSERT_TRUE(ReadFromString(HandMadeVO(0x1F), read));
  EXPECT_EQ(read.GetBatchIDRaw(), 0);
  EXPECT_EQ(read.GetSelectedLabel()->GetLongLabelSeries(), SelectedLabel().GetLongLabelSeries());
}

TEST(VarObs, DamagedStreamsFailOrRoundTrip) {
  AnyRecords container;
  container.AddSecondaryID("Batch");
  container.Add(std::make_unique<ObservationInfo>(Strings{"O1", "B1"}, 3));
  container.Add(std::make_unique<QuantitativeVariableInfo>("V", 4));
  const std::string valid = WriteToString(container);
  ncds::test::ForEachCorruption(valid, [](const std::string& bytes) {
    AnyRecords read;
    if (!ncds::test::ReadDamaged(bytes, read)) {
      EXPECT_TRUE(read.empty());
      return;
    }
    const std::string again = WriteToString(read);
    AnyRecords second;
    ASSERT_TRUE(ReadFromString(again, second));
    EXPECT_EQ(WriteToString(second), again);
  });
  // More records announced than the stream holds.
  AnyRecords read;
  EXPECT_FALSE(ReadFromString(HandMadeVO(0xFF, 2, 2), read));
  EXPECT_FALSE(ReadFromString(HandMadeVO(0xFF, 2, 0xFFFFFFFFu), read));
  EXPECT_TRUE(read.empty());
}

TEST(VarObs, SeriesLabelsNumeralsAndDeletion) {
  AnyRecords container;
  EXPECT_EQ(container.AddSecondaryID("Batch"), 2);
  EXPECT_EQ(container.AddSecondaryID("Code"), 3);
  EXPECT_EQ(container.AddSecondaryID("Phase"), 4);
  container.SetIDLabel(1, "ignored");
  EXPECT_EQ(container.GetIDLabelRaw(1), "Primary ID");
  EXPECT_EQ(container.GetIDLabelRaw(5), "");
  container.SetBatchID(2);
  container.SetPhaseID(4);
  container.Add(std::make_unique<ObservationInfo>(Strings{"A", "B1", "x", "P1"}, 1));
  container.Add(std::make_unique<ObservationInfo>(Strings{"B", "B1", "", "P2"}, 2));
  container.Add(std::make_unique<ObservationInfo>(Strings{"C", "B2", "12.5", "P2"}, 3));

  container.UpdateAllIDNumericalState();
  EXPECT_FALSE(container.IsIDNumeral(2));
  EXPECT_TRUE(container.IsIDNumeral(3));  // one number among texts is enough
  EXPECT_TRUE(container.HasNumeralIDs());
  IDs listed;
  listed.push_back(3);
  listed.push_back(77);
  listed.push_back(1);
  const NCDataVector<float> values = container.GetNumeralValues(3, &listed);
  ASSERT_EQ(values.size(), 3u);
  EXPECT_EQ(values[0], 12.5F);
  EXPECT_EQ(values[1], -99.0F);
  EXPECT_EQ(values[2], -99.0F);
  EXPECT_EQ(container.GetNumeralValues(3, nullptr).size(), 3u);

  // Removing a series takes its IDs and moves the later series (and the phase series) down.
  container.RemoveSecondaryID("Code");
  EXPECT_EQ(container.SizeAliases(), 3);
  EXPECT_EQ(container.GetIDLabelRaw(3), "Phase");
  EXPECT_FALSE(container.IsIDNumeral(3));
  EXPECT_EQ(container[3]->GetUserIDs(), (Strings{"C", "B2", "P2"}));
  EXPECT_EQ(container.GetBatchIDRaw(), 2);
  EXPECT_EQ(container.GetPhaseIDRaw(), 3);
  container.RemoveSecondaryID("Batch");
  EXPECT_EQ(container.GetBatchIDRaw(), 0);
  EXPECT_EQ(container.GetPhaseIDRaw(), 2);
  container.SetIsDirty(false);
  container.RemoveSecondaryID("Nothing");
  container.RemoveSecondaryID(nullptr);
  EXPECT_FALSE(container.IsDirty());
  EXPECT_EQ(container.SizeAliases(), 2);

  // Deleting nothing changes nothing; unknown IDs still count as a change.
  container.DeleteVarObsInfos(IDs());
  EXPECT_FALSE(container.IsDirty());
  container.DeleteVarObsInfos(IDs(1, 1234));
  EXPECT_TRUE(container.IsDirty());
  EXPECT_EQ(container.size(), 3u);
  container.DeleteVarObsInfos(listed);
  EXPECT_EQ(container.size(), 1u);
  EXPECT_NE(container[2], nullptr);
}

TEST(VarObs, LookupsByUserIDAndUniquePrimaryIDs) {
  AnyRecords container;
  container.Add(std::make_unique<ObservationInfo>("Alpha", 1));
  container.Add(std::make_unique<ObservationInfo>("X", 2));
  container.Add(std::make_unique<ObservationInfo>("x_1", 3));
  container.Add(std::make_unique<ObservationInfo>(Strings{"", "second"}, 4));

  const boost::shared_ptr<InfosByUserID> lookup = container.GetInfosByUserID(1);
  EXPECT_EQ(container.GetInfosByUserID(1), lookup);  // cached
  EXPECT_EQ(lookup->GetInfo("ALPHA"), container[1]);
  EXPECT_EQ(lookup->GetUniqueID("alpha"), 1u);
  EXPECT_EQ(lookup->GetUniqueID("Beta"), NCUniqueIDs::kNone);
  EXPECT_EQ(lookup->GetInfo(""), nullptr);  // records without an ID are not entered
  EXPECT_EQ(lookup->size(), 3u);
  EXPECT_TRUE(lookup->IsIDUnique());
  EXPECT_EQ(VarObs::GetUniquePrimaryID("X", *lookup, nullptr), "X_2");
  EXPECT_EQ(VarObs::GetUniquePrimaryID("Beta", *lookup, nullptr), "Beta");
  const std::set<std::string> taken{"Beta", "Beta_1", "x_2"};
  EXPECT_EQ(VarObs::GetUniquePrimaryID("Beta", *lookup, &taken), "Beta_2");
  EXPECT_EQ(VarObs::GetUniquePrimaryID("X", *lookup, &taken), "X_2");  // taken is exact

  // Other series are built anew each time.
  const auto second = container.GetInfosByUserID(2);
  EXPECT_NE(container.GetInfosByUserID(2), second);
  EXPECT_EQ(second->GetUniqueID("SECOND"), 4u);
  EXPECT_EQ(container.GetInfosByUserID(0)->size(), 0u);

  // Adding through the cached lookup keeps it; an ID change or another add drops it.
  container.Add(std::make_unique<ObservationInfo>("Gamma", 5), lookup.get());
  EXPECT_EQ(container.GetInfosByUserID(1), lookup);
  EXPECT_EQ(lookup->GetUniqueID("GAMMA"), 5u);
  container[1]->SetUserID("Renamed", 1, &container);
  const auto rebuilt = container.GetInfosByUserID(1);
  EXPECT_NE(rebuilt, lookup);
  EXPECT_EQ(rebuilt->GetUniqueID("renamed"), 1u);
  EXPECT_EQ(rebuilt->GetInfo("Alpha"), nullptr);
  container.Add(std::make_unique<ObservationInfo>("Delta", 6));
  EXPECT_NE(container.GetInfosByUserID(1), rebuilt);

  container.Add(std::make_unique<ObservationInfo>("ABC", 8));
  container.Add(std::make_unique<ObservationInfo>("abc", 7));
  const auto duplicates = container.GetInfosByUserID(1);
  EXPECT_FALSE(duplicates->IsIDUnique());
  EXPECT_EQ(duplicates->GetUniqueID("Abc"), 7u);  // the smallest unique ID of the two
}

TEST(VarObs, ConcurrentReadersShareOneLookup) {
  AnyRecords container;
  for (unsigned long i = 1; i <= 2000; ++i) {
    container.Add(std::make_unique<ObservationInfo>("Obs" + std::to_string(i), i));
  }
  boost::shared_ptr<InfosByUserID> seen[2];
  unsigned long found[2] = {0, 0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      seen[t] = container.GetInfosByUserID(1);
      found[t] = seen[t]->GetUniqueID("OBS1500");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(seen[0], seen[1]);  // built once
  EXPECT_EQ(found[0], 1500u);
  EXPECT_EQ(found[1], 1500u);
}

}  // namespace
