#include "ncds/batch/RUSPData.h"

#include <boost/make_shared.hpp>
#include <istream>
#include <ostream>
#include <utility>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VStreamLight.h"

namespace ncds::detail {
namespace {

constexpr std::uint16_t kRUSPVersion = 1;
const char* const kRUSPMagic = "RUSPDATA";
constexpr std::uint16_t kRUSPTags = 2;
constexpr std::uint16_t kTagBatchVectors = 0;
constexpr std::uint16_t kTagIDVectors = 1;

bool WriteBatchVectors(const RUSPData::BatchVectors& vectors, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(vectors.size());
  if (!WriteFourBytes(&count, 1, os)) return false;
  for (const auto& [number, vector] : vectors) {
    const std::int32_t key = number;
    const std::uint8_t presence = vector ? 1 : 0;
    if (!WriteFourBytes(&key, 1, os) || !WriteBytes(&presence, 1, os)) return false;
    if (vector && !(os << *vector)) return false;
  }
  return static_cast<bool>(os);
}

RUSPData::BatchVectors ReadBatchVectors(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * 5);  // a number and a presence byte each
  RUSPData::BatchVectors vectors;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::int32_t number = 0;
    std::uint8_t presence = 0;
    ReadFourBytes(&number, 1, is);
    ReadBytes(&presence, 1, is);
    boost::shared_ptr<BatchInfoVector> vector;
    if (presence == 1) {
      vector = boost::make_shared<BatchInfoVector>();
      if (!(is >> *vector)) ThrowStreamReadError();
    } else if (presence != 0) {
      ThrowStreamReadError();
    }
    vectors[number] = std::move(vector);
  }
  return vectors;
}

bool WriteIDVectors(const RUSPData::IDVectors& vectors, std::ostream& os) {
  const auto count = static_cast<std::uint32_t>(vectors.size());
  if (!WriteFourBytes(&count, 1, os)) return false;
  for (const auto& [number, ids] : vectors) {
    const std::int32_t key = number;
    if (!WriteFourBytes(&key, 1, os) || !(os << ids)) return false;
  }
  return static_cast<bool>(os);
}

RUSPData::IDVectors ReadIDVectors(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * 4);
  RUSPData::IDVectors vectors;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::int32_t number = 0;
    ReadFourBytes(&number, 1, is);
    NCIntegralVector<unsigned long, 0> ids;
    ReadValue(ids, is);
    vectors[number] = std::move(ids);
  }
  return vectors;
}

// Reads one tag with `read`; a tag that is missing or damaged gives an empty map.
template <class Map, class Reader>
Map ReadTag(InputStreamDirectory& directory, std::uint16_t tag, Reader read) {
  std::istream* input = directory.GetInput(tag);
  if (!input) return Map();
  try {
    return read(*input);
  } catch (const VxStreamError&) {
    return Map();
  }
}

}  // namespace
}  // namespace ncds::detail

RUSPData::RUSPData(NCProjectBase& project)
    : mVersion(ncds::detail::kRUSPVersion), mMagic(ncds::detail::kRUSPMagic), mProject(&project) {}

RUSPData::~RUSPData() = default;

std::uint16_t RUSPData::GetMyVStreamVersionNumber() { return ncds::detail::kRUSPVersion; }

void RUSPData::Add(boost::shared_ptr<const NCDataSet> dataSet) {
  if (!dataSet) return;
  const int number = dataSet->GetNumber();
  // The project's own dataset of that number is shared; one it does not hold is copied.
  boost::shared_ptr<BatchInfoVector> batches =
      NCDataSet::GetMutableBatchInfoVector(*mProject, number);
  if (!batches && dataSet->GetBatchInfoVector()) {
    batches = boost::make_shared<BatchInfoVector>(*dataSet->GetBatchInfoVector());
  }
  if (batches) {
    mBatchVectors[number] = std::move(batches);
  } else {
    mBatchVectors.erase(number);
  }
  mIDVectors[number] = dataSet->GetObservationIDs();
}

boost::shared_ptr<BatchInfoVector> RUSPData::GetBatchInfoVector(int number) const {
  const auto found = mBatchVectors.find(number);
  return found == mBatchVectors.end() ? nullptr : found->second;
}

const NCIntegralVector<unsigned long, 0>* RUSPData::GetIDVector(int number) const {
  const auto found = mIDVectors.find(number);
  return found == mIDVectors.end() ? nullptr : &found->second;
}

bool RUSPData::WriteObject(std::ostream& os) const {
  namespace d = ncds::detail;
  if (!VStreamLight::WriteMagicStringAndVersionNumber(os, static_cast<std::uint16_t>(mVersion),
                                                      mMagic)) {
    return false;
  }
  OutputStreamDirectory directory(os, d::kRUSPTags);
  if (!d::WriteBatchVectors(mBatchVectors, directory.GetOutput(d::kTagBatchVectors)) ||
      !d::WriteIDVectors(mIDVectors, directory.GetOutput(d::kTagIDVectors))) {
    os.setstate(std::ios_base::badbit);
  }
  return directory.Close() && static_cast<bool>(os);
}

bool RUSPData::ReadObject(std::istream& is) {
  namespace d = ncds::detail;
  std::uint16_t version = 0;
  if (!VStreamLight::CheckMagicStringAndVersionNumber(is, version, mMagic) ||
      version != static_cast<std::uint16_t>(mVersion)) {
    return false;
  }
  InputStreamDirectory directory(is);
  if (!directory.IsValid()) return false;
  mBatchVectors = d::ReadTag<BatchVectors>(directory, d::kTagBatchVectors, d::ReadBatchVectors);
  mIDVectors = d::ReadTag<IDVectors>(directory, d::kTagIDVectors, d::ReadIDVectors);
  directory.Close();
  for (auto& entry : mBatchVectors) {
    if (entry.second) entry.second->UpdateBCIDsVectorFormat(*mProject, nullptr);
  }
  return true;
}
