#include "ncds/derived/DefaultCenterValues.h"

#include <cmath>
#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/metadata/ObservationInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kNumberOfTags = 1;
constexpr std::uint16_t kTagVariables = 1;

// The least a variable and a rule take in a stream.
constexpr std::uint64_t kMinVariableBytes = 4 + 4;
constexpr std::uint64_t kMinRuleBytes = 4 + 4 + 4;

using RuleMap = std::map<unsigned long, DefaultCenterValues::Rules>;

// A key that selects no particular observations.
bool IsEmptyKey(const DefaultCenterValues::ObservationKey& key) {
  return key.first < 1 || key.second.empty();
}

// Centers that take part in defaults: not missing, not NaN.
bool IsCenter(float center) {
  return center != NCDataVector<float>::kMissing && !std::isnan(center);
}

struct Mean {
  double total = 0.0;
  std::size_t count = 0;

  void Add(float value) {
    total += value;
    ++count;
  }
  float Get() const { return static_cast<float>(total / static_cast<double>(count)); }
};

bool WriteVariables(const RuleMap& variables, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(variables.size());
  if (count != variables.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const auto& [varID, rules] : variables) {
    const auto id = static_cast<std::uint32_t>(varID);
    const auto ruleCount = static_cast<std::uint32_t>(rules.size());
    if (ruleCount != rules.size() || !WriteFourBytes(&id, 1, os) ||
        !WriteFourBytes(&ruleCount, 1, os)) {
      return false;
    }
    for (const DefaultCenterValues::Rule& rule : rules) {
      if (!WriteFourBytes(&rule.idIndex, 1, os) || !WriteBinaryString(rule.idValue, os) ||
          !WriteFourBytes(&rule.center, 1, os)) {
        return false;
      }
    }
  }
  return true;
}

// The variables as written: IDs strictly ascending, as the map keeps them.
RuleMap ReadVariables(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * kMinVariableBytes);
  RuleMap variables;
  for (std::uint32_t v = 0; v < count; ++v) {
    std::uint32_t id = 0;
    std::uint32_t ruleCount = 0;
    ReadFourBytes(&id, 1, is);
    ReadFourBytes(&ruleCount, 1, is);
    if (!variables.empty() && variables.rbegin()->first >= id) ThrowStreamReadError();
    RequireStreamBytes(is, std::uint64_t{ruleCount} * kMinRuleBytes);
    DefaultCenterValues::Rules rules(ruleCount);
    for (DefaultCenterValues::Rule& rule : rules) {
      ReadFourBytes(&rule.idIndex, 1, is);
      ReadBinaryString(rule.idValue, is);
      ReadFourBytes(&rule.center, 1, is);
    }
    variables.emplace_hint(variables.end(), id, std::move(rules));
  }
  return variables;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData DefaultCenterValues::msVStreamData(ncds::detail::kVersion, "DCV");

DefaultCenterValues::DefaultCenterValues() = default;

DefaultCenterValues::DefaultCenterValues(const DefaultCenterValues& other) = default;

DefaultCenterValues& DefaultCenterValues::operator=(const DefaultCenterValues& other) = default;

DefaultCenterValues::~DefaultCenterValues() = default;

bool DefaultCenterValues::operator==(const DefaultCenterValues& other) const {
  return mRules == other.mRules;
}

float DefaultCenterValues::GetDefaultValue(unsigned long varID,
                                           const ObservationInfo& observation) const {
  const auto found = mRules.find(varID);
  if (found == mRules.end()) return 0.0F;
  for (const Rule& rule : found->second) {
    // GetUserID answers the empty text for an index beyond the observation's IDs.
    if (rule.idIndex < 1 || observation.GetUserID(rule.idIndex) == rule.idValue) {
      return rule.center;
    }
  }
  return 0.0F;
}

float DefaultCenterValues::GetDefaultValue(unsigned long varID, const std::string& idValue) const {
  const auto found = mRules.find(varID);
  if (found == mRules.end()) return 0.0F;
  for (const Rule& rule : found->second) {
    if (rule.idIndex < 1 || rule.idValue == idValue) return rule.center;
  }
  return 0.0F;
}

NCIntegralVector<unsigned long, 0> DefaultCenterValues::GetVariableIDs() const {
  NCIntegralVector<unsigned long, 0> ids;
  ids.reserve(mRules.size());
  for (const auto& entry : mRules) ids.push_back(entry.first);
  return ids;
}

const DefaultCenterValues::Rules* DefaultCenterValues::GetRules(unsigned long varID) const {
  const auto found = mRules.find(varID);
  return found == mRules.end() ? nullptr : &found->second;
}

void DefaultCenterValues::Add(const DefaultCenterValues& other) {
  if (&other == this) return;
  for (const auto& [varID, rules] : other.mRules) mRules[varID] = rules;
}

void DefaultCenterValues::SetRules(unsigned long varID, Rules rules) {
  if (rules.empty()) {
    mRules.erase(varID);
  } else {
    mRules[varID] = std::move(rules);
  }
}

void DefaultCenterValues::AddVar(unsigned long varID, const CenterTable& centers) {
  using ncds::detail::IsEmptyKey;
  bool oneLevel = true;
  for (const auto& entry : centers) {
    if (!IsEmptyKey(entry.first.second)) {
      oneLevel = false;
      break;
    }
  }
  std::vector<std::pair<ObservationKey, float>> keyed;
  if (oneLevel) {
    keyed.reserve(centers.size());
    for (const auto& [keys, center] : centers) keyed.emplace_back(keys.first, center);
  } else {
    // Per second key, the mean over the first keys.
    std::map<ObservationKey, ncds::detail::Mean> means;
    for (const auto& [keys, center] : centers) {
      if (ncds::detail::IsCenter(center)) means[keys.second].Add(center);
    }
    keyed.reserve(means.size());
    for (const auto& [key, mean] : means) keyed.emplace_back(key, mean.Get());
  }
  SetRules(varID, AddBatchDefaults(keyed));
}

DefaultCenterValues::Rules DefaultCenterValues::AddBatchDefaults(
    const std::vector<std::pair<ObservationKey, float>>& centers) {
  Rules rules;
  ncds::detail::Mean mean;
  for (const auto& [key, center] : centers) {
    if (!ncds::detail::IsCenter(center)) continue;
    mean.Add(center);
    if (!ncds::detail::IsEmptyKey(key)) rules.push_back(Rule{key.first, key.second, center});
  }
  if (mean.count > 0) rules.push_back(Rule{-1, std::string(), mean.Get()});
  return rules;
}

bool DefaultCenterValues::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool DefaultCenterValues::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  if (!d::WriteVariables(mRules, directory.GetOutput(d::kTagVariables))) {
    os.setstate(std::ios_base::badbit);
  }
  return directory.Close();
}

bool DefaultCenterValues::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool DefaultCenterValues::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  d::RuleMap variables;
  bool ok = true;
  try {
    variables = d::ReadVariables(GetRequiredInput(directory, d::kTagVariables));
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  mRules = std::move(variables);
  return true;
}

void DefaultCenterValues::VStreamableReset() const { mGuard.Reset(); }
