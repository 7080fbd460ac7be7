#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

namespace bg = boost::gregorian;
namespace bpt = boost::posix_time;
using VxTimeUtl::SimpDateTime;
using VxTimeUtl::SimpDuration;

const SimpDateTime kFirst(1400, 1, 1);
const SimpDateTime kLast(9999, 12, 31, 23, 59, 59, 999999);

std::string Bytes(const std::vector<SimpDateTime>& values) {
  std::ostringstream os;
  for (const SimpDateTime& v : values) EXPECT_TRUE(VxTimeUtl::WriteSimpDateTime(v, os));
  return os.str();
}

std::string Bytes(std::int64_t count) {
  std::ostringstream os;
  WriteEightBytes(&count, 1, os);
  return os.str();
}

std::string Text(const bg::date::ymd_type& ymd) {
  return std::to_string(ymd.year) + "-" + std::to_string(ymd.month) + "-" + std::to_string(ymd.day);
}

TEST(SimpDateTime, CalendarAgreesWithBoostOnEveryDay) {
  const bpt::ptime epoch(bg::date(1970, 1, 1));
  const bpt::time_duration late =
      bpt::hours(23) + bpt::minutes(59) + bpt::seconds(58) + bpt::microseconds(999999);
  for (bg::day_iterator day(bg::date(1400, 1, 1)); *day <= bg::date(9999, 12, 31); ++day) {
    const bg::date::ymd_type ymd = day->year_month_day();
    const SimpDateTime midnight(ymd.year, ymd.month, ymd.day);
    ASSERT_EQ(midnight.GetPtime(), bpt::ptime(*day)) << Text(ymd);
    ASSERT_EQ(midnight.GetEpochMicroseconds(), (bpt::ptime(*day) - epoch).total_microseconds())
        << Text(ymd);
    // And back from Boost, at a time of day that exercises every field.
    ASSERT_EQ(SimpDateTime(bpt::ptime(*day, late)).GetPtime(), bpt::ptime(*day, late)) << Text(ymd);
  }
  const SimpDateTime t(1969, 12, 31, 23, 59, 58, 999999);
  EXPECT_EQ((std::vector<int>{t.GetYear(), t.GetMonth(), t.GetDay(), t.GetHour(), t.GetMinute(),
                              t.GetSecond(), t.GetMicrosecond()}),
            (std::vector<int>{1969, 12, 31, 23, 59, 58, 999999}));
}

TEST(SimpDateTime, ImpossibleFieldsGiveNotADateTime) {
  EXPECT_TRUE(SimpDateTime(2024, 2, 29).IsValid());
  EXPECT_TRUE(SimpDateTime(2000, 2, 29).IsValid());
  const int bad[][7] = {
      {2023, 2, 29, 0, 0, 0, 0}, {1900, 2, 29, 0, 0, 0, 0},      {2024, 2, 30, 0, 0, 0, 0},
      {2024, 4, 31, 0, 0, 0, 0}, {2024, 1, 32, 0, 0, 0, 0},      {2024, 1, 0, 0, 0, 0, 0},
      {2024, 0, 1, 0, 0, 0, 0},  {2024, 13, 1, 0, 0, 0, 0},      {2024, 1, 1, 24, 0, 0, 0},
      {2024, 1, 1, -1, 0, 0, 0}, {2024, 1, 1, 0, 60, 0, 0},      {2024, 1, 1, 0, 0, 60, 0},
      {2024, 1, 1, 0, 0, 0, -1}, {2024, 1, 1, 0, 0, 0, 1000000}, {1399, 12, 31, 0, 0, 0, 0},
      {10000, 1, 1, 0, 0, 0, 0}};
  for (const auto& f : bad) {
    EXPECT_EQ(SimpDateTime(f[0], f[1], f[2], f[3], f[4], f[5], f[6]), SimpDateTime()) << &f - bad;
  }
  EXPECT_FALSE(SimpDateTime().IsValid());
  EXPECT_EQ(SimpDateTime().GetYear(), 0);
  EXPECT_TRUE(SimpDateTime().GetPtime().is_not_a_date_time());
  for (const bpt::ptime& p :
       {bpt::ptime(bpt::not_a_date_time), bpt::ptime(bpt::pos_infin), bpt::ptime(bpt::neg_infin)}) {
    EXPECT_FALSE(SimpDateTime(p).IsValid());
  }
  EXPECT_FALSE(SimpDateTime::FromEpochMicroseconds(kFirst.GetEpochMicroseconds() - 1).IsValid());
  EXPECT_FALSE(SimpDateTime::FromEpochMicroseconds(kLast.GetEpochMicroseconds() + 1).IsValid());
  EXPECT_EQ(SimpDateTime::FromEpochMicroseconds(kLast.GetEpochMicroseconds()), kLast);
}

TEST(SimpDateTime, ArithmeticStaysInsideTheRange) {
  const SimpDateTime t(2024, 2, 28, 23, 30);
  const SimpDuration hour = SimpDuration::FromSeconds(3600);
  EXPECT_EQ(t + hour, SimpDateTime(2024, 2, 29, 0, 30));
  EXPECT_EQ((SimpDateTime(1969, 12, 31, 23, 59, 59, 999999) - SimpDateTime(1970, 1, 1)),
            SimpDuration::FromMicroseconds(-1));

  const SimpDuration tick = SimpDuration::FromMicroseconds(1);
  EXPECT_EQ(kLast - kFirst + tick, SimpDuration::FromSeconds(86400.0L * 3141085));
  EXPECT_EQ(kFirst + (kLast - kFirst), kLast);
  EXPECT_FALSE((kLast + tick).IsValid());
  EXPECT_FALSE((kFirst - tick).IsValid());
  // Huge durations are refused, not wrapped around.
  const SimpDuration huge =
      SimpDuration::FromMicroseconds(std::numeric_limits<std::int64_t>::max());
  EXPECT_FALSE((kFirst + huge).IsValid());
  EXPECT_FALSE((kLast - huge).IsValid());
  EXPECT_FALSE((t + SimpDuration::NotADuration()).IsValid());
  EXPECT_FALSE((SimpDateTime() + hour).IsValid());
  EXPECT_FALSE((SimpDateTime() - t).IsValid());
  EXPECT_FALSE((t - SimpDateTime()).IsValid());

  // Not-a-date-time equals itself and sorts first.
  std::vector<SimpDateTime> values{kLast, SimpDateTime(), t, kFirst};
  std::sort(values.begin(), values.end());
  EXPECT_EQ(values, (std::vector<SimpDateTime>{SimpDateTime(), kFirst, t, kLast}));
  EXPECT_TRUE(kFirst < t && t <= t && kLast > t && kLast >= t && t != kLast);
}

TEST(SimpDateTime, IsoStringShowsTheFractionWithoutTrailingZeros) {
  EXPECT_EQ(SimpDateTime(2024, 3, 5, 14, 30, 0, 250000).ToISOString(), "2024-03-05T14:30:00.25");
  EXPECT_EQ(SimpDateTime(2024, 3, 5, 14, 30, 0, 120).ToISOString(), "2024-03-05T14:30:00.00012");
  EXPECT_EQ(kFirst.ToISOString(), "1400-01-01T00:00:00");
  EXPECT_EQ(kLast.ToISOString(), "9999-12-31T23:59:59.999999");
  EXPECT_EQ(SimpDateTime().ToISOString(), "");
}

TEST(SimpDateTime, StreamFormRoundTripsAndRefusesDamage) {
  const std::vector<SimpDateTime> values{kFirst, kLast, SimpDateTime(),
                                         SimpDateTime(2024, 3, 5, 14, 30, 0, 250000),
                                         SimpDateTime(1969, 12, 31, 23, 59, 59, 999999)};
  const std::string bytes = Bytes(values);
  std::istringstream is(bytes);
  for (const SimpDateTime& expected : values) {
    SimpDateTime read(2000, 1, 1);
    ASSERT_TRUE(VxTimeUtl::ReadSimpDateTime(read, is));
    EXPECT_EQ(read, expected);
  }

  // The layout: little-endian microseconds since 1970, INT64_MIN for not-a-date-time.
  EXPECT_EQ(Bytes({SimpDateTime(1970, 1, 1, 0, 0, 0, 258)}),
            std::string("\x02\x01\0\0\0\0\0\0", 8));
  EXPECT_EQ(Bytes({SimpDateTime()}), std::string("\0\0\0\0\0\0\0\x80", 8));

  // Counts outside the range and short streams throw and leave the value alone.
  const SimpDateTime sentinel(2001, 2, 3);
  for (const std::string& bad :
       {Bytes(kFirst.GetEpochMicroseconds() - 1), Bytes(kLast.GetEpochMicroseconds() + 1),
        Bytes(std::numeric_limits<std::int64_t>::min() + 1), std::string("\x01\x02\x03", 3)}) {
    SimpDateTime read = sentinel;
    std::istringstream in(bad);
    EXPECT_THROW(VxTimeUtl::ReadSimpDateTime(read, in), VxStreamError);
    EXPECT_EQ(read, sentinel);
    EXPECT_TRUE(in.fail());
  }

  ncds::test::ForEachCorruption(bytes, [&](const std::string& damaged) {
    std::istringstream in(damaged);
    std::vector<SimpDateTime> read;
    try {
      for (std::size_t i = 0; i < values.size(); ++i) {
        SimpDateTime value = sentinel;
        VxTimeUtl::ReadSimpDateTime(value, in);
        read.push_back(value);
      }
    } catch (const VxStreamError&) {
      EXPECT_LT(read.size(), values.size());
      return;
    }
    // Whatever was read is in the range and writes back to the same bytes.
    EXPECT_EQ(Bytes(read), damaged);
  });

  std::ostringstream failed;
  failed.setstate(std::ios_base::badbit);
  EXPECT_FALSE(VxTimeUtl::WriteSimpDateTime(kFirst, failed));
}

}  // namespace
