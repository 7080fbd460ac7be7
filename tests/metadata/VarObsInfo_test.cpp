#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using ncds::test::ReadFromString;
using ncds::test::WriteToString;

// A container that counts the call-backs of its records and opens the container-only edits.
class CountingOwner : public VarObs {
 public:
  int clearedLookups = 0;
  void ClearInfosByUserID() override { ++clearedLookups; }
  using VarObs::InsertInfoID;
  using VarObs::MoveInfoID;
  using VarObs::SwapInfoID;
};

TEST(VarObsInfo, IndicesAreOneBasedAndBadOnesAreHarmless) {
  VarObsInfo info(Strings{"Temp", "12.5"}, 7);
  EXPECT_EQ(info.GetNumIDs(), 2);
  EXPECT_EQ(info.GetPrimaryAlias(), "Temp");
  EXPECT_EQ(&info.GetUserID(0), &VxStdString::Empty());
  EXPECT_EQ(&info.GetUserID(3), &VxStdString::Empty());
  EXPECT_EQ(info.GetUserID(2), "12.5");
  EXPECT_FLOAT_EQ(info.GetUserFloatID(2), 12.5F);
  EXPECT_EQ(info.GetUserFloatID(1), -99.0F);
  EXPECT_EQ(info.GetUserFloatID(9), -99.0F);

  info.SetUserID("e", 5, nullptr);
  EXPECT_EQ(info.GetUserIDs(), (Strings{"Temp", "12.5", "", "", "e"}));
  info.SetUserID("ignored", 0, nullptr);
  info.SetUserID(info.GetUserID(5), 5, nullptr);  // the same string object: no change
  EXPECT_EQ(info.GetUserID(5), "e");
  VarObsInfo grown("a", 1);
  grown.SetUserID(grown.GetUserID(1), 40, nullptr);  // its own ID, while the list grows
  EXPECT_EQ(grown.GetUserID(40), "a");
  EXPECT_EQ(info.AddID("f"), 6);
  info.RemoveID(0);
  info.RemoveID(7);
  EXPECT_EQ(info.GetNumIDs(), 6);
  info.RemoveID(1);
  EXPECT_EQ(info.GetPrimaryAlias(), "12.5");

  const VarObsInfo empty;
  EXPECT_EQ(empty.GetNumIDs(), 0);
  EXPECT_EQ(empty.GetUniqueID(), 0u);
  EXPECT_EQ(empty.GetUserID(1), "");
}

TEST(VarObsInfo, ContainerEditsPadMoveAndSwap) {
  VarObsInfo info(Strings{"a", "b"}, 1);
  CountingOwner::InsertInfoID(info, 6, "new");
  EXPECT_EQ(info.GetUserIDs(), (Strings{"a", "b", "", "", "", "new"}));
  CountingOwner::InsertInfoID(info, 1, "first");
  EXPECT_EQ(info.GetUserID(1), "first");
  EXPECT_EQ(info.GetNumIDs(), 7);

  VarObsInfo moved(Strings{"1", "2", "3", "4"}, 1);
  CountingOwner::MoveInfoID(moved, 1, 3);
  EXPECT_EQ(moved.GetUserIDs(), (Strings{"2", "3", "1", "4"}));
  CountingOwner::MoveInfoID(moved, 4, 1);
  EXPECT_EQ(moved.GetUserIDs(), (Strings{"4", "2", "3", "1"}));
  CountingOwner::MoveInfoID(moved, 0, 2);
  CountingOwner::MoveInfoID(moved, 2, 5);
  CountingOwner::MoveInfoID(moved, 2, 2);
  EXPECT_EQ(moved.GetUserIDs(), (Strings{"4", "2", "3", "1"}));

  VarObsInfo swapped(Strings{"x", "y"}, 1);
  CountingOwner::SwapInfoID(swapped, 1, 4);
  EXPECT_EQ(swapped.GetUserIDs(), (Strings{"", "y", "", "x"}));
  CountingOwner::SwapInfoID(swapped, 0, 2);
  EXPECT_EQ(swapped.GetNumIDs(), 4);
}

TEST(VarObsInfo, SetUserIDTellsTheOwnerAndReadsItsSeries) {
  CountingOwner owner;
  owner.AddSecondaryID("Lot");
  owner.AddSecondaryID("Batch");
  owner.AddSecondaryID("Phase");
  ObservationInfo obs("O1", 1);
  obs.SetUserID("L-7", 2, &owner);
  EXPECT_EQ(owner.clearedLookups, 1);
  EXPECT_FALSE(owner.IsIDNumeral(2));
  obs.SetUserID(" 42 ", 3, &owner);
  EXPECT_TRUE(owner.IsIDNumeral(3));
  obs.SetUserID("late", 3, &owner);  // a text never clears the flag
  EXPECT_TRUE(owner.IsIDNumeral(3));
  EXPECT_EQ(owner.clearedLookups, 3);

  EXPECT_EQ(obs.GetBatchName(owner), "");
  owner.SetBatchID(3);
  owner.SetPhaseID(4);
  EXPECT_EQ(obs.GetBatchName(owner), "late");
  EXPECT_EQ(obs.GetPhaseName(owner), "");  // the record has no ID 4
  obs.SetUserID("Heating", 4, &owner);
  EXPECT_EQ(obs.GetPhaseName(owner), "Heating");
  EXPECT_EQ(owner.GetBatchID({1, 3}), 2);
  EXPECT_EQ(owner.GetPhaseID({1, 3}), -1);
}

TEST(VarObsInfo, EqualityIsPrimaryIDIgnoringCaseWithinOneClass) {
  const QuantitativeVariableInfo temp("Temp", 1);
  const QuantitativeVariableInfo upper("TEMP", 2);
  const QuantitativeVariableInfo other("Pressure", 1);
  const QualitativeVariableInfo qualitative("Temp", 1, nullptr);
  const ObservationInfo observation("Temp", 1);
  EXPECT_TRUE(temp == upper);
  EXPECT_FALSE(temp != upper);
  EXPECT_FALSE(temp == other);
  EXPECT_FALSE(temp == qualitative);
  EXPECT_FALSE(static_cast<const VarObsInfo&>(temp) == observation);
  EXPECT_TRUE(VarObsInfo() == VarObsInfo());
  EXPECT_FALSE(VarObsInfo() == VarObsInfo("a", 1));
  EXPECT_FALSE(VarObsInfo("a", 1) == VarObsInfo());
  EXPECT_TRUE(VarObsInfo(Strings{"a", "x"}, 1) == VarObsInfo(Strings{"A", "y"}, 9));
}

TEST(VarObsInfo, StreamKeepsIDsAndUniqueIDAndSkipsOlderVersions) {
  const VarObsInfo info(Strings{"Temp", "", std::string("a\0b", 3), "Süd"}, 4294967295UL);
  VarObsInfo read("old", 3);
  ASSERT_TRUE(ReadFromString(WriteToString(info), read));
  EXPECT_EQ(read.GetUserIDs(), info.GetUserIDs());
  EXPECT_EQ(read.GetUniqueID(), 4294967295UL);

  // A version 2 part carried its IDs elsewhere: nothing is read, nothing changes.
  std::ostringstream older;
  VStreamLight::WriteMagicStringAndVersionNumber(older, 2, "VOI");
  VarObsInfo kept("kept", 5);
  EXPECT_TRUE(ReadFromString(older.str(), kept));
  EXPECT_EQ(kept.GetUserIDs(), Strings{"kept"});
  EXPECT_EQ(kept.GetUniqueID(), 5u);

  std::string newer = WriteToString(info);
  newer[4] = 4;  // version 4
  EXPECT_FALSE(ReadFromString(newer, kept));
  EXPECT_FALSE(ReadFromString(WriteToString(ObservationInfo("o", 1)), kept));
}

}  // namespace
