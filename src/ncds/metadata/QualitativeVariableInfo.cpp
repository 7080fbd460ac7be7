#include "ncds/metadata/QualitativeVariableInfo.h"

#include <algorithm>
#include <cfloat>
#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VxStdString.h"

namespace ncds::detail {
namespace {

const FactoryRegistration<QualitativeVariableInfo> kRegistration("QualitativeVariableInfo");

constexpr std::int16_t kVersion = 3;
constexpr std::int16_t kOldestVersion = 2;
constexpr std::uint16_t kTagLevels = 0;
constexpr std::uint16_t kTagSettingsMap = 1;
constexpr float kMissing = -99.0F;
// Marks text that names no level; distinct from missing.
constexpr float kUnknownLevel = FLT_MAX;

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// Sorted by name ignoring case, then by code, so that the first of equal names is found.
bool SettingBefore(const QualitativeVariableInfo::Setting& a,
                   const QualitativeVariableInfo::Setting& b) {
  const int order = VxStdString::CompareNoCase(a.first, b.first);
  return order < 0 || (order == 0 && a.second < b.second);
}

// The integer part of `value` + `offset` when it lies within [low, high], else `low` - 1.
// Computed in float, as the codes were stored, so 1.99999 + 0.00001 reaches 2.
int TruncatedCode(float value, float offset, int low, int high) {
  const float shifted = value + offset;
  if (!(shifted >= static_cast<float>(low) && shifted < static_cast<float>(high) + 1.0F)) {
    return low - 1;
  }
  return static_cast<int>(shifted);
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData QualitativeVariableInfo::msVStreamData(ncds::detail::kVersion, "QVI");

QualitativeVariableInfo::QualitativeVariableInfo() : VariableInfo() {}

QualitativeVariableInfo::QualitativeVariableInfo(const std::string& id, unsigned long uniqueID,
                                                 const NCStringVector* levels,
                                                 const std::string& recipe)
    : VariableInfo(id, uniqueID, recipe, -1, -1, eOrdinary) {
  if (levels) mLevels = *levels;
  UpdateSettingsMap();
}

QualitativeVariableInfo::QualitativeVariableInfo(const QualitativeVariableInfo& other) = default;

QualitativeVariableInfo::~QualitativeVariableInfo() = default;

float QualitativeVariableInfo::Encode(const char* text) const {
  if (!text) return ncds::detail::kMissing;
  while (ncds::detail::IsBlank(*text)) ++text;
  if (*text == '\0') return ncds::detail::kMissing;
  const std::string_view wanted(text);
  const auto found = std::lower_bound(mSettingsMap.begin(), mSettingsMap.end(), wanted,
                                      [](const Setting& setting, std::string_view name) {
                                        return VxStdString::CompareNoCase(setting.first, name) < 0;
                                      });
  if (found == mSettingsMap.end() || VxStdString::CompareNoCase(found->first, wanted) != 0) {
    return ncds::detail::kUnknownLevel;
  }
  return static_cast<float>(found->second);
}

std::string QualitativeVariableInfo::Decode(float value) {
  if (value == ncds::detail::kMissing) return std::string();
  const int k = ncds::detail::TruncatedCode(value, 0.00001F, 1, SizeSettings());
  return k >= 1 ? GetSettingName(k) : std::string();
}

bool QualitativeVariableInfo::IsQualitative() const { return true; }

QualitativeVariableInfo* QualitativeVariableInfo::Clone() const {
  return new QualitativeVariableInfo(*this);
}

const QuantitativeVariableInfo* QualitativeVariableInfo::AsQuantitativeVariableInfo() const {
  return nullptr;
}

const QualitativeVariableInfo* QualitativeVariableInfo::AsQualitativeVariableInfo() const {
  return this;
}

const DateTimeVariableInfo* QualitativeVariableInfo::AsDateTimeVariableInfo() const {
  return nullptr;
}

void QualitativeVariableInfo::AppendSetting(const char* name) {
  if (!name) return;
  const char* p = name;
  while (ncds::detail::IsBlank(*p)) ++p;
  if (*p == '\0') return;
  mLevels.push_back(name);
  const Setting setting(name, SizeSettings());
  mSettingsMap.insert(std::upper_bound(mSettingsMap.begin(), mSettingsMap.end(), setting,
                                       ncds::detail::SettingBefore),
                      setting);
}

void QualitativeVariableInfo::TruncateSettings(int count) {
  if (count < 0 || count >= SizeSettings()) return;
  mLevels.RemoveStrings(static_cast<std::size_t>(count),
                        mLevels.size() - static_cast<std::size_t>(count));
  mSettingsMap.erase(std::remove_if(mSettingsMap.begin(), mSettingsMap.end(),
                                    [count](const Setting& s) { return s.second > count; }),
                     mSettingsMap.end());
}

const std::string& QualitativeVariableInfo::GetSettingName(int k) const {
  return k >= 1 ? mLevels[static_cast<std::size_t>(k - 1)] : VxStdString::Empty();
}

float QualitativeVariableInfo::Expand(float value, int level) {
  if (value == ncds::detail::kMissing) return ncds::detail::kMissing;
  // Any code that cannot be a level (negative, huge, NaN) is simply not this one.
  const int k = ncds::detail::TruncatedCode(value, 0.0001F, INT32_MIN / 2, INT32_MAX / 2);
  return k == level ? 1.0F : 0.0F;
}

float QualitativeVariableInfo::Collapse(const std::vector<float>& indicators) {
  float result = 0.0F;
  for (std::size_t i = 0; i < indicators.size(); ++i) {
    // An indicator is 0 or 1 up to rounding; anything between (0.5) or beyond is no indicator.
    const float shifted = indicators[i] + 0.0001F;
    const int k = ncds::detail::TruncatedCode(indicators[i], 0.0001F, 0, 1);
    if (k < 0 || shifted - static_cast<float>(k) > 0.0002F) return ncds::detail::kMissing;
    if (k == 0) continue;
    if (result != 0.0F) return ncds::detail::kMissing;
    result = static_cast<float>(i + 1);
  }
  return result;
}

void QualitativeVariableInfo::UpdateSettingsMap() {
  std::vector<Setting> map;
  map.reserve(mLevels.size());
  for (std::size_t i = 0; i < mLevels.size(); ++i) {
    map.emplace_back(mLevels[i], static_cast<int>(i + 1));
  }
  std::sort(map.begin(), map.end(), ncds::detail::SettingBefore);
  mSettingsMap = std::move(map);
}

bool QualitativeVariableInfo::IsSettingsMapOf(const std::vector<Setting>& map) const {
  if (map.size() != mLevels.size()) return false;
  for (std::size_t i = 0; i < map.size(); ++i) {
    const int k = map[i].second;
    if (k < 1 || k > SizeSettings() || map[i].first != GetSettingName(k)) return false;
    if (i > 0 && !ncds::detail::SettingBefore(map[i - 1], map[i])) return false;
  }
  return true;
}

bool QualitativeVariableInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VariableInfo::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool QualitativeVariableInfo::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, 2);
  WriteToStreamDir(mLevels, directory, ncds::detail::kTagLevels);
  std::ostream& map = directory.GetOutput(ncds::detail::kTagSettingsMap);
  const auto count = static_cast<std::uint32_t>(mSettingsMap.size());
  WriteFourBytes(&count, 1, map);
  for (const Setting& setting : mSettingsMap) {
    WriteBinaryString(setting.first, map);
    const std::int32_t code = setting.second;
    WriteFourBytes(&code, 1, map);
  }
  return directory.Close();
}

bool QualitativeVariableInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version < ncds::detail::kOldestVersion ||
      version > ncds::detail::kVersion) {
    return false;
  }
  return VariableInfo::VStreamableStartRead(is) && ReadStreamDirectory(is);
}

bool QualitativeVariableInfo::ReadStreamDirectory(std::istream& is) {
  InputStreamDirectory directory(is);
  NCStringVector levels;
  try {
    ReadFromStreamDir(levels, directory, ncds::detail::kTagLevels, true);
  } catch (const VxStreamError&) {
    directory.Close();
    return false;
  }
  mLevels = std::move(levels);
  // The map is derived data: keep the stored one only when it matches the levels.
  std::vector<Setting> map;
  try {
    if (std::istream* input = directory.GetInput(ncds::detail::kTagSettingsMap)) {
      std::uint32_t count = 0;
      ReadFourBytes(&count, 1, *input);
      RequireStreamBytes(*input, std::uint64_t{count} * 8);
      map.reserve(std::min<std::size_t>(count, mLevels.size()));
      for (std::uint32_t i = 0; i < count; ++i) {
        Setting setting;
        std::int32_t code = 0;
        ReadBinaryString(setting.first, *input);
        ReadFourBytes(&code, 1, *input);
        setting.second = code;
        map.push_back(std::move(setting));
      }
    }
  } catch (const VxStreamError&) {
    map.clear();
  }
  if (!map.empty() && IsSettingsMapOf(map)) {
    mSettingsMap = std::move(map);
  } else {
    UpdateSettingsMap();
  }
  directory.Close();
  return static_cast<bool>(is);
}

void QualitativeVariableInfo::VStreamableReset() const {
  mGuard.Reset();
  VariableInfo::VStreamableReset();
}
