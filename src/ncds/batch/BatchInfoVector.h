#ifndef NCDS_BATCH_BATCHINFOVECTOR_H
#define NCDS_BATCH_BATCHINFOVECTOR_H

// The batches of a batch dataset, in dataset order, with the unique IDs of the batch-condition
// variables (position i of the IDs matches value i of every batch). The dataset owns it;
// copies are deep (every batch cloned), so two vectors never share a `BatchInfo`. A slot may
// be empty (a null pointer); copies, comparisons and streams keep it.
//
// Batch conditions of the old format (names and kinds, before conditions became variables)
// are kept only until `UpdateBCIDsVectorFormat` turns them into variables; they are neither
// compared nor written.
//
// Persistent: magic "BI", version 2; tag 0 the batches (a four-byte count, then per slot a
// byte 1 and the batch's stream, or 0), tag 3 the batch-condition variable IDs, both required.
// A stream of another version reads as a vector without batch-condition IDs whose batches are
// left as they were.

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <utility>
#include <vector>

#include "ncds/batch/BatchInfo.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCProjectBase;

class NCDS_EXPORT BatchInfoVector : public VStreamBase {
 public:
  using value_type = boost::shared_ptr<BatchInfo>;
  using iterator = std::vector<value_type>::iterator;
  using const_iterator = std::vector<value_type>::const_iterator;

  // The kind of an old-format batch condition; any other value is quantitative.
  enum ELegacyConditionKind : std::int32_t { eLegacyQualitative = 1, eLegacyQuantitativeY = 2 };

  BatchInfoVector();
  BatchInfoVector(const BatchInfoVector& other);
  BatchInfoVector(BatchInfoVector&& other) noexcept;
  BatchInfoVector& operator=(const BatchInfoVector& other);
  BatchInfoVector& operator=(BatchInfoVector&& other) noexcept;
  ~BatchInfoVector() override;

  // Same batches pairwise in order and the same batch-condition variable IDs.
  bool operator==(const BatchInfoVector& other) const;
  bool operator!=(const BatchInfoVector& other) const { return !(*this == other); }

  iterator begin() { return mBatches.begin(); }
  iterator end() { return mBatches.end(); }
  const_iterator begin() const { return mBatches.begin(); }
  const_iterator end() const { return mBatches.end(); }
  bool empty() const { return mBatches.empty(); }
  std::size_t size() const { return mBatches.size(); }
  // 0-based, unchecked like a standard vector.
  value_type& operator[](std::size_t index) { return mBatches[index]; }
  const value_type& operator[](std::size_t index) const { return mBatches[index]; }
  // The first and last slot; the list must not be empty.
  value_type& front() { return mBatches.front(); }
  const value_type& front() const { return mBatches.front(); }
  value_type& back() { return mBatches.back(); }
  const value_type& back() const { return mBatches.back(); }
  // Adds `batch` itself, not a copy: the vector then shares it with the caller.
  void push_back(value_type batch) { mBatches.push_back(std::move(batch)); }
  void reserve(std::size_t count) { mBatches.reserve(count); }
  iterator insert(const_iterator position, value_type batch) {
    return mBatches.insert(position, std::move(batch));
  }
  iterator erase(const_iterator position) { return mBatches.erase(position); }
  iterator erase(const_iterator first, const_iterator last) { return mBatches.erase(first, last); }
  void clear() { mBatches.clear(); }

  const NCIntegralVector<unsigned long, 0>& GetBCVariableIDs() const { return mBCVariableIDs; }
  void SetBCVariableIDs(const NCIntegralVector<unsigned long, 0>& ids) { mBCVariableIDs = ids; }

  // The names of all batches in order, included or not (empty for an empty slot).
  NCStringVector GetBatchNames() const;

  // Turns the batch conditions of the old format into variables of `project`: one per
  // condition, in order, with the condition's name as its ID and the batch-condition type;
  // qualitative ones get the distinct texts of the batches as levels (in order of first
  // appearance) and each batch's value as a level code inserted at the condition's position
  // (-99 for an empty text). The new IDs become the batch-condition variable IDs and the old
  // conditions are forgotten. `names`, when given, replaces the old names, all quantitative.
  // Does nothing when batch-condition IDs exist. False when a batch lacks the text of a
  // qualitative condition; what was converted before stays converted.
  bool UpdateBCIDsVectorFormat(NCProjectBase& project, const NCStringVector* names);

  // Old-format batch conditions: one name and one kind (`ELegacyConditionKind`) each. The
  // dataset reader fills them from old streams.
  const NCStringVector& OBSOLETE_GetBatchConditionNames() const { return mLegacyNames; }
  const std::vector<std::int32_t>& OBSOLETE_GetBatchConditionKinds() const { return mLegacyKinds; }
  void OBSOLETE_SetBatchConditions(const NCStringVector& names,
                                   const std::vector<std::int32_t>& kinds);

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
  bool ReadStreamDirectory(std::istream& is, std::int16_t version);

  std::vector<value_type> mBatches;
  NCIntegralVector<unsigned long, 0> mBCVariableIDs;
  NCStringVector mLegacyNames;
  std::vector<std::int32_t> mLegacyKinds;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_BATCHINFOVECTOR_H
