#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using Strings = std::vector<std::string>;

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  return text;
}

TEST(InfosByUserID, CaseFoldsOnlyAsciiLettersAtAnyLength) {
  // Short IDs are compared inside the table, long ones with the record's own text; both must
  // fold exactly A-Z, at every position of every eight-byte word.
  std::vector<std::unique_ptr<ObservationInfo>> records;
  InfosByUserID lookup;
  for (std::size_t length : {1, 7, 8, 9, 27, 28, 29, 40, 300}) {
    std::string id;
    for (std::size_t i = 0; i < length; ++i) id += static_cast<char>('a' + i % 26);
    id.back() = 'q';
    records.push_back(std::make_unique<ObservationInfo>(id, records.size() + 1));
    lookup.AddInfo(records.back().get(), 1);
    EXPECT_EQ(lookup.GetInfo(Upper(id)), records.back().get()) << length;
    std::string other = id;
    other.back() = 'Q' + 1;
    EXPECT_EQ(lookup.GetInfo(other), nullptr) << length;
    EXPECT_EQ(lookup.GetInfo(id + "q"), nullptr) << length;
  }
  // Neighbours of the letters and bytes beyond ASCII are not letters.
  const Strings odd{"@[`{", "\xc3\x84x", "\xc3\xa4x", "A\x80Z\xffz"};
  for (const std::string& id : odd) {
    records.push_back(std::make_unique<ObservationInfo>(id, records.size() + 1));
    lookup.AddInfo(records.back().get(), 1);
  }
  EXPECT_TRUE(lookup.IsIDUnique());
  EXPECT_EQ(lookup.GetInfo("`{@["), nullptr);
  EXPECT_EQ(lookup.GetInfo("@[`{"), records[9].get());
  EXPECT_NE(lookup.GetInfo("\xc3\x84x"), lookup.GetInfo("\xc3\xa4X"));
  EXPECT_EQ(lookup.GetInfo("a\x80z\xffZ"), records.back().get());
  // Of two long IDs equal ignoring case, the record with the smaller unique ID answers.
  const std::string longID(50, 'L');
  ObservationInfo later(longID, 100);
  ObservationInfo earlier(std::string(50, 'l'), 50);
  lookup.AddInfo(&later, 1);
  lookup.AddInfo(&earlier, 1);
  EXPECT_FALSE(lookup.IsIDUnique());
  EXPECT_EQ(lookup.GetInfo(longID), &earlier);
  EXPECT_EQ(lookup.GetInfos(Strings{longID, "@[`{"})[0], &earlier);
}

TEST(InfosByUserID, AddingOneByOneMatchesBuildingAtOnce) {
  // Enough records for the table to grow several times.
  std::vector<std::unique_ptr<ObservationInfo>> records;
  for (unsigned long i = 0; i < 5000; ++i) {
    records.push_back(
        std::make_unique<ObservationInfo>(Strings{"Obs" + std::to_string(i), "s"}, i + 1));
  }
  InfosByUserID lookup;
  EXPECT_EQ(lookup.GetInfo("Obs0"), nullptr);
  for (std::size_t i = 0; i < records.size(); ++i) {
    lookup.AddInfo(records[i].get(), 1);
    // Lookups between additions see every record added so far.
    ASSERT_EQ(lookup.GetInfo(Upper("obs" + std::to_string(i))), records[i].get()) << i;
    ASSERT_EQ(lookup.GetInfo("Obs" + std::to_string(i + 1)), nullptr) << i;
    if (i % 997 == 0) {
      ASSERT_EQ(lookup.GetUniqueID(("OBS" + std::to_string(i / 2)).c_str()), i / 2 + 1);
    }
  }
  EXPECT_EQ(lookup.size(), records.size());
  EXPECT_TRUE(lookup.IsIDUnique());

  // Adding a record twice changes nothing; null records and empty IDs are not entered.
  lookup.AddInfo(records[7].get(), 1);
  lookup.AddInfo(nullptr, 1);
  lookup.AddInfo(records[8].get(), 5);
  EXPECT_EQ(lookup.size(), records.size());
  EXPECT_TRUE(lookup.IsIDUnique());
  EXPECT_EQ(lookup.GetInfo(static_cast<const char*>(nullptr)), nullptr);
  EXPECT_EQ(lookup.GetInfo(std::string("Obs1\0", 5)), nullptr);

  // A second record with an ID: not unique, and the smaller unique ID wins, also after the
  // table grew.
  ObservationInfo early("OBS42", 0);
  ObservationInfo late("obs43", 999999);
  lookup.AddInfo(&early, 1);
  lookup.AddInfo(&late, 1);
  EXPECT_FALSE(lookup.IsIDUnique());
  EXPECT_EQ(lookup.GetInfo("Obs42"), &early);
  EXPECT_EQ(lookup.GetInfo("Obs43"), records[43].get());
  std::vector<std::unique_ptr<ObservationInfo>> more;
  for (int i = 0; i < 6000; ++i) {
    more.push_back(std::make_unique<ObservationInfo>("More" + std::to_string(i), 10000 + i));
    lookup.AddInfo(more.back().get(), 1);
  }
  EXPECT_EQ(lookup.GetInfo("obs42"), &early);
  EXPECT_EQ(lookup.GetInfo("obs43"), records[43].get());
  EXPECT_FALSE(lookup.IsIDUnique());

  // Many at once answer as one by one.
  ObservationInfo fresh("Fresh", 5);
  lookup.AddInfo(&fresh, 1);
  std::vector<std::string> queries{"OBS42", "more5999", "", "absent", "Obs4999", "FRESH"};
  for (int i = 0; i < 300; ++i) queries.push_back("Obs" + std::to_string(i * 17));
  const std::vector<const VarObsInfo*> many = lookup.GetInfos(queries);
  ASSERT_EQ(many.size(), queries.size());
  for (std::size_t i = 0; i < queries.size(); ++i) {
    ASSERT_EQ(many[i], lookup.GetInfo(queries[i])) << queries[i];
  }
  EXPECT_EQ(many[0], &early);
  EXPECT_EQ(many[3], nullptr);
  EXPECT_EQ(many[5], &fresh);

  // The same over the container in one pass.
  NCObservations observations;
  for (const auto& record : records) {
    observations.Add(std::make_unique<ObservationInfo>(*record));
  }
  observations.Add(std::make_unique<ObservationInfo>("obs42", 0));
  const InfosByUserID built(observations, 1);
  EXPECT_EQ(built.size(), records.size() + 1);
  EXPECT_FALSE(built.IsIDUnique());
  EXPECT_EQ(built.GetUniqueID("OBS42"), 0u);
  for (std::size_t i = 0; i < records.size(); i += 7) {
    ASSERT_EQ(built.GetUniqueID(Upper(records[i]->GetPrimaryAlias()).c_str()), i == 42 ? 0 : i + 1);
  }
  EXPECT_EQ(InfosByUserID(observations, 2).GetUniqueID("S"), 1u);
  EXPECT_TRUE(InfosByUserID(NCObservations(), 1).IsIDUnique());
}

}  // namespace
