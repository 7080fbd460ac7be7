#include "ncds/derived/AVGLocalCenteringInfo.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
constexpr std::uint16_t kNumberOfTags = 2;
constexpr std::uint16_t kTagCenters = 0;
constexpr std::uint16_t kTagHasPhases = 1;

// The least an entry takes: an empty phase name, the variable ID and the center.
constexpr std::uint64_t kMinEntryBytes = 4 + 4 + 4;

bool WriteCenters(const AVGLocalCenteringInfo::Map& centers, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(centers.size());
  if (count != centers.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const auto& [key, center] : centers) {
    const auto id = static_cast<std::uint32_t>(key.second);
    if (!WriteBinaryString(key.first, os) || !WriteFourBytes(&id, 1, os) ||
        !WriteFourBytes(&center, 1, os)) {
      return false;
    }
  }
  return true;
}

// The entries as written: in strictly ascending key order, as the map keeps them.
AVGLocalCenteringInfo::Map ReadCenters(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * kMinEntryBytes);
  AVGLocalCenteringInfo::Map centers;
  for (std::uint32_t i = 0; i < count; ++i) {
    AVGLocalCenteringInfo::Key key;
    std::uint32_t id = 0;
    float center = 0.0F;
    ReadBinaryString(key.first, is);
    ReadFourBytes(&id, 1, is);
    ReadFourBytes(&center, 1, is);
    key.second = id;
    if (!centers.empty() && !(centers.rbegin()->first < key)) ThrowStreamReadError();
    centers.emplace_hint(centers.end(), std::move(key), center);
  }
  return centers;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData AVGLocalCenteringInfo::msVStreamData(ncds::detail::kVersion, "LCI");

AVGLocalCenteringInfo::AVGLocalCenteringInfo(bool hasPhases) : mHasPhases(hasPhases) {}

AVGLocalCenteringInfo::AVGLocalCenteringInfo(const AVGLocalCenteringInfo& other) = default;

AVGLocalCenteringInfo& AVGLocalCenteringInfo::operator=(const AVGLocalCenteringInfo& other) =
    default;

AVGLocalCenteringInfo::~AVGLocalCenteringInfo() = default;

bool AVGLocalCenteringInfo::operator==(const AVGLocalCenteringInfo& other) const {
  return mHasPhases == other.mHasPhases && mCenters == other.mCenters;
}

void AVGLocalCenteringInfo::AddData(const char* phase, unsigned long varID, float center) {
  mCenters.insert_or_assign(Key(phase ? phase : "", varID), center);
}

float AVGLocalCenteringInfo::GetData(const char* phase, unsigned long varID) const {
  const auto found = mCenters.find(Key(phase ? phase : "", varID));
  return found == mCenters.end() ? NCDataVector<float>::kMissing : found->second;
}

bool AVGLocalCenteringInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool AVGLocalCenteringInfo::VStreamableWrite(std::ostream& os) const {
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kNumberOfTags);
  if (!d::WriteCenters(mCenters, directory.GetOutput(d::kTagCenters))) {
    os.setstate(std::ios_base::badbit);
  }
  WriteToStreamDir(mHasPhases, directory, d::kTagHasPhases);
  return directory.Close();
}

bool AVGLocalCenteringInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  return ReadStreamDirectory(is);
}

bool AVGLocalCenteringInfo::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  Map centers;
  bool hasPhases = false;
  bool ok = true;
  try {
    centers = d::ReadCenters(GetRequiredInput(directory, d::kTagCenters));
    ReadFromStreamDir(hasPhases, directory, d::kTagHasPhases, true);
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  mCenters = std::move(centers);
  mHasPhases = hasPhases;
  return true;
}

void AVGLocalCenteringInfo::VStreamableReset() const { mGuard.Reset(); }
