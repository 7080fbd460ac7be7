#ifndef NCDS_FOUNDATIONS_SIMPDURATION_H
#define NCDS_FOUNDATIONS_SIMPDURATION_H

// A signed span of time with microsecond resolution, held in one 64-bit count. A value is
// either a duration or "not-a-duration", which results from conversions out of range and
// from arithmetic that overflows or involves not-a-duration; it never throws.
//
// Comparisons form a total order: not-a-duration equals itself and sorts before every
// duration, so containers of durations sort without special cases. A plain value type, safe
// to copy and to use from any thread.

#include <cstdint>

#include "ncds/ncds_export.h"

namespace VxTimeUtl {

class NCDS_EXPORT SimpDuration {
 public:
  // Zero.
  SimpDuration() = default;

  // `s` seconds rounded to the nearest microsecond (halves away from zero); not-a-duration
  // when `s` is not finite or the count of microseconds does not fit in 64 bits.
  static SimpDuration FromSeconds(long double s);
  // Any count but INT64_MIN, which is the count of not-a-duration.
  static SimpDuration FromMicroseconds(std::int64_t us) { return SimpDuration(us); }
  static SimpDuration NotADuration() { return SimpDuration(kInvalid); }

  bool IsValid() const { return mMicroseconds != kInvalid; }
  // Seconds, or NaN for not-a-duration.
  long double GetSeconds() const;
  // Microseconds, or INT64_MIN for not-a-duration (so FromMicroseconds gives it back).
  std::int64_t GetMicroseconds() const { return mMicroseconds; }

  SimpDuration operator+(const SimpDuration& other) const;
  SimpDuration operator-(const SimpDuration& other) const;
  SimpDuration operator-() const;

  bool operator==(const SimpDuration& other) const { return mMicroseconds == other.mMicroseconds; }
  bool operator!=(const SimpDuration& other) const { return mMicroseconds != other.mMicroseconds; }
  bool operator<(const SimpDuration& other) const { return mMicroseconds < other.mMicroseconds; }
  bool operator<=(const SimpDuration& other) const { return mMicroseconds <= other.mMicroseconds; }
  bool operator>(const SimpDuration& other) const { return mMicroseconds > other.mMicroseconds; }
  bool operator>=(const SimpDuration& other) const { return mMicroseconds >= other.mMicroseconds; }

 private:
  static constexpr std::int64_t kInvalid = INT64_MIN;

  explicit SimpDuration(std::int64_t us) : mMicroseconds(us) {}

  std::int64_t mMicroseconds = 0;
};

}  // namespace VxTimeUtl

#endif  // NCDS_FOUNDATIONS_SIMPDURATION_H
