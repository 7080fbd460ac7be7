#include "ncds/metadata/ObservationInfo.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/detail/ByteReader.h"
#include "ncds/foundations/detail/ByteWriter.h"
#include "ncds/foundations/detail/StreamWindow.h"

namespace ncds::detail {
namespace {

const FactoryRegistration<ObservationInfo> kRegistration("ObservationInfo");

constexpr std::int16_t kVersion = 1;
constexpr std::uint16_t kTagDefaultClass = 0;
constexpr std::uint16_t kTagBatch = 1;
// Enough for a record with a few IDs; longer ones are read through the streams.
constexpr std::streamoff kBufferedRecordBytes = 512;

}  // namespace
}  // namespace ncds::detail

const VStreamableData ObservationInfo::msVStreamData(ncds::detail::kVersion, "OI");

ObservationInfo::ObservationInfo() = default;

ObservationInfo::ObservationInfo(const std::string& id, unsigned long uniqueID)
    : VarObsInfo(id, uniqueID) {}

ObservationInfo::ObservationInfo(std::vector<std::string> ids, unsigned long uniqueID)
    : VarObsInfo(std::move(ids), uniqueID) {}

ObservationInfo::ObservationInfo(const ObservationInfo& other) = default;

ObservationInfo& ObservationInfo::operator=(const ObservationInfo& other) = default;

ObservationInfo::~ObservationInfo() = default;

const ObservationInfo* ObservationInfo::AsObservationInfo() const { return this; }

ObservationInfo* ObservationInfo::Clone() const { return new ObservationInfo(*this); }

bool ObservationInfo::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (WriteBuffered(os)) return static_cast<bool>(os);
  return msVStreamData.Write(os) && VarObsInfo::VStreamableStartWrite(os) && VStreamableWrite(os);
}

bool ObservationInfo::VStreamableWrite(std::ostream& os) const {
  OutputStreamDirectory directory(os, 2);
  WriteToStreamDir(mDefaultClass, directory, ncds::detail::kTagDefaultClass);
  WriteToStreamDir(static_cast<std::uint32_t>(mBatch), directory, ncds::detail::kTagBatch);
  return directory.Close();
}

bool ObservationInfo::WriteBuffered(std::ostream& os) const {
  // Observations are written by the million: one write of the encoded record saves the two
  // directory writers it would otherwise take. The bytes are the same.
  char buffer[ncds::detail::kBufferedRecordBytes];
  ncds::detail::ByteWriter bytes(buffer, sizeof buffer);
  if (!msVStreamData.Write(bytes) || !EncodeCommonPart(bytes) || !bytes.BeginDirectory(2) ||
      !bytes.EntryHeader(ncds::detail::kTagDefaultClass, 4) || !bytes.Fixed(mDefaultClass) ||
      !bytes.EntryHeader(ncds::detail::kTagBatch, 4) ||
      !bytes.Fixed(static_cast<std::uint32_t>(mBatch)) || !bytes.EndDirectory()) {
    return false;
  }
  EnterCommonPart();
  os.write(bytes.Data(), static_cast<std::streamsize>(bytes.Size()));
  return true;
}

bool ObservationInfo::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  if (ReadBuffered(is)) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version > ncds::detail::kVersion) return false;
  return VarObsInfo::VStreamableStartRead(is) && ReadStreamDirectory(is);
}

bool ObservationInfo::ReadBuffered(std::istream& is) {
  using ncds::detail::ByteReader;
  auto* window = ncds::detail::AsWindow(is.rdbuf());
  if (!window || !is.good()) return false;
  // Observations are read by the million and a record is a few dozen bytes: decoding it from
  // the window's buffer saves the stream objects of its two directories.
  const auto [data, available] = window->Peek(ncds::detail::kBufferedRecordBytes);
  ByteReader bytes(data, static_cast<std::size_t>(available));
  std::int16_t version = 0;
  if (!msVStreamData.Check(bytes, version) || version != ncds::detail::kVersion) return false;
  std::vector<std::string> ids;
  std::uint32_t uniqueID = 0;
  if (!DecodeCommonPart(bytes, ids, uniqueID)) return false;
  std::array<ByteReader, 2> entries;
  std::int32_t defaultClass = 0;
  std::uint32_t batch = 0;
  if (!bytes.Directory<2>({ncds::detail::kTagDefaultClass, ncds::detail::kTagBatch}, entries) ||
      !entries[0].Fixed(defaultClass) || !entries[1].Fixed(batch)) {
    return false;
  }
  AdoptCommonPart(std::move(ids), uniqueID);
  mDefaultClass = defaultClass;
  mBatch = batch;
  window->Skip(reinterpret_cast<const char*>(bytes.Position()) - data);
  return true;
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
