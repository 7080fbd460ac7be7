#include "ncds/metadata/SelectedLabel.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
constexpr std::uint16_t kTagVersionCount = 0;
constexpr std::uint16_t kTagLong = 1;
constexpr std::uint16_t kTagShort = 2;

// Guards the version count and the raising of the change signal.
boost::mutex& LabelMutex() {
  static boost::mutex mutex;
  return mutex;
}

std::uint32_t gVersionCount = 0;

SelectedLabel::Series FirstSeries() { return SelectedLabel::Series(1, 1); }

SelectedLabel::Series ToPositions(const SelectedLabel::Series& selected,
                                  const std::vector<int>& series) {
  SelectedLabel::Series positions;
  for (const int s : selected) {
    for (std::size_t i = 0; i < series.size(); ++i) {
      if (series[i] == s) {
        positions.push_back(static_cast<int>(i + 1));
        break;
      }
    }
  }
  return positions.empty() ? FirstSeries() : positions;
}

}  // namespace
}  // namespace ncds::detail

boost::signals2::signal<void(SelectedLabel*)> SelectedLabel::msSelectedlabelChange;

const VStreamableData SelectedLabel::msVStreamData(ncds::detail::kVersion, "SELECTED_LABLE");

SelectedLabel::SelectedLabel()
    : mLong(ncds::detail::FirstSeries()), mShort(ncds::detail::FirstSeries()) {}

SelectedLabel::SelectedLabel(const SelectedLabel& other) = default;

SelectedLabel& SelectedLabel::operator=(const SelectedLabel& other) = default;

SelectedLabel::~SelectedLabel() = default;

void SelectedLabel::SetSelected(int position, const std::vector<int>& series, bool shortLabel) {
  if (position < 1 || static_cast<std::size_t>(position) > series.size()) return;
  const int chosen = series[static_cast<std::size_t>(position - 1)];
  Series& label = shortLabel ? mShort : mLong;
  const std::ptrdiff_t found = label.Find(chosen);
  if (found >= 0) {
    label.RemoveValues(static_cast<std::size_t>(found), 1);
  } else {
    label.push_back(chosen);
  }
  if (label.empty()) label.push_back(1);
  const boost::lock_guard<boost::mutex> lock(ncds::detail::LabelMutex());
  ++ncds::detail::gVersionCount;
  msSelectedlabelChange(this);
}

SelectedLabel::Series SelectedLabel::GetSelectedLongLabel(const std::vector<int>& series) const {
  return ncds::detail::ToPositions(mLong, series);
}

SelectedLabel::Series SelectedLabel::GetSelectedShortLabel(const std::vector<int>& series) const {
  return ncds::detail::ToPositions(mShort, series);
}

std::uint32_t SelectedLabel::GetVersionCount() {
  const boost::lock_guard<boost::mutex> lock(ncds::detail::LabelMutex());
  return ncds::detail::gVersionCount;
}

bool SelectedLabel::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool SelectedLabel::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, 3);
  WriteToStreamDir(GetVersionCount(), directory, ncds::detail::kTagVersionCount);
  WriteToStreamDir(mLong, directory, ncds::detail::kTagLong);
  WriteToStreamDir(mShort, directory, ncds::detail::kTagShort);
  return directory.Close();
}

bool SelectedLabel::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool SelectedLabel::ReadStreamDirectory(std::istream& is) {
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::uint32_t count = 0;
    Series longLabel;
    Series shortLabel;
    ReadFromStreamDir(count, directory, ncds::detail::kTagVersionCount, true);
    ReadFromStreamDir(longLabel, directory, ncds::detail::kTagLong, true);
    ReadFromStreamDir(shortLabel, directory, ncds::detail::kTagShort, true);
    mLong = longLabel.empty() ? ncds::detail::FirstSeries() : std::move(longLabel);
    mShort = shortLabel.empty() ? ncds::detail::FirstSeries() : std::move(shortLabel);
    const boost::lock_guard<boost::mutex> lock(ncds::detail::LabelMutex());
    ncds::detail::gVersionCount = count;
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void SelectedLabel::VStreamableReset() const { mGuard.Reset(); }
