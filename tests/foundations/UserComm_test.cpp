#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

#include "ncds/ncds.h"

namespace {

class RecordingUserComm : public UserComm {
 public:
  explicit RecordingUserComm(int answer) : mAnswer(answer) {}
  void ShowMessages(const ExceptionMessageList& messages, const std::string& caption) override {
    log += caption + "|" + messages.str() + ";";
  }
  int AskQuestion(const ExceptionMessageList& messages, const std::string& caption,
                  bool defaultYes) override {
    log += caption + "?" + messages.str() + (defaultYes ? "(yes);" : "(no);");
    return mAnswer;
  }
  std::string log;

 private:
  int mAnswer;
};

// The library's pattern: go on only when the current sink answers 1.
bool GoesAhead(const std::string& caption) {
  const ExceptionMessageList question(ExceptionMessage::translate("Do you which to continue?"));
  return UserComm::GetUserComm()->AskQuestion(question, caption, false) == 1;
}

TEST(UserComm, DefaultSinkWritesToStandardErrorAndAnswersItsDefault) {
  UserComm* const defaultSink = UserComm::GetUserComm();
  ASSERT_NE(defaultSink, nullptr);
  std::ostringstream captured;
  std::streambuf* const saved = std::cerr.rdbuf(captured.rdbuf());
  ExceptionMessageList lines;
  lines << (ExceptionMessage::translate("Dataset {1} does not exist.") % "D")
        << ExceptionMessage::translate("x");
  defaultSink->ShowMessages(lines, "Caption");
  const int yes = defaultSink->AskQuestion(lines, "Q", true);
  const int no = defaultSink->AskQuestion(lines, "Q", false);
  std::cerr.rdbuf(saved);
  EXPECT_EQ(yes, 1);
  EXPECT_EQ(no, 0);
  EXPECT_NE(captured.str().find("Caption"), std::string::npos);
  EXPECT_NE(captured.str().find("Dataset D does not exist.\nx"), std::string::npos);

  RecordingUserComm first(UserComm::kNo);
  RecordingUserComm second(UserComm::kNo);
  EXPECT_EQ(UserComm::SetUserComm(&first), defaultSink);
  EXPECT_EQ(UserComm::SetUserComm(&second), &first);
  EXPECT_FALSE(GoesAhead("Merge Datasets"));
  EXPECT_EQ(second.log, "Merge Datasets?Do you which to continue?(no);");
  EXPECT_EQ(first.log, "");
  EXPECT_EQ(UserComm::SetUserComm(nullptr), &second);  // nullptr restores the default
  EXPECT_EQ(UserComm::GetUserComm(), defaultSink);
}

TEST(UserComm, MutedGuardGoesAheadAndRestoresAlsoOnException) {
  RecordingUserComm outer(UserComm::kNo);
  ScopedUserComm installOuter(&outer);
  EXPECT_FALSE(GoesAhead("outer"));
  MuteUserComm mute;
  try {
    ScopedUserComm muted(&mute);
    EXPECT_EQ(muted.GetPrevious(), &outer);
    EXPECT_TRUE(GoesAhead("muted"));  // yes although the question's default is no
    {
      RecordingUserComm inner(UserComm::kYes);
      ScopedUserComm nested(&inner);
      EXPECT_TRUE(GoesAhead("inner"));
      EXPECT_EQ(inner.log, "inner?Do you which to continue?(no);");
    }
    EXPECT_EQ(UserComm::GetUserComm(), &mute);
    throw NCError(ExceptionMessage::translate("Merge of datasets aborted."));
  } catch (const NCError&) {
  }
  EXPECT_EQ(UserComm::GetUserComm(), &outer);
  EXPECT_EQ(outer.log, "outer?Do you which to continue?(no);");  // the muted ones never got here
  {
    ScopedUserComm defaults(nullptr);
    EXPECT_NE(UserComm::GetUserComm(), &outer);
  }
  EXPECT_EQ(UserComm::GetUserComm(), &outer);
}

}  // namespace
