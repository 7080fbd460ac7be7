#include "ncds/foundations/SimpDuration.h"

#include <cmath>
#include <limits>

namespace ncds::detail {
namespace {

// a + b and a - b, false when the result does not fit.
bool Add(std::int64_t a, std::int64_t b, std::int64_t& result) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  if ((b > 0 && a > kMax - b) || (b < 0 && a < kMin - b)) return false;
  result = a + b;
  return true;
}

bool Subtract(std::int64_t a, std::int64_t b, std::int64_t& result) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  if ((b < 0 && a > kMax + b) || (b > 0 && a < kMin + b)) return false;
  result = a - b;
  return true;
}

}  // namespace
}  // namespace ncds::detail

namespace VxTimeUtl {

SimpDuration SimpDuration::FromSeconds(long double s) {
  if (!std::isfinite(s)) return NotADuration();
  const long double us = std::round(s * 1e6L);
  // 2^63 is exact in every floating type; the open interval keeps INT64_MIN reserved.
  constexpr long double kLimit = 9223372036854775808.0L;
  if (!(us > -kLimit && us < kLimit)) return NotADuration();
  return SimpDuration(static_cast<std::int64_t>(us));
}

long double SimpDuration::GetSeconds() const {
  if (!IsValid()) return std::numeric_limits<long double>::quiet_NaN();
  return static_cast<long double>(mMicroseconds) / 1e6L;
}

SimpDuration SimpDuration::operator+(const SimpDuration& other) const {
  std::int64_t sum = 0;
  if (!IsValid() || !other.IsValid() ||
      !ncds::detail::Add(mMicroseconds, other.mMicroseconds, sum)) {
    return NotADuration();
  }
  return SimpDuration(sum);  // a sum of exactly INT64_MIN is not-a-duration too
}

SimpDuration SimpDuration::operator-(const SimpDuration& other) const {
  std::int64_t difference = 0;
  if (!IsValid() || !other.IsValid() ||
      !ncds::detail::Subtract(mMicroseconds, other.mMicroseconds, difference)) {
    return NotADuration();
  }
  return SimpDuration(difference);
}

SimpDuration SimpDuration::operator-() const {
  return IsValid() ? SimpDuration(-mMicroseconds) : NotADuration();
}

}  // namespace VxTimeUtl
