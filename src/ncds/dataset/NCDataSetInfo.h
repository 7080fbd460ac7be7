#ifndef NCDS_DATASET_NCDATASETINFO_H
#define NCDS_DATASET_NCDATASETINFO_H

// The light description of a dataset: what lists, choosers and ID lookups need (sizes, number,
// name, kind, source, the records of its rows, the IDs of its columns, the ID series in use,
// batches and phases) without the values and the trim record. It answers the container
// interface, so it can stand in for a stored dataset wherever no values are needed, and its
// stream is small enough to be read for every dataset of a project without reading any
// dataset.
//
// An info is made from a dataset (a snapshot: later changes of the dataset do not reach it)
// or read from a stream into a project that holds the records of its rows. It points at those
// records, which the project's observations own, and keeps its own copies of the batches and
// phases; copies of an info share them, as nothing changes them. One thread at a time.
//
// Persistent: magic "NCDSI", version 3 (only 3 is read); a directory of 14 entries. A damaged
// stream, or one whose counts disagree with its ID lists, answers false and leaves the info as
// it was; rows whose observations the project no longer holds are rows without a record.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "ncds/dataset/NCDataContainerBase.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class BatchInfoVector;
class ClassInfoVector;
class NCDataSet;

class NCDS_EXPORT NCDataSetInfo : public virtual VStreamBase, public NCDataContainerBase {
 public:
  // An empty info of `project`, to be read from a stream.
  explicit NCDataSetInfo(boost::shared_ptr<NCProjectBase> project);
  // The description of `dataSet`, in `dataSet`'s project.
  explicit NCDataSetInfo(boost::shared_ptr<NCDataSet const> dataSet);
  NCDataSetInfo(const NCDataSetInfo& other);
  NCDataSetInfo& operator=(const NCDataSetInfo&) = delete;
  ~NCDataSetInfo() override;

  // ---- Container interface, answered from the description ----
  int GetNumber() const override { return mNumber; }
  int GetDataType() const override { return mDataType; }
  const VarObsInfoVector<ObservationInfo>& GetObservationInfoVector() const override {
    return mObsInfos;
  }
  NCIntegralVector<unsigned long, 0> GetVarIDs() const override { return mVarIDs; }
  int SizeObservations() const override { return mNumObservations; }
  int SizeVariables() const override { return mNumVariables; }
  const std::vector<int>& GetUsedObsAliases() const override { return mUsedObsAliases; }
  const std::vector<int>& GetUsedVarAliases() const override { return mUsedVarAliases; }
  unsigned long GetVarID(int index) const override;
  // The record of row `index`; null outside 1..SizeObservations().
  const ObservationInfo* GetObservationInfo(int index) const override;
  const std::string& GetVariableID(int index, int aliasSeries) const override;
  boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const override;
  boost::shared_ptr<ClassInfoVector const> GetPhaseInfoVector() const;

  const char* GetName() const { return mName.c_str(); }
  // How many of the dataset's columns were included Y variables.
  int GetNumberOfYVariables() const { return mNumYVariables; }
  unsigned long GetSourceID() const { return mSourceID; }
  // The column IDs without a copy.
  const NCIntegralVector<unsigned long, 0>& GetVariableIDs() const { return mVarIDs; }

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  void Update(const boost::shared_ptr<NCDataSet const>& dataSet);

  bool VStreamableWrite(std::ostream& os) const;
  bool VStreamableRead(std::istream& is, std::int16_t version);
  // The virtual base's part of the stream, which is empty.
  bool VStreamableWriteBases(std::ostream& os) const;
  bool VStreamableReadBases(std::istream& is);
  bool ReadStreamDirectory(std::istream& is);

  int mNumObservations = 0;
  int mNumVariables = 0;
  int mNumber = 0;
  std::string mName;
  int mNumYVariables = 0;
  int mDataType;
  unsigned long mSourceID;
  VarObsInfoVector<ObservationInfo> mObsInfos;
  NCIntegralVector<unsigned long, 0> mRowIDs;  // the unique IDs of mObsInfos
  NCIntegralVector<unsigned long, 0> mVarIDs;
  std::vector<int> mUsedObsAliases{1};
  std::vector<int> mUsedVarAliases{1};
  boost::shared_ptr<BatchInfoVector> mBatches;
  boost::shared_ptr<ClassInfoVector> mPhases;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DATASET_NCDATASETINFO_H
