#include "ncds/dataset/DataSetPredictionData.h"

#include <utility>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/Exception.h"

namespace {

boost::shared_ptr<NCProjectBase> ProjectOf(const boost::shared_ptr<NCDataSet>& dataSet) {
  if (!dataSet) throw InvalidArgument("DataSetPredictionData: no dataset");
  return dataSet->GetProject();
}

}  // namespace

DataSetPredictionData::DataSetPredictionData(boost::shared_ptr<NCDataSet> dataSet)
    : PredictionData(ProjectOf(dataSet)), mDataSet(std::move(dataSet)) {}

DataSetPredictionData::~DataSetPredictionData() = default;

std::string DataSetPredictionData::Fingerprint(const NCDataSet& dataSet) {
  // The uncentered data of a dataset is its matrix: digest it in place rather than a copy.
  return MD5::ToHex(DigestOfValues(dataSet.GetMatrix()));
}

int DataSetPredictionData::GetNumber() const { return mDataSet->GetNumber(); }

int DataSetPredictionData::GetDataType() const { return mDataSet->GetDataType(); }

const VarObsInfoVector<ObservationInfo>& DataSetPredictionData::GetObservationInfoVector() const {
  return mDataSet->GetObservationInfoVector();
}

NCIntegralVector<unsigned long, 0> DataSetPredictionData::GetVarIDs() const {
  return mDataSet->GetVarIDs();
}

int DataSetPredictionData::SizeObservations() const { return mDataSet->SizeObservations(); }

int DataSetPredictionData::SizeVariables() const { return mDataSet->SizeVariables(); }

const std::vector<int>& DataSetPredictionData::GetUsedObsAliases() const {
  return mDataSet->GetUsedObsAliases();
}

const std::vector<int>& DataSetPredictionData::GetUsedVarAliases() const {
  return mDataSet->GetUsedVarAliases();
}

unsigned long DataSetPredictionData::GetVarID(int index) const { return mDataSet->GetVarID(index); }

const ObservationInfo* DataSetPredictionData::GetObservationInfo(int index) const {
  return mDataSet->GetObservationInfo(index);
}

const VariableInfo* DataSetPredictionData::GetVariableInfo(int index) const {
  return mDataSet->GetVariableInfo(index);
}

const std::string& DataSetPredictionData::GetObservationID(int index, int aliasSeries) const {
  return mDataSet->GetObservationID(index, aliasSeries);
}

const std::string& DataSetPredictionData::GetVariableID(int index, int aliasSeries) const {
  return mDataSet->GetVariableID(index, aliasSeries);
}

boost::shared_ptr<BatchInfoVector const> DataSetPredictionData::GetBatchInfoVector() const {
  return mDataSet->GetBatchInfoVector();
}

NCStringVector DataSetPredictionData::GetBatchNames() const { return mDataSet->GetBatchNames(); }

std::string DataSetPredictionData::GetStrValue(int obs, int var) const {
  return mDataSet->GetStrValue(obs, var);
}

std::string DataSetPredictionData::GetName() const { return mDataSet->GetName(); }

bool DataSetPredictionData::IsAvailable() const { return GetProject() != nullptr; }

bool DataSetPredictionData::AddColumns(const NCDataMatrix<float>& data,
                                       const NCIntegralVector<unsigned long, 0>& varIDs) {
  const auto rows = static_cast<std::size_t>(mDataSet->SizeObservations());
  if (data.SizeColumns() != varIDs.size() || data.SizeRows() != rows) {
    throw InvalidArgument(
        "DataSetPredictionData::AddColumns: a " + std::to_string(data.SizeRows()) + " x " +
        std::to_string(data.SizeColumns()) + " matrix with " + std::to_string(varIDs.size()) +
        " IDs for " + std::to_string(rows) + " observations");
  }
  if (varIDs.empty()) return true;
  const int first = mDataSet->SizeVariables() + 1;
  if (!mDataSet->AddVariables(&varIDs, 0, false)) return false;
  if (rows == 0) return true;
  for (std::size_t k = 0; k < varIDs.size(); ++k) {
    if (!mDataSet->SetColValues(data.ColumnData(k), first + static_cast<int>(k))) {
      // Refused half way: take the new columns out again, so that nothing is added.
      NCIntegralVector<int, -99> added;
      for (std::size_t j = 0; j < varIDs.size(); ++j) added.push_back(first + static_cast<int>(j));
      mDataSet->RemoveVariable(&added, false, true);
      return false;
    }
  }
  return true;
}

bool DataSetPredictionData::ReplaceColumn(int column, const NCDataVector<float>& values) {
  const auto rows = static_cast<std::size_t>(mDataSet->SizeObservations());
  if (values.size() != rows) {
    throw InvalidArgument("DataSetPredictionData::ReplaceColumn: " + std::to_string(values.size()) +
                          " values for " + std::to_string(rows) + " observations");
  }
  if (rows == 0) return column >= 1 && column <= mDataSet->SizeVariables();
  return mDataSet->SetColValues(values.data(), column);
}

NCDataMatrix<float> DataSetPredictionData::DoGetData(
    bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const {
  return mDataSet->GetData(centered, std::move(defaults));
}
