#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "ncds/ncds.h"

namespace {

using VxTimeUtl::SimpDuration;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

TEST(SimpDuration, SecondsRoundToTheNearestMicrosecond) {
  EXPECT_EQ(SimpDuration().GetMicroseconds(), 0);
  EXPECT_EQ(SimpDuration::FromSeconds(-2.25L).GetMicroseconds(), -2250000);
  EXPECT_EQ(SimpDuration::FromSeconds(0.0000004L).GetMicroseconds(), 0);
  EXPECT_EQ(SimpDuration::FromSeconds(0.0000006L).GetMicroseconds(), 1);
  EXPECT_EQ(SimpDuration::FromSeconds(-0.0000006L).GetMicroseconds(), -1);
  EXPECT_EQ(SimpDuration::FromSeconds(86400.0L * 365 * 8600).GetMicroseconds(),
            std::int64_t{86400} * 365 * 8600 * 1000000);
  EXPECT_EQ(SimpDuration::FromMicroseconds(1234567).GetSeconds(), 1.234567L);

  // Microsecond counts survive the trip through seconds across the whole range of a date-time
  // (where long double has the 64-bit mantissa of x86).
  if (std::numeric_limits<long double>::digits < 64) return;
  for (const std::int64_t us :
       {std::int64_t{-999999}, std::int64_t{123456789}, std::int64_t{271389311999999999},
        -std::int64_t{271389311999999999}}) {
    const SimpDuration d = SimpDuration::FromMicroseconds(us);
    EXPECT_EQ(SimpDuration::FromSeconds(d.GetSeconds()), d) << us;
  }
}

TEST(SimpDuration, NotADurationComesFromBadInputAndOverflow) {
  const long double inf = std::numeric_limits<long double>::infinity();
  for (const long double s : {inf, -inf, std::numeric_limits<long double>::quiet_NaN(), 1e13L,
                              -1e13L, 9223372036854.78L, -9223372036854.78L}) {
    const SimpDuration d = SimpDuration::FromSeconds(s);
    EXPECT_EQ(d.GetMicroseconds(), kMin) << static_cast<double>(s);
    EXPECT_TRUE(std::isnan(d.GetSeconds()));
  }
  // Just inside the 64-bit count.
  EXPECT_EQ(SimpDuration::FromSeconds(9223372036854.0L).GetMicroseconds(), 9223372036854000000);
  EXPECT_EQ(SimpDuration::FromSeconds(-9223372036854.0L).GetMicroseconds(), -9223372036854000000);
  EXPECT_FALSE(SimpDuration::FromMicroseconds(kMin).IsValid());

  const SimpDuration top = SimpDuration::FromMicroseconds(kMax);
  const SimpDuration bottom = SimpDuration::FromMicroseconds(kMin + 1);
  const SimpDuration one = SimpDuration::FromMicroseconds(1);
  EXPECT_TRUE(top.IsValid() && bottom.IsValid());
  EXPECT_FALSE((top + one).IsValid());
  EXPECT_FALSE((bottom + (-one)).IsValid());  // would be INT64_MIN, the reserved count
  EXPECT_FALSE((bottom - one).IsValid());
  EXPECT_FALSE((top - bottom).IsValid());
  EXPECT_FALSE((bottom - top).IsValid());
  EXPECT_EQ((top + bottom).GetMicroseconds(), 0);
  EXPECT_EQ((-bottom), top);

  const SimpDuration none = SimpDuration::NotADuration();
  EXPECT_FALSE((none + one).IsValid());
  EXPECT_FALSE((one - none).IsValid());
  EXPECT_FALSE((-none).IsValid());
}

TEST(SimpDuration, ArithmeticAndTotalOrder) {
  const SimpDuration a = SimpDuration::FromSeconds(90);
  const SimpDuration b = SimpDuration::FromMicroseconds(-250000);
  EXPECT_EQ((a + b).GetMicroseconds(), 89750000);
  EXPECT_EQ((a - b).GetMicroseconds(), 90250000);
  EXPECT_EQ((-a).GetSeconds(), -90.0L);

  // Not-a-duration equals itself and sorts first.
  const SimpDuration none = SimpDuration::NotADuration();
  std::vector<SimpDuration> values{a, none, b, SimpDuration(), none};
  std::sort(values.begin(), values.end());
  EXPECT_EQ(values, (std::vector<SimpDuration>{none, none, b, SimpDuration(), a}));
  EXPECT_TRUE(b < a && b <= a && a > b && a >= b && a != b && a <= a && a >= a);
  EXPECT_FALSE(a < a || a > a || a != a);
}

}  // namespace
