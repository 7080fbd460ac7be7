#ifndef NCDS_DATASET_DETAIL_DATASETSTREAMPARTS_H
#define NCDS_DATASET_DETAIL_DATASETSTREAMPARTS_H

// Stream fields that the dataset ("NCDS") and its description ("NCDSI") share: 32-bit numbers
// and lists of ID series. Internal to the dataset folder.

#include <cstdint>
#include <iosfwd>
#include <vector>

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

}  // namespace ncds::detail

#endif  // NCDS_DATASET_DETAIL_DATASETSTREAMPARTS_H
