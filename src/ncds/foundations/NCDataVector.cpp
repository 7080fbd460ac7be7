#include "ncds/foundations/NCDataVector.h"

#include <algorithm>
#include <climits>
#include <istream>
#include <iterator>
#include <limits>
#include <numeric>
#include <ostream>
#include <string>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace {

// Values read per step when the stream cannot tell its size.
constexpr std::size_t kStepValues = std::size_t{1} << 16;

// Cells the statistics and the sort leave aside.
inline bool IsVoid(float value) { return value == NCDataVector<float>::kMissing || value != value; }

void CheckPosition(std::size_t position, std::size_t size, const char* operation) {
  if (position > size) {
    throw InvalidArgument(std::string("NCDataVector::") + operation + ": position " +
                          std::to_string(position) + " is beyond the end (size " +
                          std::to_string(size) + ")");
  }
}

}  // namespace

const VStreamableData NCDataVector<float>::msVStreamData(1, "NCDataVector");

NCDataVector<float>::NCDataVector(std::size_t size, float value) : mValues(size, value) {}

NCDataVector<float>::NCDataVector(const NCDataVector& other)
    : VStreamBase(other), mValues(other.mValues) {}

NCDataVector<float>::NCDataVector(NCDataVector&& other) noexcept
    : VStreamBase(other), mValues(std::move(other.mValues)) {}

NCDataVector<float>& NCDataVector<float>::operator=(const NCDataVector& other) {
  mValues = other.mValues;
  return *this;
}

NCDataVector<float>& NCDataVector<float>::operator=(NCDataVector&& other) noexcept {
  mValues = std::move(other.mValues);
  return *this;
}

NCDataVector<float>::~NCDataVector() = default;

bool NCDataVector<float>::operator==(const NCDataVector& other) const {
  return std::equal(mValues.begin(), mValues.end(), other.mValues.begin(), other.mValues.end(),
                    [](float a, float b) { return a == b || (a != a && b != b); });
}

void NCDataVector<float>::SetSize(std::size_t size) { mValues.resize(size, kMissing); }

void NCDataVector<float>::Reserve(std::size_t count) { mValues.reserve(count); }

void NCDataVector<float>::InsertValues(std::size_t position, std::size_t count, float value) {
  CheckPosition(position, mValues.size(), "InsertValues");
  mValues.insert(mValues.begin() + static_cast<std::ptrdiff_t>(position), count, value);
}

void NCDataVector<float>::RemoveValues(std::size_t position, std::size_t count) {
  if (position > mValues.size() || count > mValues.size() - position) {
    throw InvalidArgument("NCDataVector::RemoveValues: range " + std::to_string(position) + "+" +
                          std::to_string(count) + " is beyond the end (size " +
                          std::to_string(mValues.size()) + ")");
  }
  const auto first = mValues.begin() + static_cast<std::ptrdiff_t>(position);
  mValues.erase(first, first + static_cast<std::ptrdiff_t>(count));
}

void NCDataVector<float>::SetAllValues(float value) {
  std::fill(mValues.begin(), mValues.end(), value);
}

void NCDataVector<float>::CopyVector(const float* values, std::size_t count) {
  if (count > 0 && !values) throw InvalidArgument("NCDataVector::CopyVector: no values");
  mValues.assign(values, values + count);
}

void NCDataVector<float>::Clear() {
  mValues.clear();
  mValues.shrink_to_fit();
}

double NCDataVector<float>::GetMean() const {
  double sum = 0.0;
  std::size_t count = 0;
  for (const float value : mValues) {
    if (IsVoid(value)) continue;
    sum += value;
    ++count;
  }
  return count == 0 ? kMissing : sum / static_cast<double>(count);
}

double NCDataVector<float>::GetMedian() const {
  std::vector<float> present;
  present.reserve(mValues.size());
  std::copy_if(mValues.begin(), mValues.end(), std::back_inserter(present),
               [](float value) { return !IsVoid(value); });
  if (present.empty()) return kMissing;
  const std::size_t half = present.size() / 2;
  std::nth_element(present.begin(), present.begin() + static_cast<std::ptrdiff_t>(half),
                   present.end());
  const double upper = present[half];
  if (present.size() % 2 == 1) return upper;
  // The lower middle value is the largest of the lower half.
  const double lower =
      *std::max_element(present.begin(), present.begin() + static_cast<std::ptrdiff_t>(half));
  return (lower + upper) / 2.0;
}

bool NCDataVector<float>::GetMinMax(float& min, float& max) const {
  min = max = kMissing;
  bool found = false;
  for (const float value : mValues) {
    if (IsVoid(value)) continue;
    if (!found) {
      min = max = value;
      found = true;
    } else {
      min = std::min(min, value);
      max = std::max(max, value);
    }
  }
  return found;
}

NCDataVector<float>& NCDataVector<float>::operator+=(float value) {
  for (float& cell : mValues) {
    if (cell != kMissing) cell += value;
  }
  return *this;
}

void NCDataVector<float>::Reduce(const NCIntegralVector<int, -99>& positions) {
  for (const int position : positions) {
    if (position < 0 || static_cast<std::size_t>(position) >= mValues.size()) {
      throw InvalidArgument("NCDataVector::Reduce: position " + std::to_string(position) +
                            " is out of range (size " + std::to_string(mValues.size()) + ")");
    }
  }
  std::vector<float> kept;
  kept.reserve(positions.size());
  for (const int position : positions) kept.push_back(mValues[position]);
  mValues = std::move(kept);
}

NCIntegralVector<int, -99> NCDataVector<float>::Sort(bool ascending) {
  const std::size_t n = mValues.size();
  if (n > static_cast<std::size_t>(INT_MAX)) {
    throw InvalidArgument("NCDataVector::Sort: too many values");
  }
  NCIntegralVector<int, -99> order(n);
  std::iota(order.begin(), order.end(), 0);
  const float* values = mValues.data();
  int* const present_end = std::stable_partition(order.begin(), order.end(),
                                                 [values](int i) { return !IsVoid(values[i]); });
  if (ascending) {
    std::stable_sort(order.begin(), present_end,
                     [values](int a, int b) { return values[a] < values[b]; });
  } else {
    std::stable_sort(order.begin(), present_end,
                     [values](int a, int b) { return values[a] > values[b]; });
  }
  std::vector<float> sorted(n);
  for (std::size_t i = 0; i < n; ++i) sorted[i] = values[order[i]];
  mValues = std::move(sorted);
  return order;
}

bool NCDataVector<float>::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool NCDataVector<float>::VStreamableWrite(std::ostream& os) const {
  const std::uint64_t count = mValues.size();
  return WriteEightBytes(&count, 1, os) && WriteFourBytes(mValues.data(), mValues.size(), os);
}

bool NCDataVector<float>::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != 1) return false;
  try {
    return ReadBody(is);
  } catch (const VxStreamError&) {
    return false;
  }
}

bool NCDataVector<float>::ReadBody(std::istream& is) {
  std::uint64_t count = 0;
  ReadEightBytes(&count, 1, is);
  const std::uint64_t remaining = StreamRemaining(is);
  const bool sizeKnown = remaining != std::numeric_limits<std::uint64_t>::max();
  if (count > remaining / sizeof(float) || count > std::vector<float>().max_size()) return false;
  // Where the stream cannot tell its size, grow step by step so that a false count costs
  // no more memory than the bytes actually present.
  std::vector<float> values;
  while (values.size() < count) {
    const std::size_t done = values.size();
    const std::size_t left = static_cast<std::size_t>(count) - done;
    const std::size_t n = sizeKnown ? left : std::min(left, std::max(kStepValues, done));
    values.resize(done + n);
    ReadFourBytes(values.data() + done, n, is);
  }
  mValues = std::move(values);
  return true;
}

void NCDataVector<float>::VStreamableReset() const { mGuard.Reset(); }
