#ifndef NCDS_FOUNDATIONS_DETAIL_ONEBASED_H
#define NCDS_FOUNDATIONS_DETAIL_ONEBASED_H

// The public interface counts variables, observations and ID series from 1; containers inside
// count from 0. This is the one conversion, made at the boundary.

#include <cstddef>

namespace ncds::detail {

// Sets `position` to the 0-based position of the 1-based `index` and answers true when
// `index` lies within 1..count.
inline bool ToPosition(int index, std::size_t count, std::size_t& position) {
  if (index < 1 || static_cast<std::size_t>(index) > count) return false;
  position = static_cast<std::size_t>(index) - 1;
  return true;
}

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_ONEBASED_H
