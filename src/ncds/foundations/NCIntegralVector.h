#ifndef NCDS_FOUNDATIONS_NCINTEGRALVECTOR_H
#define NCDS_FOUNDATIONS_NCINTEGRALVECTOR_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

// How a caller tells `NCIntegralVector::Find` the order of the values it searches.
enum class SortType { NotSorted, Ascending, Descending };

// A resizable vector of integers whose second template argument is the value that stands for
// "none" (-99 in index lists, 0 in ID lists, false for flags). It owns its elements in one
// contiguous block; iterators and references stay valid until the size or capacity changes.
// Positions are 0-based. Mutators refuse positions beyond the end with `InvalidArgument` and
// leave the vector unchanged; `operator[]` answers the missing value out of range.
//
// Persistent: magic "NCIntegralVector", version 1; the body is the element width (one byte),
// the count (eight bytes) and the elements, four bytes for int, eight for unsigned long and
// one (0 or 1) for bool on every platform. A failed read leaves the vector unchanged.
//
// Available for <int, -99>, <unsigned long, 0> and <bool, 0>.
template <class T, T missing>
class NCDS_EXPORT NCIntegralVector : public virtual VStreamBase {
 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;
  static constexpr T kMissing = missing;

  NCIntegralVector() = default;
  // `size` elements, each `value`.
  explicit NCIntegralVector(std::size_t size, T value = missing);
  NCIntegralVector(const NCIntegralVector& other);
  NCIntegralVector(NCIntegralVector&& other) noexcept;
  NCIntegralVector& operator=(const NCIntegralVector& other);
  NCIntegralVector& operator=(NCIntegralVector&& other) noexcept;
  ~NCIntegralVector() override;

  // Same size and the same values in the same order.
  bool operator==(const NCIntegralVector& other) const;
  bool operator!=(const NCIntegralVector& other) const { return !(*this == other); }

  std::size_t size() const { return mSize; }
  bool empty() const { return mSize == 0; }
  std::size_t capacity() const { return mCapacity; }
  void reserve(std::size_t count);
  void push_back(T value);

  // Inserts `count` copies of `value` (or the elements of `other`) before `position`.
  void InsertValues(std::size_t position, std::size_t count, T value);
  void InsertValues(std::size_t position, const NCIntegralVector& other);
  void RemoveValues(std::size_t position, std::size_t count);
  // Sets every element to `value`, keeping the size.
  void SetAllValues(T value);
  // Makes the vector `count` elements long, each `value`.
  void SetNumValues(std::size_t count, T value);
  void Clear();
  void clear() { Clear(); }

  iterator begin() { return mData.get(); }
  iterator end() { return mData.get() + mSize; }
  const_iterator begin() const { return mData.get(); }
  const_iterator end() const { return mData.get() + mSize; }
  T* data() { return mData.get(); }
  const T* data() const { return mData.get(); }

  // The element at `index`, or the missing value when `index` is out of range.
  T operator[](std::size_t index) const { return index < mSize ? mData[index] : missing; }
  // The element at `index` for writing; `index` must be below size().
  T& operator()(std::size_t index) { return mData[index]; }

  // Position of the first element equal to `value` within [from, to) (`to` is clamped to the
  // size), or -1. With `Ascending` or `Descending` the caller promises that the range is
  // sorted that way and the search is binary.
  std::ptrdiff_t Find(T value, SortType sorted = SortType::NotSorted, std::size_t from = 0,
                      std::size_t to = static_cast<std::size_t>(-1)) const;
  // First position whose element does not come before `value` in the given order (the
  // vector must be sorted that way); size() when every element does.
  std::size_t LowerBound(T value, bool ascending = true) const;
  // True when no element is followed by one that comes before it in the given order.
  bool IsSorted(bool ascending = true) const;
  // Sorts by value (the missing value sorts like any other); `unique` drops repeats.
  void Sort(bool ascending = true, bool unique = false);
  // Sorts stably and sets `originalPositions[i]` to the former position of element i.
  void SortWithOriginalIndex(bool ascending, std::vector<int>& originalPositions);
  // Keeps the elements at the listed positions, in the listed order (repeats allowed).
  // Throws `InvalidArgument` for a position out of range, leaving the vector unchanged.
  void Reduce(const NCIntegralVector<int, -99>& positions);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadBody(std::istream& is);
  void CheckPosition(std::size_t position, const char* operation) const;
  // Makes room for `count` elements, growing geometrically when `geometric`.
  void Grow(std::size_t count, bool geometric);
  // Opens a gap of `count` elements at `position`; the gap is uninitialised.
  T* OpenGap(std::size_t position, std::size_t count);

  std::unique_ptr<T[]> mData;
  std::size_t mSize = 0;
  std::size_t mCapacity = 0;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

extern template class NCDS_EXPORT NCIntegralVector<int, -99>;
extern template class NCDS_EXPORT NCIntegralVector<unsigned long, 0>;
extern template class NCDS_EXPORT NCIntegralVector<bool, 0>;

#endif  // NCDS_FOUNDATIONS_NCINTEGRALVECTOR_H
