#include "ncds/metadata/DateTimeVariableInfo.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/SimpDuration.h"

namespace ncds::detail {
namespace {

const FactoryRegistration<DateTimeVariableInfo> kRegistration("DateTimeVariableInfo");

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kNumberOfTags = 13;
constexpr std::uint16_t kTagParseMethod = 0;
constexpr std::uint16_t kTagParseFormat = 1;
constexpr std::uint16_t kTagDatasetFormat = 2;
constexpr std::uint16_t kTagAccuracy = 11;
constexpr std::uint16_t kTagOffset = 12;
constexpr float kMissing = -99.0F;
constexpr long double kMicrosecondsPerSecond = 1e6L;
constexpr std::int64_t kMicrosecondsPerDay = 86400000000;

// Seconds in one unit of each accuracy, year..second. Years and months are the fixed 360 and
// 30 days the stored values have always been counted in, not calendar ones.
constexpr std::int64_t kSecondsPerUnit[] = {31104000, 2592000, 86400, 3600, 60, 1};

// The steps decoding rounds to: decimal fractions of a second, then 1 and 10 seconds, 1 and 10
// minutes, an hour and a day.
constexpr std::int64_t kRoundingSteps[] = {1,        10,        100,        1000,
                                           10000,    100000,    1000000,    10000000,
                                           60000000, 600000000, 3600000000, kMicrosecondsPerDay};

bool IsUnit(int accuracy) { return accuracy >= VxTimeUtl::eYear && accuracy <= VxTimeUtl::eSecond; }

bool IsParseMethod(int method) {
  return method >= VxTimeUtl::eParseISO8601 && method <= VxTimeUtl::eParseMonthFirst;
}

bool IsAccuracy(int accuracy) {
  return accuracy >= VxTimeUtl::eYear && accuracy <= VxTimeUtl::eNoLimit;
}

// The finest step, in microseconds, that `formatter` shows: the smallest power of ten below
// a second whose addition changes the text, else a whole second.
std::int64_t FinestShownStep(const VxTimeUtl::DateTimeFormatter& formatter) {
  const VxTimeUtl::SimpDateTime base(2000, 1, 1);
  const std::string plain = formatter.Format(base);
  for (std::int64_t step = 1; step < 1000000; step *= 10) {
    if (formatter.Format(base + VxTimeUtl::SimpDuration::FromMicroseconds(step)) != plain) {
      return step;
    }
  }
  return 1000000;
}

// The smallest rounding step that covers the float's resolution at `value` (its spacing just
// below |value|, so that values the float holds exactly keep the step of their neighbours).
std::int64_t FloatStep(float value, std::int64_t secondsPerUnit) {
  const float magnitude = std::fabs(value);
  const float spacing = magnitude - std::nextafter(magnitude, 0.0F);
  const long double spacingUs =
      static_cast<long double>(spacing) * secondsPerUnit * kMicrosecondsPerSecond;
  for (const std::int64_t step : kRoundingSteps) {
    if (static_cast<long double>(step) >= spacingUs) return step;
  }
  return kMicrosecondsPerDay;
}

// The floor of a / b for b > 0.
std::int64_t FloorDivide(std::int64_t a, std::int64_t b) {
  const std::int64_t q = a / b;
  return (a % b != 0 && a < 0) ? q - 1 : q;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData DateTimeVariableInfo::msVStreamData(ncds::detail::kVersion, "DTVI");

DateTimeVariableInfo::DateTimeVariableInfo() : VariableInfo() { RebuildFormats(); }

DateTimeVariableInfo::DateTimeVariableInfo(const std::string& id, unsigned long uniqueID,
                                           VxTimeUtl::EParseType parseMethod,
                                           const std::string& parseFormat,
                                           const std::string& datasetFormat,
                                           const VxTimeUtl::SimpDateTime& offset,
                                           VxTimeUtl::ETimeAccuracy accuracy)
    : VariableInfo(id, uniqueID, std::string(), -1, 0, eOrdinary),
      mParseMethod(ncds::detail::IsParseMethod(parseMethod) ? parseMethod
                                                            : VxTimeUtl::eParseISO8601),
      mParseFormat(parseFormat),
      mDatasetFormat(datasetFormat),
      mOffset(offset),
      mAccuracy(ncds::detail::IsUnit(accuracy) ? accuracy : VxTimeUtl::eNoLimit) {
  RebuildFormats();
}

DateTimeVariableInfo::DateTimeVariableInfo(const DateTimeVariableInfo& other)
    : VariableInfo(other),
      mParseMethod(other.mParseMethod),
      mParseFormat(other.mParseFormat),
      mDatasetFormat(other.mDatasetFormat),
      mOffset(other.mOffset),
      mAccuracy(other.mAccuracy),
      mDataset(CopyFormat(other.mDataset)),
      mOriginal(CopyFormat(other.mOriginal)) {}

DateTimeVariableInfo::~DateTimeVariableInfo() = default;

DateTimeVariableInfo* DateTimeVariableInfo::Clone() const {
  return new DateTimeVariableInfo(*this);
}

const QuantitativeVariableInfo* DateTimeVariableInfo::AsQuantitativeVariableInfo() const {
  return nullptr;
}

const QualitativeVariableInfo* DateTimeVariableInfo::AsQualitativeVariableInfo() const {
  return nullptr;
}

const DateTimeVariableInfo* DateTimeVariableInfo::AsDateTimeVariableInfo() const { return this; }

float DateTimeVariableInfo::Encode(const char* text) const {
  return EncodeWith(*mDataset.formatter, text);
}

std::string DateTimeVariableInfo::Decode(float value) { return DecodeWith(mDataset, value); }

float DateTimeVariableInfo::EncodeOriginal(const char* text) const {
  return EncodeWith(*mOriginal.formatter, text);
}

std::string DateTimeVariableInfo::DecodeOriginal(float value) {
  return DecodeWith(mOriginal, value);
}

float DateTimeVariableInfo::EncodeCustom(const std::string& format, const char* text) const {
  return EncodeWith(VxTimeUtl::DateTimeFormatter(VxTimeUtl::eParseFormat, format), text);
}

long double DateTimeVariableInfo::ToSeconds(float value) const {
  if (value == ncds::detail::kMissing || !ncds::detail::IsUnit(mAccuracy)) {
    return ncds::detail::kMissing;
  }
  return static_cast<long double>(value) * ncds::detail::kSecondsPerUnit[mAccuracy];
}

void DateTimeVariableInfo::CopySettings(const DateTimeVariableInfo& other) {
  mParseMethod = other.mParseMethod;
  mParseFormat = other.mParseFormat;
  mDatasetFormat = other.mDatasetFormat;
  mOffset = other.mOffset;
  mAccuracy = other.mAccuracy;
  RebuildFormats();
}

void DateTimeVariableInfo::SetDatasetFormatString(const std::string& format) {
  mDataset = MakeFormat(VxTimeUtl::eParseFormat, format);
  mDatasetFormat = format;
}

void DateTimeVariableInfo::GetMaximumSaveTimeUnitAndTime(VxTimeUtl::ETimeAccuracy& unit,
                                                         float& maximum) const {
  // The accuracy stands for the resolution of the data: the finer it is, the fewer units a
  // float holds exactly, hence the shorter the span allowed.
  switch (mAccuracy) {
    case VxTimeUtl::eHour:
      unit = VxTimeUtl::eYear;
      maximum = 114.0F;
      break;
    case VxTimeUtl::eMinute:
      unit = VxTimeUtl::eMonth;
      maximum = 23.0F;
      break;
    case VxTimeUtl::eSecond:
      if (mDataset.formatter->ShowsFractions()) {
        unit = VxTimeUtl::eMinute;
        maximum = 16.0F;
      } else {
        unit = VxTimeUtl::eDay;
        maximum = 11.0F;
      }
      break;
    default:
      unit = VxTimeUtl::eNoLimit;
      maximum = ncds::detail::kMissing;
      break;
  }
}

bool DateTimeVariableInfo::IsValidTimeRange(float span) const {
  namespace d = ncds::detail;
  if (!d::IsUnit(mAccuracy) || span == d::kMissing || !std::isfinite(span) || span < 0.0F) {
    return false;
  }
  VxTimeUtl::ETimeAccuracy unit = VxTimeUtl::eNoLimit;
  float maximum = d::kMissing;
  GetMaximumSaveTimeUnitAndTime(unit, maximum);
  if (!d::IsUnit(unit)) return true;
  return static_cast<long double>(span) * d::kSecondsPerUnit[mAccuracy] <=
         static_cast<long double>(maximum) * d::kSecondsPerUnit[unit];
}

DateTimeVariableInfo::Format DateTimeVariableInfo::MakeFormat(VxTimeUtl::EParseType method,
                                                              const std::string& pattern) {
  // The formatter refuses unknown methods by throwing; the record only holds known ones, but
  // a stray value must not escape as an exception from a constructor.
  const int mode = ncds::detail::IsParseMethod(method) ? method : VxTimeUtl::eParseISO8601;
  Format format;
  format.formatter = std::make_unique<VxTimeUtl::DateTimeFormatter>(mode, pattern);
  format.stepMicroseconds = ncds::detail::FinestShownStep(*format.formatter);
  return format;
}

DateTimeVariableInfo::Format DateTimeVariableInfo::CopyFormat(const Format& other) {
  Format format;
  format.formatter = std::make_unique<VxTimeUtl::DateTimeFormatter>(*other.formatter);
  format.stepMicroseconds = other.stepMicroseconds;
  return format;
}

void DateTimeVariableInfo::RebuildFormats() {
  mDataset = MakeFormat(VxTimeUtl::eParseFormat, mDatasetFormat);
  mOriginal = MakeFormat(mParseMethod, mParseFormat);
}

float DateTimeVariableInfo::EncodeWith(const VxTimeUtl::DateTimeFormatter& formatter,
                                       const char* text) const {
  namespace d = ncds::detail;
  VxTimeUtl::SimpDateTime t;
  if (!mOffset.IsValid() || !d::IsUnit(mAccuracy) || !formatter.Parse(text, t)) {
    return d::kMissing;
  }
  // Both lie within the date range, so the difference cannot overflow.
  const std::int64_t us = t.GetEpochMicroseconds() - mOffset.GetEpochMicroseconds();
  const long double units =
      static_cast<long double>(us) / (d::kSecondsPerUnit[mAccuracy] * d::kMicrosecondsPerSecond);
  if (!std::isfinite(units) || std::fabs(units) > FLT_MAX) return d::kMissing;
  const float value = static_cast<float>(units);
  // A real value must not read as missing; its neighbour is as close as the float allows.
  return value == d::kMissing ? std::nextafter(d::kMissing, 0.0F) : value;
}

std::string DateTimeVariableInfo::DecodeWith(const Format& format, float value) const {
  namespace d = ncds::detail;
  if (value == d::kMissing || !mOffset.IsValid() || !d::IsUnit(mAccuracy) ||
      !std::isfinite(value)) {
    return std::string();
  }
  const std::int64_t secondsPerUnit = d::kSecondsPerUnit[mAccuracy];
  const long double deltaUs =
      static_cast<long double>(value) * secondsPerUnit * d::kMicrosecondsPerSecond;
  // Wider than the whole date range; keeps the arithmetic below within 64 bits.
  if (std::fabs(deltaUs) > 1e18L) return std::string();
  const std::int64_t step = std::max(format.stepMicroseconds, d::FloatStep(value, secondsPerUnit));
  // Round the point in time itself, so that an offset off the step does not shift the text.
  const std::int64_t offsetUs = mOffset.GetEpochMicroseconds();
  const std::int64_t base = d::FloorDivide(offsetUs, step);
  const long double rest = static_cast<long double>(offsetUs - base * step) + deltaUs;
  const auto steps = static_cast<std::int64_t>(std::llround(rest / step));
  const VxTimeUtl::SimpDateTime t =
      VxTimeUtl::SimpDateTime::FromEpochMicroseconds(base * step + steps * step);
  return format.formatter->Format(t);
}

bool DateTimeVariableInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VariableInfo::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool DateTimeVariableInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  WriteToStreamDir(static_cast<std::int16_t>(mParseMethod), directory, d::kTagParseMethod);
  WriteToStreamDir(mParseFormat, directory, d::kTagParseFormat);
  WriteToStreamDir(mDatasetFormat, directory, d::kTagDatasetFormat);
  WriteToStreamDir(static_cast<std::int16_t>(mAccuracy), directory, d::kTagAccuracy);
  // Readers expect a date-time here; an unset offset goes out as the epoch.
  const VxTimeUtl::SimpDateTime offset =
      mOffset.IsValid() ? mOffset : VxTimeUtl::SimpDateTime(1970, 1, 1);
  VxTimeUtl::WriteSimpDateTime(offset, directory.GetOutput(d::kTagOffset));
  return directory.Close();
}

bool DateTimeVariableInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return VariableInfo::VStreamableStartRead(is) && ReadStreamDirectory(is);
}

bool DateTimeVariableInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  std::int16_t method = 0;
  std::string parseFormat;
  std::string datasetFormat;
  std::int16_t accuracy = 0;
  VxTimeUtl::SimpDateTime offset;
  bool ok = true;
  try {
    ReadFromStreamDir(method, directory, d::kTagParseMethod, true);
    ReadFromStreamDir(parseFormat, directory, d::kTagParseFormat, true);
    ReadFromStreamDir(datasetFormat, directory, d::kTagDatasetFormat, true);
    ReadFromStreamDir(accuracy, directory, d::kTagAccuracy, true);
    VxTimeUtl::ReadSimpDateTime(offset, GetRequiredInput(directory, d::kTagOffset));
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  // Numbers that name no method or accuracy are damage; the formatter would refuse the former.
  if (!ok || !is || !d::IsParseMethod(method) || !d::IsAccuracy(accuracy)) return false;
  mParseMethod = static_cast<VxTimeUtl::EParseType>(method);
  mParseFormat = std::move(parseFormat);
  mDatasetFormat = std::move(datasetFormat);
  mAccuracy = static_cast<VxTimeUtl::ETimeAccuracy>(accuracy);
  mOffset = offset;
  RebuildFormats();
  return true;
}

void DateTimeVariableInfo::VStreamableReset() const {
  mGuard.Reset();
  VariableInfo::VStreamableReset();
}
