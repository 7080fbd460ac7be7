#ifndef NCDS_BATCH_BATCHALIGNER_H
#define NCDS_BATCH_BATCHALIGNER_H

// Resamples the values of one batch from the batch's own maturity values (time, conversion:
// anything that grows, or falls, steadily through a batch) onto a common grid of maturities,
// so that batches can be compared observation by observation. Interpolation is piecewise
// linear; missing values (-99) inside a batch are bridged, missing maturities are dropped
// with their values, and the ends follow one of two rules:
//   - without ExtraPolateShortCutLongBatches a batch shorter than the grid gives missing
//     values past its end (except that the first grid point beyond it may hold the batch's
//     end value when the previous point met the batch's maturity exactly), and a longer
//     batch is cut at the grid's end;
//   - with it, a short batch is extended by holding its end values.
// A maturity that turns back (rises in a falling batch or falls in a rising one; equal
// neighbours are fine) throws `NCError` "Data can not be aligned since the maturity isn't
// monotone." and leaves the output partly set. NaN maturities count as missing. Fewer than
// two valid maturities, or no grid, give an all-missing result.
//
// Aligning several columns of one batch searches each grid point's bracket once for all of
// them. An aligner is not changed by aligning, so one can serve several threads.
//
// Persistent: magic "Aligner", version 3 (2 and 3 are read); tag 0 the grid (written only when
// there is one, required on reading), tag 3 IsAscending, tag 4 the extension flag (optional:
// version 2 has none, and the flag keeps its value).

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT BatchAligner : public VStreamBase {
 public:
  // No grid, ascending maturity, short batches end in missing values.
  BatchAligner();
  // The grid `timeMaturity` (in the direction of `ascending`) and the end rule.
  BatchAligner(const NCDataVector<float>& timeMaturity, bool ascending,
               bool extrapolateShortCutLong);
  BatchAligner(const BatchAligner& other);
  BatchAligner& operator=(const BatchAligner& other);
  ~BatchAligner() override;

  // The grid, or null.
  const NCDataVector<float>* GetTimeMaturityVector() const { return mTimeMaturity.get(); }
  void SetTimeMaturityVector(const NCDataVector<float>* grid);
  bool IsAscending() const { return mAscending; }
  void SetAscending(bool ascending) { mAscending = ascending; }
  bool GetExtraPolateShortCutLongBatches() const { return mExtrapolate; }
  void SetExtraPolateShortCutLongBatches(bool extrapolate) { mExtrapolate = extrapolate; }
  // The number of grid points (0 without a grid).
  std::size_t GridSize() const { return mTimeMaturity ? mTimeMaturity->size() : 0; }

  // The n pairs (values[i], maturity[i]) onto the grid; `out` must have a slot per grid point.
  void Align(const float* values, const float* maturity, int n, NCDataVector<float>& out) const;
  // A new vector of grid length from the pairs of the two vectors (n = size of `values`;
  // `maturity` must be as long).
  std::unique_ptr<NCDataVector<float>> Align(const NCDataVector<float>& values,
                                             const NCDataVector<float>& maturity) const;
  // Each column of `data` onto rows 1 .. grid length of the same column of `out`, which must
  // have at least that many rows and as many columns; `maturity` has a value per row of `data`.
  void Align(const NCDataMatrix<float>& data, const NCDataVector<float>& maturity,
             NCDataMatrix<float>& out) const;
  std::unique_ptr<NCDataMatrix<float>> Align(const NCDataMatrix<float>& data,
                                             const NCDataVector<float>& maturity) const;
  // The columns `columns[c]` (n values each, over the same maturities) onto `out[c]` (a slot
  // per grid point each): the bracket of each grid point is searched once for all of them.
  void AlignColumns(const float* const* columns, std::size_t count, const float* maturity, int n,
                    float* const* out) const;

  // Compares two maturities with a tolerance of one unit in the last place of a float at the
  // larger magnitude: 0 when equal within it, +1 when a is larger, -1 when smaller.
  static int CompareTolerant(double a, double b);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool ReadStreamDirectory(std::istream& is, std::int16_t version);

  VStreamGuard mGuard;
  std::unique_ptr<NCDataVector<float>> mTimeMaturity;
  bool mAscending = true;
  bool mExtrapolate = false;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_BATCHALIGNER_H
