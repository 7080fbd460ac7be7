#include "tools/ncds/CsvColumn.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

#include "ncds/foundations/Exception.h"

namespace ncds::tool {
namespace detail {
namespace {

constexpr float kMissing = -99.0F;
constexpr std::int64_t kNoTime = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
constexpr std::int64_t kMicrosecondsPerDay = 86400 * kMicrosecondsPerSecond;
// Codes above this are no longer whole floats.
constexpr std::size_t kMaxLevels = std::size_t{1} << 24;

// The units a date-time column may count in, coarsest first.
struct TimeUnit {
  VxTimeUtl::ETimeAccuracy accuracy;
  std::int64_t microseconds;
};
constexpr TimeUnit kTimeUnits[] = {{VxTimeUtl::eDay, kMicrosecondsPerDay},
                                   {VxTimeUtl::eHour, 3600 * kMicrosecondsPerSecond},
                                   {VxTimeUtl::eMinute, 60 * kMicrosecondsPerSecond},
                                   {VxTimeUtl::eSecond, kMicrosecondsPerSecond}};

bool IsMidnight(std::int64_t microseconds) {
  const std::int64_t rest = microseconds % kMicrosecondsPerDay;
  return rest == 0;
}

}  // namespace
}  // namespace detail

CsvColumn::CsvColumn(std::string name, std::size_t number, const std::string& source,
                     std::size_t expectedRows)
    : mName(std::move(name)), mNumber(number), mSource(source), mExpectedRows(expectedRows) {}

void CsvColumn::AddAny(std::string_view cell, std::size_t line, const CsvCellParser& parser,
                       float& value) {
  if (parser.IsMissing(cell)) {
    AddMissing();
    return;
  }
  ++mNonMissing;
  if (mAnyText) {
    // Qualitative whatever follows: only the codes matter now.
    if (mKept == Kept::eCodes) value = LevelCode(cell);
    return;
  }
  float number = 0.0F;
  const CsvCellParser::NumberResult result = parser.ParseNumber(cell, number);
  const bool isNumber = result == CsvCellParser::NumberResult::eNumber;
  // Numbers are asked no more once one is not a date-time; other cells always are, since a
  // date-time is no text.
  std::int64_t time = 0;
  const bool isTime = (mAllDateTimes || !isNumber) && parser.ParseDateTime(cell, time);
  if (mAllNumbers && !isNumber) {
    mAllNumbers = false;
    mFirstNonNumber = {line, std::string(cell), result == CsvCellParser::NumberResult::eOutOfRange};
  }
  if (mAllDateTimes && !isTime) {
    mAllDateTimes = false;
    mFirstNonDateTime = {line, std::string(cell), false};
  }
  if (!isNumber && !isTime && result != CsvCellParser::NumberResult::eOutOfRange &&
      !CsvCellParser::LooksLikeNumber(cell)) {
    mAnyText = true;
  }
  if (mKept == Kept::eNothingYet) {
    mKept = isNumber   ? Kept::eNumbers
            : isTime   ? Kept::eDateTimes
            : mAnyText ? Kept::eCodes
                       : Kept::eNumbers;
    if (mKept == Kept::eDateTimes) {
      mTimes.reserve(mExpectedRows);
      mTimes.assign(mLeadingMissing, detail::kNoTime);
    }
  }
  switch (mKept) {
    case Kept::eNumbers:
      if (mKeeping && mAllNumbers) {
        value = number;
      } else {
        mKeeping = false;
      }
      break;
    case Kept::eDateTimes:
      if (mKeeping && mAllDateTimes) {
        mTimes.push_back(time);
      } else {
        mKeeping = false;
      }
      break;
    case Kept::eCodes:
      value = LevelCode(cell);
      break;
    case Kept::eNothingYet:
      break;
  }
  mOnlyNumbers = mKept == Kept::eNumbers && mKeeping && mAllNumbers && !mAllDateTimes;
}

void CsvColumn::AddMissing() {
  // The cell stays missing; only date-times keep a place for it.
  if (mKept == Kept::eNothingYet) {
    ++mLeadingMissing;
  } else if (mKept == Kept::eDateTimes && mKeeping) {
    mTimes.push_back(detail::kNoTime);
  }
}

float CsvColumn::LevelCode(std::string_view text) {
  const auto found = mCodes.find(text);
  if (found != mCodes.end()) return static_cast<float>(found->second);
  if (mLevels.size() >= detail::kMaxLevels) {
    throw NCError(ExceptionMessage::translate(
                      "{1}, column {2} ({3}): the column holds more than {4} different texts.") %
                  mSource % mNumber % mName % detail::kMaxLevels);
  }
  mLevels.emplace_back(text);
  const int code = static_cast<int>(mLevels.size());
  mCodes.emplace(std::string_view(mLevels.back()), code);
  return static_cast<float>(code);
}

bool CsvColumn::Decide() {
  if (mNonMissing == 0 || mAllNumbers) {
    mKind = Kind::eQuantitative;
  } else if (mAllDateTimes) {
    mKind = Kind::eDateTime;
  } else if (mAnyText) {
    mKind = Kind::eQualitative;
  } else {
    return false;
  }
  const Kept fitting = mKind == Kind::eQuantitative ? Kept::eNumbers
                       : mKind == Kind::eDateTime   ? Kept::eDateTimes
                                                    : Kept::eCodes;
  mNeedsSecondPass = !(mKeeping && (mKept == fitting || mKept == Kept::eNothingYet));
  if (mNeedsSecondPass) {
    mTimes.clear();
    mCodes.clear();
    mLevels.clear();
    if (mKind == Kind::eDateTime) mTimes.reserve(mExpectedRows);
  }
  return true;
}

const CsvColumn::Misfit& CsvColumn::FirstMisfit() const {
  return mKept == Kept::eDateTimes ? mFirstNonDateTime : mFirstNonNumber;
}

void CsvColumn::ThrowBadCell() const {
  const Misfit& misfit = FirstMisfit();
  if (mKept == Kept::eDateTimes) {
    throw NCError(ExceptionMessage::translate(
                      "{1}, line {2}, column {3} ({4}): \"{5}\" is not an ISO 8601 date-time.") %
                  mSource % misfit.line % mNumber % mName % misfit.text);
  }
  if (misfit.outOfRange) {
    throw NCError(
        ExceptionMessage::translate("{1}, line {2}, column {3} ({4}): {5} is beyond the range of "
                                    "single-precision numbers.") %
        mSource % misfit.line % mNumber % mName % misfit.text);
  }
  throw NCError(
      ExceptionMessage::translate("{1}, line {2}, column {3} ({4}): \"{5}\" is not a number.") %
      mSource % misfit.line % mNumber % mName % misfit.text);
}

void CsvColumn::AddAgain(std::string_view cell, const CsvCellParser& parser, float& value) {
  if (mKind == Kind::eDateTime) {
    std::int64_t time = detail::kNoTime;
    // Every cell that is not missing parsed as a date-time in the first pass.
    if (!parser.IsMissing(cell)) parser.ParseDateTime(cell, time);
    mTimes.push_back(time);
  } else {
    value = parser.IsMissing(cell) ? detail::kMissing : LevelCode(cell);
  }
}

void CsvColumn::Finish(float* values) {
  if (mKind == Kind::eDateTime) FinishDateTimes(values);
}

void CsvColumn::FinishDateTimes(float* values) {
  std::int64_t earliest = std::numeric_limits<std::int64_t>::max();
  for (const std::int64_t t : mTimes) {
    if (t != detail::kNoTime) earliest = std::min(earliest, t);
  }
  // The coarsest unit that divides every distance from the earliest date-time.
  std::int64_t divisor = 0;
  bool datesOnly = true;
  for (const std::int64_t t : mTimes) {
    if (t == detail::kNoTime) continue;
    divisor = std::gcd(divisor, t - earliest);
    datesOnly = datesOnly && detail::IsMidnight(t);
  }
  mAccuracy = VxTimeUtl::eSecond;
  std::int64_t unit = detail::kMicrosecondsPerSecond;
  for (const detail::TimeUnit& candidate : detail::kTimeUnits) {
    if (divisor % candidate.microseconds == 0) {
      mAccuracy = candidate.accuracy;
      unit = candidate.microseconds;
      break;
    }
  }
  mOffset = VxTimeUtl::SimpDateTime::FromEpochMicroseconds(earliest);
  mDatasetFormat = datesOnly ? "yyyy-MM-dd" : "";
  // The same arithmetic as the variable's own encoding.
  const long double unitLength = static_cast<long double>(unit);
  for (std::size_t i = 0; i < mTimes.size(); ++i) {
    values[i] =
        mTimes[i] == detail::kNoTime
            ? detail::kMissing
            : static_cast<float>(static_cast<long double>(mTimes[i] - earliest) / unitLength);
  }
  mTimes.clear();
  mTimes.shrink_to_fit();
}

void CsvColumn::RenumberLevels(float* values, std::size_t rows) {
  if (mKind != Kind::eQualitative) return;
  // newCode[old code - 1]: 0 until the level is met.
  std::vector<int> newCode(mLevels.size(), 0);
  std::deque<std::string> levels;
  for (std::size_t i = 0; i < rows; ++i) {
    const float code = values[i];
    if (!(code >= 1.0F) || code > static_cast<float>(mLevels.size())) continue;  // missing
    int& renumbered = newCode[static_cast<std::size_t>(code) - 1];
    if (renumbered == 0) {
      levels.push_back(std::move(mLevels[static_cast<std::size_t>(code) - 1]));
      renumbered = static_cast<int>(levels.size());
    }
    values[i] = static_cast<float>(renumbered);
  }
  mCodes.clear();  // its keys viewed the old levels
  mLevels = std::move(levels);
}

std::vector<std::string> CsvColumn::TakeLevels() {
  std::vector<std::string> levels(std::make_move_iterator(mLevels.begin()),
                                  std::make_move_iterator(mLevels.end()));
  mCodes.clear();
  mLevels.clear();
  return levels;
}

}  // namespace ncds::tool
