#ifndef NCDS_DATASET_DETAIL_DATASETSTREAMPARTS_H
#define NCDS_DATASET_DETAIL_DATASETSTREAMPARTS_H

// Stream fields that the dataset ("NCDS") and its description ("NCDSI") share: 32-bit numbers,
// lists of ID series, and the rows, which both store as the unique IDs of their observation
// records. Internal to the dataset folder.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/metadata/VarObsInfoVector.h"

class NCProjectBase;

namespace ncds::detail {

// A unique ID, count or position as four bytes; false when it does not fit or the stream failed.
bool WriteUInt32(unsigned long long value, std::ostream& os);
std::uint32_t ReadUInt32(std::istream& is);
// A count followed by at least `bytesEach` bytes per item; throws `VxStreamError` when the
// stream cannot hold them, before anything is allocated.
std::uint32_t ReadCount(std::istream& is, std::uint64_t bytesEach);

// A list of ID series: a four-byte count, then each series number in four bytes.
bool WriteAliases(const std::vector<int>& aliases, std::ostream& os);
std::vector<int> ReadAliases(std::istream& is);

// The records of the rows `observationIDs` in the project's observations. A row whose record
// the project no longer holds (or ID 0, a row written without one) is null: a dataset is never
// lost because some of its observations were deleted; the rows say so when asked.
VarObsInfoVector<ObservationInfo> RowsOfStoredIDs(
    const NCProjectBase& project, const NCIntegralVector<unsigned long, 0>& observationIDs);

}  // namespace ncds::detail

#endif  // NCDS_DATASET_DETAIL_DATASETSTREAMPARTS_H
