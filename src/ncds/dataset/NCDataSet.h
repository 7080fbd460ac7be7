#ifndef NCDS_DATASET_NCDATASET_H
#define NCDS_DATASET_NCDATASET_H

// A dataset: a matrix of values, observations (rows) × variables (columns), with the variable
// ID of every column, the observation record of every row, its name, number, kind and source,
// its optional batch and phase structure, its optional local centering information, and the
// record of trimmed values. It belongs to a project, which owns the records its rows and
// columns refer to, and it is owned by a `boost::shared_ptr`; it refers to its project weakly
// and answers empty results once the project is gone.
//
// Rows and columns are numbered from 1. Getters outside 1..size answer the empty string or
// -99; removal lists that are not strictly ascending and in range throw `InvalidArgument` with
// the dataset unchanged. Changes that models may depend on go through the project's change
// check first (a refusal returns false and changes nothing) and are announced through
// `NCSignals` afterwards. One thread at a time.
//
// Persistent: magic "NCDS", version 4 (only 4 is read). The stream holds the dataset's own
// numbers (matrix, column IDs, the unique IDs of its rows, trim record, flags, kind, aliases,
// batches and phases) but not the records of its variables and observations, which stay with
// the project. So a dataset is read into a project that already holds them: create it with
// `Create(project, number)`, then read it. A damaged stream answers false and leaves the
// dataset as it was. Rows whose observations the project no longer holds are read as rows
// without a record (null in `GetObservationInfoVector`), keeping their unique IDs, so that a
// dataset is never lost with some of its observation records. Writing and reading clear the
// dirty flag.

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iosfwd>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ncds/dataset/NCDataContainer.h"
#include "ncds/derived/DSGenVarData.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class BatchInfoVector;
class ClassInfoVector;
class CreateBatchLevelInfo;
class DataSetAlignment;
struct DatasetMergeInfo;
class LocalCenteringData;
class LocalCenteringInfo;
class SourceBatches;
class TrimdVarStruct;

class NCDS_EXPORT NCDataSet : public NCDataContainer,
                              public virtual VStreamBase,
                              public boost::enable_shared_from_this<NCDataSet> {
 public:
  // Data type words.
  static constexpr int kOrdinary = 1;
  static constexpr int kBatchBit = 32;
  // Kinds of dataset that a new source keeps.
  static constexpr int kKeptKindBits = 16 | 64;

  // An empty dataset of `project` with `number`: no variables, no observations, both alias
  // lists {1}, ordinary, not dirty.
  static boost::shared_ptr<NCDataSet> Create(boost::shared_ptr<NCProjectBase> project, int number);
  // A dataset with copies of `data` (observations × variables) and `varIDs`, taking the row
  // records `obsInfos` (which the project's observations must hold); dirty. Throws
  // `InvalidArgument` when the shapes disagree. Null `batches` or `phases`: none.
  static boost::shared_ptr<NCDataSet> Create(
      boost::shared_ptr<NCProjectBase> project, const char* name, int number,
      const NCDataMatrix<float>* data, VarObsInfoVector<ObservationInfo>&& obsInfos,
      const NCIntegralVector<unsigned long, 0>* varIDs, const std::vector<int>& obsAliases,
      const std::vector<int>& varAliases, const char* importLog, const BatchInfoVector* batches,
      const ClassInfoVector* phases);
  // The same, taking over the cells of `data` rather than copying them: a large import then
  // holds its values once.
  static boost::shared_ptr<NCDataSet> Create(
      boost::shared_ptr<NCProjectBase> project, const char* name, int number,
      NCDataMatrix<float>&& data, VarObsInfoVector<ObservationInfo>&& obsInfos,
      const NCIntegralVector<unsigned long, 0>* varIDs, const std::vector<int>& obsAliases,
      const std::vector<int>& varAliases, const char* importLog, const BatchInfoVector* batches,
      const ClassInfoVector* phases);
  ~NCDataSet() override;
  NCDataSet(const NCDataSet&) = delete;
  NCDataSet& operator=(const NCDataSet&) = delete;

  const char* GetName() const { return mName.c_str(); }
  void SetName(const char* name);
  const std::string& GetImportLog() const { return mImportLog; }
  void SetImportLog(const char* log);
  bool IsDirty() const { return mDirty; }

  // ---- Structure ----
  // Inserts the project's variables `varIDs` as columns of missing values before column
  // `position` (appends when `position` is outside 1..SizeVariables()). The change check runs
  // for them, muted unless `confirm`. Throws `InvalidArgument` for an ID the project does not
  // hold or one that is a column already.
  bool AddVariables(const NCIntegralVector<unsigned long, 0>* varIDs, int position, bool confirm);
  // Appends `count` new quantitative variables named `name` ("New_Var" when null or empty),
  // made unique among the project's variables ("_1", "_2", ...). The change check runs when
  // `confirm` or `checkQuietly`, muted unless `confirm`.
  bool AddVariables(int count, const char* name, bool confirm, bool checkQuietly);
  // Inserts rows of missing values for `infos` (records the project's observations hold)
  // before row `position` (appends outside 1..SizeObservations()). The change check runs for
  // the whole dataset, muted unless `confirm`.
  bool AddObservationInfos(const VarObsInfoVector<ObservationInfo>& infos, int position,
                           bool confirm);
  // Appends `count` new observations named "New_Obs", made unique among the project's.
  bool AddObservationInfos(int count);
  // Removes the columns (rows) at `positions`, 1-based and strictly ascending, in one pass.
  // Unless `unchecked`, the change check must accept first (muted unless `confirm`); a refusal
  // clears `positions` and returns false. The dataset is marked dirty even then.
  bool RemoveVariable(NCIntegralVector<int, -99>* positions, bool confirm, bool unchecked);
  bool RemoveObservation(NCIntegralVector<int, -99>* positions, bool confirm, bool unchecked);
  // Removes entry `k` (0-based) of the used observation aliases; ignored beyond the list.
  void RemoveObservationID(int k);
  // Gives `column` the variable ID `newID`; nothing on dataset 1, whose IDs never change.
  void ChangeVarID(unsigned long newID, int column);
  void ReserveVars(int count);
  // Reserves room for `count` observations, so that adding them moves no column.
  void ReserveObservations(int count);
  // Empties the dataset: no rows, no columns, no trim records.
  void clear();

  // ---- Values ----
  // Sets cell (obs, var). With `keepPreTrim` the cell's current value is remembered first as
  // its value before trimming (the first such value is kept). With `confirm` or
  // `checkQuietly` the change check is asked for the column's variable, muted unless
  // `confirm`. False when refused or when a position is out of range.
  bool SetValue(int obs, int var, float value, bool keepPreTrim, bool confirm, bool checkQuietly);
  // The same with `text` converted by the column's variable (a level, a date, a number).
  bool SetValue(int obs, int var, const char* text, bool keepPreTrim, bool confirm,
                bool checkQuietly);
  // Replaces every value with those of `data`, which must have the dataset's shape.
  bool SetValues(const NCDataMatrix<float>* data);
  // Replaces the values of `column` with SizeObservations() values.
  bool SetColValues(const float* values, int column);
  bool SetColValues(const NCIntegralVector<int, -99>& values, int column);
  // The value of cell (obs, var), or -99 outside the dataset.
  float GetValue(int obs, int var) const;
  // Read access to the matrix itself.
  const NCDataMatrix<float>& GetMatrix() const { return mData; }

  // ---- Container interface and identity ----
  int GetNumber() const override { return mNumber; }
  int GetDataType() const override { return mDataType; }
  const VarObsInfoVector<ObservationInfo>& GetObservationInfoVector() const override {
    return mObsInfos;
  }
  // The unique ID of every row's record, in row order (0 for a row without one), without
  // visiting the records.
  const NCIntegralVector<unsigned long, 0>& GetObservationIDs() const { return mRowIDs; }
  NCIntegralVector<unsigned long, 0> GetVarIDs() const override { return mVarIDs; }
  int SizeObservations() const override { return static_cast<int>(mObsInfos.size()); }
  int SizeVariables() const override { return static_cast<int>(mVarIDs.size()); }
  const std::vector<int>& GetUsedObsAliases() const override { return mUsedObsAliases; }
  const std::vector<int>& GetUsedVarAliases() const override { return mUsedVarAliases; }
  unsigned long GetVarID(int index) const override;
  const ObservationInfo* GetObservationInfo(int index) const override;
  const std::string& GetVariableID(int index, int aliasSeries) const override;
  boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const override;
  boost::shared_ptr<ClassInfoVector const> GetPhaseInfoVector() const override;
  std::string GetStrValue(int obs, int var) const override;
  // The included X (Y) variables among the columns, in column order; with `phaseName`, those
  // also included in that phase.
  NCIntegralVector<unsigned long, 0> GetXVariables(const char* phaseName) const;
  NCIntegralVector<unsigned long, 0> GetYVariables(const char* phaseName) const;

  // The series in which observation and variable IDs are shown.
  void SetUsedAliases(const std::vector<int>& obsAliases, const std::vector<int>& varAliases);

  unsigned long GetSourceID() const { return mSourceID; }
  // Sets the data type (keeping the kind bits 16 and 64 unless `dataType` names a kind) and
  // the source; an ordinary dataset's source is always 3262240001.
  void SetSource(int dataType, unsigned long sourceID);

  // Copies `batches` in (marking a batch dataset) or, with null, drops the batch structure.
  void SetBatchInfoVector(const BatchInfoVector* batches);
  void SetBatchInfoVecDirty() { mBatchInfoNeedsUpdate = true; }
  bool IsBatchInfoVecDirty() const { return mBatchInfoNeedsUpdate; }
  // The batches of dataset `number` of `project` for editing in place; null when there is no
  // such dataset or it has no batches.
  static boost::shared_ptr<BatchInfoVector> GetMutableBatchInfoVector(NCProjectBase& project,
                                                                      int number);
  // Copies `phases` in, or with null drops the phases.
  void SetPhaseInfoVector(const ClassInfoVector* phases);

  // The imported local centers of the dataset, or null when it has none.
  const LocalCenteringInfo* GetLocalCenteringInfo() const { return mLocalCentering.get(); }
  // Keeps a copy of `info`, or with null drops the local centering information.
  void SetLocalCenteringInfo(const LocalCenteringInfo* info);
  // How this dataset was aligned from its source, or null; set copies it in (null drops it).
  const DataSetAlignment* GetAlignment() const { return mAlignment.get(); }
  void SetAlignment(const DataSetAlignment* alignment);
  // The dataset's local centers (kept with it), or null; set copies them in (null drops them).
  const LocalCenteringData* GetLocalCenteringData() const { return mLocalCenters.get(); }
  void SetLocalCenteringData(const LocalCenteringData* centers);
  // What this batch-level dataset summarizes, or null; set copies it in (null drops it).
  const CreateBatchLevelInfo* GetBatchLevelInfo() const { return mBatchLevel.get(); }
  void SetBatchLevelInfo(const CreateBatchLevelInfo* info);
  // The number of the dataset this one was aligned or summarized from (0: neither), and the
  // source's batches it was made from then (null: neither).
  int GetDerivedFromNumber() const;
  const SourceBatches* GetDerivedFromBatches() const;

  // Takes imported centers: keeps a copy of `info` and adds its centers to the local centers,
  // keyed by the batch and phase names of the rows (replacing centers under the same keys).
  // Throws `Exception` for a variable name that is not a column, changing nothing.
  void ImportLocalCenters(const LocalCenteringInfo& info);

  // The column IDs of dataset `number` of `project`; empty when it has none.
  static NCIntegralVector<unsigned long, 0> GetVariableIDs(const NCProjectBase& project,
                                                           int number);
  // Whether any of `varIDs` is a generated variable (has a recipe), and the list of them.
  static bool HasGeneratedVariables(const NCProjectBase& project,
                                    const NCIntegralVector<unsigned long, 0>& varIDs);
  static boost::shared_ptr<std::list<DSGenVarData>> GetGenVarList(
      const NCProjectBase& project, const NCIntegralVector<unsigned long, 0>& varIDs);

  // Hands the dataset to its project's save operation; nothing without a project.
  void Save() const;

  // ---- Trimming ----
  // Adds `value` to the trim values of the variable of column `var` when it is trimmed.
  void SetTrimValues(int var, float value);
  bool GetIsTrimmed() const { return !mPreTrimValues.empty(); }
  // The trimmed cells still holding a trim value, as 1-based row and column positions in
  // column order.
  void GetTrimmedIndex(NCIntegralVector<int, -99>* rows, NCIntegralVector<int, -99>* columns) const;
  // Puts back the values from before trimming, of every trimmed variable (`all`) or of column
  // `var`, where a cell still holds a trim value; forgets the trim records concerned. False
  // when the change check refuses.
  bool ResetDatasetFromTrimming(bool all, int var);
  const std::vector<boost::shared_ptr<TrimdVarStruct>>& GetTrimRecords() const {
    return mTrimRecords;
  }
  // The value of observation `obsID` in variable `varID` before trimming, when recorded.
  bool GetPreTrimValue(unsigned long varID, unsigned long obsID, float& value) const;

  // ---- Sorting ----
  // The row order of a sort, as 0-based former row positions: by the values of column `key`
  // (`byVariable`) or by observation ID series `key`, compared as numbers (`numeric`) or as
  // text ignoring case; ascending or descending; missing values and non-numbers last; rows
  // that compare equal keep their order. Throws `NCError` for a key that does not resolve.
  NCIntegralVector<int, -99> GetSortOrder(int key, bool byVariable, bool ascending,
                                          bool numeric) const;
  // Sorts the rows as `GetSortOrder` says, or into `order` (0-based former positions, each
  // row once) when given. Refused for batch data and, while models depend on the project,
  // when the change check refuses.
  bool SortDataset(int key, bool byVariable, bool ascending, bool numeric,
                   const NCIntegralVector<int, -99>* order);
  // Sorts the rows by the values of the variables `varIDs`, the first deciding first.
  bool SortDataset(const NCIntegralVector<unsigned long, 0>& varIDs, bool ascending);

  // ---- Merging ----
  // Brings `other`, a dataset of the same project, into this one. Rows are matched by the
  // unique ID of their observation, then by primary ID (series 1) ignoring case; variables by
  // ID. Variables of `other` that are not columns here become new columns, its unmatched rows
  // new rows (in a batch dataset, after the last row of their batch, new batches at the end).
  // Cells present in both take `other`'s value when `overwrite`, else keep their own; a
  // missing cell here takes `other`'s value either way, and a missing value in `other` never
  // overwrites. Trimming cannot be undone afterwards: when this
  // dataset is trimmed the user is asked first, and "Merge of datasets aborted." (`NCError`,
  // level 2) is thrown unless they go on. The change check runs for the whole dataset, muted
  // unless `confirm`; a refusal returns false and changes nothing. Afterwards
  // `NCSignals::RaiseDatasetMerged` announces what was done, which `info` (when given)
  // receives too. Throws `InvalidArgument` when `other` is this dataset or of another project.
  bool Merge(const NCDataSet& other, bool overwrite, bool confirm,
             DatasetMergeInfo* info = nullptr);

  // ---- Persistence ----
  // The version of the last "NCDS" stream read, and the version this build writes.
  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  NCDataMatrix<float> DoGetData(
      bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const override;

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  NCDataSet(boost::shared_ptr<NCProjectBase> project, int number);

  // Inserts columns of missing values for `varIDs` before 0-based column `at`.
  void InsertVariables(const NCIntegralVector<unsigned long, 0>& varIDs, std::size_t at);
  // The change check for `varIDs` (the whole dataset when null), muted unless `confirm`.
  bool AskChange(const NCIntegralVector<unsigned long, 0>* varIDs, bool confirm) const;
  // Remembers the current value of cell (row, column) (0-based) as its pre-trim value.
  void KeepPreTrimValue(std::size_t row, std::size_t column);
  // Reorders rows and their records by `order` (0-based former positions, a permutation).
  void ApplyRowOrder(const NCIntegralVector<int, -99>& order);
  void UpdateSortFlags() const;

  // The stream body: the directory of the dataset's fields. Writing clears the dirty flag.
  bool VStreamableWrite(std::ostream& os) const;
  // Reads the body of a stream of `version`; only version 4 is read.
  bool VStreamableRead(std::istream& is, std::int16_t version);
  // The virtual base's part of the stream, which is empty.
  bool VStreamableWriteBases(std::ostream& os) const;
  bool VStreamableReadBases(std::istream& is);
  bool ReadStreamDirectory(std::istream& is);

  NCDataMatrix<float> mData;
  // Per trimmed variable: observation ID -> value before trimming; the index maps a variable
  // ID to its position here and in mTrimRecords.
  std::vector<std::map<unsigned long, float>> mPreTrimValues;
  std::map<unsigned long, std::size_t> mTrimmedIndex;
  std::vector<boost::shared_ptr<TrimdVarStruct>> mTrimRecords;
  mutable bool mVariablesSorted = false;
  mutable bool mObservationsSorted = false;
  mutable bool mSortFlagsValid = false;
  NCIntegralVector<unsigned long, 0> mVarIDs;
  VarObsInfoVector<ObservationInfo> mObsInfos;
  // The unique IDs of mObsInfos, kept in step with it: writing the rows and finding a row by
  // ID then read one array instead of a record per row.
  NCIntegralVector<unsigned long, 0> mRowIDs;
  std::string mName;
  std::string mImportLog;
  int mNumber = 0;
  // Writing clears it, and writing is const.
  mutable bool mDirty = false;
  std::unique_ptr<LocalCenteringInfo> mLocalCentering;
  std::unique_ptr<DataSetAlignment> mAlignment;
  std::unique_ptr<LocalCenteringData> mLocalCenters;
  std::unique_ptr<CreateBatchLevelInfo> mBatchLevel;
  int mDataType = kOrdinary;
  unsigned long mSourceID;
  boost::shared_ptr<BatchInfoVector> mBatches;
  bool mBatchInfoNeedsUpdate = false;
  boost::shared_ptr<ClassInfoVector> mPhases;
  std::vector<int> mUsedObsAliases{1};
  std::vector<int> mUsedVarAliases{1};
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DATASET_NCDATASET_H
