#ifndef NCDS_METADATA_DETAIL_USERIDAT_H
#define NCDS_METADATA_DETAIL_USERIDAT_H

// A record's ID in 1-based `series`, or the empty text beyond its IDs, read in place: the
// inner loop of searches over rows, where a call per row would cost more than the read.

#include <string>
#include <vector>

#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/VarObsInfo.h"

namespace ncds::detail {

inline const std::string& UserIDAt(const VarObsInfo& record, int series) {
  const std::vector<std::string>& ids = record.GetUserIDs();
  return series >= 1 && static_cast<std::size_t>(series) <= ids.size()
             ? ids[static_cast<std::size_t>(series - 1)]
             : VxStdString::Empty();
}

}  // namespace ncds::detail

#endif  // NCDS_METADATA_DETAIL_USERIDAT_H
