#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

class RecordingSink : public NCProgressSink {
 public:
  void Begin(const std::string& caption, float minimum, float maximum, const NCProgressFlags& flags,
             const std::string& context) override {
    events += "begin(" + caption + "," + std::to_string(int(minimum)) + "," +
              std::to_string(int(maximum)) + "," + (flags.canCancel ? "c" : "") +
              (flags.indeterminate ? "i" : "") + (flags.showTime ? "t" : "") + "," + context + ")";
  }
  bool Update(float value) override {
    updates.push_back(value);
    return updates.size() < cancelAtUpdate;
  }
  bool Spin() override { return ++spins < cancelAtSpin; }
  void End() override { events += "end"; }

  std::string events;
  std::vector<float> updates;
  std::size_t spins = 0, cancelAtUpdate = 1u << 30, cancelAtSpin = 1u << 30;
};

class ScopedSink {
 public:
  explicit ScopedSink(NCProgressSink* sink) : mPrevious(NCProgress::SetSink(sink)) {}
  ~ScopedSink() { NCProgress::SetSink(mPrevious); }

 private:
  NCProgressSink* mPrevious;
};

constexpr std::uint32_t kBound = NCProgress::kMaxSilentCalls;

TEST(NCProgress, ReportsToTheSinkOfItsCreationAndEndsOnceAlsoOnException) {
  RecordingSink first, second;
  ScopedSink install(&first);
  try {
    NCProgress progress("Deleting", 0, 10, true, false, true, "batch view");
    EXPECT_EQ(NCProgress::SetSink(&second), &first);
    EXPECT_TRUE(progress.SetValue(10));
    NCProgress nested("inner", 0, 1, false, true, false);
    throw NCError(ExceptionMessage::translate("Merge of datasets aborted."));
  } catch (const NCError&) {
  }
  EXPECT_EQ(first.events, "begin(Deleting,0,10,ct,batch view)end");
  EXPECT_EQ(first.updates, std::vector<float>{10});
  EXPECT_EQ(second.events, "begin(inner,0,1,i,)end");
  EXPECT_EQ(NCProgress::SetSink(nullptr), &second);  // back to the default, which never cancels
  NCProgress quiet("quiet", 0, 1, true, false, false);
  EXPECT_TRUE(quiet.SetValue(0.5f) && quiet.NextSpin());
}

TEST(NCProgress, ThrottlesButReportsTheEndAndSeesCancelWithinTheBound) {
  RecordingSink sink;
  ScopedSink install(&sink);
  {
    NCProgress progress("rows", 0, 1000000, true, false, false);
    for (int i = 0; i <= 1000000; ++i) ASSERT_TRUE(progress.SetValue(float(i)));
    EXPECT_EQ(sink.updates.size(), 1000u);  // every 1/1000 of the range
    EXPECT_EQ(sink.updates.back(), 1000000.0f);
    sink.updates.clear();
    for (std::uint32_t i = 0; i < 10 * kBound; ++i) progress.SetValue(5);
    EXPECT_EQ(sink.updates.size(), 10u);  // the jump back to 5, then every kBound calls
  }
  sink.cancelAtUpdate = sink.updates.size() + 1;
  sink.cancelAtSpin = 2;
  {
    NCProgress stuck("stuck", 0, 100, true, false, false);
    std::uint32_t calls = 0;
    while (stuck.SetValue(0) && calls < 10 * kBound) ++calls;
    EXPECT_EQ(calls, kBound - 1);
    EXPECT_FALSE(stuck.SetValue(100) || stuck.NextSpin());  // stays cancelled without asking
    EXPECT_EQ(sink.updates.size(), 11u);
  }
  {
    NCProgress spinner("spin", 0, 0, true, true, false);
    std::uint32_t calls = 0;
    while (spinner.NextSpin() && calls < 10 * kBound) ++calls;
    EXPECT_EQ(sink.spins, 2u);  // the first call and the kBound-th after it
    EXPECT_EQ(calls, kBound);
  }
  {
    NCProgress firm("firm", 0, 100, false, false, false);  // cannot be cancelled
    for (int i = 0; i <= 100; ++i) EXPECT_TRUE(firm.SetValue(float(i)));
  }
}

TEST(TextProgressSink, RewritesTheLineOncePerPercentAndCancelsOnRequest) {
  std::ostringstream out;
  TextProgressSink text(out);
  ScopedSink install(&text);
  {
    NCProgress progress("Sorting", 0, 200, true, false, false);
    for (int i = 0; i <= 200; ++i) {
      progress.SetValue(float(i));
      if (i == 50) NCProgress("inner", 0, 1, false, false, false).SetValue(1);  // not shown
    }
  }
  std::string expected;
  for (int percent = 0; percent <= 100; ++percent) {
    expected += "\rSorting: " + std::to_string(percent) + "%";
  }
  EXPECT_EQ(out.str(), expected + "\n");

  out.str("");
  {
    NCProgress spinner("Reading", 0, 0, true, true, false);
    spinner.NextSpin();
    text.RequestCancel();
    for (std::uint32_t i = 0; i < kBound; ++i) spinner.NextSpin();
    EXPECT_TRUE(spinner.IsCancelled());
  }
  EXPECT_EQ(out.str(), "\rReading: |\rReading: /\rReading: -\n");
}

}  // namespace
