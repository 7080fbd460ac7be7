#include "ncds/foundations/ReadFromStreamDir.h"

namespace ncds::detail {

void ThrowReadFromStreamDirFailed() {
  throw VxStreamError(ExceptionMessage::translate("ReadFromStreamDir failed."));
}

}  // namespace ncds::detail
