#include "ncds/foundations/SimpDateTime.h"

#include <istream>
#include <ostream>

#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/Calendar.h"

namespace ncds::detail {
namespace {

// Writes `value` (non-negative) as `width` decimal digits, zero-padded; returns the end.
char* PutDigits(char* p, int value, int width) {
  for (int i = width - 1; i >= 0; --i, value /= 10) p[i] = static_cast<char>('0' + value % 10);
  return p + width;
}

}  // namespace
}  // namespace ncds::detail

namespace VxTimeUtl {

using ncds::detail::kMaxMicroseconds;
using ncds::detail::kMinMicroseconds;

SimpDateTime::SimpDateTime(int year, int month, int day, int hour, int minute, int second,
                           int microsecond) noexcept {
  if (ncds::detail::IsValidCivil(year, month, day, hour, minute, second, microsecond)) {
    mMicroseconds =
        ncds::detail::JoinMicroseconds(year, month, day, hour, minute, second, microsecond);
  }
}

SimpDateTime::SimpDateTime(const boost::posix_time::ptime& t) {
  if (t.is_special()) return;
  const boost::gregorian::date::ymd_type ymd = t.date().year_month_day();
  const std::int64_t ofDay = t.time_of_day().total_microseconds();
  const int year = ymd.year;
  if (year < ncds::detail::kMinYear || year > ncds::detail::kMaxYear || ofDay < 0 ||
      ofDay >= ncds::detail::kMicrosecondsPerDay) {
    return;
  }
  mMicroseconds =
      ncds::detail::DaysFromCivil(year, ymd.month, ymd.day) * ncds::detail::kMicrosecondsPerDay +
      ofDay;
}

SimpDateTime SimpDateTime::FromEpochMicroseconds(std::int64_t us) noexcept {
  SimpDateTime result;
  if (us >= kMinMicroseconds && us <= kMaxMicroseconds) result.mMicroseconds = us;
  return result;
}

boost::posix_time::ptime SimpDateTime::GetPtime() const {
  if (!IsValid()) return boost::posix_time::ptime(boost::posix_time::not_a_date_time);
  const ncds::detail::CivilTime c = ncds::detail::SplitMicroseconds(mMicroseconds);
  const std::int64_t ofDay =
      ((c.hour * 60 + c.minute) * 60 + c.second) * ncds::detail::kMicrosecondsPerSecond +
      c.microsecond;
  return boost::posix_time::ptime(boost::gregorian::date(static_cast<unsigned short>(c.year),
                                                         static_cast<unsigned short>(c.month),
                                                         static_cast<unsigned short>(c.day)),
                                  boost::posix_time::microseconds(ofDay));
}

int SimpDateTime::GetYear() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).year : 0;
}
int SimpDateTime::GetMonth() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).month : 0;
}
int SimpDateTime::GetDay() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).day : 0;
}
int SimpDateTime::GetHour() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).hour : 0;
}
int SimpDateTime::GetMinute() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).minute : 0;
}
int SimpDateTime::GetSecond() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).second : 0;
}
int SimpDateTime::GetMicrosecond() const {
  return IsValid() ? ncds::detail::SplitMicroseconds(mMicroseconds).microsecond : 0;
}

SimpDuration SimpDateTime::operator-(const SimpDateTime& other) const {
  // Both counts lie within the range, so the difference cannot overflow.
  if (!IsValid() || !other.IsValid()) return SimpDuration::NotADuration();
  return SimpDuration::FromMicroseconds(mMicroseconds - other.mMicroseconds);
}

SimpDateTime SimpDateTime::operator+(const SimpDuration& d) const {
  if (!IsValid() || !d.IsValid()) return SimpDateTime();
  // Compare against the room left on either side instead of adding, which could overflow.
  const std::int64_t us = d.GetMicroseconds();
  if (us > kMaxMicroseconds - mMicroseconds || us < kMinMicroseconds - mMicroseconds) {
    return SimpDateTime();
  }
  return FromEpochMicroseconds(mMicroseconds + us);
}

SimpDateTime SimpDateTime::operator-(const SimpDuration& d) const { return *this + (-d); }

std::string SimpDateTime::ToISOString() const {
  if (!IsValid()) return std::string();
  const ncds::detail::CivilTime c = ncds::detail::SplitMicroseconds(mMicroseconds);
  char buf[32];
  char* p = ncds::detail::PutDigits(buf, c.year, 4);
  *p++ = '-';
  p = ncds::detail::PutDigits(p, c.month, 2);
  *p++ = '-';
  p = ncds::detail::PutDigits(p, c.day, 2);
  *p++ = 'T';
  p = ncds::detail::PutDigits(p, c.hour, 2);
  *p++ = ':';
  p = ncds::detail::PutDigits(p, c.minute, 2);
  *p++ = ':';
  p = ncds::detail::PutDigits(p, c.second, 2);
  if (c.microsecond != 0) {
    *p++ = '.';
    p = ncds::detail::PutDigits(p, c.microsecond, 6);
    while (p[-1] == '0') --p;
  }
  return std::string(buf, p);
}

bool WriteSimpDateTime(const SimpDateTime& value, std::ostream& os) {
  const std::int64_t count = value.GetEpochMicroseconds();
  return WriteEightBytes(&count, 1, os);
}

bool ReadSimpDateTime(SimpDateTime& value, std::istream& is) {
  std::int64_t count = 0;
  ReadEightBytes(&count, 1, is);
  if (count == INT64_MIN) {
    value = SimpDateTime();
    return true;
  }
  const SimpDateTime read = SimpDateTime::FromEpochMicroseconds(count);
  if (!read.IsValid()) {
    is.setstate(std::ios_base::failbit);
    ThrowStreamReadError();
  }
  value = read;
  return true;
}

}  // namespace VxTimeUtl
