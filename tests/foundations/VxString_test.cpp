#include <gtest/gtest.h>

#include <cerrno>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <string>

#include "ncds/ncds.h"

namespace {

float Parse(const std::string& text) {
  float value = 7;
  EXPECT_TRUE(VxString::ToFloat(text, value)) << '"' << text << '"';
  return value;
}

TEST(VxString, ToFloatAcceptsNumbersWithSurroundingSpace) {
  EXPECT_EQ(Parse(" 1.5 "), 1.5f);
  EXPECT_EQ(Parse("\t-2.25\r\n"), -2.25f);
  EXPECT_EQ(Parse("+3"), 3.0f);
  EXPECT_EQ(Parse("-99"), -99.0f);
  EXPECT_EQ(Parse("2.5E+2"), 250.0f);
  EXPECT_EQ(Parse(".5") + Parse("5."), 5.5f);
  EXPECT_EQ(Parse("0.1"), 0.1f);              // correctly rounded
  EXPECT_EQ(Parse("16777217"), 16777216.0f);  // ties to even
  EXPECT_EQ(Parse("3.4028235e38"), FLT_MAX);  // rounds down to the largest float
  EXPECT_EQ(Parse("1e-40"), 1e-40f);          // subnormal, but not zero
  EXPECT_EQ(Parse("0e-999"), 0.0f);           // a zero is no underflow
  EXPECT_TRUE(std::signbit(Parse("-0.0")));
}

TEST(VxString, ToFloatRefusesGarbageAndOutOfRange) {
  const std::string byteOrderMark = "\xEF\xBB\xBF";
  for (const std::string text :
       {"",      "   ", "1,5", "1.5x", "x1", "1 2", "nan", "NaN", "inf", "-inf",  "1e40", "-1e40",
        "1e-50", "+-1", "-+1", "++1",  "+",  "-",   ".",   "e5",  "1e",  "1.5.2", "0x10"}) {
    float value = 7;
    EXPECT_FALSE(VxString::ToFloat(text, value)) << '"' << text << '"';
    EXPECT_EQ(value, 7.0f) << text;  // untouched on failure
  }
  float value = 7;
  EXPECT_FALSE(VxString::ToFloat(std::string("1\0", 2), value));  // an embedded NUL is junk
  EXPECT_FALSE(VxString::ToFloat(byteOrderMark + "1", value));
}

TEST(VxString, VxstrtodMatchesStrtodInTheCLocale) {
  ASSERT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
  for (const char* text : {"12.5abc", "  -3e2,",    "+.5e-3x", "1e",       "1e+",
                           "abc",     "",           "-",       "+-1",      "1,5",
                           "  inf",   "-Infinity!", "infin",   "nan(123)", "NAN(",
                           "1e400",   "-1e400",     "1e-400",  "0.0",      "9007199254740993"}) {
    char* ours = nullptr;
    char* theirs = nullptr;
    errno = 0;
    const double a = vxstrtod(text, &ours);
    const int ourErrno = errno;
    errno = 0;
    const double b = std::strtod(text, &theirs);
    EXPECT_EQ(ourErrno, errno) << text;
    EXPECT_EQ(ours - text, theirs - text) << text;
    EXPECT_TRUE(a == b || (std::isnan(a) && std::isnan(b))) << text;
  }
  char* end = nullptr;
  EXPECT_EQ(vxstrtod("0x1A", &end), 0.0);  // hexadecimal is not read
  EXPECT_STREQ(end, "x1A");
  EXPECT_EQ(vxstrtod("2.5", nullptr), 2.5);
}

}  // namespace
