#ifndef NCDS_BATCH_DATASETALIGNMENT_H
#define NCDS_BATCH_DATASETALIGNMENT_H

// How a batch dataset is aligned onto a common maturity grid, and the operation that does it:
// `Apply` makes a new batch dataset in the same project whose batches all have the same rows.
//
// For every batch the maturity column (any variable of the dataset, "$Time" included) is taken,
// non-finite values counting as missing; with `smooth` it is first made monotone batch by
// batch (`Smooth::SmoothVector`, one segment per batch, running from the batch's first to its
// last valid value). The grid has `points` evenly spaced maturities from the smallest to the
// largest that the batches reach (from the largest to the smallest when the maturity falls
// through the batches). Phase-wise alignment (`SetPhasePoints`) gives each phase its own
// grid of its own number of points over the range that phase reaches; a batch's phases
// follow each other in the order of the dataset's phase list, each phase in one piece. With
// `relative`, each batch's (or each phase's) maturity is first rescaled to 0-100 % of its own
// range, so that every batch fills the grid.
//
// Every column is interpolated onto the grid (`BatchAligner`), except qualitative ones, which
// take the level of the nearest row, as does the phase of a row in whole-batch alignment.
// Batches shorter than the grid end in missing values, or hold their end values with
// `extend`. A batch with fewer than two valid maturities gives missing rows. New rows are
// named "<batch>@<grid position>" and carry their batch and phase; the new dataset records
// its source dataset and keeps this alignment, aligners included, so that a new batch can
// later be aligned the same way.
//
// Batches held in pieces (several datasets, or the partitions of a cluster) align onto common
// grids in two steps: `Measure` each piece, `Extent::Add` the extents, then `SetExtent` and
// `Apply` piece by piece. The result is the one a single dataset of all the batches gives.
// The extent is an input of `Apply`, not stored: the aligners keep the grids it made.
//
// Persistent: magic "ALIGNMENT", version 1; tag 0 the maturity variable ID, 1 relative, 2
// smooth, 3 extend, 4 the points, 5 the phases with their points and aligners (a four-byte
// count, then per phase its name, its points and the "Aligner" stream), 6 the source's batches
// it aligned (`SourceBatches`; optional).

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ncds/batch/BatchAligner.h"
#include "ncds/batch/SourceBatches.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDataSet;

namespace ncds::detail {
struct Layout;
struct AlignedRows;
}  // namespace ncds::detail

class NCDS_EXPORT DataSetAlignment : public VStreamBase {
 public:
  // What `Apply` did.
  struct Result {
    boost::shared_ptr<NCDataSet> dataSet;
    int batches = 0;         // batches aligned
    int points = 0;          // rows per batch
    int shortBatches = 0;    // batches whose maturity ends before the grid: extended or cut short
    int missingBatches = 0;  // batches (or phases of batches) with fewer than two maturities
  };

  // The span of the grids: per phase in phase order ("" for whole batches) the lowest and the
  // highest maturity its segments reach (lowest above highest: none), and the sums of the
  // batches' first and last valid maturities, which decide the direction of the grids.
  struct Extent {
    std::vector<std::pair<std::string, std::pair<float, float>>> ranges;
    double front = 0;
    double back = 0;
    // Widens this extent by `other` (phases it lacks are appended).
    void Add(const Extent& other);
  };

  // Batches held outside a dataset, in plain arrays (a partition of a cluster's data, say):
  // aligned as a dataset of these rows, all of them quantitative, would be, without a record
  // per row. The maturity is column `maturity`, not the variable of the alignment.
  struct Rows {
    std::string name;                      // what messages call the rows, as a dataset's name
    std::size_t count = 0;                 // rows
    std::vector<const float*> columns;     // `count` values each, -99 for missing
    std::size_t maturity = 0;              // the column that holds the maturity
    std::vector<std::size_t> batchStarts;  // the first row (from 0) of every batch, increasing
    std::vector<std::string> batches;      // every batch's name
    const std::int32_t* phases = nullptr;  // every row's phase, an index into phaseNames; null:
                                           // no phases
    std::vector<std::string> phaseNames;   // in the order of phase-wise grids
  };

  // What `Apply` made of `Rows`: the rows of the aligned dataset, as arrays (`RowName` names
  // them).
  struct RowsResult {
    NCDataMatrix<float> values;        // `points` rows per batch, the columns of the input
    std::vector<std::int32_t> phases;  // every row's phase (-1: none); empty without phases
    int batches = 0;
    int points = 0;
    int shortBatches = 0;
    int missingBatches = 0;
  };

  // Aligns on the variable `maturityID` onto `points` points.
  explicit DataSetAlignment(unsigned long maturityID = 0, int points = 100);
  DataSetAlignment(const DataSetAlignment& other);
  DataSetAlignment& operator=(const DataSetAlignment& other);
  ~DataSetAlignment() override;

  unsigned long GetMaturityID() const { return mMaturityID; }
  int GetPoints() const { return mPoints; }
  // Phase-wise alignment: the number of points of each phase; every phase of the dataset must
  // have one. Empty: whole batches.
  const std::vector<std::pair<std::string, int>>& GetPhasePoints() const { return mPhasePoints; }
  void SetPhasePoints(std::vector<std::pair<std::string, int>> phasePoints);
  bool IsRelative() const { return mRelative; }
  void SetRelative(bool relative) { mRelative = relative; }
  bool IsSmoothed() const { return mSmooth; }
  void SetSmoothed(bool smooth) { mSmooth = smooth; }
  bool IsExtended() const { return mExtend; }
  void SetExtended(bool extend) { mExtend = extend; }
  // The aligners of the last `Apply` (or read), one per phase in phase order ("" for whole
  // batches).
  const std::vector<std::pair<std::string, BatchAligner>>& GetAligners() const { return mAligners; }
  // The source's batches the last `Apply` on a dataset aligned, as they were then.
  const SourceBatches& GetSourceBatches() const { return mSourceBatches; }
  void SetSourceBatches(SourceBatches batches) { mSourceBatches = std::move(batches); }
  // The extent that builds the grids the aligners hold: aligning new batches over it puts them
  // on the same grids. None before the first `Apply` (or read).
  std::optional<Extent> GetGridExtent() const;

  // What the grids of `Apply` on `source` would span, without aligning; throws as `Apply`.
  Extent Measure(NCDataSet& source) const;
  Extent Measure(const Rows& rows) const;
  // Grids over `extent` (from `Measure`) instead of the range the batches reach; none: measure.
  const std::optional<Extent>& GetExtent() const { return mExtent; }
  void SetExtent(std::optional<Extent> extent) { mExtent = std::move(extent); }

  // Aligns `source` into a new batch dataset `name` numbered `number` in the source's project
  // (which the caller saves). Throws `NCError` for a dataset that is not a batch dataset, a
  // maturity that is not one of its variables or has no two values in any batch, a count of
  // points below 1, a phase without its count or in several pieces within a batch, a
  // maturity that turns back in a batch (naming the first such batch), and a phase the extent
  // set does not cover; nothing is added to the project then.
  Result Apply(NCDataSet& source, const std::string& name, int number);
  // The same for rows in arrays; throws as above, and `InvalidArgument` for batch starts that
  // are not increasing from row 0 or a phase outside the names.
  RowsResult Apply(const Rows& rows);

  // The name of the aligned row at `position` (from 1) of `batch`, on a grid of `points`: the
  // batch, then `RowSuffix`, "@" and the position zero-padded to the width of `points` (three
  // digits at least). Loops over many batches build the suffixes once.
  static std::string RowName(const std::string& batch, int position, int points);
  static std::string RowSuffix(int position, int points);

  bool operator==(const DataSetAlignment& other) const;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool ReadStreamDirectory(std::istream& is);
  // Sets the aligners and aligns `columns` of the layout's rows.
  ncds::detail::AlignedRows AlignLayout(ncds::detail::Layout& layout,
                                        const std::vector<const float*>& columns,
                                        const std::vector<bool>& qualitative);

  VStreamGuard mGuard;
  unsigned long mMaturityID;
  int mPoints;
  std::vector<std::pair<std::string, int>> mPhasePoints;
  bool mRelative = false;
  bool mSmooth = false;
  bool mExtend = false;
  std::vector<std::pair<std::string, BatchAligner>> mAligners;
  std::optional<Extent> mExtent;
  SourceBatches mSourceBatches;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_DATASETALIGNMENT_H
