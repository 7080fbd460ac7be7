#ifndef NCDS_BATCH_COLUMNCONCATENATEINFO_H
#define NCDS_BATCH_COLUMNCONCATENATEINFO_H

// How several imported columns were joined into one identifier: the 1-based positions of the
// columns, in the order they were joined, and the separator text put between them. A plain
// value: copies are independent.
//
// Persistent: magic "CCI", version 2 (versions up to 2 are read); no directory: the column
// list in its own stream form, then the separator as a binary string. A failed read returns
// false and leaves the object unchanged.

#include <cstdint>
#include <iosfwd>
#include <string>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT ColumnConcatenateInfo : public VStreamBase {
 public:
  // No columns, empty separator.
  ColumnConcatenateInfo();
  ColumnConcatenateInfo(const ColumnConcatenateInfo& other);
  ColumnConcatenateInfo& operator=(const ColumnConcatenateInfo& other);
  ~ColumnConcatenateInfo() override;

  bool operator==(const ColumnConcatenateInfo& other) const {
    return mColumns == other.mColumns && mSeparator == other.mSeparator;
  }
  bool operator!=(const ColumnConcatenateInfo& other) const { return !(*this == other); }

  // The joined columns, 1-based, in joining order.
  const NCIntegralVector<int, -99>& GetColumns() const { return mColumns; }
  NCIntegralVector<int, -99>& GetColumns() { return mColumns; }
  void SetColumns(const NCIntegralVector<int, -99>& columns) { mColumns = columns; }
  const std::string& GetSeparator() const { return mSeparator; }
  void SetSeparator(const std::string& separator) { mSeparator = separator; }
  // The separator as a C string, valid until the separator changes.
  const char* GetSeparatorChar() const { return mSeparator.c_str(); }

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  VStreamGuard mGuard;
  NCIntegralVector<int, -99> mColumns;
  std::string mSeparator;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_COLUMNCONCATENATEINFO_H
