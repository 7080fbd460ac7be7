#ifndef NCDS_TOOLS_NCDS_PROGRESSLINE_H
#define NCDS_TOOLS_NCDS_PROGRESSLINE_H

// A progress line on a terminal for one long command of the tool. While the library reports an
// operation through `NCProgress`, the line shows that operation's caption and, when it has
// values, a bar: "Saving dataset 1 "x": [####    ] 42%"; between operations it shows the
// command's own caption with a spinner and the seconds spent. Nothing is written during the first
// half second, so quick operations stay quiet; when something was written, the line is cleared when
// the object goes.
//
// While it lives, the object is the process-wide `NCProgressSink` (the previous sink is put
// back afterwards); a background thread draws the line. Disabled, it does nothing at all: the
// tool disables it when its error stream is not a terminal. Create it on the thread that runs
// the operation, and only one at a time.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

#include "ncds/foundations/NCProgress.h"

namespace ncds::tool {

class ProgressLine final : public NCProgressSink {
 public:
  // `out` must outlive the object.
  ProgressLine(bool enabled, std::string caption, std::ostream& out);
  ~ProgressLine() override;
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void Begin(const std::string& caption, float minimum, float maximum, const NCProgressFlags& flags,
             const std::string& context) override;
  bool Update(float value) override;
  bool Spin() override;
  void End() override;

 private:
  void Run();
  void Draw(std::chrono::steady_clock::duration elapsed);

  std::ostream& mOut;
  std::string mCaption;
  NCProgressSink* mPrevious = nullptr;
  std::mutex mMutex;
  std::condition_variable mWake;
  bool mStop = false;  // guarded by mMutex
  bool mDrawn = false;
  std::size_t mWidth = 0;  // of the longest line drawn
  unsigned mTicks = 0;
  int mDepth = 0;
  std::string mOperation;  // the caption of the outermost operation; guarded by mMutex
  float mMinimum = 0;
  float mMaximum = 0;
  // The fraction done, in 0..1; negative while the operation reports none.
  std::atomic<float> mFraction{-1.0F};
  std::thread mThread;
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_PROGRESSLINE_H
