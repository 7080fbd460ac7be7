#ifndef NCDS_FOUNDATIONS_VXTIMEUTL_H
#define NCDS_FOUNDATIONS_VXTIMEUTL_H

// The enumerations of the date-time utilities. Variable records store both as two-byte
// numbers, so the values below are part of the stream format and never change.

namespace VxTimeUtl {

// Unit of a stored time value.
enum ETimeAccuracy {
  eYear = 0,
  eMonth = 1,
  eDay = 2,
  eHour = 3,
  eMinute = 4,
  eSecond = 5,
  eNoLimit = 6
};

// How imported text is read into a date-time (see DateTimeFormatter).
enum EParseType { eParseISO8601 = 0, eParseDayFirst = 1, eParseFormat = 2, eParseMonthFirst = 3 };

}  // namespace VxTimeUtl

#endif  // NCDS_FOUNDATIONS_VXTIMEUTL_H
