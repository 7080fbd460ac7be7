#ifndef NCDS_METADATA_DATETIMEVARIABLEINFO_H
#define NCDS_METADATA_DATETIMEVARIABLEINFO_H

// A variable whose values are points in time. The dataset holds each value as a float: the
// time since the variable's offset, counted in its time accuracy (a year of 360 days, a month
// of 30 days, a day, hour, minute or second). Text is read and written in three ways: with
// the dataset format (`Encode`, `Decode`; a pattern, empty for ISO 8601), with the parse
// method and parse format the data was imported with (`EncodeOriginal`, `DecodeOriginal`),
// or with any pattern (`EncodeCustom`). See DateTimeFormatter for the methods and patterns.
//
// Text that does not parse, an unset offset or an accuracy outside year..second encodes as
// missing (-99); a time exactly -99 units from the offset encodes as the float next to -99
// (towards zero), so that it stays a value. Missing decodes as empty text. Decoding rounds to
// the finest digit the format shows, or to the float's own resolution where that is coarser,
// so float error never shows: a text on the format's grid comes back unchanged as long as the
// float holds it exactly (whole units up to 2^24 units from the offset; at second accuracy,
// milliseconds up to 2^14 s, about 4.5 hours, from it).
//
// The formatters are owned by the record and rebuilt whenever a format changes; a record may
// be read from several threads but not changed meanwhile.
//
// Persistent: magic "DTVI", version 1 (the only one read), after the variable part; tag 0 the
// parse method, tag 1 the parse format, tag 2 the dataset format, tag 11 the accuracy (two
// bytes each for the numbers), tag 12 the offset (1970-01-01T00:00:00 when unset), all
// required. The reader refuses parse methods and accuracies that name no enumerator; the
// record's own fields change only when its part reads in full. Registered with the factory
// repository as "DateTimeVariableInfo".

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

#include "ncds/foundations/DateTimeFormatter.h"
#include "ncds/foundations/SimpDateTime.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/foundations/VxTimeUtl.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT DateTimeVariableInfo : public VariableInfo {
 public:
  // ISO 8601 parse method, empty formats, offset unset, second accuracy.
  DateTimeVariableInfo();
  // A parse method that names no method is taken as ISO 8601; an accuracy outside
  // year..second as eNoLimit, which encodes nothing.
  DateTimeVariableInfo(const std::string& id, unsigned long uniqueID,
                       VxTimeUtl::EParseType parseMethod, const std::string& parseFormat,
                       const std::string& datasetFormat, const VxTimeUtl::SimpDateTime& offset,
                       VxTimeUtl::ETimeAccuracy accuracy);
  ~DateTimeVariableInfo() override;

  // With the dataset format.
  float Encode(const char* text) const override;
  std::string Decode(float value) override;
  DateTimeVariableInfo* Clone() const override;
  const QuantitativeVariableInfo* AsQuantitativeVariableInfo() const override;
  const QualitativeVariableInfo* AsQualitativeVariableInfo() const override;
  const DateTimeVariableInfo* AsDateTimeVariableInfo() const override;
  // With the parse method and parse format.
  virtual std::string DecodeOriginal(float value);

  float EncodeOriginal(const char* text) const;
  // With the pattern `format` (empty for ISO 8601); builds a formatter on each call.
  float EncodeCustom(const std::string& format, const char* text) const;

  // Seconds from the offset of `value`; -99 for missing and for an accuracy outside
  // year..second.
  long double ToSeconds(float value) const;

  // Copies parse method, formats, offset and accuracy from `other`.
  void CopySettings(const DateTimeVariableInfo& other);

  VxTimeUtl::EParseType GetParseMethod() const { return mParseMethod; }
  const std::string& GetParseFormatString() const { return mParseFormat; }
  const std::string& GetDatasetFormat() const { return mDatasetFormat; }
  void SetDatasetFormatString(const std::string& format);
  const VxTimeUtl::SimpDateTime& GetDateTimeOffset() const { return mOffset; }
  void SetDateTimeOffset(const VxTimeUtl::SimpDateTime& offset) { mOffset = offset; }
  VxTimeUtl::ETimeAccuracy GetTimeAccuracy() const { return mAccuracy; }

  // The widest span of values the variable keeps to its accuracy, as a count of `unit`:
  // none (eNoLimit, -99) at day accuracy and coarser, 114 years at hour, 23 months at minute,
  // and at second accuracy 16 minutes when the dataset format shows fractions of a second,
  // else 11 days. An accuracy outside year..second has no limit either.
  void GetMaximumSaveTimeUnitAndTime(VxTimeUtl::ETimeAccuracy& unit, float& maximum) const;
  // True when `span` (in the variable's accuracy) is non-negative and within that limit.
  // Missing, negative and non-finite spans are invalid, as is every span of a variable whose
  // accuracy is outside year..second.
  bool IsValidTimeRange(float span) const;

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  DateTimeVariableInfo(const DateTimeVariableInfo& other);

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  // A formatter and the step, in microseconds, that decoding for it rounds to at least.
  struct Format {
    std::unique_ptr<VxTimeUtl::DateTimeFormatter> formatter;
    std::int64_t stepMicroseconds = 1;
  };

  static Format MakeFormat(VxTimeUtl::EParseType method, const std::string& pattern);
  static Format CopyFormat(const Format& other);
  void RebuildFormats();
  float EncodeWith(const VxTimeUtl::DateTimeFormatter& formatter, const char* text) const;
  std::string DecodeWith(const Format& format, float value) const;
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  VStreamGuard mGuard;
  VxTimeUtl::EParseType mParseMethod = VxTimeUtl::eParseISO8601;
  std::string mParseFormat;
  std::string mDatasetFormat;
  VxTimeUtl::SimpDateTime mOffset;
  VxTimeUtl::ETimeAccuracy mAccuracy = VxTimeUtl::eSecond;
  Format mDataset;   // eParseFormat with the dataset format
  Format mOriginal;  // the parse method with the parse format
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_DATETIMEVARIABLEINFO_H
