#ifndef NCDS_PROJECT_DETAIL_LIGHTOBJECTSTREAM_H
#define NCDS_PROJECT_DETAIL_LIGHTOBJECTSTREAM_H

// A light object (one that writes and reads itself with `WriteObject` and `ReadObject`) seen
// as a persistent object, so that the project file stores it like every other stream. A
// const object can only be written.

#include <iosfwd>
#include <type_traits>

#include "ncds/foundations/VStreamBase.h"

namespace ncds::detail {

template <class T>
class LightObjectStream final : public VStreamBase {
 public:
  explicit LightObjectStream(T& object) : mObject(object) {}

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override { return mObject.WriteObject(os); }
  bool VStreamableStartRead(std::istream& is) override {
    if constexpr (std::is_const_v<T>) {
      return false;
    } else {
      return mObject.ReadObject(is);
    }
  }
  void VStreamableReset() const override {}

 private:
  T& mObject;
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_LIGHTOBJECTSTREAM_H
