#include "ncds/metadata/NCVariables.h"

#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/VariableInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
// Tags 1..4 hold the series of the roles ePhaseID..eOriginalID.
constexpr std::uint16_t kNumberOfEntries = 4;
constexpr int kRoles = 4;

}  // namespace
}  // namespace ncds::detail

const VStreamableData NCVariables::msVStreamData(ncds::detail::kVersion, "NCV");

NCVariables::NCVariables() = default;

NCVariables::~NCVariables() = default;

const char* NCVariables::GetReservedSeriesName(EReservedSeries series) {
  switch (series) {
    case ePhaseID:
      return "$PhaseID";
    case eMaturityID:
      return "$MaturityID";
    case eSourceID:
      return "$SourceID";
    case eOriginalID:
      return "$Original ID";
    case eBatchID:
      return "$BatchID";
    case eClassID:
      return "$ClassID";
  }
  return "";
}

VariableInfo* NCVariables::operator[](unsigned long uniqueID) const {
  // Only variables get in (Add, AcceptsInfo).
  return static_cast<VariableInfo*>(FindVarObsInfo(uniqueID));
}

VariableInfo* NCVariables::Add(std::unique_ptr<VariableInfo> info, InfosByUserID* lookup) {
  return static_cast<VariableInfo*>(VarObs::Add(std::move(info), lookup));
}

bool NCVariables::IncludedYExsists() const {
  for (const auto& record : *this) {
    if (static_cast<const VariableInfo&>(*record.second).GetVariableBlock() == VariableInfo::eY) {
      return true;
    }
  }
  return false;
}

bool NCVariables::AcceptsInfo(const VarObsInfo& info) const {
  return info.AsVariableInfo() != nullptr;
}

void NCVariables::OnLabelsChanged() {
  int* const roles[ncds::detail::kRoles] = {&mPhaseSeries, &mMaturitySeries, &mSourceSeries,
                                            &mOriginalSeries};
  for (int* role : roles) *role = 0;
  for (int series = 2; series <= SizeAliases(); ++series) {
    const std::string label = GetIDLabelRaw(series);
    for (int role = ePhaseID; role <= eOriginalID; ++role) {
      if (*roles[role] == 0 &&
          VxStdString::CompareNoCase(
              label, GetReservedSeriesName(static_cast<EReservedSeries>(role))) == 0) {
        *roles[role] = series;
      }
    }
  }
}

int NCVariables::GetMaturityID(const std::vector<int>& seriesMap) const {
  return PositionInMap(mMaturitySeries, seriesMap);
}

int NCVariables::GetSourceID(const std::vector<int>& seriesMap) const {
  return PositionInMap(mSourceSeries, seriesMap);
}

bool NCVariables::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VarObs::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool NCVariables::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, ncds::detail::kNumberOfEntries);
  const int roles[ncds::detail::kRoles] = {mPhaseSeries, mMaturitySeries, mSourceSeries,
                                           mOriginalSeries};
  for (int role = 0; role < ncds::detail::kRoles; ++role) {
    WriteToStreamDir(static_cast<std::int32_t>(roles[role]), directory,
                     static_cast<std::uint16_t>(role + 1));
  }
  return directory.Close();
}

bool NCVariables::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return VarObs::VStreamableStartRead(is);
}

bool NCVariables::ReadExtensionPart(std::istream& is, int seriesCount) {
  InputStreamDirectory directory(is);
  bool ok = true;
  std::int32_t roles[ncds::detail::kRoles] = {0, 0, 0, 0};
  try {
    for (int role = 0; role < ncds::detail::kRoles; ++role) {
      ReadFromStreamDir(roles[role], directory, static_cast<std::uint16_t>(role + 1), true);
      if (roles[role] < 0 || roles[role] > seriesCount) ok = false;
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  mPhaseSeries = roles[ePhaseID];
  mMaturitySeries = roles[eMaturityID];
  mSourceSeries = roles[eSourceID];
  mOriginalSeries = roles[eOriginalID];
  return true;
}

void NCVariables::VStreamableReset() const {
  mGuard.Reset();
  VarObs::VStreamableReset();
}
