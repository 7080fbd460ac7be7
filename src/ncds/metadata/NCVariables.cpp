#include "ncds/metadata/NCVariables.h"

#include "ncds/foundations/VxStdString.h"

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

void NCVariables::Set_ID_Labels(const std::vector<std::string>* labels) {
  VarObs::Set_ID_Labels(labels);
  int* const roles[] = {&mPhaseSeries, &mMaturitySeries, &mSourceSeries, &mOriginalSeries};
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
