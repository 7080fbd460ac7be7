#include "ncds/batch/ColumnConcatenateInfo.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;

}  // namespace
}  // namespace ncds::detail

const VStreamableData ColumnConcatenateInfo::msVStreamData(ncds::detail::kVersion, "CCI");

ColumnConcatenateInfo::ColumnConcatenateInfo() = default;

ColumnConcatenateInfo::ColumnConcatenateInfo(const ColumnConcatenateInfo& other) = default;

ColumnConcatenateInfo& ColumnConcatenateInfo::operator=(const ColumnConcatenateInfo& other) =
    default;

ColumnConcatenateInfo::~ColumnConcatenateInfo() = default;

bool ColumnConcatenateInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && (os << mColumns) && WriteBinaryString(mSeparator, os);
}

bool ColumnConcatenateInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version > ncds::detail::kVersion) return false;
  NCIntegralVector<int, -99> columns;
  std::string separator;
  try {
    if (!(is >> columns)) return false;
    ReadBinaryString(separator, is);
  } catch (const VxStreamError&) {
    return false;
  }
  mColumns = std::move(columns);
  mSeparator = std::move(separator);
  return static_cast<bool>(is);
}

void ColumnConcatenateInfo::VStreamableReset() const { mGuard.Reset(); }
