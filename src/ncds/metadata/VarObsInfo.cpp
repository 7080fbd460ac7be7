#include "ncds/metadata/VarObsInfo.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <istream>
#include <ostream>
#include <typeinfo>
#include <utility>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxString.h"
#include "ncds/foundations/detail/ByteReader.h"
#include "ncds/foundations/detail/ByteWriter.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/metadata/detail/UserIDAt.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 3;
constexpr std::uint16_t kTagIDs = 0;
constexpr std::uint16_t kTagUniqueID = 1;

}  // namespace
}  // namespace ncds::detail

using ncds::detail::ToPosition;

const VStreamableData VarObsInfo::msVStreamData(ncds::detail::kVersion, "VOI");

VarObsInfo::VarObsInfo() = default;

VarObsInfo::VarObsInfo(const std::string& id, unsigned long uniqueID)
    : mUniqueID(uniqueID), mIDs{id} {}

VarObsInfo::VarObsInfo(std::vector<std::string> ids, unsigned long uniqueID)
    : mUniqueID(uniqueID), mIDs(std::move(ids)) {}

VarObsInfo::VarObsInfo(const VarObsInfo& other) = default;

VarObsInfo& VarObsInfo::operator=(const VarObsInfo& other) = default;

VarObsInfo::~VarObsInfo() = default;

const VariableInfo* VarObsInfo::AsVariableInfo() const { return nullptr; }

const ObservationInfo* VarObsInfo::AsObservationInfo() const { return nullptr; }

bool VarObsInfo::operator==(const VarObsInfo& other) const {
  if (typeid(*this) != typeid(other)) return false;
  if (mIDs.empty() || other.mIDs.empty()) return mIDs.empty() && other.mIDs.empty();
  return VxStdString::CompareNoCase(mIDs.front(), other.mIDs.front()) == 0;
}

const std::string& VarObsInfo::GetUserID(int i) const { return ncds::detail::UserIDAt(*this, i); }

float VarObsInfo::GetUserFloatID(int i) const {
  std::size_t position = 0;
  float value = -99.0F;
  if (ToPosition(i, mIDs.size(), position) && VxString::ToFloat(mIDs[position], value)) {
    return value;
  }
  return -99.0F;
}

int VarObsInfo::AddID(const std::string& id) {
  mIDs.push_back(id);
  return GetNumIDs();
}

void VarObsInfo::RemoveID(int i) {
  std::size_t position = 0;
  if (ToPosition(i, mIDs.size(), position)) {
    mIDs.erase(mIDs.begin() + static_cast<std::ptrdiff_t>(position));
  }
}

void VarObsInfo::SetUserID(const std::string& id, int i, VarObs* owner) {
  if (i < 1) return;
  if (owner) {
    owner->ClearInfosByUserID();
    float number = 0.0F;
    if (VxString::ToFloat(id, number)) owner->SetIDIsNumeral(i, true);
  }
  const auto position = static_cast<std::size_t>(i) - 1;
  if (position < mIDs.size()) {
    if (&mIDs[position] != &id) mIDs[position] = id;
    return;
  }
  // `id` may be one of this record's own IDs, which growing the list would move.
  std::string value = id;
  mIDs.resize(position + 1);
  mIDs[position] = std::move(value);
}

void VarObsInfo::InsertID(int i, const char* id) {
  if (i < 1) return;
  const auto position = static_cast<std::size_t>(i) - 1;
  if (position > mIDs.size()) mIDs.resize(position);
  mIDs.insert(mIDs.begin() + static_cast<std::ptrdiff_t>(position), id ? id : "");
}

void VarObsInfo::MoveID(int from, int to) {
  std::size_t source = 0;
  std::size_t target = 0;
  if (!ToPosition(from, mIDs.size(), source) || !ToPosition(to, mIDs.size(), target) ||
      source == target) {
    return;
  }
  std::string moved = std::move(mIDs[source]);
  mIDs.erase(mIDs.begin() + static_cast<std::ptrdiff_t>(source));
  mIDs.insert(mIDs.begin() + static_cast<std::ptrdiff_t>(target), std::move(moved));
}

void VarObsInfo::SwapID(int i, int j) {
  if (i < 1 || j < 1) return;
  const auto needed = static_cast<std::size_t>(std::max(i, j));
  if (needed > mIDs.size()) mIDs.resize(needed);
  mIDs[static_cast<std::size_t>(i) - 1].swap(mIDs[static_cast<std::size_t>(j) - 1]);
}

const std::string& VarObsInfo::GetBatchName(const VarObs& owner) const {
  return GetUserID(owner.GetBatchIDRaw());
}

const std::string& VarObsInfo::GetPhaseName(const VarObs& owner) const {
  return GetUserID(owner.GetPhaseIDRaw());
}

const std::string& VarObsInfo::GetBatchName(const BatchImportSettings& settings) const {
  return GetUserID(settings.GetBatchID());
}

const std::string& VarObsInfo::GetPhaseName(const BatchImportSettings& settings) const {
  return GetUserID(settings.GetPhaseID());
}

bool VarObsInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  return msVStreamData.Write(os) && VStreamableWrite(os);
}

bool VarObsInfo::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, 2);
  std::ostream& ids = directory.GetOutput(ncds::detail::kTagIDs);
  const auto count = static_cast<std::uint32_t>(mIDs.size());
  WriteFourBytes(&count, 1, ids);
  for (const std::string& id : mIDs) WriteBinaryString(id, ids);
  const auto uniqueID = static_cast<std::uint32_t>(mUniqueID);
  WriteToStreamDir(uniqueID, directory, ncds::detail::kTagUniqueID);
  return directory.Close();
}

bool VarObsInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version > ncds::detail::kVersion) return false;
  // Records of older versions kept their IDs elsewhere: nothing of this part to read.
  if (version < ncds::detail::kVersion) return static_cast<bool>(is);
  return ReadStreamDirectory(is);
}

bool VarObsInfo::ReadStreamDirectory(std::istream& is) {
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::istream& ids = GetRequiredInput(directory, ncds::detail::kTagIDs);
    std::uint32_t count = 0;
    ReadFourBytes(&count, 1, ids);
    // Each ID takes at least its four-byte length.
    RequireStreamBytes(ids, std::uint64_t{count} * 4);
    std::vector<std::string> read;
    read.reserve(std::min<std::uint32_t>(count, 4096));
    for (std::uint32_t k = 0; k < count; ++k) {
      read.emplace_back();
      ReadBinaryString(read.back(), ids);
    }
    std::uint32_t uniqueID = 0;
    ReadFromStreamDir(uniqueID, directory, ncds::detail::kTagUniqueID, true);
    mIDs = std::move(read);
    mUniqueID = uniqueID;
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

bool VarObsInfo::DecodeCommonPart(ncds::detail::ByteReader& bytes, std::vector<std::string>& ids,
                                  std::uint32_t& uniqueID) const {
  std::int16_t version = 0;
  if (mGuard.IsSet() || !msVStreamData.Check(bytes, version) || version != ncds::detail::kVersion) {
    return false;
  }
  std::array<ncds::detail::ByteReader, 2> entries;
  if (!bytes.Directory<2>({ncds::detail::kTagIDs, ncds::detail::kTagUniqueID}, entries)) {
    return false;
  }
  std::uint32_t count = 0;
  if (!entries[0].Fixed(count) || count > entries[0].Remaining() / 4) return false;
  ids.reserve(count);
  for (std::uint32_t k = 0; k < count; ++k) {
    const char* text = nullptr;
    std::size_t length = 0;
    if (!entries[0].BinaryString(text, length)) return false;
    ids.emplace_back(text, length);
  }
  return entries[1].Fixed(uniqueID);
}

bool VarObsInfo::EncodeCommonPart(ncds::detail::ByteWriter& bytes) const {
  if (mGuard.IsSet()) return false;
  std::size_t idsLength = 4;
  for (const std::string& id : mIDs) idsLength += ncds::detail::ByteWriter::BinaryStringSize(id);
  if (!msVStreamData.Write(bytes) || !bytes.BeginDirectory(2) ||
      !bytes.EntryHeader(ncds::detail::kTagIDs, idsLength) ||
      !bytes.Fixed(static_cast<std::uint32_t>(mIDs.size()))) {
    return false;
  }
  for (const std::string& id : mIDs) {
    if (!bytes.BinaryString(id)) return false;
  }
  return bytes.EntryHeader(ncds::detail::kTagUniqueID, 4) &&
         bytes.Fixed(static_cast<std::uint32_t>(mUniqueID)) && bytes.EndDirectory();
}

void VarObsInfo::AdoptCommonPart(std::vector<std::string>&& ids, std::uint32_t uniqueID) {
  mGuard.Enter();
  mIDs = std::move(ids);
  mUniqueID = uniqueID;
}

void VarObsInfo::VStreamableReset() const { mGuard.Reset(); }
