#ifndef NCDS_METADATA_QUALITATIVEVARIABLEINFO_H
#define NCDS_METADATA_QUALITATIVEVARIABLEINFO_H

// A categorical variable: its values are the codes 1..n of its named levels (settings). Text
// encodes to the code of the level it names, ignoring case and leading white space; empty text
// encodes as missing (-99) and text that names no level as the largest float, which marks an
// unknown level. Lookups go through a map of the level names sorted ignoring case, so encoding
// costs a binary search. Duplicate level names are allowed; the first one encodes.
//
// Persistent: magic "QVI", version 3 (2 and 3 are read), after the variable part; tag 0 the
// levels, tag 1 the sorted map (rebuilt from the levels when missing or inconsistent).
// Registered with the factory repository as "QualitativeVariableInfo".

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT QualitativeVariableInfo : public VariableInfo {
 public:
  // A level name and its 1-based code.
  using Setting = std::pair<std::string, int>;

  QualitativeVariableInfo();
  // Copies `levels` (may be null: no levels yet).
  QualitativeVariableInfo(const std::string& id, unsigned long uniqueID,
                          const NCStringVector* levels, const std::string& recipe = std::string());
  ~QualitativeVariableInfo() override;

  float Encode(const char* text) const override;
  std::string Decode(float value) override;
  bool IsQualitative() const override;
  QualitativeVariableInfo* Clone() const override;
  const QuantitativeVariableInfo* AsQuantitativeVariableInfo() const override;
  const QualitativeVariableInfo* AsQualitativeVariableInfo() const override;
  const DateTimeVariableInfo* AsDateTimeVariableInfo() const override;

  // Appends level n+1 named `name` as given; an empty or blank name is ignored.
  void AppendSetting(const char* name);
  // Keeps the first `count` levels and drops the others (those appended last); nothing when
  // there are no more than `count`.
  void TruncateSettings(int count);
  int SizeSettings() const { return static_cast<int>(mLevels.size()); }
  // The name of level `k` (1-based); empty out of range.
  const std::string& GetSettingName(int k) const;
  const NCStringVector& GetSettings() const { return mLevels; }
  // The level names sorted ignoring case, each with its code.
  const std::vector<Setting>& GetSettingsMap() const { return mSettingsMap; }

  // The indicator value of `value` for level `level`: 1 when the value is that level, else 0;
  // missing stays missing.
  static float Expand(float value, int level);
  // The level whose indicator is 1 (1-based), 0 when none is; missing when more than one is
  // or an indicator is neither 0 nor 1.
  static float Collapse(const std::vector<float>& indicators);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  QualitativeVariableInfo(const QualitativeVariableInfo& other);

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  // Rebuilds the sorted map from the levels.
  void UpdateSettingsMap();
  // True when `map` is exactly the sorted map of the current levels.
  bool IsSettingsMapOf(const std::vector<Setting>& map) const;
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  VStreamGuard mGuard;
  NCStringVector mLevels;
  std::vector<Setting> mSettingsMap;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_QUALITATIVEVARIABLEINFO_H
