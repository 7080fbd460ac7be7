#ifndef NCDS_METADATA_QUANTITATIVEVARIABLEINFO_H
#define NCDS_METADATA_QUANTITATIVEVARIABLEINFO_H

// A variable whose values are numbers: its text is the number itself. Text that is not a
// number encodes as missing (-99); missing decodes as empty text, other values with six
// significant digits ("%g"). Persistent as its variable part alone (magic "VIO"); registered
// with the factory repository as "QuantitativeVariableInfo".

#include <string>

#include "ncds/metadata/VariableInfo.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT QuantitativeVariableInfo : public VariableInfo {
 public:
  QuantitativeVariableInfo();
  QuantitativeVariableInfo(const std::string& id, unsigned long uniqueID,
                           const std::string& recipe = std::string(), int sourceModel = -1,
                           int reference = 0, EVariableType type = eOrdinary);
  ~QuantitativeVariableInfo() override;

  float Encode(const char* text) const override;
  std::string Decode(float value) override;
  QuantitativeVariableInfo* Clone() const override;
  const QuantitativeVariableInfo* AsQuantitativeVariableInfo() const override;
  const QualitativeVariableInfo* AsQualitativeVariableInfo() const override;
  const DateTimeVariableInfo* AsDateTimeVariableInfo() const override;

 protected:
  QuantitativeVariableInfo(const QuantitativeVariableInfo& other);
};

#endif  // NCDS_METADATA_QUANTITATIVEVARIABLEINFO_H
