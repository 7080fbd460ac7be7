#ifndef NCDS_FOUNDATIONS_DETAIL_CALENDAR_H
#define NCDS_FOUNDATIONS_DETAIL_CALENDAR_H

// Proleptic Gregorian calendar arithmetic on counts of microseconds since
// 1970-01-01T00:00:00, for the years the date-time classes support (1400..9999). Pure integer
// arithmetic (days from year/month/day and back after H. Hinnant's civil algorithms); the
// tests check it against Boost.Date_Time on every day of the range.

#include <cstdint>

namespace ncds::detail {

inline constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
inline constexpr std::int64_t kMicrosecondsPerDay = 86400 * kMicrosecondsPerSecond;
inline constexpr int kMinYear = 1400;
inline constexpr int kMaxYear = 9999;

constexpr bool IsLeapYear(int year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days in `month` (1..12) of `year`.
constexpr int DaysInMonth(int year, int month) {
  constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1970-01-01 to the given date; `year` positive, the fields valid.
constexpr std::int64_t DaysFromCivil(int year, int month, int day) {
  const int y = year - (month <= 2 ? 1 : 0);
  const int era = y / 400;
  const int yearOfEra = y - era * 400;  // [0, 399]
  const int dayOfYear =
      (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;  // from March
  const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return static_cast<std::int64_t>(era) * 146097 + dayOfEra - 719468;
}

struct CivilDate {
  int year;
  int month;
  int day;
};

// The date `days` after 1970-01-01; `days` not before 0001-03-01.
constexpr CivilDate CivilFromDays(std::int64_t days) {
  const std::int64_t z = days + 719468;
  const auto era = static_cast<int>(z / 146097);
  const auto dayOfEra = static_cast<int>(z - static_cast<std::int64_t>(era) * 146097);
  const int yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int shiftedMonth = (5 * dayOfYear + 2) / 153;  // March is 0
  const int day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  const int month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

// The supported range, both ends included: 1400-01-01T00:00:00 .. 9999-12-31T23:59:59.999999.
inline constexpr std::int64_t kMinMicroseconds =
    DaysFromCivil(kMinYear, 1, 1) * kMicrosecondsPerDay;
inline constexpr std::int64_t kMaxMicroseconds =
    DaysFromCivil(kMaxYear + 1, 1, 1) * kMicrosecondsPerDay - 1;

struct CivilTime {
  int year;
  int month;
  int day;
  int hour;
  int minute;
  int second;
  int microsecond;
};

// The fields of a count within the supported range.
constexpr CivilTime SplitMicroseconds(std::int64_t us) {
  std::int64_t days = us / kMicrosecondsPerDay;
  std::int64_t ofDay = us % kMicrosecondsPerDay;
  if (ofDay < 0) {
    ofDay += kMicrosecondsPerDay;
    --days;
  }
  const CivilDate date = CivilFromDays(days);
  const auto seconds = static_cast<int>(ofDay / kMicrosecondsPerSecond);
  return {date.year,
          date.month,
          date.day,
          seconds / 3600,
          seconds / 60 % 60,
          seconds % 60,
          static_cast<int>(ofDay % kMicrosecondsPerSecond)};
}

// True when the fields name an existing instant of the supported range.
constexpr bool IsValidCivil(int year, int month, int day, int hour, int minute, int second,
                            int microsecond) {
  return year >= kMinYear && year <= kMaxYear && month >= 1 && month <= 12 && day >= 1 &&
         day <= DaysInMonth(year, month) && hour >= 0 && hour < 24 && minute >= 0 && minute < 60 &&
         second >= 0 && second < 60 && microsecond >= 0 && microsecond < kMicrosecondsPerSecond;
}

// The count of valid fields (see IsValidCivil).
constexpr std::int64_t JoinMicroseconds(int year, int month, int day, int hour, int minute,
                                        int second, int microsecond) {
  return DaysFromCivil(year, month, day) * kMicrosecondsPerDay +
         ((hour * 60 + minute) * 60 + second) * kMicrosecondsPerSecond + microsecond;
}

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_CALENDAR_H
