#ifndef NCDS_FOUNDATIONS_SIMPDATETIME_H
#define NCDS_FOUNDATIONS_SIMPDATETIME_H

// A point in time without time zone, with microsecond resolution, in the proleptic Gregorian
// calendar from 1400-01-01T00:00:00 to 9999-12-31T23:59:59.999999 (the range of
// Boost.Date_Time). A value is either such a point or "not-a-date-time": the default, the
// result of impossible fields (2023-02-29, hour 24, second 60) and of arithmetic that leaves
// the range or involves not-a-date-time or not-a-duration. Nothing here throws.
//
// The value is one 64-bit count of microseconds since 1970-01-01T00:00:00, so copies and
// comparisons are cheap. Comparisons form a total order: not-a-date-time equals itself and
// sorts before every date-time. A plain value type, safe to use from any thread.
//
// Stream form: the count as eight little-endian bytes, INT64_MIN for not-a-date-time. The
// reader refuses every other count outside the range.

#include <cstdint>
#include <iosfwd>
#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "ncds/foundations/SimpDuration.h"
#include "ncds/ncds_export.h"

namespace VxTimeUtl {

class NCDS_EXPORT SimpDateTime {
 public:
  // Not-a-date-time.
  SimpDateTime() = default;
  // Not-a-date-time unless every field is in its range (month 1..12, day within the month,
  // hour 0..23, minute and second 0..59, microsecond 0..999999, year 1400..9999).
  SimpDateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
               int microsecond = 0) noexcept;
  // Not-a-date-time for Boost's special values (not_a_date_time, infinities).
  explicit SimpDateTime(const boost::posix_time::ptime& t);

  // The date-time `us` microseconds after 1970-01-01T00:00:00 (the stream's count), or
  // not-a-date-time outside the range.
  static SimpDateTime FromEpochMicroseconds(std::int64_t us) noexcept;
  // Microseconds since 1970-01-01T00:00:00, INT64_MIN for not-a-date-time.
  std::int64_t GetEpochMicroseconds() const { return mMicroseconds; }

  bool IsValid() const { return mMicroseconds != kInvalid; }
  // Boost's not_a_date_time for not-a-date-time.
  boost::posix_time::ptime GetPtime() const;

  // The fields; 0 for not-a-date-time.
  int GetYear() const;
  int GetMonth() const;
  int GetDay() const;
  int GetHour() const;
  int GetMinute() const;
  int GetSecond() const;
  int GetMicrosecond() const;

  // Not-a-duration when either is not-a-date-time.
  SimpDuration operator-(const SimpDateTime& other) const;
  // Not-a-date-time when the result leaves the range.
  SimpDateTime operator+(const SimpDuration& d) const;
  SimpDateTime operator-(const SimpDuration& d) const;

  bool operator==(const SimpDateTime& other) const { return mMicroseconds == other.mMicroseconds; }
  bool operator!=(const SimpDateTime& other) const { return mMicroseconds != other.mMicroseconds; }
  bool operator<(const SimpDateTime& other) const { return mMicroseconds < other.mMicroseconds; }
  bool operator<=(const SimpDateTime& other) const { return mMicroseconds <= other.mMicroseconds; }
  bool operator>(const SimpDateTime& other) const { return mMicroseconds > other.mMicroseconds; }
  bool operator>=(const SimpDateTime& other) const { return mMicroseconds >= other.mMicroseconds; }

  // "2024-03-05T14:30:00", followed by ".ffffff" without its trailing zeros when there is a
  // fraction of a second ("2024-03-05T14:30:00.25"); "" for not-a-date-time.
  std::string ToISOString() const;

 private:
  static constexpr std::int64_t kInvalid = INT64_MIN;

  std::int64_t mMicroseconds = kInvalid;
};

// Writes the eight bytes of the stream form; false when the stream failed.
NCDS_EXPORT bool WriteSimpDateTime(const SimpDateTime& value, std::ostream& os);
// Reads the stream form into `value` and answers true, or throws VxStreamError for a short
// stream or a count outside the range, leaving `value` unchanged.
NCDS_EXPORT bool ReadSimpDateTime(SimpDateTime& value, std::istream& is);

}  // namespace VxTimeUtl

#endif  // NCDS_FOUNDATIONS_SIMPDATETIME_H
