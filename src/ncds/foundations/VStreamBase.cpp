#include "ncds/foundations/VStreamBase.h"

#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"

VStreamBase::~VStreamBase() = default;

std::ostream& operator<<(std::ostream& os, const VStreamBase& object) {
  const bool ok = object.VStreamableStartWrite(os);
  object.VStreamableReset();
  if (!ok) os.setstate(std::ios_base::failbit);
  return os;
}

std::istream& operator>>(std::istream& is, VStreamBase& object) {
  bool ok = false;
  try {
    ok = object.VStreamableStartRead(is);
  } catch (const VxStreamError&) {
    ok = false;
  } catch (...) {
    // Any other exception passes on, and the pass still ends: the object can be read again.
    object.VStreamableReset();
    is.setstate(std::ios_base::failbit);
    throw;
  }
  object.VStreamableReset();
  if (!ok) is.setstate(std::ios_base::failbit);
  return is;
}
