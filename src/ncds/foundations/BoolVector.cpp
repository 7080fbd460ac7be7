#include "ncds/foundations/BoolVector.h"

#include <algorithm>
#include <string>

#include "ncds/foundations/Exception.h"

BoolVector::BoolVector(std::size_t size, bool initial) : mFlags(size, initial ? 1 : 0) {}

void BoolVector::set(std::size_t index, bool value) {
  if (index >= mFlags.size()) {
    throw InvalidArgument("BoolVector::set: index " + std::to_string(index) +
                          " is out of range (size " + std::to_string(mFlags.size()) + ")");
  }
  mFlags[index] = value ? 1 : 0;
}

std::size_t BoolVector::count() const {
  return static_cast<std::size_t>(std::count(mFlags.begin(), mFlags.end(), 1));
}
