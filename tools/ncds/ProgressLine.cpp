#include "tools/ncds/ProgressLine.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ncds::tool {
namespace detail {
namespace {

constexpr std::chrono::milliseconds kQuietTime{500};
constexpr std::chrono::milliseconds kRedrawTime{100};
constexpr int kBarWidth = 30;

}  // namespace
}  // namespace detail

ProgressLine::ProgressLine(bool enabled, std::string caption, std::ostream& out)
    : mOut(out), mCaption(std::move(caption)) {
  if (!enabled) return;
  mPrevious = NCProgress::SetSink(this);
  mThread = std::thread([this] { Run(); });
}

ProgressLine::~ProgressLine() {
  if (!mThread.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mStop = true;
  }
  mWake.notify_one();
  mThread.join();
  NCProgress::SetSink(mPrevious);
  if (mDrawn) {
    mOut << '\r' << std::string(mWidth, ' ') << '\r';
    mOut.flush();
  }
}

void ProgressLine::Begin(const std::string& caption, float minimum, float maximum,
                         const NCProgressFlags& flags, const std::string&) {
  // Only the outermost operation moves the bar; nested ones are part of it.
  if (mDepth++ > 0) return;
  {
    const std::lock_guard<std::mutex> lock(mMutex);
    mOperation = caption;
  }
  mMinimum = minimum;
  mMaximum = maximum;
  mFraction.store(flags.indeterminate || !(maximum > minimum) ? -1.0F : 0.0F);
}

bool ProgressLine::Update(float value) {
  if (mDepth == 1 && mMaximum > mMinimum) {
    const float fraction = (value - mMinimum) / (mMaximum - mMinimum);
    mFraction.store(std::clamp(fraction, 0.0F, 1.0F));
  }
  return true;
}

bool ProgressLine::Spin() { return true; }

void ProgressLine::End() {
  if (mDepth > 0 && --mDepth == 0) {
    mFraction.store(-1.0F);
    const std::lock_guard<std::mutex> lock(mMutex);
    mOperation.clear();
  }
}

void ProgressLine::Run() {
  const auto start = std::chrono::steady_clock::now();
  std::unique_lock<std::mutex> lock(mMutex);
  if (mWake.wait_for(lock, detail::kQuietTime, [this] { return mStop; })) return;
  do {
    Draw(std::chrono::steady_clock::now() - start);
  } while (!mWake.wait_for(lock, detail::kRedrawTime, [this] { return mStop; }));
}

void ProgressLine::Draw(std::chrono::steady_clock::duration elapsed) {
  static const char kSpinner[] = {'|', '/', '-', '\\'};
  std::string line = (mOperation.empty() ? mCaption : mOperation) + ": ";
  const float fraction = mFraction.load();
  if (fraction >= 0) {
    const int filled = static_cast<int>(std::lround(fraction * detail::kBarWidth));
    line += '[';
    line.append(static_cast<std::size_t>(filled), '#');
    line.append(static_cast<std::size_t>(detail::kBarWidth - filled), ' ');
    line += "] " + std::to_string(static_cast<int>(std::floor(fraction * 100))) + '%';
  } else {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    line += kSpinner[mTicks++ % 4];
    line += ' ' + std::to_string(seconds) + " s";
  }
  mWidth = std::max(mWidth, line.size());
  line.resize(mWidth, ' ');
  mOut << '\r' << line;
  mOut.flush();
  mDrawn = true;
}

}  // namespace ncds::tool
