#include "ncds/foundations/VStreamableData.h"

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VStreamLight.h"
#include "ncds/foundations/detail/ByteReader.h"
#include "ncds/foundations/detail/ByteWriter.h"

VStreamableData::VStreamableData(std::int16_t version, const char* magic)
    : mMagic(magic ? magic : ""), mVersion(version) {
  if (mMagic.size() > VStreamLight::kMaxMagicLength) {
    throw NCInternalError("magic string too long: " + mMagic);
  }
}

bool VStreamableData::Write(std::ostream& os) const {
  return VStreamLight::WriteMagicStringAndVersionNumber(os, static_cast<std::uint16_t>(mVersion),
                                                        mMagic);
}

bool VStreamableData::Write(ncds::detail::ByteWriter& bytes) const {
  return bytes.Magic(mMagic, static_cast<std::uint16_t>(mVersion));
}

bool VStreamableData::Check(std::istream& is) const {
  std::int16_t version = 0;
  return Check(is, version);
}

bool VStreamableData::Check(std::istream& is, std::int16_t& versionRead) const {
  std::uint16_t stored = 0;
  if (!VStreamLight::CheckMagicStringAndVersionNumber(is, stored, mMagic)) return false;
  versionRead = static_cast<std::int16_t>(stored);
  NoteVersionRead(versionRead);
  return true;
}

bool VStreamableData::Check(ncds::detail::ByteReader& bytes, std::int16_t& versionRead) const {
  std::uint16_t stored = 0;
  if (!bytes.Magic(mMagic, stored)) return false;
  versionRead = static_cast<std::int16_t>(stored);
  NoteVersionRead(versionRead);
  return true;
}

void VStreamableData::NoteVersionRead(std::int16_t version) const {
  // Records are read by the million, nearly always of one version: skip the shared write then.
  if (mVersionRead.load(std::memory_order_relaxed) != version) {
    mVersionRead.store(version, std::memory_order_relaxed);
  }
}
