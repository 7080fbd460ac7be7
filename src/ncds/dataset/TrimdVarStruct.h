#ifndef NCDS_DATASET_TRIMDVARSTRUCT_H
#define NCDS_DATASET_TRIMDVARSTRUCT_H

// The trim record of one variable of a dataset: the set of values that trimming wrote into the
// variable's cells. A reset of the trimming restores a cell only while it still holds one of
// these values (within a relative tolerance), so that values the user typed in since are kept.
// The dataset owns its records through `boost::shared_ptr`, one per trimmed variable.
//
// Persistent: magic "TVS", version 1 (only 1 is read); tag 0 the trim values (a four-byte count
// and the values as four-byte floats, strictly ascending). A failed read answers false and
// leaves the record as it was. Not synchronised.

#include <cstdint>
#include <iosfwd>
#include <set>

#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT TrimdVarStruct : public VStreamBase {
 public:
  TrimdVarStruct();
  TrimdVarStruct(const TrimdVarStruct& other);
  TrimdVarStruct& operator=(const TrimdVarStruct& other);
  ~TrimdVarStruct() override;

  // The same trim values.
  bool operator==(const TrimdVarStruct& other) const;
  bool operator!=(const TrimdVarStruct& other) const { return !(*this == other); }

  // Adds `value` to the trim values; false when it was there already or is not a number.
  bool AddTrimValue(float value);
  const std::set<float>& GetTrimValues() const { return mTrimValues; }

  // Sets `match` to the smallest trim value that `value` matches and answers true, or answers
  // false when it matches none.
  bool FindTrimValue(float value, float& match) const;
  bool IsTrimValue(float value) const {
    float match = 0.0F;
    return FindTrimValue(value, match);
  }

  // Whether `a` and `b` are equal within the relative tolerance of the library's float
  // comparisons: |a − b| ≤ 5e-5 · 2^e, where 2^e bounds the larger magnitude as m · 2^e with
  // 0.5 ≤ m < 1. Infinities match only themselves; NaN matches nothing.
  static bool ValuesMatch(float a, float b);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  std::set<float> mTrimValues;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DATASET_TRIMDVARSTRUCT_H
