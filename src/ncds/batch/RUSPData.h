#ifndef NCDS_BATCH_RUSPDATA_H
#define NCDS_BATCH_RUSPDATA_H

// A snapshot, per dataset of a project, of the dataset's batch structure and of the unique IDs
// of its rows, kept with the project so that both can be looked up by dataset number later.
// The batch structure is shared with the dataset it was taken from, not copied.
//
// Persistent as a light object: magic "RUSPDATA", version 1 (only 1 is read), then a directory
// of two entries: tag 0 the batch structures (a four-byte count, then per dataset in number
// order its number and a byte 1 followed by the "BI" stream, or a byte 0), tag 1 the row IDs
// (a four-byte count, then per dataset its number and the ID vector). A tag that is missing or
// damaged leaves its map empty and the read goes on; batch conditions of the old format are
// turned into variables of the project once both are read.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iosfwd>
#include <map>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class NCDataSet;
class NCProjectBase;

class NCDS_EXPORT RUSPData {
 public:
  using BatchVectors = std::map<int, boost::shared_ptr<BatchInfoVector>>;
  using IDVectors = std::map<int, NCIntegralVector<unsigned long, 0>>;

  // Empty; `project` must outlive the object.
  explicit RUSPData(NCProjectBase& project);
  RUSPData(const RUSPData& other) = default;
  ~RUSPData();

  // Takes the batch structure (when the dataset has one) and the row IDs of `dataSet` under
  // its number, replacing what was kept for that number.
  void Add(boost::shared_ptr<const NCDataSet> dataSet);
  // The batch structure kept for dataset `number`, or null.
  boost::shared_ptr<BatchInfoVector> GetBatchInfoVector(int number) const;
  // The row IDs kept for dataset `number`, or null.
  const NCIntegralVector<unsigned long, 0>* GetIDVector(int number) const;
  const BatchVectors& GetBatchInfoVectors() const { return mBatchVectors; }
  const IDVectors& GetIDVectors() const { return mIDVectors; }
  bool empty() const { return mBatchVectors.empty() && mIDVectors.empty(); }

  // False when the stream failed.
  bool WriteObject(std::ostream& os) const;
  // False for a foreign magic or another version; never throws.
  bool ReadObject(std::istream& is);

  static std::uint16_t GetMyVStreamVersionNumber();

 private:
  std::int32_t mVersion;
  const char* mMagic;
  BatchVectors mBatchVectors;
  IDVectors mIDVectors;
  NCProjectBase* mProject;
};

#endif  // NCDS_BATCH_RUSPDATA_H
