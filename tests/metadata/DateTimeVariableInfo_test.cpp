#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::ReadFromString;
using ncds::test::WriteToString;
using VxTimeUtl::ETimeAccuracy;
using VxTimeUtl::SimpDateTime;

const SimpDateTime kOffset(2024, 3, 1);
const std::int64_t kSecondsPerUnit[] = {31104000, 2592000, 86400, 3600, 60, 1};

DateTimeVariableInfo Make(int accuracy, const std::string& format,
                          const SimpDateTime& offset = kOffset) {
  return DateTimeVariableInfo("When", 1, VxTimeUtl::eParseDayFirst, "", format, offset,
                              static_cast<ETimeAccuracy>(accuracy));
}

// The text `us` microseconds after the offset in `pattern`.
std::string TextAfter(std::int64_t us, const std::string& pattern) {
  return VxTimeUtl::DateTimeFormatter(VxTimeUtl::eParseFormat, pattern)
      .Format(kOffset + VxTimeUtl::SimpDuration::FromMicroseconds(us));
}

// Whether `text` comes back unchanged through the float.
bool RoundTrips(DateTimeVariableInfo& v, const std::string& text) {
  return v.Decode(v.Encode(text.c_str())) == text;
}

TEST(DateTimeVariableInfo, TextRoundTripsAtEveryAccuracy) {
  // Each pattern down to the finest accuracy it shows.
  const std::pair<const char*, int> patterns[] = {{"", VxTimeUtl::eSecond},
                                                  {"yyyy-MM-dd HH:mm:ss", VxTimeUtl::eSecond},
                                                  {"d.M.yy HH:mm", VxTimeUtl::eMinute},
                                                  {"dd MMM yyyy", VxTimeUtl::eDay}};
  for (const auto& [pattern, finest] : patterns) {
    for (int accuracy = VxTimeUtl::eYear; accuracy <= finest; ++accuracy) {
      DateTimeVariableInfo v = Make(accuracy, pattern);
      for (const std::int64_t k : {0, 1, -1, 7, -250, 1000, 99999}) {
        // Within 38 years, where two-digit years name the right century.
        if (std::abs(k) * kSecondsPerUnit[accuracy] > 1200000000) continue;
        const std::string text = TextAfter(k * kSecondsPerUnit[accuracy] * 1000000, pattern);
        SCOPED_TRACE(text + " at accuracy " + std::to_string(accuracy));
        EXPECT_EQ(v.EncodeCustom(pattern, text.c_str()), static_cast<float>(k));
        EXPECT_TRUE(RoundTrips(v, text));
      }
    }
  }
  // Off the grid, as far as the float holds it; years of 360 days, months of 30.
  EXPECT_EQ(Make(VxTimeUtl::eHour, "yyyy-MM-dd HH:mm").Decode(-0.25F), "2024-02-29 23:45");
  EXPECT_EQ(Make(VxTimeUtl::eYear, "yyyy-MM-dd").Decode(1.0F), "2025-02-24");
  EXPECT_EQ(Make(VxTimeUtl::eMonth, "yyyy-MM-dd").Encode("2024-03-31"), 1.0F);
  DateTimeVariableInfo days = Make(VxTimeUtl::eDay, "", SimpDateTime(1970, 1, 1));
  EXPECT_TRUE(RoundTrips(days, "2024-03-05T13:00:00"));  // the float resolves ~3 minutes

  // Float error never shows: the format's last digit is rounded, not cut.
  DateTimeVariableInfo fff = Make(VxTimeUtl::eSecond, "dd.MM.yyyy HH:mm:ss.fff");
  EXPECT_EQ(fff.Encode("01.03.2024 00:00:01.250"), 1.25F);
  EXPECT_EQ(fff.Decode(std::nextafter(1.25F, 0.0F)), "01.03.2024 00:00:01.250");
  EXPECT_EQ(Make(VxTimeUtl::eSecond, "HH:mm:ss").Decode(59.6F), "00:01:00");
  EXPECT_EQ(Make(VxTimeUtl::eSecond, "").Decode(0.1F), "2024-03-01T00:00:00.1");

  // The parse method the data came with.
  EXPECT_EQ(fff.EncodeOriginal("5/3/2024 14:30:15"), 397815.0F);
  EXPECT_EQ(fff.DecodeOriginal(397815.0F), "05/03/2024 14:30:15");
  EXPECT_EQ(fff.Encode("5/3/2024 14:30:15"), -99.0F);

  // 99 units before the offset is a value, next to missing.
  const float near = fff.Encode("29.02.2024 23:58:21.000");
  EXPECT_TRUE(near != -99.0F && near > -99.0001F);
  EXPECT_EQ(fff.Decode(near), "29.02.2024 23:58:21.000");

  for (const char* bad :
       {"", "x", "29.02.2023 00:00:00.000", "01.03.2024", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(fff.Encode(bad), -99.0F) << bad;
  }
  for (const float far : {-99.0F, NAN, 3e11F, -3e11F, 1e13F, FLT_MAX}) {
    EXPECT_EQ(fff.Decode(far), "") << far;
  }
  DateTimeVariableInfo unset;  // ISO, second accuracy, no offset
  EXPECT_EQ(unset.Encode("2024-03-01"), -99.0F);
  EXPECT_EQ(unset.Decode(0.0F), "");
  unset.SetDateTimeOffset(kOffset);
  EXPECT_EQ(unset.Encode("2024-03-01T00:00:02"), 2.0F);
  EXPECT_EQ(Make(VxTimeUtl::eNoLimit, "").Encode("2024-03-01"), -99.0F);
}

TEST(DateTimeVariableInfo, FloatPrecisionBoundaries) {
  // Whole seconds are exact up to 2^24 s (194 days) either side of the offset.
  DateTimeVariableInfo seconds = Make(VxTimeUtl::eSecond, "");
  for (const std::int64_t s : {16777216, -16777216, 16777215, 12345677}) {
    EXPECT_TRUE(RoundTrips(seconds, TextAfter(s * 1000000, ""))) << s;
  }
  EXPECT_FALSE(RoundTrips(seconds, TextAfter(16777217000000, "")));

  // Every millisecond comes back at 16 minutes from the offset, and still up to 2^14 s.
  const std::string pattern = "yyyy-MM-dd HH:mm:ss.fff";
  DateTimeVariableInfo millis = Make(VxTimeUtl::eSecond, pattern);
  int lost = 0;
  for (const std::int64_t s : {960, -961, 16383, -16384}) {
    for (std::int64_t ms = 0; ms < 1000; ++ms) {
      lost += !RoundTrips(millis, TextAfter(s * 1000000 + ms * 1000, pattern));
    }
  }
  EXPECT_EQ(lost, 0);
  for (std::int64_t ms = 1; ms < 1000; ++ms) {
    lost += !RoundTrips(millis, TextAfter(16384000000 + ms * 1000, pattern));
  }
  EXPECT_GT(lost, 0);
}

TEST(DateTimeVariableInfo, SecondsAndSpanLimits) {
  for (int accuracy = VxTimeUtl::eYear; accuracy <= VxTimeUtl::eSecond; ++accuracy) {
    EXPECT_EQ(Make(accuracy, "").ToSeconds(2.5F), 2.5L * kSecondsPerUnit[accuracy]);
    EXPECT_EQ(Make(accuracy, "").ToSeconds(-99.0F), -99.0L);
  }
  EXPECT_EQ(Make(VxTimeUtl::eNoLimit, "").ToSeconds(1.0F), -99.0L);

  struct Limit {
    int accuracy;
    const char* format;
    ETimeAccuracy unit;
    float maximum;
    float largestSpan;  // in the variable's accuracy; 0 when there is no limit
  };
  const Limit limits[] = {
      {VxTimeUtl::eDay, "", VxTimeUtl::eNoLimit, -99.0F, 0.0F},
      {VxTimeUtl::eHour, "", VxTimeUtl::eYear, 114.0F, 984960.0F},
      {VxTimeUtl::eMinute, "", VxTimeUtl::eMonth, 23.0F, 993600.0F},
      {VxTimeUtl::eSecond, "HH:mm:ss.fff", VxTimeUtl::eMinute, 16.0F, 960.0F},
      {VxTimeUtl::eSecond, "", VxTimeUtl::eMinute, 16.0F, 960.0F},  // ISO shows fractions
      {VxTimeUtl::eSecond, "HH:mm:ss", VxTimeUtl::eDay, 11.0F, 950400.0F},
      {VxTimeUtl::eNoLimit, "", VxTimeUtl::eNoLimit, -99.0F, 0.0F},
  };
  for (const Limit& limit : limits) {
    SCOPED_TRACE(std::to_string(limit.accuracy) + " " + limit.format);
    const DateTimeVariableInfo v = Make(limit.accuracy, limit.format);
    ETimeAccuracy unit = VxTimeUtl::eSecond;
    float maximum = 0.0F;
    v.GetMaximumSaveTimeUnitAndTime(unit, maximum);
    EXPECT_EQ(unit, limit.unit);
    EXPECT_EQ(maximum, limit.maximum);
    const bool valid = limit.accuracy != VxTimeUtl::eNoLimit;
    EXPECT_EQ(v.IsValidTimeRange(limit.largestSpan > 0 ? limit.largestSpan : 1e9F), valid);
    EXPECT_EQ(v.IsValidTimeRange(limit.largestSpan + 1.0F), valid && limit.largestSpan == 0);
    for (const float bad : {-99.0F, -1.0F, NAN}) EXPECT_FALSE(v.IsValidTimeRange(bad));
  }
}

TEST(DateTimeVariableInfo, CopiesKeepTheirOwnFormatters) {
  DateTimeVariableInfo source("Src", 1, VxTimeUtl::eParseMonthFirst, "", "HH:mm:ss.fff",
                              SimpDateTime(2020, 6, 1, 12), VxTimeUtl::eMinute);
  DateTimeVariableInfo target = Make(VxTimeUtl::eSecond, "yyyy");
  target.CopySettings(source);
  EXPECT_EQ(target.GetPrimaryAlias(), "When");
  EXPECT_EQ(target.Decode(1.5F), "12:01:30.000");
  EXPECT_EQ(target.EncodeOriginal("6/2/2020 12:00"), 1440.0F);

  std::unique_ptr<VariableInfo> clone(source.Clone());
  source.SetDatasetFormatString("HH:mm");
  EXPECT_EQ(source.Decode(1.5F), "12:01");
  EXPECT_EQ(clone->Decode(1.5F), "12:01:30.000");
  ASSERT_EQ(clone->AsDateTimeVariableInfo(), clone.get());
  EXPECT_TRUE(!clone->AsQuantitativeVariableInfo() && !clone->AsQualitativeVariableInfo());
}

TEST(DateTimeVariableInfo, StreamsKeepEveryFieldAndRefuseOthers) {
  DateTimeVariableInfo v("Sampled", 4000000000UL, VxTimeUtl::eParseFormat, "dd|MM|yyyy HH:mm",
                         "yyyy-MM-dd HH:mm:ss.fff", SimpDateTime(2024, 3, 1, 12, 0, 0, 500000),
                         VxTimeUtl::eMinute);
  v.AddID("S-1");
  v.SetUnit("h");
  // Read back through the factory, as the containers do.
  std::unique_ptr<VStreamBase> object = OBJCREAT_Details::FactoryRepositoryBase::Instance()
                                            .GetFactory("DateTimeVariableInfo")
                                            ->Create();
  ASSERT_TRUE(ReadFromString(WriteToString(v), *object));
  const auto* r = dynamic_cast<const DateTimeVariableInfo*>(object.get());
  ASSERT_NE(r, nullptr);
  EXPECT_TRUE(r->GetUserIDs() == v.GetUserIDs() && r->GetUniqueID() == 4000000000UL);
  EXPECT_EQ(r->GetUnit(), "h");
  EXPECT_FLOAT_EQ(r->EncodeOriginal("01|03|2024 13:00"), 3599.5F / 60.0F);
  EXPECT_EQ(r->Encode("2024-03-01 12:01:00.500"), 1.0F);

  DateTimeVariableInfo back = Make(VxTimeUtl::eDay, "yyyy");
  ASSERT_TRUE(ReadFromString(WriteToString(DateTimeVariableInfo()), back));
  EXPECT_EQ(back.GetDateTimeOffset(), SimpDateTime(1970, 1, 1));  // unset is stored so
  EXPECT_EQ(back.GetTimeAccuracy(), VxTimeUtl::eSecond);
  std::string bytes = WriteToString(v);
  bytes[5] = 2;  // the version's low byte, after the magic's length and four letters
  EXPECT_FALSE(ReadFromString(bytes, back));

  // Hand-made: every entry required, method and accuracy must name enumerators.
  const auto stream = [](int skipped, std::int16_t method, std::int16_t accuracy) {
    std::ostringstream os;
    VStreamLight::WriteMagicStringAndVersionNumber(os, 1, "DTVI");
    os << QuantitativeVariableInfo("Hand", 3);
    OutputStreamDirectory d(os, 13);
    if (skipped != 0) WriteToStreamDir(method, d, 0);
    if (skipped != 1) WriteToStreamDir(std::string("yyyy"), d, 1);
    if (skipped != 2) WriteToStreamDir(std::string("yyyy-MM"), d, 2);
    if (skipped != 11) WriteToStreamDir(accuracy, d, 11);
    if (skipped != 12) VxTimeUtl::WriteSimpDateTime(kOffset, d.GetOutput(12));
    d.Close();
    return os.str();
  };
  DateTimeVariableInfo hand = Make(VxTimeUtl::eHour, "HH");
  for (int skipped : {0, 1, 2, 11, 12}) EXPECT_FALSE(ReadFromString(stream(skipped, 2, 4), hand));
  EXPECT_FALSE(ReadFromString(stream(-1, 4, 4), hand));
  EXPECT_FALSE(ReadFromString(stream(-1, -1, 4), hand));
  EXPECT_FALSE(ReadFromString(stream(-1, 2, 7), hand));
  EXPECT_EQ(hand.Decode(1.0F), "01");  // the failures left the record's own fields alone
  ASSERT_TRUE(ReadFromString(stream(-1, 3, 6), hand));
  EXPECT_EQ(hand.GetTimeAccuracy(), VxTimeUtl::eNoLimit);
  ASSERT_TRUE(ReadFromString(stream(-1, 2, 1), hand));
  EXPECT_EQ(hand.GetPrimaryAlias(), "Hand");
  EXPECT_EQ(hand.Decode(1.0F), "2024-03");
  EXPECT_FLOAT_EQ(hand.EncodeOriginal("2025"), 10.2F);  // 306 days in 30-day months
}

TEST(DateTimeVariableInfo, DamagedStreamsFailCleanly) {
  DateTimeVariableInfo v("Sampled", 9, VxTimeUtl::eParseDayFirst, "dd.MM.yyyy", "HH:mm:ss.fff",
                         kOffset, VxTimeUtl::eSecond);
  const std::string valid = WriteToString(v);
  std::size_t succeeded = 0;
  ncds::test::ForEachCorruption(valid, [&](const std::string& bytes) {
    DateTimeVariableInfo r;
    const bool read = ReadFromString(bytes, r);
    EXPECT_FALSE(read && bytes.size() < valid.size()) << "a truncation was read";
    if (!read) return;
    ++succeeded;
    r.Decode(r.Encode("12:00:00.000"));  // whatever was read works
    r.DecodeOriginal(1.0F);
    WriteToString(r);
  });
  EXPECT_LT(succeeded, valid.size());
}

}  // namespace
