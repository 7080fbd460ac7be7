#ifndef NCDS_FOUNDATIONS_NCPROGRESS_H
#define NCDS_FOUNDATIONS_NCPROGRESS_H

// Progress of long operations. An operation creates one `NCProgress` for its duration and feeds
// it; the reporter forwards to the process-wide `NCProgressSink` that the application installs
// (a progress dialog, a text line) and passes the user's request to cancel back as `false`.
//
// The reporter throttles: calling `SetValue` or `NextSpin` once per cell of a large matrix is
// cheap, yet a cancel is seen within `NCProgress::kMaxSilentCalls` calls. The sink pointer is
// swapped atomically but without a lock: install it from the thread that runs operations,
// before they start, and keep it alive while installed. Reporters are not synchronised.

#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>

#include "ncds/ncds_export.h"

// How an operation's progress is shown.
struct NCProgressFlags {
  bool canCancel = false;      // the user may cancel; otherwise the sink's answer is ignored
  bool indeterminate = false;  // no measurable value: the operation calls NextSpin
  bool showTime = false;       // the sink may show the elapsed or remaining time
};

// Receives the progress of the operations of the library. Each `Begin` is matched by one
// `End`; an operation that runs inside another gives nested pairs. The default sink shows
// nothing and never cancels.
class NCDS_EXPORT NCProgressSink {
 public:
  virtual ~NCProgressSink();

  // An operation starts; `caption` is already translated, `context` is the caller's free-form
  // note on where the operation runs (may be empty).
  virtual void Begin(const std::string& caption, float minimum, float maximum,
                     const NCProgressFlags& flags, const std::string& context) = 0;
  // The operation has reached `value`; false asks it to cancel.
  virtual bool Update(float value) = 0;
  // An indeterminate operation is still busy; false asks it to cancel.
  virtual bool Spin() = 0;
  // The operation has finished, been cancelled, or left by an exception.
  virtual void End() = 0;

 protected:
  NCProgressSink() = default;
  NCProgressSink(const NCProgressSink&) = default;
  NCProgressSink& operator=(const NCProgressSink&) = default;
};

class NCDS_EXPORT NCProgress {
 public:
  // The most calls of SetValue or NextSpin after which the sink is asked again, even when the
  // value has not moved: the bound on how late a cancel is seen.
  static constexpr std::uint32_t kMaxSilentCalls = 1024;

  // Calls Begin on the sink current now; that sink receives every later report of this object
  // even if another is installed meanwhile.
  NCProgress(const std::string& caption, float minimum, float maximum, bool canCancel,
             bool indeterminate, bool showTime, const std::string& context = "");
  // Calls End on the sink, exactly once.
  ~NCProgress();

  NCProgress(const NCProgress&) = delete;
  NCProgress& operator=(const NCProgress&) = delete;

  // Moves the progress to `value`. The sink hears of it when the value has moved by at least
  // 1/1000 of the range since the last report, when it reaches the maximum, or after
  // kMaxSilentCalls calls. Returns false when the user asked to cancel (and from then on).
  bool SetValue(float value);
  // Advances an indeterminate progress; the sink hears of the first call and of every
  // kMaxSilentCalls-th after it. Returns false when the user asked to cancel.
  bool NextSpin();

  bool IsCancelled() const { return mCancelled; }

  // The sink that new reporters use; never null.
  static NCProgressSink* GetSink();
  // Installs `sink` (nullptr installs the default sink again) and returns the previous one,
  // never null.
  static NCProgressSink* SetSink(NCProgressSink* sink);

 private:
  bool Accept(bool goOn);

  NCProgressSink* mSink;
  float mMaximum;
  float mStep;  // the smallest move that is reported
  float mLastReported;
  std::uint32_t mSilentCalls = 0;
  std::uint32_t mSpinCalls = 0;
  bool mCanCancel;
  bool mCancelled = false;
};

// Writes progress as one line to a text stream: "caption: 42%", rewritten with "\r" whenever
// the whole percentage changes, and ended with a line break. Only the outermost operation is
// shown; nested ones are ignored. `RequestCancel` may be called from a signal handler (for
// example on Ctrl-C): the running operation, if it can be cancelled, is then asked to stop.
class NCDS_EXPORT TextProgressSink : public NCProgressSink {
 public:
  // The stream must outlive the sink.
  explicit TextProgressSink(std::ostream& out);
  ~TextProgressSink() override;

  void Begin(const std::string& caption, float minimum, float maximum, const NCProgressFlags& flags,
             const std::string& context) override;
  bool Update(float value) override;
  bool Spin() override;
  void End() override;

  void RequestCancel() { mCancelRequested.store(true, std::memory_order_relaxed); }

 private:
  void WriteLine();

  std::ostream& mOut;
  std::string mCaption;
  float mMinimum = 0;
  float mMaximum = 0;
  int mDepth = 0;
  int mPercent = -1;
  unsigned mSpinCount = 0;
  bool mIndeterminate = false;
  std::atomic<bool> mCancelRequested{false};
};

#endif  // NCDS_FOUNDATIONS_NCPROGRESS_H
