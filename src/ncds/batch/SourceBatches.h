#ifndef NCDS_BATCH_SOURCEBATCHES_H
#define NCDS_BATCH_SOURCEBATCHES_H

// The batches a derived dataset (aligned, batch-level) was made from, each with a digest of the
// rows it was made of: the number and the order of their observation records' unique IDs.
// Appending a batch gives a name that is not here, deleting one takes a name away, and
// replacing one's rows (or deleting some of them) changes its digest, as new rows get new
// records; so comparing with the source's batches now tells what the derived dataset lacks.
// Values changed in place leave the digest alone.
//
// Stream form (inside the derived dataset's description): a four-byte count, then per batch its
// name as a binary string and its eight-byte digest. A plain value; not thread-safe to change.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class NCObservations;
class ObservationInfo;

class NCDS_EXPORT SourceBatches {
 public:
  using Entry = std::pair<std::string, std::uint64_t>;

  // What a dataset made from some batches lacks of the batches now, by name in the order of
  // the batches now (gone ones in their former order).
  struct Lag {
    std::vector<std::string> added;    // not derived yet
    std::vector<std::string> changed;  // derived from rows the source no longer holds
    std::vector<std::string> gone;     // derived, but gone from the source
    bool empty() const { return added.empty() && changed.empty() && gone.empty(); }
    std::size_t size() const { return added.size() + changed.size() + gone.size(); }
  };

  SourceBatches() = default;
  explicit SourceBatches(std::vector<Entry> batches) : mBatches(std::move(batches)) {}

  // The batches of `rows` (grouped by batch, as a batch dataset's are) in order; the runs of a
  // batch that appears in several count as one. Rows without a batch are left out.
  static SourceBatches Of(const NCObservations& observations,
                          const VarObsInfoVector<ObservationInfo>& rows);

  // What a dataset made from these batches lacks of `now`.
  Lag LagBehind(const SourceBatches& now) const;

  const std::vector<Entry>& Get() const { return mBatches; }
  bool empty() const { return mBatches.empty(); }

  bool operator==(const SourceBatches& other) const { return mBatches == other.mBatches; }
  bool operator!=(const SourceBatches& other) const { return !(*this == other); }

  bool Write(std::ostream& os) const;
  // Reads the stream form; throws the framework's `VxStreamError` for a short or broken
  // stream, as the primitive readers do, and leaves this unchanged then.
  void Read(std::istream& is);

 private:
  std::vector<Entry> mBatches;
};

#endif  // NCDS_BATCH_SOURCEBATCHES_H
