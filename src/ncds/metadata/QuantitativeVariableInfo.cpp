#include "ncds/metadata/QuantitativeVariableInfo.h"

#include <charconv>

#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/VxString.h"

namespace {
const FactoryRegistration<QuantitativeVariableInfo> kRegistration("QuantitativeVariableInfo");
}  // namespace

QuantitativeVariableInfo::QuantitativeVariableInfo() = default;

QuantitativeVariableInfo::QuantitativeVariableInfo(const std::string& id, unsigned long uniqueID,
                                                   const std::string& recipe, int sourceModel,
                                                   int reference, EVariableType type)
    : VariableInfo(id, uniqueID, recipe, sourceModel, reference, type) {}

QuantitativeVariableInfo::QuantitativeVariableInfo(const QuantitativeVariableInfo& other) = default;

QuantitativeVariableInfo::~QuantitativeVariableInfo() = default;

float QuantitativeVariableInfo::Encode(const char* text) const {
  float value = -99.0F;
  if (!text || !VxString::ToFloat(text, value)) return -99.0F;
  return value;
}

std::string QuantitativeVariableInfo::Decode(float value) {
  if (value == -99.0F) return std::string();
  // Like "%g", but with '.' whatever the C locale of the application.
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, static_cast<double>(value),
                                    std::chars_format::general, 6);
  return std::string(text, result.ptr);
}

QuantitativeVariableInfo* QuantitativeVariableInfo::Clone() const {
  return new QuantitativeVariableInfo(*this);
}

const QuantitativeVariableInfo* QuantitativeVariableInfo::AsQuantitativeVariableInfo() const {
  return this;
}

const QualitativeVariableInfo* QuantitativeVariableInfo::AsQualitativeVariableInfo() const {
  return nullptr;
}

const DateTimeVariableInfo* QuantitativeVariableInfo::AsDateTimeVariableInfo() const {
  return nullptr;
}
