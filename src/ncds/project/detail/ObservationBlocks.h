#ifndef NCDS_PROJECT_DETAIL_OBSERVATIONBLOCKS_H
#define NCDS_PROJECT_DETAIL_OBSERVATIONBLOCKS_H

// The observation records of a project file, stored column by column in blocks. A batch
// history has a million rows whose records differ in little more than their primary ID: the
// batch and phase names, the default class and the batch repeat row after row. A block keeps
// each of them as runs and every ID text as the part that differs from the one before, so a
// record costs a few bytes in the file rather than the hundred of its own stream, and reading
// a block builds its records in one pass.
//
// Block k holds the records whose unique IDs lie in [k * kObservationBlockSpan,
// (k + 1) * kObservationBlockSpan), so that a block keeps its bytes while records come and go
// in other blocks (a save then leaves it alone), and each block is read, checked and lost on
// its own. A span of 4,096 keeps a block of typical records within one chunk of the file, so
// that a damaged chunk costs a few thousand records at most.
//
// Layout (all numbers varints): a format byte (1), the record count n, the first unique ID
// and n - 1 increments; the ID counts as runs; for each series j, over the records holding
// an ID j, runs of texts (run length, bytes shared with the text before, length and bytes of
// the rest); the default classes as runs (zigzag); the batches as runs. A run is its length
// followed by its value.

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ncds/metadata/NCObservations.h"

class ObservationInfo;

namespace ncds::detail {

inline constexpr unsigned long kObservationBlockSpan = 1UL << 12;

// The streams of a project file that hold the blocks ("observations/<key>") and their list;
// every stream named with the prefix belongs to them.
inline constexpr const char* kObservationBlockPrefix = "observations/";
inline constexpr const char* kObservationListStream = "observations/list";
inline std::string ObservationBlockStream(unsigned long key) {
  return kObservationBlockPrefix + std::to_string(key);
}

// Whether every record of `observations` is a plain observation record, which blocks hold.
bool FitsObservationBlocks(const NCObservations& observations);

// The block of the records [first, last), which lie within one span, in increasing unique ID.
std::string EncodeObservationBlock(NCObservations::const_iterator first,
                                   NCObservations::const_iterator last);

// Decodes block `key` (its span), whose records hold at most `maxIDs` IDs each (the series of
// their container), and appends its records to `records`. Any byte sequence that is no such
// block answers false and leaves `records` as it was.
bool DecodeObservationBlock(const char* data, std::size_t size, unsigned long key, int maxIDs,
                            std::vector<std::unique_ptr<ObservationInfo>>& records);

// The list of a project file's blocks: each block's key and record count, in increasing key.
using ObservationBlockList = std::vector<std::pair<unsigned long, std::size_t>>;
std::string EncodeObservationBlockList(const ObservationBlockList& blocks);
// False for bytes that are no such list (keys out of order, counts beyond a block's span).
bool DecodeObservationBlockList(const std::string& bytes, ObservationBlockList& blocks);

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_OBSERVATIONBLOCKS_H
