#include "ncds/metadata/VarObs.h"

#include <algorithm>

#include "ncds/foundations/Messages.h"
#include "ncds/metadata/VarObsInfo.h"

VarObsInfoAccess::~VarObsInfoAccess() = default;
void VarObsInfoAccess::ReservedAccessSlot() {}

VarObs::VarObs() : mLabels(1), mNumerals(1, 0) {}

VarObs::~VarObs() = default;

int VarObs::AddSecondaryID(const char* label) {
  mLabels.emplace_back(label ? label : "");
  mNumerals.push_back(0);
  SetIsDirty(true);
  return SizeAliases();
}

void VarObs::SetIDLabel(int series, const char* label) {
  if (series < 1 || series > SizeAliases()) return;
  mLabels[static_cast<std::size_t>(series - 1)] = label ? label : "";
  SetIsDirty(true);
}

std::string VarObs::GetIDLabelRaw(int series) const {
  if (series == 1) {
    return NCMessages::Translate("Name of primary series of variable/observation IDs",
                                 "Primary ID");
  }
  if (series < 1 || series > SizeAliases()) return std::string();
  return mLabels[static_cast<std::size_t>(series - 1)];
}

bool VarObs::IsIDNumeral(int series) const {
  return series >= 1 && series <= SizeAliases() &&
         mNumerals[static_cast<std::size_t>(series - 1)] != 0;
}

void VarObs::SetIDIsNumeral(int series, bool numeral) {
  if (series < 1 || series > SizeAliases()) return;
  mNumerals[static_cast<std::size_t>(series - 1)] = numeral ? 1 : 0;
}

bool VarObs::HasNumeralIDs() const {
  for (int series = 1; series <= SizeAliases(); ++series) {
    if (IsIDNumeral(series)) return true;
  }
  return false;
}

std::vector<int> VarObs::GetAllUsedAliases() const {
  std::vector<int> series(mLabels.size());
  for (std::size_t i = 0; i < series.size(); ++i) series[i] = static_cast<int>(i + 1);
  return series;
}

void VarObs::Set_ID_Labels(const std::vector<std::string>* labels) {
  if (!labels) return;
  const std::size_t count = std::min(labels->size(), mLabels.size());
  for (std::size_t i = 1; i < count; ++i) mLabels[i] = (*labels)[i];
  SetIsDirty(true);
}

void VarObs::ClearInfosByUserID() {}

void VarObs::SetBatchID(int series) {
  mBatchSeries = series > 0 ? series : 0;
  SetIsDirty(true);
}

void VarObs::SetPhaseID(int series) {
  mPhaseSeries = series > 0 ? series : 0;
  SetIsDirty(true);
}

int VarObs::PositionInMap(int series, const std::vector<int>& seriesMap) {
  if (series < 1) return -1;
  for (std::size_t i = 0; i < seriesMap.size(); ++i) {
    if (seriesMap[i] == series) return static_cast<int>(i + 1);
  }
  return -1;
}

int VarObs::GetBatchID(const std::vector<int>& seriesMap) const {
  return PositionInMap(mBatchSeries, seriesMap);
}

int VarObs::GetPhaseID(const std::vector<int>& seriesMap) const {
  return PositionInMap(mPhaseSeries, seriesMap);
}

void VarObs::InsertInfoID(VarObsInfo& info, int position, const char* id) {
  info.InsertID(position, id);
}

void VarObs::MoveInfoID(VarObsInfo& info, int from, int to) { info.MoveID(from, to); }

void VarObs::SwapInfoID(VarObsInfo& info, int first, int second) { info.SwapID(first, second); }
