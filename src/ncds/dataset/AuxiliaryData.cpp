#include "ncds/dataset/AuxiliaryData.h"

#include <cstring>
#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kAuxiliaryVersion = 1;
constexpr std::uint16_t kAuxiliaryTags = 3;
constexpr std::uint16_t kTagData = 0;
constexpr std::uint16_t kTagVariableIDs = 1;
constexpr std::uint16_t kTagText = 2;

void RequireOneIDPerColumn(const NCDataMatrix<float>& data,
                           const NCIntegralVector<unsigned long, 0>& variableIDs) {
  if (variableIDs.size() != data.SizeColumns()) {
    throw InvalidArgument("AuxiliaryData: " + std::to_string(variableIDs.size()) +
                          " variable IDs for " + std::to_string(data.SizeColumns()) + " columns");
  }
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData AuxiliaryData::msVStreamData(ncds::detail::kAuxiliaryVersion, "AUXDATA");

AuxiliaryData::AuxiliaryData() = default;

AuxiliaryData::AuxiliaryData(NCDataMatrix<float> data,
                             NCIntegralVector<unsigned long, 0> variableIDs, std::string text)
    : mText(std::move(text)) {
  SetData(std::move(data), std::move(variableIDs));
}

AuxiliaryData::AuxiliaryData(const AuxiliaryData& other) = default;
AuxiliaryData::AuxiliaryData(AuxiliaryData&& other) noexcept
    : VStreamBase(other),
      mData(std::move(other.mData)),
      mVariableIDs(std::move(other.mVariableIDs)),
      mText(std::move(other.mText)) {}
AuxiliaryData& AuxiliaryData::operator=(const AuxiliaryData& other) = default;
AuxiliaryData& AuxiliaryData::operator=(AuxiliaryData&& other) noexcept {
  mData = std::move(other.mData);
  mVariableIDs = std::move(other.mVariableIDs);
  mText = std::move(other.mText);
  return *this;
}
AuxiliaryData::~AuxiliaryData() = default;

bool AuxiliaryData::operator==(const AuxiliaryData& other) const {
  if (mText != other.mText || mVariableIDs != other.mVariableIDs ||
      mData.SizeRows() != other.mData.SizeRows() ||
      mData.SizeColumns() != other.mData.SizeColumns()) {
    return false;
  }
  const std::size_t bytes = mData.SizeRows() * sizeof(float);
  if (bytes == 0) return true;
  for (std::size_t j = 0; j < mData.SizeColumns(); ++j) {
    if (std::memcmp(mData.ColumnData(j), other.mData.ColumnData(j), bytes) != 0) return false;
  }
  return true;
}

void AuxiliaryData::SetData(NCDataMatrix<float> data,
                            NCIntegralVector<unsigned long, 0> variableIDs) {
  ncds::detail::RequireOneIDPerColumn(data, variableIDs);
  mData = std::move(data);
  mVariableIDs = std::move(variableIDs);
}

bool AuxiliaryData::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (!msVStreamData.Write(os)) return false;
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kAuxiliaryTags);
  const bool ok = WriteToStreamDir(mData, directory, d::kTagData) &&
                  WriteToStreamDir(mVariableIDs, directory, d::kTagVariableIDs) &&
                  WriteToStreamDir(mText, directory, d::kTagText);
  return directory.Close() && ok && static_cast<bool>(os);
}

bool AuxiliaryData::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kAuxiliaryVersion) {
    return false;
  }
  return ReadStreamDirectory(is);
}

bool AuxiliaryData::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  NCDataMatrix<float> data;
  NCIntegralVector<unsigned long, 0> variableIDs;
  std::string text;
  bool ok = directory.IsValid();
  try {
    if (ok) {
      ReadFromStreamDir(data, directory, d::kTagData, true);
      ReadFromStreamDir(variableIDs, directory, d::kTagVariableIDs, true);
      ReadFromStreamDir(text, directory, d::kTagText, true);
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is || variableIDs.size() != data.SizeColumns()) return false;
  mData = std::move(data);
  mVariableIDs = std::move(variableIDs);
  mText = std::move(text);
  return true;
}

void AuxiliaryData::VStreamableReset() const { mGuard.Reset(); }
