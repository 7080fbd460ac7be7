#include "ncds/batch/ClassInfoVector.h"

#include <boost/make_shared.hpp>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace ncds::detail {
namespace {

constexpr std::uint8_t kEmptySlot = 0;
constexpr std::uint8_t kFilledSlot = 1;

}  // namespace
}  // namespace ncds::detail

ClassInfoVector::ClassInfoVector() = default;

ClassInfoVector::ClassInfoVector(const ClassInfoVector& other) {
  mPhases.reserve(other.mPhases.size());
  for (const value_type& phase : other.mPhases) {
    mPhases.push_back(phase ? phase->Clone() : value_type());
  }
}

ClassInfoVector::ClassInfoVector(ClassInfoVector&& other) noexcept = default;

ClassInfoVector& ClassInfoVector::operator=(const ClassInfoVector& other) {
  if (this != &other) {
    ClassInfoVector copy(other);
    mPhases.swap(copy.mPhases);
  }
  return *this;
}

ClassInfoVector& ClassInfoVector::operator=(ClassInfoVector&& other) noexcept = default;

ClassInfoVector::~ClassInfoVector() = default;

bool ClassInfoVector::operator==(const ClassInfoVector& other) const {
  if (mPhases.size() != other.mPhases.size()) return false;
  for (std::size_t i = 0; i < mPhases.size(); ++i) {
    const ClassInfo* mine = mPhases[i].get();
    const ClassInfo* theirs = other.mPhases[i].get();
    if (mine == theirs) continue;
    if (!mine || !theirs || *mine != *theirs) return false;
  }
  return true;
}

bool ClassInfoVector::WriteToStream(std::ostream& os) const {
  namespace d = ncds::detail;
  const auto count = static_cast<std::uint32_t>(mPhases.size());
  if (count != mPhases.size() || !WriteFourBytes(&count, 1, os)) return false;
  for (const value_type& phase : mPhases) {
    const std::uint8_t presence = phase ? d::kFilledSlot : d::kEmptySlot;
    if (!WriteBytes(&presence, 1, os)) return false;
    if (phase && !(os << *phase)) return false;
  }
  return static_cast<bool>(os);
}

std::unique_ptr<ClassInfoVector> ClassInfoVector::ReadFromStream(std::istream& is) {
  namespace d = ncds::detail;
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  // Every slot takes at least its presence byte.
  RequireStreamBytes(is, count);
  auto phases = std::make_unique<ClassInfoVector>();
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint8_t presence = 0;
    ReadBytes(&presence, 1, is);
    if (presence == d::kEmptySlot) {
      phases->push_back(value_type());
    } else if (presence == d::kFilledSlot) {
      auto phase = boost::make_shared<ClassInfo>(std::string());
      if (!(is >> *phase)) ThrowStreamReadError();
      phases->push_back(std::move(phase));
    } else {
      ThrowStreamReadError();
    }
  }
  return phases;
}
