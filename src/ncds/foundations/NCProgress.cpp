#include "ncds/foundations/NCProgress.h"

#include <atomic>
#include <cmath>

namespace ncds::detail {
namespace {

class NullProgressSink final : public NCProgressSink {
 public:
  void Begin(const std::string&, float, float, const NCProgressFlags&,
             const std::string&) override {}
  bool Update(float) override { return true; }
  bool Spin() override { return true; }
  void End() override {}
};

NCProgressSink* DefaultSink() {
  static NullProgressSink sink;
  return &sink;
}

// Null stands for the default sink.
std::atomic<NCProgressSink*> gSink{nullptr};

}  // namespace
}  // namespace ncds::detail

NCProgressSink::~NCProgressSink() = default;

NCProgressSink* NCProgress::GetSink() {
  NCProgressSink* sink = ncds::detail::gSink.load(std::memory_order_acquire);
  return sink ? sink : ncds::detail::DefaultSink();
}

NCProgressSink* NCProgress::SetSink(NCProgressSink* sink) {
  NCProgressSink* previous = ncds::detail::gSink.exchange(sink, std::memory_order_acq_rel);
  return previous ? previous : ncds::detail::DefaultSink();
}

NCProgress::NCProgress(const std::string& caption, float minimum, float maximum, bool canCancel,
                       bool indeterminate, bool showTime, const std::string& context)
    : mSink(GetSink()),
      mMaximum(maximum),
      mStep(maximum > minimum ? (maximum - minimum) / 1000.0f : 0.0f),
      mLastReported(minimum),
      mCanCancel(canCancel) {
  NCProgressFlags flags;
  flags.canCancel = canCancel;
  flags.indeterminate = indeterminate;
  flags.showTime = showTime;
  mSink->Begin(caption, minimum, maximum, flags, context);
}

NCProgress::~NCProgress() {
  // A destructor must not throw; a sink that fails to close its display has nothing to add
  // to the operation's own outcome.
  try {
    mSink->End();
  } catch (...) {
  }
}

bool NCProgress::Accept(bool goOn) {
  if (!goOn && mCanCancel) mCancelled = true;
  return !mCancelled;
}

bool NCProgress::SetValue(float value) {
  if (mCancelled) return false;
  const float moved = std::fabs(value - mLastReported);
  const bool stepped = moved > 0.0f && moved >= mStep;
  const bool reachedEnd = value >= mMaximum && value != mLastReported;
  if (!stepped && !reachedEnd && ++mSilentCalls < kMaxSilentCalls) return true;
  mLastReported = value;
  mSilentCalls = 0;
  return Accept(mSink->Update(value));
}

bool NCProgress::NextSpin() {
  if (mCancelled) return false;
  const bool report = mSpinCalls == 0;
  mSpinCalls = (mSpinCalls + 1) % kMaxSilentCalls;
  return report ? Accept(mSink->Spin()) : true;
}

TextProgressSink::TextProgressSink(std::ostream& out) : mOut(out) {}

TextProgressSink::~TextProgressSink() = default;

void TextProgressSink::Begin(const std::string& caption, float minimum, float maximum,
                             const NCProgressFlags& flags, const std::string&) {
  if (mDepth++ > 0) return;
  mCaption = caption;
  mMinimum = minimum;
  mMaximum = maximum;
  mIndeterminate = flags.indeterminate;
  mPercent = 0;
  mSpinCount = 0;
  mCancelRequested.store(false, std::memory_order_relaxed);
  WriteLine();
}

bool TextProgressSink::Update(float value) {
  if (mDepth == 1 && !mIndeterminate) {
    int percent = 0;
    if (mMaximum > mMinimum) {
      const float fraction = (value - mMinimum) / (mMaximum - mMinimum);
      percent = static_cast<int>(std::floor(std::fmin(std::fmax(fraction, 0.0f), 1.0f) * 100));
    }
    if (percent != mPercent) {
      mPercent = percent;
      WriteLine();
    }
  }
  return !mCancelRequested.load(std::memory_order_relaxed);
}

bool TextProgressSink::Spin() {
  if (mDepth == 1 && mIndeterminate) {
    ++mSpinCount;
    WriteLine();
  }
  return !mCancelRequested.load(std::memory_order_relaxed);
}

void TextProgressSink::End() {
  if (mDepth == 0 || --mDepth > 0) return;
  mOut << '\n';
  mOut.flush();
}

void TextProgressSink::WriteLine() {
  static const char kSpinner[] = {'|', '/', '-', '\\'};
  mOut << '\r' << mCaption << ": ";
  if (mIndeterminate) {
    mOut << kSpinner[mSpinCount % 4];
  } else {
    mOut << mPercent << '%';
  }
  mOut.flush();
}
