#include "ncds/metadata/ObservationInfo.h"

#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"

namespace ncds::detail {
namespace {

const FactoryRegistration<ObservationInfo> kRegistration("ObservationInfo");

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kTagDefaultClass = 0;
constexpr std::uint16_t kTagBatch = 1;

}  // namespace
}  // namespace ncds::detail

const VStreamableData ObservationInfo::msVStreamData(ncds::detail::kVersion, "OI");

ObservationInfo::ObservationInfo() = default;

ObservationInfo::ObservationInfo(const std::string& id, unsigned long uniqueID)
    : VarObsInfo(id, uniqueID) {}

ObservationInfo::ObservationInfo(const std::vector<std::string>& ids, unsigned long uniqueID)
    : VarObsInfo(ids, uniqueID) {}

ObservationInfo::ObservationInfo(const ObservationInfo& other) = default;

ObservationInfo& ObservationInfo::operator=(const ObservationInfo& other) = default;

ObservationInfo::~ObservationInfo() = default;

const ObservationInfo* ObservationInfo::AsObservationInfo() const { return this; }

ObservationInfo* ObservationInfo::Clone() const { return new ObservationInfo(*this); }

bool ObservationInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VarObsInfo::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool ObservationInfo::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, 2);
  WriteToStreamDir(mDefaultClass, directory, ncds::detail::kTagDefaultClass);
  WriteToStreamDir(static_cast<std::uint32_t>(mBatch), directory, ncds::detail::kTagBatch);
  return directory.Close();
}

bool ObservationInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version > ncds::detail::kVersion) return false;
  return VarObsInfo::VStreamableStartRead(is) && ReadStreamDirectory(is);
}

bool ObservationInfo::ReadStreamDirectory(std::istream& is) {
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::int32_t defaultClass = 0;
    std::uint32_t batch = 0;
    ReadFromStreamDir(defaultClass, directory, ncds::detail::kTagDefaultClass, true);
    ReadFromStreamDir(batch, directory, ncds::detail::kTagBatch, true);
    mDefaultClass = defaultClass;
    mBatch = batch;
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void ObservationInfo::VStreamableReset() const {
  mGuard.Reset();
  VarObsInfo::VStreamableReset();
}
