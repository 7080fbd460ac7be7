#ifndef NCDS_DATASET_FULLCOMPOUNDDATASET_H
#define NCDS_DATASET_FULLCOMPOUNDDATASET_H

// A compound dataset with its values, for the modelling code: the rows and columns of a
// `CompoundDataset` (which answers every container question) and the members' values stacked
// in them, -99 where a member lacks a column's variable.
//
// Values come from the members' datasets, which a loader hands out by number (for
// `NCProject`, `NCProject::MakeFullCompoundDataset` makes one that takes the loaded dataset or
// loads it). Nothing is loaded or copied when the object is made or asked about rows and
// columns: `GetData` loads every member and stacks their `GetData(centered, defaults)` (each
// member centered by its own centers); `GetStrValue` loads the one member that holds the cell.
// The object keeps no dataset: the loader decides what stays loaded. While the compound has
// missing members `GetData` answers an empty matrix and `GetStrValue` empty texts. A loader
// that answers null for a member the project holds makes `GetData` throw `NCError` naming the
// member; errors of the loader (a damaged project file) pass through. One thread at a time.

#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>
#include <vector>

#include "ncds/dataset/NCFullDataContainerBase.h"
#include "ncds/ncds_export.h"

class CompoundDataset;
class NCDataSet;

class NCDS_EXPORT FullCompoundDataset : public NCFullDataContainerBase {
 public:
  // Hands out the dataset of a number with its values; null when it cannot.
  using Loader = std::function<boost::shared_ptr<NCDataSet const>(int number)>;

  // The values of `compound` (of `project`), taken from the datasets `loader` hands out.
  // Throws `InvalidArgument` for a null compound or an empty loader.
  FullCompoundDataset(boost::shared_ptr<NCProjectBase> project,
                      boost::shared_ptr<CompoundDataset const> compound, Loader loader);
  ~FullCompoundDataset() override;
  FullCompoundDataset(const FullCompoundDataset&) = delete;
  FullCompoundDataset& operator=(const FullCompoundDataset&) = delete;

  const boost::shared_ptr<CompoundDataset const>& GetCompound() const { return mCompound; }

  // ---- Container interface: the compound's answers ----
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
  const std::string& GetVariableID(int index, int aliasSeries) const override;
  boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const override;
  // The cell as its member shows it; empty where the member lacks the variable, outside the
  // compound, or when the loaded member no longer matches the compound's rows and columns.
  std::string GetStrValue(int obs, int var) const override;

 protected:
  // Throws `NCInternalError` when a loaded member does not match its rows and columns in the
  // compound even after the compound was worked out again (a loader handing out datasets
  // other than the project's).
  NCDataMatrix<float> DoGetData(
      bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const override;

 private:
  boost::shared_ptr<CompoundDataset const> mCompound;
  Loader mLoader;
};

#endif  // NCDS_DATASET_FULLCOMPOUNDDATASET_H
