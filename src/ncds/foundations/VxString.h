#ifndef NCDS_FOUNDATIONS_VXSTRING_H
#define NCDS_FOUNDATIONS_VXSTRING_H

// Conversion of text to numbers that does not depend on the C or C++ locale: the decimal point
// is always '.', whatever language the application runs in, so files written in one locale
// read back in any other. Pure functions, safe from any thread.
//
// Accepted number syntax: optional sign ('+' or '-'), decimal digits with an optional '.'
// fraction, an optional exponent ("e-5", "E+12"). Hexadecimal notation is not accepted.

#include <string>

#include "ncds/ncds_export.h"

namespace VxString {

// Converts the whole of `text`, which may have leading and trailing white space, to a finite
// float and returns true. Returns false, leaving `value` unchanged, for empty text, garbage,
// anything after the number ("1,5", "2x"), "nan" and "inf", and magnitudes beyond float's
// range, above (1e40) or below the smallest float (1e-50).
NCDS_EXPORT bool ToFloat(const std::string& text, float& value);

}  // namespace VxString

// strtod without the locale: skips leading white space, reads the longest number it can
// (besides the syntax above also "inf", "infinity", "nan" and "nan(...)" in any case) and sets
// *end (when `end` is not null) after it. Without a number it returns 0 and sets *end to
// `text`. On overflow it returns +-HUGE_VAL, and on underflow a value of at most DBL_MIN in
// magnitude; both set errno to ERANGE.
NCDS_EXPORT double vxstrtod(const char* text, char** end);

#endif  // NCDS_FOUNDATIONS_VXSTRING_H
