#ifndef NCDS_FOUNDATIONS_NCDATAVECTOR_H
#define NCDS_FOUNDATIONS_NCDATAVECTOR_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <vector>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

template <class T>
class NCDataVector;

// A resizable vector of single-precision values in which -99 marks a missing value. It owns
// its values in one contiguous block; pointers into it stay valid until the size or capacity
// changes. Positions are 0-based. Mutators refuse positions beyond the end with
// `InvalidArgument` and leave the vector unchanged; new elements hold the missing value.
// The statistics skip missing cells and NaN.
//
// Persistent: magic "NCDataVector", version 1; the body is the count (eight bytes) and the
// values (four bytes each). A failed read leaves the vector unchanged.
template <>
class NCDS_EXPORT NCDataVector<float> : public virtual VStreamBase {
 public:
  using value_type = float;
  using iterator = float*;
  using const_iterator = const float*;
  static constexpr float kMissing = -99.0F;

  NCDataVector() = default;
  explicit NCDataVector(std::size_t size, float value = kMissing);
  NCDataVector(const NCDataVector& other);
  NCDataVector(NCDataVector&& other) noexcept;
  NCDataVector& operator=(const NCDataVector& other);
  NCDataVector& operator=(NCDataVector&& other) noexcept;
  ~NCDataVector() override;

  // Same size and equal values; NaN equals NaN here, so a vector always equals its copy.
  bool operator==(const NCDataVector& other) const;
  bool operator!=(const NCDataVector& other) const { return !(*this == other); }

  std::size_t size() const { return mValues.size(); }
  bool empty() const { return mValues.empty(); }
  // Shortens, or lengthens with missing values.
  void SetSize(std::size_t size);
  void Reserve(std::size_t count);
  void push_back(float value) { mValues.push_back(value); }
  // Inserts `count` copies of `value` before `position`.
  void InsertValues(std::size_t position, std::size_t count, float value);
  void RemoveValues(std::size_t position, std::size_t count);
  void SetAllValues(float value);
  // Replaces the content with `count` values read from `values`.
  void CopyVector(const float* values, std::size_t count);
  void Clear();

  iterator begin() { return mValues.data(); }
  iterator end() { return mValues.data() + mValues.size(); }
  const_iterator begin() const { return mValues.data(); }
  const_iterator end() const { return mValues.data() + mValues.size(); }
  float* data() { return mValues.data(); }
  const float* data() const { return mValues.data(); }

  // The value at `index`, or `fallback` when `index` is out of range.
  float operator()(std::size_t index, float fallback) const {
    return index < mValues.size() ? mValues[index] : fallback;
  }
  // Unchecked access; `index` must be below size().
  float& operator[](std::size_t index) { return mValues[index]; }
  const float& operator[](std::size_t index) const { return mValues[index]; }

  // Mean and median of the values that are not missing; -99 when there are none. The median
  // of an even count is the mean of the two middle values.
  double GetMean() const;
  double GetMedian() const;
  // Smallest and largest value that is not missing; false (both -99) when there are none.
  bool GetMinMax(float& min, float& max) const;
  // Adds `value` to every element that is not missing.
  NCDataVector& operator+=(float value);
  // Keeps the elements at the listed positions, in the listed order (repeats allowed).
  // Throws `InvalidArgument` for a position out of range, leaving the vector unchanged.
  void Reduce(const NCIntegralVector<int, -99>& positions);
  // Sorts stably, missing values (and NaN) last in either direction, and returns the
  // permutation: element i of the result is the former position of the value now at i.
  NCIntegralVector<int, -99> Sort(bool ascending = true);

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

  std::vector<float> mValues;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_FOUNDATIONS_NCDATAVECTOR_H
