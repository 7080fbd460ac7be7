#include "ncds/foundations/NCIntegralVector.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <istream>
#include <iterator>
#include <limits>
#include <numeric>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace {

// The fixed stream form of each element type, whatever the platform's widths.
template <class T>
struct Wire;
template <>
struct Wire<int> {
  using Type = std::int32_t;
};
template <>
struct Wire<unsigned long> {
  using Type = std::uint64_t;
};
template <>
struct Wire<bool> {
  using Type = std::uint8_t;
};

// Elements read or converted per step when the stream cannot tell its size, or when the
// element type differs from its stream form.
constexpr std::size_t kStepItems = std::size_t{1} << 16;

bool WriteWidth(const void* address, std::size_t width, std::size_t count, std::ostream& os) {
  switch (width) {
    case 1:
      return WriteBytes(address, count, os);
    case 4:
      return WriteFourBytes(address, count, os);
    default:
      return WriteEightBytes(address, count, os);
  }
}

void ReadWidth(void* address, std::size_t width, std::size_t count, std::istream& is) {
  switch (width) {
    case 1:
      ReadBytes(address, count, is);
      break;
    case 4:
      ReadFourBytes(address, count, is);
      break;
    default:
      ReadEightBytes(address, count, is);
      break;
  }
}

template <class T>
bool WriteElements(const T* data, std::size_t count, std::ostream& os) {
  using W = typename Wire<T>::Type;
  if constexpr (sizeof(T) == sizeof(W)) {
    // bool is stored as 0 or 1, exactly its stream form.
    return WriteWidth(data, sizeof(W), count, os);
  } else {
    W buffer[512];
    for (std::size_t done = 0; done < count;) {
      const std::size_t n = std::min(count - done, std::size(buffer));
      for (std::size_t i = 0; i < n; ++i) buffer[i] = static_cast<W>(data[done + i]);
      if (!WriteWidth(buffer, sizeof(W), n, os)) return false;
      done += n;
    }
    return static_cast<bool>(os);
  }
}

// Reads `count` elements into `data`; false when a stored value has no element form (a flag
// byte other than 0 or 1, an ID beyond the platform's unsigned long).
template <class T>
bool ReadElements(T* data, std::size_t count, std::istream& is) {
  using W = typename Wire<T>::Type;
  if constexpr (sizeof(T) == sizeof(W) && !std::is_same_v<T, bool>) {
    ReadWidth(data, sizeof(W), count, is);
    return true;
  } else {
    W buffer[512];
    for (std::size_t done = 0; done < count;) {
      const std::size_t n = std::min(count - done, std::size(buffer));
      ReadWidth(buffer, sizeof(W), n, is);
      for (std::size_t i = 0; i < n; ++i) {
        if constexpr (std::is_same_v<T, bool>) {
          if (buffer[i] > 1) return false;
        } else if (buffer[i] > static_cast<W>(std::numeric_limits<T>::max())) {
          return false;
        }
        data[done + i] = static_cast<T>(buffer[i]);
      }
      done += n;
    }
    return true;
  }
}

}  // namespace

template <class T, T missing>
const VStreamableData NCIntegralVector<T, missing>::msVStreamData(1, "NCIntegralVector");

template <class T, T missing>
NCIntegralVector<T, missing>::NCIntegralVector(std::size_t size, T value) {
  SetNumValues(size, value);
}

template <class T, T missing>
NCIntegralVector<T, missing>::NCIntegralVector(const NCIntegralVector& other) : VStreamBase(other) {
  if (other.mSize == 0) return;
  mData.reset(new T[other.mSize]);
  std::copy(other.begin(), other.end(), mData.get());
  mSize = mCapacity = other.mSize;
}

template <class T, T missing>
NCIntegralVector<T, missing>::NCIntegralVector(NCIntegralVector&& other) noexcept
    : VStreamBase(other),
      mData(std::move(other.mData)),
      mSize(std::exchange(other.mSize, 0)),
      mCapacity(std::exchange(other.mCapacity, 0)) {}

template <class T, T missing>
NCIntegralVector<T, missing>& NCIntegralVector<T, missing>::operator=(
    const NCIntegralVector& other) {
  if (this != &other) {
    NCIntegralVector copy(other);
    *this = std::move(copy);
  }
  return *this;
}

template <class T, T missing>
NCIntegralVector<T, missing>& NCIntegralVector<T, missing>::operator=(
    NCIntegralVector&& other) noexcept {
  if (this != &other) {
    mData = std::move(other.mData);
    mSize = std::exchange(other.mSize, 0);
    mCapacity = std::exchange(other.mCapacity, 0);
  }
  return *this;
}

template <class T, T missing>
NCIntegralVector<T, missing>::~NCIntegralVector() = default;

template <class T, T missing>
bool NCIntegralVector<T, missing>::operator==(const NCIntegralVector& other) const {
  return mSize == other.mSize && std::equal(begin(), end(), other.begin());
}

template <class T, T missing>
void NCIntegralVector<T, missing>::Grow(std::size_t count, bool geometric) {
  if (count <= mCapacity) return;
  if (count > std::numeric_limits<std::size_t>::max() / sizeof(T) / 2) {
    throw InvalidArgument("NCIntegralVector: too many elements");
  }
  const std::size_t capacity = geometric ? std::max(count, mCapacity + mCapacity / 2) : count;
  std::unique_ptr<T[]> grown(new T[capacity]);
  std::copy(begin(), end(), grown.get());
  mData = std::move(grown);
  mCapacity = capacity;
}

template <class T, T missing>
void NCIntegralVector<T, missing>::reserve(std::size_t count) {
  Grow(count, false);
}

template <class T, T missing>
void NCIntegralVector<T, missing>::push_back(T value) {
  Grow(mSize + 1, true);
  mData[mSize++] = value;
}

template <class T, T missing>
void NCIntegralVector<T, missing>::CheckPosition(std::size_t position,
                                                 const char* operation) const {
  if (position > mSize) {
    throw InvalidArgument(std::string("NCIntegralVector::") + operation + ": position " +
                          std::to_string(position) + " is beyond the end (size " +
                          std::to_string(mSize) + ")");
  }
}

template <class T, T missing>
T* NCIntegralVector<T, missing>::OpenGap(std::size_t position, std::size_t count) {
  if (count > std::numeric_limits<std::size_t>::max() - mSize) {
    throw InvalidArgument("NCIntegralVector: too many elements");
  }
  Grow(mSize + count, true);
  T* gap = mData.get() + position;
  std::copy_backward(gap, end(), end() + count);
  mSize += count;
  return gap;
}

template <class T, T missing>
void NCIntegralVector<T, missing>::InsertValues(std::size_t position, std::size_t count, T value) {
  CheckPosition(position, "InsertValues");
  if (count == 0) return;
  T* gap = OpenGap(position, count);
  std::fill(gap, gap + count, value);
}

template <class T, T missing>
void NCIntegralVector<T, missing>::InsertValues(std::size_t position,
                                                const NCIntegralVector& other) {
  CheckPosition(position, "InsertValues");
  if (other.mSize == 0) return;
  if (&other == this) {
    const NCIntegralVector copy(other);
    InsertValues(position, copy);
    return;
  }
  T* gap = OpenGap(position, other.mSize);
  std::copy(other.begin(), other.end(), gap);
}

template <class T, T missing>
void NCIntegralVector<T, missing>::RemoveValues(std::size_t position, std::size_t count) {
  if (position > mSize || count > mSize - position) {
    throw InvalidArgument("NCIntegralVector::RemoveValues: range " + std::to_string(position) +
                          "+" + std::to_string(count) + " is beyond the end (size " +
                          std::to_string(mSize) + ")");
  }
  std::copy(begin() + position + count, end(), begin() + position);
  mSize -= count;
}

template <class T, T missing>
void NCIntegralVector<T, missing>::SetAllValues(T value) {
  std::fill(begin(), end(), value);
}

template <class T, T missing>
void NCIntegralVector<T, missing>::SetNumValues(std::size_t count, T value) {
  Grow(count, false);
  mSize = count;
  std::fill(begin(), end(), value);
}

template <class T, T missing>
void NCIntegralVector<T, missing>::Clear() {
  mData.reset();
  mSize = mCapacity = 0;
}

template <class T, T missing>
std::ptrdiff_t NCIntegralVector<T, missing>::Find(T value, SortType sorted, std::size_t from,
                                                  std::size_t to) const {
  to = std::min(to, mSize);
  if (from >= to) return -1;
  const T* first = begin() + from;
  const T* last = begin() + to;
  const T* found = last;
  switch (sorted) {
    case SortType::NotSorted:
      found = std::find(first, last, value);
      break;
    case SortType::Ascending:
      found = std::lower_bound(first, last, value);
      break;
    case SortType::Descending:
      found = std::lower_bound(first, last, value, std::greater<T>());
      break;
  }
  if (found == last || *found != value) return -1;
  return found - begin();
}

template <class T, T missing>
std::size_t NCIntegralVector<T, missing>::LowerBound(T value, bool ascending) const {
  const T* found = ascending ? std::lower_bound(begin(), end(), value)
                             : std::lower_bound(begin(), end(), value, std::greater<T>());
  return static_cast<std::size_t>(found - begin());
}

template <class T, T missing>
bool NCIntegralVector<T, missing>::IsSorted(bool ascending) const {
  return ascending ? std::is_sorted(begin(), end())
                   : std::is_sorted(begin(), end(), std::greater<T>());
}

template <class T, T missing>
void NCIntegralVector<T, missing>::Sort(bool ascending, bool unique) {
  if (ascending) {
    std::sort(begin(), end());
  } else {
    std::sort(begin(), end(), std::greater<T>());
  }
  if (unique) mSize = static_cast<std::size_t>(std::unique(begin(), end()) - begin());
}

template <class T, T missing>
void NCIntegralVector<T, missing>::SortWithOriginalIndex(bool ascending,
                                                         std::vector<int>& originalPositions) {
  if (mSize > static_cast<std::size_t>(INT_MAX)) {
    throw InvalidArgument("NCIntegralVector::SortWithOriginalIndex: too many elements");
  }
  std::vector<int> order(mSize);
  std::iota(order.begin(), order.end(), 0);
  const T* values = mData.get();
  if (ascending) {
    std::stable_sort(order.begin(), order.end(),
                     [values](int a, int b) { return values[a] < values[b]; });
  } else {
    std::stable_sort(order.begin(), order.end(),
                     [values](int a, int b) { return values[a] > values[b]; });
  }
  std::vector<T> sorted(mSize);
  for (std::size_t i = 0; i < mSize; ++i) sorted[i] = values[order[i]];
  std::copy(sorted.begin(), sorted.end(), mData.get());
  originalPositions = std::move(order);
}

template <class T, T missing>
void NCIntegralVector<T, missing>::Reduce(const NCIntegralVector<int, -99>& positions) {
  for (const int position : positions) {
    if (position < 0 || static_cast<std::size_t>(position) >= mSize) {
      throw InvalidArgument("NCIntegralVector::Reduce: position " + std::to_string(position) +
                            " is out of range (size " + std::to_string(mSize) + ")");
    }
  }
  NCIntegralVector kept;
  kept.Grow(positions.size(), false);
  for (const int position : positions) kept.mData[kept.mSize++] = mData[position];
  mData = std::move(kept.mData);
  mSize = kept.mSize;
  mCapacity = kept.mCapacity;
}

template <class T, T missing>
bool NCIntegralVector<T, missing>::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

template <class T, T missing>
bool NCIntegralVector<T, missing>::VStreamableWrite(std::ostream& os) const {
  const std::uint8_t width = sizeof(typename Wire<T>::Type);
  const std::uint64_t count = mSize;
  return WriteBytes(&width, 1, os) && WriteEightBytes(&count, 1, os) &&
         WriteElements(mData.get(), mSize, os);
}

template <class T, T missing>
bool NCIntegralVector<T, missing>::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != 1) return false;
  try {
    return ReadBody(is);
  } catch (const VxStreamError&) {
    return false;
  }
}

template <class T, T missing>
bool NCIntegralVector<T, missing>::ReadBody(std::istream& is) {
  constexpr std::size_t width = sizeof(typename Wire<T>::Type);
  std::uint8_t storedWidth = 0;
  ReadBytes(&storedWidth, 1, is);
  if (storedWidth != width) return false;  // a vector of another element type
  std::uint64_t count = 0;
  ReadEightBytes(&count, 1, is);
  const std::uint64_t remaining = StreamRemaining(is);
  const bool sizeKnown = remaining != std::numeric_limits<std::uint64_t>::max();
  if (count > remaining / width ||
      count > std::numeric_limits<std::size_t>::max() / sizeof(T) / 2) {
    return false;
  }
  // Where the stream cannot tell its size, grow step by step so that a false count costs
  // no more memory than the bytes actually present.
  NCIntegralVector read;
  while (read.mSize < count) {
    const std::size_t left = static_cast<std::size_t>(count) - read.mSize;
    const std::size_t n = sizeKnown ? left : std::min(left, std::max(kStepItems, read.mSize));
    read.Grow(read.mSize + n, false);
    if (!ReadElements(read.mData.get() + read.mSize, n, is)) return false;
    read.mSize += n;
  }
  *this = std::move(read);
  return true;
}

template <class T, T missing>
void NCIntegralVector<T, missing>::VStreamableReset() const {
  mGuard.Reset();
}

template class NCIntegralVector<int, -99>;
template class NCIntegralVector<unsigned long, 0>;
template class NCIntegralVector<bool, 0>;
