#ifndef NCDS_DATASET_DATASETPREDICTIONDATA_H
#define NCDS_DATASET_DATASETPREDICTIONDATA_H

// A dataset of a project presented as prediction data. Every question is answered by the
// dataset, and merged columns go into the dataset itself, through its change check.
//
// It shares ownership of the dataset, so the dataset stays readable when its project lets go
// of it (an unload), and like every container it refers to the project weakly: once the
// project is gone it is no longer available and answers empty IDs. A dataset loaded afresh
// from the project is a new object; make new prediction data for it. One thread at a time.

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "ncds/dataset/PredictionData.h"
#include "ncds/ncds_export.h"

class NCDataSet;

class NCDS_EXPORT DataSetPredictionData : public PredictionData {
 public:
  // Prediction data over `dataSet`, of the dataset's project. Throws `InvalidArgument` for a
  // null dataset.
  explicit DataSetPredictionData(boost::shared_ptr<NCDataSet> dataSet);
  ~DataSetPredictionData() override;
  DataSetPredictionData(const DataSetPredictionData&) = delete;
  DataSetPredictionData& operator=(const DataSetPredictionData&) = delete;

  // The fingerprint of `dataSet`'s values as lowercase hexadecimal: what `GetMD5Digest` of
  // prediction data over it answers, without making one.
  static std::string Fingerprint(const NCDataSet& dataSet);

  const boost::shared_ptr<NCDataSet>& GetDataSet() const { return mDataSet; }

  // ---- Container interface: the dataset's answers ----
  int GetNumber() const override;
  int GetDataType() const override;
  const VarObsInfoVector<ObservationInfo>& GetObservationInfoVector() const override;
  NCIntegralVector<unsigned long, 0> GetVarIDs() const override;
  int SizeObservations() const override;
  int SizeVariables() const override;
  const std::vector<int>& GetUsedObsAliases() const override;
  const std::vector<int>& GetUsedVarAliases() const override;
  unsigned long GetVarID(int index) const override;
  const ObservationInfo* GetObservationInfo(int index) const override;
  const VariableInfo* GetVariableInfo(int index) const override;
  const std::string& GetObservationID(int index, int aliasSeries) const override;
  const std::string& GetVariableID(int index, int aliasSeries) const override;
  boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const override;
  NCStringVector GetBatchNames() const override;
  std::string GetStrValue(int obs, int var) const override;

  // ---- Prediction data ----
  // The dataset's name.
  std::string GetName() const override;
  // True while the project lives.
  bool IsAvailable() const override;
  // Adds the project's variables `varIDs` as the last columns of the dataset and sets their
  // values from `data`. The change check is asked without talking to the user.
  bool AddColumns(const NCDataMatrix<float>& data,
                  const NCIntegralVector<unsigned long, 0>& varIDs) override;
  bool ReplaceColumn(int column, const NCDataVector<float>& values) override;

 protected:
  NCDataMatrix<float> DoGetData(
      bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const override;

 private:
  boost::shared_ptr<NCDataSet> mDataSet;
};

#endif  // NCDS_DATASET_DATASETPREDICTIONDATA_H
