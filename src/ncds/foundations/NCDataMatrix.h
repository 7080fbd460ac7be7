#ifndef NCDS_FOUNDATIONS_NCDATAMATRIX_H
#define NCDS_FOUNDATIONS_NCDATAMATRIX_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

template <class T>
class NCDataMatrix;

// A dense matrix of single-precision values, rows by columns (observations by variables when
// it holds a dataset); -99 marks a missing cell and every cell a resize or insertion creates.
// The matrix owns its cells in one column-major buffer: column j is a contiguous run of
// SizeRows() floats at ColumnData(j). Columns start CapacityRows() floats apart, so that rows
// can be appended without moving the columns (ReserveRows; appending rows also makes room
// geometrically), and there is spare room for more columns after the last (ReserveColumns).
// Copies own their own cells and hold no spare room.
// Positions are 0-based. Mutators check their arguments first and throw `InvalidArgument`
// with the matrix unchanged; element reads with a fallback never throw.
//
// Persistent: magic "NCDataMatrix", version 1; the body is the row count and the column count
// (eight bytes each), a padding count (one byte, below 64) and as many zero bytes, then the
// cells column by column (four bytes each). The padding puts the cells on a 64-byte boundary
// of the stream when the writer can tell its position. A failed read leaves the matrix empty
// (0 x 0), so that reading never holds two copies of a large matrix.
template <>
class NCDS_EXPORT NCDataMatrix<float> : public virtual VStreamBase {
 public:
  static constexpr float kMissing = -99.0F;

  NCDataMatrix();
  NCDataMatrix(std::size_t rows, std::size_t columns, float value = kMissing);
  NCDataMatrix(const NCDataMatrix& other);
  NCDataMatrix(NCDataMatrix&& other) noexcept;
  // A matrix of the same shape copies into its own cells; otherwise the old cells are
  // released before copying, so the peak is one matrix less, and should the copy fail for
  // lack of memory the matrix is left empty.
  NCDataMatrix& operator=(const NCDataMatrix& other);
  NCDataMatrix& operator=(NCDataMatrix&& other) noexcept;
  ~NCDataMatrix() override;

  std::size_t SizeRows() const { return mRows; }
  std::size_t SizeColumns() const { return mColumns; }
  // Columns the buffer holds at the current row capacity before it must grow.
  std::size_t CapacityColumns() const;
  // Rows each column holds before appending rows must move the columns.
  std::size_t CapacityRows() const { return mStride; }

  // Keeps the cells that remain inside the new shape; new cells are missing.
  void Resize(std::size_t rows, std::size_t columns);
  // Empties the matrix and releases its buffer and any reservation.
  void Clear();

  // The cell at (row, column), or `fallback` when either is out of range.
  float operator()(std::size_t row, std::size_t column, float fallback) const {
    return row < mRows && column < mColumns ? mData[column * mStride + row] : fallback;
  }
  // Unchecked access; `row` and `column` must be in range.
  float& operator()(std::size_t row, std::size_t column) { return mData[column * mStride + row]; }
  const float& operator()(std::size_t row, std::size_t column) const {
    return mData[column * mStride + row];
  }
  // The SizeRows() cells of `column`, or nullptr when it is out of range or the matrix has
  // no rows. Valid until the shape or the capacity changes.
  const float* ColumnData(std::size_t column) const;
  float* ColumnData(std::size_t column);

  // A copy of `column`; empty when it is out of range.
  NCDataVector<float> GetColumn(std::size_t column) const;
  // Copies SizeRows() values from `values` into `column`.
  void SetColumn(std::size_t column, const float* values);

  // Inserts `row` (one value per column) before `position`. An empty 0 x 0 matrix takes its
  // column count from `row`.
  void InsertRow(std::size_t position, const NCDataVector<float>& row);
  // Inserts `count` rows of missing values before `position`.
  void InsertRows(std::size_t position, std::size_t count);
  // Inserts `column` (one value per row) before `position`. An empty 0 x 0 matrix takes its
  // row count from `column`.
  void InsertColumn(std::size_t position, const NCDataVector<float>& column);
  // Inserts `count` columns of missing values before `position`.
  void InsertColumns(std::size_t position, std::size_t count);
  void RemoveRows(std::size_t position, std::size_t count);
  // Removes the listed rows, which must be distinct, in range and strictly ascending. Every
  // column is compacted in one pass, whatever the number of rows removed.
  void RemoveRows(const NCIntegralVector<int, -99>& rows);
  void RemoveColumns(std::size_t position, std::size_t count);
  // Keeps the listed rows in the listed order (repeats allowed): row i becomes the former
  // row `order[i]`. Sorting rows is a ReduceRows with the sort permutation.
  void ReduceRows(const NCIntegralVector<int, -99>& order);
  // Keeps the listed columns in the listed order (repeats allowed).
  void ReduceColumns(const NCIntegralVector<int, -99>& columns);
  // Makes room for `count` columns, so that appending up to that many costs one column copy
  // each. The reservation also holds when rows are added later.
  void ReserveColumns(std::size_t count);
  // Makes room for `count` rows in every column, so that appending rows up to that many moves
  // no column. Operations that reorder or remove rows give the room up again.
  void ReserveRows(std::size_t count);
  // Appends the columns of `other`, which must have as many rows (or this matrix is 0 x 0).
  void ConcatColumns(const NCDataMatrix& other);

  // Matrix times vector: one result per row, the sum over columns of cell times weight, with
  // `weights` holding one weight per column. Columns weighted 0 take no part. A row with a
  // missing cell in a column that takes part gives -99; a missing weight makes every result
  // -99. Sums are accumulated in double precision.
  NCDataVector<float> operator*(const NCDataVector<float>& weights) const;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  // Detaches the matrix from storage shared with another; copies never share, so nothing
  // to do.
  void UnlinkMe() {}

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  struct RowRun;
  // Large buffers come from a huge-page friendly allocation, so they are freed with free().
  struct FreeCells {
    void operator()(float* cells) const noexcept;
  };
  using CellBuffer = std::unique_ptr<float[], FreeCells>;

  // An uninitialised buffer of `count` floats; callers fill every cell they expose.
  static CellBuffer Allocate(std::size_t count);

  bool VStreamableWrite(std::ostream& os) const;
  bool ReadBody(std::istream& is);
  // Grows the buffer to hold `columns` columns at the current row capacity.
  void EnsureColumns(std::size_t columns, bool geometric);
  // Moves the columns `stride` floats apart (at least SizeRows()), in place when the buffer
  // holds max(columns, reserved columns) of them, else into a new buffer.
  void Restride(std::size_t stride);
  // Moves the listed runs of rows of every column to the front, in order, and sets the row
  // count to their total.
  void CompactRows(const RowRun* runs, std::size_t runCount, std::size_t rows);

  CellBuffer mData;
  std::size_t mCapacity = 0;  // floats allocated
  std::size_t mRows = 0;
  std::size_t mStride = 0;  // floats from one column's start to the next's, >= mRows
  std::size_t mColumns = 0;
  std::size_t mReservedColumns = 0;  // the last ReserveColumns, kept when rows change
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_FOUNDATIONS_NCDATAMATRIX_H
