#include "ncds/metadata/NCObservations.h"

#include <istream>
#include <ostream>
#include <string>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kNumberOfEntries = 1;
constexpr std::uint16_t kTagReservedSeries = 1;

// How far a lookup steps forward from the previous record before it searches the map: rows
// usually list their IDs in increasing order, often with no gap at all.
constexpr int kMaxSteps = 4;

}  // namespace
}  // namespace ncds::detail

const VStreamableData NCObservations::msVStreamData(ncds::detail::kVersion, "NCO");

NCObservations::NCObservations() = default;

NCObservations::~NCObservations() = default;

ObservationInfo* NCObservations::operator[](unsigned long uniqueID) const {
  // Only observations get in (Add, AcceptsInfo).
  return static_cast<ObservationInfo*>(FindVarObsInfo(uniqueID));
}

ObservationInfo* NCObservations::Add(std::unique_ptr<ObservationInfo> info, InfosByUserID* lookup) {
  return static_cast<ObservationInfo*>(VarObs::Add(std::move(info), lookup));
}

VarObsInfoVector<ObservationInfo> NCObservations::GetInfoVector(
    const NCIntegralVector<unsigned long, 0>& uniqueIDs) const {
  VarObsInfoVector<ObservationInfo> infos(uniqueIDs.size());
  auto next = begin();
  for (std::size_t i = 0; i < uniqueIDs.size(); ++i) {
    const unsigned long uniqueID = uniqueIDs[i];
    for (int step = 0; step < ncds::detail::kMaxSteps && next != end() && next->first < uniqueID;
         ++step) {
      ++next;
    }
    if (next == end() || next->first != uniqueID) next = lower_bound(uniqueID);
    if (next == end() || next->first != uniqueID) continue;  // not held: the entry stays null
    infos(i) = static_cast<ObservationInfo*>(next->second.get());
    ++next;
  }
  return infos;
}

bool NCObservations::AcceptsInfo(const VarObsInfo& info) const {
  return info.AsObservationInfo() != nullptr;
}

void NCObservations::OnLabelsChanged() {
  mBatchLabelSeries = 0;
  mClassLabelSeries = 0;
  const char* const batch = NCVariables::GetReservedSeriesName(NCVariables::eBatchID);
  const char* const phase = NCVariables::GetReservedSeriesName(NCVariables::eClassID);
  for (int series = SizeAliases(); series >= 2; --series) {
    const std::string label = GetIDLabelRaw(series);
    if (VxStdString::CompareNoCase(label, batch) == 0) mBatchLabelSeries = series;
    if (VxStdString::CompareNoCase(label, phase) == 0) mClassLabelSeries = series;
  }
}

bool NCObservations::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VarObs::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool NCObservations::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, ncds::detail::kNumberOfEntries);
  std::ostream& reserved = directory.GetOutput(ncds::detail::kTagReservedSeries);
  const std::int32_t series[2] = {mBatchLabelSeries, mClassLabelSeries};
  WriteFourBytes(series, 2, reserved);
  return directory.Close();
}

bool NCObservations::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version > ncds::detail::kVersion) return false;
  return VarObs::VStreamableStartRead(is);
}

bool NCObservations::ReadExtensionPart(std::istream& is, int seriesCount) {
  InputStreamDirectory directory(is);
  bool ok = true;
  std::int32_t series[2] = {0, 0};
  try {
    // Absent in streams written before the entry existed: no reserved series then.
    if (std::istream* reserved = directory.GetInput(ncds::detail::kTagReservedSeries)) {
      ReadFourBytes(series, 2, *reserved);
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  for (const std::int32_t s : series) {
    if (s < 0 || s > seriesCount) ok = false;
  }
  if (!ok || !is) return false;
  mBatchLabelSeries = series[0];
  mClassLabelSeries = series[1];
  return true;
}

void NCObservations::VStreamableReset() const {
  mGuard.Reset();
  VarObs::VStreamableReset();
}
