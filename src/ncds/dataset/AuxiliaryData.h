#ifndef NCDS_DATASET_AUXILIARYDATA_H
#define NCDS_DATASET_AUXILIARYDATA_H

// Small data that a model keeps with its project under a name (`NCProject::SetAuxiliaryData`):
// a matrix of values, the variable ID of each of its columns, and a text. A value: copies own
// their cells, and two are equal when their IDs, texts and cells (bit for bit, so that a
// missing or NaN cell equals itself) are. The matrix and its IDs change together, so that
// there is always one ID per column. Not synchronised.
//
// Persistent: magic "AUXDATA", version 1 (only 1 is read); tag 0 the matrix ("NCDataMatrix"
// stream), 1 the IDs ("NCIntegralVector" stream), 2 the text (binary string). A failed read,
// or IDs that do not match the columns, answers false and leaves the data as it was.

#include <cstdint>
#include <iosfwd>
#include <string>

#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT AuxiliaryData : public VStreamBase {
 public:
  AuxiliaryData();
  // Throws `InvalidArgument` unless `variableIDs` has one ID per column of `data`.
  AuxiliaryData(NCDataMatrix<float> data, NCIntegralVector<unsigned long, 0> variableIDs,
                std::string text);
  AuxiliaryData(const AuxiliaryData& other);
  AuxiliaryData(AuxiliaryData&& other) noexcept;
  AuxiliaryData& operator=(const AuxiliaryData& other);
  AuxiliaryData& operator=(AuxiliaryData&& other) noexcept;
  ~AuxiliaryData() override;

  bool operator==(const AuxiliaryData& other) const;
  bool operator!=(const AuxiliaryData& other) const { return !(*this == other); }

  const NCDataMatrix<float>& GetData() const { return mData; }
  const NCIntegralVector<unsigned long, 0>& GetVariableIDs() const { return mVariableIDs; }
  // Replaces the matrix and its IDs. Throws `InvalidArgument` unless `variableIDs` has one ID
  // per column of `data`, changing nothing.
  void SetData(NCDataMatrix<float> data, NCIntegralVector<unsigned long, 0> variableIDs);
  const std::string& GetText() const { return mText; }
  void SetText(std::string text) { mText = std::move(text); }

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool ReadStreamDirectory(std::istream& is);

  NCDataMatrix<float> mData;
  NCIntegralVector<unsigned long, 0> mVariableIDs;
  std::string mText;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DATASET_AUXILIARYDATA_H
