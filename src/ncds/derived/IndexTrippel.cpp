#include "ncds/derived/IndexTrippel.h"

#include <istream>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VStreamLight.h"

namespace ncds::detail {
namespace {

constexpr std::uint16_t kTrippelVersion = 1;
const char* const kTrippelMagic = "IndexTrippel";

}  // namespace
}  // namespace ncds::detail

IndexTrippel::IndexTrippel(std::string batch, std::string phase, std::string variable)
    : mBatch(std::move(batch)), mPhase(std::move(phase)), mVariable(std::move(variable)) {}

std::uint16_t IndexTrippel::GetMyVStreamVersionNumber() { return ncds::detail::kTrippelVersion; }

bool IndexTrippel::Write(std::ostream& os) const {
  return VStreamLight::WriteMagicStringAndVersionNumber(os, ncds::detail::kTrippelVersion,
                                                        ncds::detail::kTrippelMagic) &&
         WriteBinaryString(mBatch, os) && WriteBinaryString(mPhase, os) &&
         WriteBinaryString(mVariable, os);
}

bool IndexTrippel::Read(std::istream& is) {
  std::uint16_t version = 0;
  if (!VStreamLight::CheckMagicStringAndVersionNumber(is, version, ncds::detail::kTrippelMagic) ||
      version != ncds::detail::kTrippelVersion) {
    return false;
  }
  std::string batch;
  std::string phase;
  std::string variable;
  try {
    ReadBinaryString(batch, is);
    ReadBinaryString(phase, is);
    ReadBinaryString(variable, is);
  } catch (const VxStreamError&) {
    return false;
  }
  mBatch = std::move(batch);
  mPhase = std::move(phase);
  mVariable = std::move(variable);
  return true;
}
