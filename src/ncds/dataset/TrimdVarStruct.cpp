#include "ncds/dataset/TrimdVarStruct.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kNumberOfTags = 1;
constexpr std::uint16_t kTagTrimValues = 0;

// The relative tolerance of float comparisons, scaled by the binary exponent of the larger
// magnitude.
constexpr double kRelativeTolerance = 5e-5;

// Reads the trim values as written: a count, then the values strictly ascending. NaN or a
// value out of order marks a damaged stream, as the set never holds either.
bool ReadTrimValues(std::istream& is, std::set<float>& values) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * sizeof(float));
  std::set<float> read;
  for (std::uint32_t i = 0; i < count; ++i) {
    float value = 0.0F;
    ReadFourBytes(&value, 1, is);
    if (std::isnan(value) || (!read.empty() && !(*read.rbegin() < value))) return false;
    read.insert(read.end(), value);
  }
  values = std::move(read);
  return true;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData TrimdVarStruct::msVStreamData(ncds::detail::kVersion, "TVS");

TrimdVarStruct::TrimdVarStruct() = default;

TrimdVarStruct::TrimdVarStruct(const TrimdVarStruct& other) = default;

TrimdVarStruct& TrimdVarStruct::operator=(const TrimdVarStruct& other) = default;

TrimdVarStruct::~TrimdVarStruct() = default;

bool TrimdVarStruct::operator==(const TrimdVarStruct& other) const {
  return mTrimValues == other.mTrimValues;
}

bool TrimdVarStruct::AddTrimValue(float value) {
  // NaN would break the ordering of the set; it is never a value one trims to.
  if (std::isnan(value)) return false;
  return mTrimValues.insert(value).second;
}

bool TrimdVarStruct::ValuesMatch(float a, float b) {
  if (a == b) return true;
  if (!std::isfinite(a) || !std::isfinite(b)) return false;
  const double first = a;
  const double second = b;
  int exponent = 0;
  std::frexp(std::max(std::fabs(first), std::fabs(second)), &exponent);
  return std::fabs(first - second) <= ncds::detail::kRelativeTolerance * std::ldexp(1.0, exponent);
}

bool TrimdVarStruct::FindTrimValue(float value, float& match) const {
  if (std::isnan(value) || mTrimValues.empty()) return false;
  if (std::isinf(value)) {
    const auto found = mTrimValues.find(value);
    if (found == mTrimValues.end()) return false;
    match = *found;
    return true;
  }
  // A trim value t that matches lies within 1e-4 · max(|t|, |v|) of v, so within
  // 1.0001e-4 · |v|. Starting at the smallest value of a window twice as wide finds the same
  // first match as a search of the whole set from its smallest value up.
  const double center = value;
  const double reach = 4.0 * ncds::detail::kRelativeTolerance * std::fabs(center);
  const double low = std::max(center - reach, -static_cast<double>(FLT_MAX));
  const double high = center + reach;
  for (auto it = mTrimValues.lower_bound(static_cast<float>(low));
       it != mTrimValues.end() && static_cast<double>(*it) <= high; ++it) {
    if (ValuesMatch(*it, value)) {
      match = *it;
      return true;
    }
  }
  return false;
}

bool TrimdVarStruct::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool TrimdVarStruct::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, ncds::detail::kNumberOfTags);
  WriteToStreamDir(mTrimValues, directory, ncds::detail::kTagTrimValues);
  return directory.Close();
}

bool TrimdVarStruct::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool TrimdVarStruct::ReadStreamDirectory(std::istream& is) {
  InputStreamDirectory directory(is);
  std::set<float> values;
  bool ok = false;
  try {
    ok = ncds::detail::ReadTrimValues(GetRequiredInput(directory, ncds::detail::kTagTrimValues),
                                      values);
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  mTrimValues = std::move(values);
  return true;
}

void TrimdVarStruct::VStreamableReset() const { mGuard.Reset(); }
