#include "ncds/metadata/VarObsInfoVector.h"

#include "ncds/metadata/ObservationInfo.h"

const VarObsInfoVector<ObservationInfo>& EmptyObservationInfoVector() {
  static const VarObsInfoVector<ObservationInfo> empty;
  return empty;
}
