#include <gtest/gtest.h>

#include <string>

#include "ncds/ncds.h"

namespace {

std::string Fill(const char* text) { return ExceptionMessage::translate(text).str(); }

TEST(ExceptionMessage, FillsPlaceholdersByNumberAndLeavesOtherBracesAlone) {
  EXPECT_EQ(
      (ExceptionMessage::translate("Phase {1} in batch {2} was deleted.\n") % "P1" % "B7").str(),
      "Phase P1 in batch B7 was deleted.\n");
  EXPECT_EQ((ExceptionMessage::translate("{2} before {1}, {1} again") % "a" % "b").str(),
            "b before a, a again");
  // Placeholders without an argument stay as they are.
  EXPECT_EQ(Fill("Dataset {1} does not exist."), "Dataset {1} does not exist.");
  EXPECT_EQ((ExceptionMessage::translate("{1} and {2}") % "x").str(), "x and {2}");
  // "{10}" is the tenth argument, never the first followed by "0}".
  EXPECT_EQ((ExceptionMessage::translate("{10}|{1}") % "a").str(), "{10}|a");
  ExceptionMessage ten = ExceptionMessage::translate("{10}{1}");
  for (int i = 1; i <= 10; ++i) ten % ("v" + std::to_string(i));
  EXPECT_EQ(ten.str(), "v10v1");
  // Braces that are no placeholders.
  EXPECT_EQ((ExceptionMessage::translate("{} {x} {0} {-1} { 1} {1 {{1}} }{") % "a").str(),
            "{} {x} {0} {-1} { 1} {1 {a} }{");
  EXPECT_EQ((ExceptionMessage::translate("end {1") % "a").str(), "end {1");
  // An argument that looks like a placeholder is not filled again.
  EXPECT_EQ((ExceptionMessage::translate("{1}{2}") % "{2}" % "b").str(), "{2}b");
}

TEST(ExceptionMessage, FormatsNumericArguments) {
  const auto one = [](auto value) { return (ExceptionMessage::translate("<{1}>") % value).str(); };
  EXPECT_EQ(one(42), "<42>");
  EXPECT_EQ(one(-7L), "<-7>");
  EXPECT_EQ(one(4294967295ul), "<4294967295>");
  EXPECT_EQ(one(-99.0f), "<-99>");
  EXPECT_EQ(one(0.1f), "<0.1>");  // float at its own precision, not 0.100000001490116
  EXPECT_EQ(one(1.0 / 3.0), "<0.333333333333333>");
  EXPECT_EQ(one(1e20f), "<1e+20>");
  EXPECT_EQ((ExceptionMessage::translate("{1}/{2}") % std::string("s") % 2.5).str(), "s/2.5");
}

TEST(ExceptionMessage, KeepsContextAndVerbatimText) {
  const ExceptionMessage caption = ExceptionMessage::translate("dialog caption", "Merge Datasets");
  EXPECT_EQ(caption.GetContext(), "dialog caption");
  EXPECT_EQ(caption.str(), "Merge Datasets");  // the context is never shown
  EXPECT_TRUE(ExceptionMessage().empty());
  EXPECT_EQ((ExceptionMessage::Verbatim("C:\\data {1}.ncds") % "x").str(), "C:\\data x.ncds");
}

TEST(ExceptionMessageList, JoinsMessagesWithOneLineBreak) {
  EXPECT_EQ(ExceptionMessageList().str(), "");
  ExceptionMessageList list(ExceptionMessage::translate("first"));
  EXPECT_EQ(list.str(), "first");  // no line break after the last message
  list << ExceptionMessage::translate("second\n") << ExceptionMessage::translate("third");
  EXPECT_EQ(list.str(), "first\nsecond\nthird");
  list << ExceptionMessage::translate("fourth\n");
  EXPECT_EQ(list.str(), "first\nsecond\nthird\nfourth\n");

  ExceptionMessageList other;
  other << (ExceptionMessage::translate("Dataset {1} does not exist.") % "D1");
  other << list;
  EXPECT_EQ(other.size(), 5u);
  EXPECT_EQ(other.str(), "Dataset D1 does not exist.\nfirst\nsecond\nthird\nfourth\n");
}

TEST(Exception, CarriesMessagesLevelAndWhat) {
  try {
    throw NCError(ExceptionMessage::translate("Dataset {1} does not exist.") % "Wine");
  } catch (const Exception& e) {
    EXPECT_STREQ(e.what(), "Dataset Wine does not exist.");
    ASSERT_NE(dynamic_cast<const NCError*>(&e), nullptr);
    EXPECT_EQ(dynamic_cast<const NCError&>(e).GetLevel(), NCError::Error);
    EXPECT_EQ(NCError::Error, 2);
  }
  ExceptionMessageList lines;
  lines << ExceptionMessage::translate("Merge of datasets aborted.")
        << ExceptionMessage::translate("second line");
  const NCError listError(lines, NCError::Warning);
  EXPECT_STREQ(listError.what(), "Merge of datasets aborted.\nsecond line");
  EXPECT_EQ(listError.GetMessages().size(), 2u);
  EXPECT_EQ(listError.GetLevel(), NCError::Warning);
  // Internal errors and invalid arguments keep their text as given.
  EXPECT_STREQ(NCInternalError("index {1} broken").what(), "index {1} broken");
  EXPECT_STREQ(InvalidArgument("bad").what(), "bad");
}

}  // namespace
