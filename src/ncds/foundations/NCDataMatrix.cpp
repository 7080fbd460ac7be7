#include "ncds/foundations/NCDataMatrix.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <limits>
#include <new>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/OutputFileStream.h"
#include "ncds/foundations/StreamPrimitives.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

// A run of consecutive rows that a compaction keeps: `count` rows from row `from`.
struct NCDataMatrix<float>::RowRun {
  std::size_t from;
  std::size_t count;
};

namespace {

constexpr float kMissing = NCDataMatrix<float>::kMissing;
// Largest row or column count a stream may declare: rows and columns are indexed with int.
constexpr std::uint64_t kMaxStreamDimension = INT_MAX;
// Stream alignment of the cells, where the writer can tell its position.
constexpr std::size_t kCellAlignment = 64;
// Buffers from this size on are aligned to, and advised for, transparent huge pages.
constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;
constexpr std::size_t kHugePageMinimum = std::size_t{1} << 20;
// Floats read per step when the stream cannot tell its size.
constexpr std::size_t kStepFloats = std::size_t{1} << 20;

// rows * columns, refusing a product that does not fit in memory's address range.
std::size_t CellCount(std::size_t rows, std::size_t columns) {
  if (columns != 0 && rows > std::numeric_limits<std::size_t>::max() / sizeof(float) / columns) {
    throw InvalidArgument("NCDataMatrix: " + std::to_string(rows) + " x " +
                          std::to_string(columns) + " cells do not fit in memory");
  }
  return rows * columns;
}

void FillMissing(float* cells, std::size_t count) { std::fill(cells, cells + count, kMissing); }

void CheckPosition(std::size_t position, std::size_t size, const char* what,
                   const char* operation) {
  if (position > size) {
    throw InvalidArgument(std::string("NCDataMatrix::") + operation + ": position " +
                          std::to_string(position) + " is beyond the last " + what + " (" +
                          std::to_string(size) + ")");
  }
}

void CheckRange(std::size_t position, std::size_t count, std::size_t size, const char* what,
                const char* operation) {
  if (position > size || count > size - position) {
    throw InvalidArgument(std::string("NCDataMatrix::") + operation + ": " + what + " " +
                          std::to_string(position) + "+" + std::to_string(count) +
                          " are out of range (" + std::to_string(size) + ")");
  }
}

// Refuses a list of positions with one out of [0, size).
void CheckIndexList(const NCIntegralVector<int, -99>& list, std::size_t size, const char* what,
                    const char* operation) {
  for (const int index : list) {
    if (index < 0 || static_cast<std::size_t>(index) >= size) {
      throw InvalidArgument(std::string("NCDataMatrix::") + operation + ": " + what + " " +
                            std::to_string(index) + " is out of range (" + std::to_string(size) +
                            ")");
    }
  }
}

}  // namespace

const VStreamableData NCDataMatrix<float>::msVStreamData(1, "NCDataMatrix");

void NCDataMatrix<float>::FreeCells::operator()(float* cells) const noexcept { std::free(cells); }

namespace {

// Asks for transparent huge pages over the whole 2 MiB pages inside a large buffer.
void AdviseHugePages([[maybe_unused]] void* cells, [[maybe_unused]] std::size_t bytes) {
#if defined(__linux__)
  if (bytes < kHugePageMinimum) return;
  const auto start = reinterpret_cast<std::uintptr_t>(cells);
  const std::uintptr_t first = (start + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
  const std::uintptr_t last = (start + bytes) & ~(kHugePageBytes - 1);
  if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#endif
}

// `cells` grown or shrunk to `count` floats, keeping its contents; the old buffer is kept (and
// std::bad_alloc thrown) when there is no memory.
float* Reallocate(float* cells, std::size_t count) {
  void* moved = std::realloc(cells, count * sizeof(float));
  if (!moved) throw std::bad_alloc();
  return static_cast<float*>(moved);
}

}  // namespace

NCDataMatrix<float>::CellBuffer NCDataMatrix<float>::Allocate(std::size_t count) {
  if (count == 0) return nullptr;
  const std::size_t bytes = count * sizeof(float);
  void* cells = nullptr;
#if defined(__linux__)
  // A dataset-sized buffer on transparent huge pages: first touch (reading a stream into it)
  // takes one fault per 2 MiB instead of per 4 KiB, and whole-column passes miss the TLB less.
  // A buffer whose last huge page is mostly its own takes that page whole, so that a buffer
  // of a few MiB (a Dask partition's, say) is faulted in by a few faults, not hundreds: where
  // freed memory goes back to the system at once, that cost recurs with every buffer.
  if (bytes >= kHugePageMinimum) {
    const std::size_t tail = (kHugePageBytes - bytes % kHugePageBytes) % kHugePageBytes;
    const std::size_t size =
        tail <= bytes / 2 && bytes <= std::numeric_limits<std::size_t>::max() - kHugePageBytes
            ? bytes + tail
            : bytes;
    if (posix_memalign(&cells, kHugePageBytes, size) != 0) throw std::bad_alloc();
    AdviseHugePages(cells, size);
    return CellBuffer(static_cast<float*>(cells));
  }
#endif
  cells = std::malloc(bytes);
  if (!cells) throw std::bad_alloc();
  return CellBuffer(static_cast<float*>(cells));
}

NCDataMatrix<float>::NCDataMatrix() = default;

NCDataMatrix<float>::NCDataMatrix(std::size_t rows, std::size_t columns, float value)
    : mData(Allocate(CellCount(rows, columns))),
      mCapacity(rows * columns),
      mRows(rows),
      mStride(rows),
      mColumns(columns) {
  std::fill(mData.get(), mData.get() + mCapacity, value);
}

NCDataMatrix<float>::NCDataMatrix(const NCDataMatrix& other)
    : VStreamBase(other),
      mData(Allocate(other.mRows * other.mColumns)),
      mCapacity(other.mRows * other.mColumns),
      mRows(other.mRows),
      mStride(other.mRows),
      mColumns(other.mColumns) {
  if (mCapacity == 0) return;
  if (other.mStride == mRows) {
    std::memcpy(mData.get(), other.mData.get(), mCapacity * sizeof(float));
    return;
  }
  for (std::size_t j = 0; j < mColumns; ++j) {
    std::memcpy(mData.get() + j * mRows, other.mData.get() + j * other.mStride,
                mRows * sizeof(float));
  }
}

NCDataMatrix<float>::NCDataMatrix(NCDataMatrix&& other) noexcept
    : VStreamBase(other),
      mData(std::move(other.mData)),
      mCapacity(std::exchange(other.mCapacity, 0)),
      mRows(std::exchange(other.mRows, 0)),
      mStride(std::exchange(other.mStride, 0)),
      mColumns(std::exchange(other.mColumns, 0)),
      mReservedColumns(std::exchange(other.mReservedColumns, 0)) {}

NCDataMatrix<float>& NCDataMatrix<float>::operator=(const NCDataMatrix& other) {
  if (this == &other) return *this;
  if (mRows == other.mRows && mColumns == other.mColumns) {
    // Same shape: copy into our own cells, with no new buffer to allocate and fault in.
    for (std::size_t j = 0; j < mColumns && mRows != 0; ++j) {
      std::memcpy(mData.get() + j * mStride, other.mData.get() + j * other.mStride,
                  mRows * sizeof(float));
    }
    return *this;
  }
  {
    // Release our cells before taking the copy's, so that the peak is one matrix less.
    Clear();
    NCDataMatrix copy(other);
    *this = std::move(copy);
  }
  return *this;
}

NCDataMatrix<float>& NCDataMatrix<float>::operator=(NCDataMatrix&& other) noexcept {
  if (this != &other) {
    mData = std::move(other.mData);
    mCapacity = std::exchange(other.mCapacity, 0);
    mRows = std::exchange(other.mRows, 0);
    mStride = std::exchange(other.mStride, 0);
    mColumns = std::exchange(other.mColumns, 0);
    mReservedColumns = std::exchange(other.mReservedColumns, 0);
  }
  return *this;
}

NCDataMatrix<float>::~NCDataMatrix() = default;

std::size_t NCDataMatrix<float>::CapacityColumns() const {
  return mStride == 0 ? std::numeric_limits<std::size_t>::max() : mCapacity / mStride;
}

const float* NCDataMatrix<float>::ColumnData(std::size_t column) const {
  return column < mColumns && mRows != 0 ? mData.get() + column * mStride : nullptr;
}

float* NCDataMatrix<float>::ColumnData(std::size_t column) {
  return column < mColumns && mRows != 0 ? mData.get() + column * mStride : nullptr;
}

void NCDataMatrix<float>::EnsureColumns(std::size_t columns, bool geometric) {
  const std::size_t capacity = CapacityColumns();
  if (columns <= capacity) return;
  const std::size_t grown = geometric ? std::max(columns, capacity * 2) : columns;
  const std::size_t cells = CellCount(mStride, grown);
  if (!mData) {
    mData = Allocate(cells);
  } else {
    // The columns stay where they are: extend the buffer in place (a large one by moving its
    // pages, not its bytes).
    float* extended = Reallocate(mData.get(), cells);
    (void)mData.release();
    mData.reset(extended);
  }
  mCapacity = cells;
}

void NCDataMatrix<float>::Restride(std::size_t stride) {
  if (stride == mStride) return;
  const std::size_t wanted = CellCount(stride, std::max(mColumns, mReservedColumns));
  const std::size_t rows = std::min(mRows, stride);
  if (wanted > mCapacity && stride > mStride && mData) {
    // Growing: extend the buffer where it lies and spread the columns inside it. For a large
    // buffer the system moves its pages instead of copying them, and only the new room is
    // touched for the first time, so the peak is the new size rather than old plus new.
    float* grown = Reallocate(mData.get(), wanted);
    (void)mData.release();
    mData.reset(grown);
    mCapacity = wanted;
  }
  if (wanted <= mCapacity) {
    // Columns that move up go last first, columns that move down first first, so that no
    // column is overwritten before it has moved.
    float* const base = mData.get();
    if (stride > mStride) {
      for (std::size_t j = mColumns; j-- > 0;) {
        std::memmove(base + j * stride, base + j * mStride, rows * sizeof(float));
      }
    } else {
      for (std::size_t j = 0; j < mColumns; ++j) {
        std::memmove(base + j * stride, base + j * mStride, rows * sizeof(float));
      }
    }
  } else {
    CellBuffer buffer = Allocate(wanted);
    for (std::size_t j = 0; j < mColumns && rows != 0; ++j) {
      std::memcpy(buffer.get() + j * stride, mData.get() + j * mStride, rows * sizeof(float));
    }
    mData = std::move(buffer);
    mCapacity = wanted;
  }
  mStride = stride;
}

void NCDataMatrix<float>::Resize(std::size_t rows, std::size_t columns) {
  CellCount(rows, std::max(columns, mReservedColumns));  // refuse before changing anything
  if (columns < mColumns) mColumns = columns;
  if (rows < mRows) {
    const RowRun keep{0, rows};
    CompactRows(&keep, 1, rows);
  } else if (rows > mRows) {
    InsertRows(mRows, rows - mRows);
  }
  if (columns > mColumns) {
    EnsureColumns(columns, false);
    InsertColumns(mColumns, columns - mColumns);
  }
}

void NCDataMatrix<float>::Clear() {
  mData.reset();
  mCapacity = mRows = mStride = mColumns = mReservedColumns = 0;
}

NCDataVector<float> NCDataMatrix<float>::GetColumn(std::size_t column) const {
  NCDataVector<float> values;
  if (column < mColumns) values.CopyVector(ColumnData(column), mRows);
  return values;
}

void NCDataMatrix<float>::SetColumn(std::size_t column, const float* values) {
  if (column >= mColumns) {
    throw InvalidArgument("NCDataMatrix::SetColumn: column " + std::to_string(column) +
                          " is out of range (" + std::to_string(mColumns) + ")");
  }
  if (mRows == 0) return;
  if (!values) throw InvalidArgument("NCDataMatrix::SetColumn: no values");
  std::memmove(ColumnData(column), values, mRows * sizeof(float));
}

void NCDataMatrix<float>::InsertRow(std::size_t position, const NCDataVector<float>& row) {
  const bool adopt = mRows == 0 && mColumns == 0;
  if (!adopt && row.size() != mColumns) {
    throw InvalidArgument("NCDataMatrix::InsertRow: the row has " + std::to_string(row.size()) +
                          " values for " + std::to_string(mColumns) + " columns");
  }
  CheckPosition(position, mRows, "row", "InsertRow");
  if (adopt) mColumns = row.size();
  try {
    InsertRows(position, 1);
  } catch (...) {
    if (adopt) mColumns = 0;
    throw;
  }
  for (std::size_t j = 0; j < mColumns; ++j) mData[j * mStride + position] = row[j];
}

void NCDataMatrix<float>::InsertRows(std::size_t position, std::size_t count) {
  CheckPosition(position, mRows, "row", "InsertRows");
  if (count == 0) return;
  if (count > std::numeric_limits<std::size_t>::max() - mRows) {
    throw InvalidArgument("NCDataMatrix::InsertRows: too many rows");
  }
  const std::size_t rows = mRows + count;
  if (rows > mStride) {
    // Rows appended in steps make room geometrically, so that each row costs a constant
    // share of the moves; rows inserted elsewhere take just the room they need.
    const std::size_t grown = position == mRows && mRows != 0 ? std::max(rows, 2 * mStride) : rows;
    CellCount(grown, std::max(mColumns, mReservedColumns));  // refuse before changing anything
    Restride(grown);
  }
  const std::size_t tail = mRows - position;
  float* const base = mData.get();
  for (std::size_t j = 0; j < mColumns; ++j) {
    float* column = base + j * mStride;
    std::memmove(column + position + count, column + position, tail * sizeof(float));
    FillMissing(column + position, count);
  }
  mRows = rows;
}

void NCDataMatrix<float>::InsertColumn(std::size_t position, const NCDataVector<float>& column) {
  const bool adopt = mRows == 0 && mColumns == 0;
  if (!adopt && column.size() != mRows) {
    throw InvalidArgument("NCDataMatrix::InsertColumn: the column has " +
                          std::to_string(column.size()) + " values for " + std::to_string(mRows) +
                          " rows");
  }
  CheckPosition(position, mColumns, "column", "InsertColumn");
  if (adopt) mRows = mStride = column.size();
  try {
    InsertColumns(position, 1);
  } catch (...) {
    if (adopt) mRows = mStride = 0;
    throw;
  }
  if (mRows != 0) std::memcpy(ColumnData(position), column.data(), mRows * sizeof(float));
}

void NCDataMatrix<float>::InsertColumns(std::size_t position, std::size_t count) {
  CheckPosition(position, mColumns, "column", "InsertColumns");
  if (count == 0) return;
  if (count > std::numeric_limits<std::size_t>::max() - mColumns) {
    throw InvalidArgument("NCDataMatrix::InsertColumns: too many columns");
  }
  EnsureColumns(mColumns + count, true);
  if (mStride != 0) {
    float* gap = mData.get() + position * mStride;
    std::memmove(gap + count * mStride, gap, (mColumns - position) * mStride * sizeof(float));
    FillMissing(gap, count * mStride);
  }
  mColumns += count;
}

void NCDataMatrix<float>::CompactRows(const RowRun* runs, std::size_t runCount, std::size_t rows) {
  // Kept rows only ever move towards the front of the buffer, so one forward pass over all
  // columns can move them in place. Scattered removals leave many short runs; once the kept
  // rows trail their sources by a whole block, a run is copied in blocks of kBlock floats whose
  // last one may spill past the run: the spill lands on cells that are written again later and
  // never on a source not yet read, so no per-run memmove call is needed.
  constexpr std::size_t kBlock = 8;
  constexpr std::size_t kShortRun = 64;
  float* const base = mData.get();
  const float* const end = base + mStride * mColumns;
  float* to = base;
  for (std::size_t j = 0; j < mColumns; ++j) {
    const float* column = base + j * mStride;
    for (std::size_t r = 0; r < runCount; ++r) {
      const float* from = column + runs[r].from;
      const std::size_t count = runs[r].count;
      if (count <= kShortRun && from - to >= static_cast<std::ptrdiff_t>(kBlock) &&
          end - from >= static_cast<std::ptrdiff_t>(count + kBlock)) {
        for (std::size_t i = 0; i < count; i += kBlock) {
          std::memcpy(to + i, from + i, kBlock * sizeof(float));
        }
      } else if (to != from) {
        std::memmove(to, from, count * sizeof(float));
      }
      to += count;
    }
  }
  mRows = rows;
  mStride = rows;
}

void NCDataMatrix<float>::RemoveRows(std::size_t position, std::size_t count) {
  CheckRange(position, count, mRows, "rows", "RemoveRows");
  if (count == 0) return;
  const RowRun keep[2] = {{0, position}, {position + count, mRows - position - count}};
  CompactRows(keep, 2, mRows - count);
}

void NCDataMatrix<float>::RemoveRows(const NCIntegralVector<int, -99>& rows) {
  if (rows.empty()) return;
  std::vector<RowRun> keep;
  keep.reserve(rows.size() + 1);
  std::size_t next = 0;  // first row not yet looked at
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const int row = rows.data()[i];
    if (row < 0 || static_cast<std::size_t>(row) >= mRows) {
      throw InvalidArgument("NCDataMatrix::RemoveRows: row " + std::to_string(row) +
                            " is out of range (" + std::to_string(mRows) + " rows)");
    }
    const auto r = static_cast<std::size_t>(row);
    if (i > 0 && r < next) {
      throw InvalidArgument("NCDataMatrix::RemoveRows: the rows must be strictly ascending (row " +
                            std::to_string(row) + " follows row " + std::to_string(next - 1) + ")");
    }
    if (r > next) keep.push_back({next, r - next});
    next = r + 1;
  }
  if (next < mRows) keep.push_back({next, mRows - next});
  CompactRows(keep.data(), keep.size(), mRows - rows.size());
}

void NCDataMatrix<float>::RemoveColumns(std::size_t position, std::size_t count) {
  CheckRange(position, count, mColumns, "columns", "RemoveColumns");
  if (count == 0) return;
  if (mStride != 0) {
    float* gap = mData.get() + position * mStride;
    std::memmove(gap, gap + count * mStride,
                 (mColumns - position - count) * mStride * sizeof(float));
  }
  mColumns -= count;
}

void NCDataMatrix<float>::ReduceRows(const NCIntegralVector<int, -99>& order) {
  CheckIndexList(order, mRows, "row", "ReduceRows");
  const std::size_t rows = order.size();
  const int* source = order.data();
  if (rows <= mRows) {
    // Column j lands at or before where it stood, beyond the columns still to come, so each
    // column needs only a scratch copy of itself.
    CellBuffer scratch = Allocate(rows);
    float* const base = mData.get();
    for (std::size_t j = 0; j < mColumns; ++j) {
      const float* from = base + j * mStride;
      for (std::size_t i = 0; i < rows; ++i) scratch[i] = from[source[i]];
      if (rows != 0) std::memcpy(base + j * rows, scratch.get(), rows * sizeof(float));
    }
  } else {
    const std::size_t cells = CellCount(rows, std::max(mColumns, mReservedColumns));
    CellBuffer buffer = Allocate(cells);
    for (std::size_t j = 0; j < mColumns; ++j) {
      const float* from = mData.get() + j * mStride;
      float* to = buffer.get() + j * rows;
      for (std::size_t i = 0; i < rows; ++i) to[i] = from[source[i]];
    }
    mData = std::move(buffer);
    mCapacity = cells;
  }
  mRows = rows;
  mStride = rows;
}

void NCDataMatrix<float>::ReduceColumns(const NCIntegralVector<int, -99>& columns) {
  CheckIndexList(columns, mColumns, "column", "ReduceColumns");
  const std::size_t count = columns.size();
  const std::size_t cells = CellCount(mRows, std::max(count, mReservedColumns));
  CellBuffer buffer = Allocate(cells);
  if (mRows != 0) {
    for (std::size_t k = 0; k < count; ++k) {
      std::memcpy(buffer.get() + k * mRows, mData.get() + columns.data()[k] * mStride,
                  mRows * sizeof(float));
    }
  }
  mData = std::move(buffer);
  mCapacity = cells;
  mStride = mRows;
  mColumns = count;
}

void NCDataMatrix<float>::ReserveColumns(std::size_t count) {
  EnsureColumns(count, false);
  mReservedColumns = count;
}

void NCDataMatrix<float>::ReserveRows(std::size_t count) {
  if (count > mStride) Restride(count);
}

void NCDataMatrix<float>::ConcatColumns(const NCDataMatrix& other) {
  if (other.mColumns == 0) return;
  const bool adopt = mRows == 0 && mColumns == 0;
  if (!adopt && other.mRows != mRows) {
    throw InvalidArgument("NCDataMatrix::ConcatColumns: " + std::to_string(other.mRows) +
                          " rows cannot join " + std::to_string(mRows));
  }
  if (other.mColumns > std::numeric_limits<std::size_t>::max() - mColumns) {
    throw InvalidArgument("NCDataMatrix::ConcatColumns: too many columns");
  }
  const std::size_t added = other.mColumns;
  if (adopt) mRows = mStride = other.mRows;
  try {
    EnsureColumns(mColumns + added, true);
  } catch (...) {
    if (adopt) mRows = mStride = 0;
    throw;
  }
  // Taken after the growth: `other` may be this matrix.
  for (std::size_t k = 0; k < added && mRows != 0; ++k) {
    std::memcpy(mData.get() + (mColumns + k) * mStride, other.mData.get() + k * other.mStride,
                mRows * sizeof(float));
  }
  mColumns += added;
}

NCDataVector<float> NCDataMatrix<float>::operator*(const NCDataVector<float>& weights) const {
  if (weights.size() != mColumns) {
    throw InvalidArgument("NCDataMatrix::operator*: " + std::to_string(weights.size()) +
                          " weights for " + std::to_string(mColumns) + " columns");
  }
  NCDataVector<float> result(mRows, kMissing);
  for (std::size_t j = 0; j < mColumns; ++j) {
    if (weights[j] == kMissing) return result;
  }
  std::vector<double> sums(mRows, 0.0);
  std::vector<unsigned char> missing(mRows, 0);
  for (std::size_t j = 0; j < mColumns; ++j) {
    const double weight = weights[j];
    if (weight == 0.0) continue;
    const float* column = mData.get() + j * mStride;
    for (std::size_t i = 0; i < mRows; ++i) {
      const bool isMissing = column[i] == kMissing;
      missing[i] |= static_cast<unsigned char>(isMissing);
      sums[i] += isMissing ? 0.0 : column[i] * weight;
    }
  }
  for (std::size_t i = 0; i < mRows; ++i) {
    if (!missing[i]) result[i] = static_cast<float>(sums[i]);
  }
  return result;
}

bool NCDataMatrix<float>::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool NCDataMatrix<float>::VStreamableWrite(std::ostream& os) const {
  const std::uint64_t shape[2] = {mRows, mColumns};
  if (!WriteEightBytes(shape, 2, os)) return false;
  // Padding puts the cells on a 64-byte boundary of the stream where the stream can tell its
  // position; the kernel copies such runs between file and buffer markedly faster.
  std::uint8_t padding = 0;
  const std::streamoff here = os.tellp();
  if (here >= 0) {
    const std::size_t next = static_cast<std::size_t>(here) + 1;
    padding = static_cast<std::uint8_t>((kCellAlignment - next % kCellAlignment) % kCellAlignment);
  }
  static const char kZeros[kCellAlignment] = {};
  if (!WriteBytes(&padding, 1, os) || !WriteBytes(kZeros, padding, os)) return false;
  ReserveStreamSpace(os, std::uint64_t{mRows} * mColumns * sizeof(float));
  // Without spare rows the used columns are one contiguous run of the buffer.
  if (mStride == mRows) return WriteFourBytes(mData.get(), mRows * mColumns, os);
  for (std::size_t j = 0; j < mColumns; ++j) {
    if (!WriteFourBytes(mData.get() + j * mStride, mRows, os)) return false;
  }
  return static_cast<bool>(os);
}

bool NCDataMatrix<float>::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  bool ok = false;
  if (msVStreamData.Check(is, version) && version == 1) {
    try {
      ok = ReadBody(is);
    } catch (const VxStreamError&) {
      ok = false;
    }
  }
  if (!ok) Clear();
  return ok;
}

bool NCDataMatrix<float>::ReadBody(std::istream& is) {
  std::uint64_t shape[2] = {0, 0};
  ReadEightBytes(shape, 2, is);
  if (shape[0] > kMaxStreamDimension || shape[1] > kMaxStreamDimension) return false;
  const auto rows = static_cast<std::size_t>(shape[0]);
  const auto columns = static_cast<std::size_t>(shape[1]);
  std::uint8_t padding = 0;
  char zeros[kCellAlignment];
  ReadBytes(&padding, 1, is);
  if (padding >= kCellAlignment) return false;
  ReadBytes(zeros, padding, is);
  if (std::any_of(zeros, zeros + padding, [](char c) { return c != 0; })) return false;
  const std::size_t cells = CellCount(rows, columns);
  RequireStreamBytes(is, static_cast<std::uint64_t>(cells) * sizeof(float));

  if (StreamRemaining(is) != std::numeric_limits<std::uint64_t>::max()) {
    // The stream holds every cell: read straight into the buffer, reusing ours when it fits
    // without much waste, and otherwise releasing it before allocating the new one.
    if (mCapacity < cells || mCapacity / 2 > cells) {
      Clear();
      mData = Allocate(cells);
      mCapacity = cells;
    }
    mRows = mColumns = 0;  // until the cells are in
    ReadFourBytes(mData.get(), cells, is);
  } else {
    // The stream cannot tell its size: grow step by step, so that a false shape costs no
    // more memory than the bytes actually present.
    Clear();
    std::size_t have = 0;
    while (have < cells) {
      const std::size_t n = std::min(cells - have, std::max(kStepFloats, have));
      CellBuffer grown = Allocate(have + n);
      if (have != 0) std::memcpy(grown.get(), mData.get(), have * sizeof(float));
      mData = std::move(grown);
      mCapacity = have + n;
      ReadFourBytes(mData.get() + have, n, is);
      have += n;
    }
  }
  mRows = mStride = rows;
  mColumns = columns;
  mReservedColumns = 0;
  return true;
}

void NCDataMatrix<float>::VStreamableReset() const { mGuard.Reset(); }
