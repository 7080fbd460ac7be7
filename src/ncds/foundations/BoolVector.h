#ifndef NCDS_FOUNDATIONS_BOOLVECTOR_H
#define NCDS_FOUNDATIONS_BOOLVECTOR_H

#include <cstddef>
#include <vector>

#include "ncds/ncds_export.h"

// A fixed-size vector of flags, built with its size and the initial value of every flag; used
// for marking rows or columns during one operation. It owns its flags; not persistent.
// Positions are 0-based: reading out of range answers false, setting out of range throws
// `InvalidArgument`.
class NCDS_EXPORT BoolVector {
 public:
  BoolVector(std::size_t size, bool initial);

  std::size_t size() const { return mFlags.size(); }
  bool operator[](std::size_t index) const { return index < mFlags.size() && mFlags[index] != 0; }
  void set(std::size_t index, bool value);
  // Number of flags that are set.
  std::size_t count() const;

 private:
  std::vector<unsigned char> mFlags;  // one byte per flag: cheaper to test than packed bits
};

#endif  // NCDS_FOUNDATIONS_BOOLVECTOR_H
