#ifndef NCDS_BATCH_CREATEBATCHLEVELINFO_H
#define NCDS_BATCH_CREATEBATCHLEVELINFO_H

// What a batch-level dataset summarizes: which statistics of which variables, over whole
// batches or phase by phase, and whether the batch conditions become columns too. It is kept
// with the batch-level dataset, so that the same summaries can be computed for new batches.
//
// Variables are named by their unique IDs (none: every quantitative variable of the source);
// statistics by their names ("Mean", "Median", ...), so that the description reads back
// whatever statistics a later build knows; phases by name (none, with `byPhase`: every phase
// of the source, in its order).
//
// Persistent: magic "CBLI", version 1 (only 1 is read); tag 0 the variable IDs (a four-byte
// count, then four bytes each), 1 the statistics (a four-byte count, then binary strings), 2
// by phase (one byte), 3 the phases (as the statistics), 4 with batch conditions (one byte), 5
// the source dataset's number (four bytes), 6 the maturity variable ID (four bytes, 0 for
// none), 7 the source's batches it summarizes (`SourceBatches`; optional). A failed read answers
// false and leaves the description as it was. Copyable; not synchronised.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "ncds/batch/SourceBatches.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT CreateBatchLevelInfo : public VStreamBase {
 public:
  CreateBatchLevelInfo();
  CreateBatchLevelInfo(const CreateBatchLevelInfo& other);
  CreateBatchLevelInfo& operator=(const CreateBatchLevelInfo& other);
  ~CreateBatchLevelInfo() override;

  bool operator==(const CreateBatchLevelInfo& other) const;
  bool operator!=(const CreateBatchLevelInfo& other) const { return !(*this == other); }

  const std::vector<std::uint32_t>& GetVariableIDs() const { return mVariableIDs; }
  void SetVariableIDs(std::vector<std::uint32_t> variableIDs) {
    mVariableIDs = std::move(variableIDs);
  }
  const std::vector<std::string>& GetStatistics() const { return mStatistics; }
  void SetStatistics(std::vector<std::string> statistics) { mStatistics = std::move(statistics); }
  bool IsByPhase() const { return mByPhase; }
  void SetByPhase(bool byPhase) { mByPhase = byPhase; }
  const std::vector<std::string>& GetPhases() const { return mPhases; }
  void SetPhases(std::vector<std::string> phases) { mPhases = std::move(phases); }
  bool HasBatchConditions() const { return mConditions; }
  void SetBatchConditions(bool conditions) { mConditions = conditions; }
  // The variable whose values are the maturity of the rows, for Duration, Slope and Area; 0:
  // none, the rows' positions within their batch (or phase) count instead.
  std::uint32_t GetMaturityID() const { return mMaturityID; }
  void SetMaturityID(std::uint32_t id) { mMaturityID = id; }
  // The number of the dataset summarized; 0 before a summary was made.
  int GetSourceNumber() const { return mSource; }
  void SetSourceNumber(int number) { mSource = number; }
  // The source's batches the summaries were made from, as they were then.
  const SourceBatches& GetSourceBatches() const { return mSourceBatches; }
  void SetSourceBatches(SourceBatches batches) { mSourceBatches = std::move(batches); }

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

  std::vector<std::uint32_t> mVariableIDs;
  std::vector<std::string> mStatistics;
  bool mByPhase = false;
  std::vector<std::string> mPhases;
  bool mConditions = false;
  std::int32_t mSource = 0;
  std::uint32_t mMaturityID = 0;
  SourceBatches mSourceBatches;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_BATCH_CREATEBATCHLEVELINFO_H
