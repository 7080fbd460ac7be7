#include <gtest/gtest.h>

#include <atomic>
#include <boost/signals2/connection.hpp>
#include <string>
#include <thread>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using Series = SelectedLabel::Series;

Series Of(std::vector<int> values) {
  Series series;
  for (int v : values) series.push_back(v);
  return series;
}

TEST(SelectedLabel, TogglesSeriesAndNeverEmpties) {
  SelectedLabel label;
  int raised = 0;
  const SelectedLabel* raisedWith = nullptr;
  const boost::signals2::scoped_connection connection =
      SelectedLabel::msSelectedlabelChange.connect([&](SelectedLabel* changed) {
        ++raised;
        raisedWith = changed;
      });
  const std::uint32_t before = SelectedLabel::GetVersionCount();
  const std::vector<int> series{1, 2, 3};

  label.SetSelected(1, series, false);  // series 1 off, then back: a label is never empty
  EXPECT_EQ(label.GetLongLabelSeries(), Of({1}));
  EXPECT_EQ(raised, 1);
  EXPECT_EQ(raisedWith, &label);
  EXPECT_EQ(SelectedLabel::GetVersionCount(), before + 1);

  label.SetSelected(3, series, false);
  label.SetSelected(2, series, false);
  EXPECT_EQ(label.GetLongLabelSeries(), Of({1, 3, 2}));
  EXPECT_EQ(label.GetShortLabelSeries(), Of({1}));
  label.SetSelected(1, series, false);
  EXPECT_EQ(label.GetLongLabelSeries(), Of({3, 2}));
  label.SetSelected(2, series, true);
  EXPECT_EQ(label.GetShortLabelSeries(), Of({1, 2}));

  label.SetSelected(0, series, false);  // outside the vector: nothing happens
  label.SetSelected(4, series, false);
  EXPECT_EQ(raised, 5);
  EXPECT_EQ(SelectedLabel::GetVersionCount(), before + 5);

  // Positions in a mapping, in the order selected; absent series are skipped.
  EXPECT_EQ(label.GetSelectedLongLabel({5, 2, 3}), Of({3, 2}));
  EXPECT_EQ(label.GetSelectedLongLabel({2}), Of({1}));
  EXPECT_EQ(label.GetSelectedShortLabel({7, 8}), Of({1}));
  EXPECT_EQ(label.GetSelectedShortLabel({2, 1}), Of({2, 1}));
}

TEST(SelectedLabel, StreamKeepsLabelsAndSetsTheCount) {
  SelectedLabel label;
  label.SetSelected(2, {1, 4}, false);
  label.SetSelected(2, {1, 4}, true);
  label.SetSelected(1, {1, 4}, true);
  const std::uint32_t written = SelectedLabel::GetVersionCount();
  const std::string bytes = WriteToString(label);

  label.SetSelected(2, {1, 9}, false);
  SelectedLabel read;
  ASSERT_TRUE(ReadFromString(bytes, read));
  EXPECT_EQ(read.GetLongLabelSeries(), Of({1, 4}));
  EXPECT_EQ(read.GetShortLabelSeries(), Of({4}));
  EXPECT_EQ(SelectedLabel::GetVersionCount(), written);

  std::string older = bytes;
  older[15] = 1;  // "SELECTED_LABLE" version 1
  EXPECT_FALSE(ReadFromString(older, read));
  std::string misspelled = bytes;
  misspelled[12] = 'E';  // "SELECTED_LABEE": the magic must match byte for byte
  EXPECT_FALSE(ReadFromString(misspelled, read));

  ncds::test::ForEachCorruption(bytes, [](const std::string& damaged) {
    SelectedLabel target;
    if (ReadFromString(damaged, target)) {
      EXPECT_FALSE(target.GetLongLabelSeries().empty());
      EXPECT_FALSE(target.GetShortLabelSeries().empty());
    }
  });
}

// Run under ThreadSanitizer: the count and the signal are shared by all labels.
TEST(SelectedLabel, ChangesFromTwoThreadsAreAllCounted) {
  constexpr int kChanges = 2000;
  std::atomic<int> raised{0};
  const boost::signals2::scoped_connection connection =
      SelectedLabel::msSelectedlabelChange.connect([&](SelectedLabel*) { ++raised; });
  const std::uint32_t before = SelectedLabel::GetVersionCount();
  const auto work = [] {
    SelectedLabel label;
    for (int i = 0; i < kChanges; ++i) label.SetSelected(1 + i % 3, {1, 2, 3}, i % 2 == 0);
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
  EXPECT_EQ(SelectedLabel::GetVersionCount(), before + 2 * kChanges);
  EXPECT_EQ(raised.load(), 2 * kChanges);
}

}  // namespace
