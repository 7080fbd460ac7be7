#ifndef NCDS_PROJECT_NCPROJECT_H
#define NCDS_PROJECT_NCPROJECT_H

// A complete project kept in memory: the variable and observation metadata of the project,
// its unique IDs, its batch import settings and its datasets by number. Applications and
// tools that need no storage of their own use it as it is; the project file builds on it.
//
// The change check allows every change unless a check has been installed with
// `SetChangeCheck` (an application that asks its user, or a test that refuses). Unique IDs
// are never reused while a record holds them and never take the two reserved values.
// Create projects with `Create`: datasets refer to them through `boost::weak_ptr`. One thread
// at a time.

#include <boost/shared_ptr.hpp>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "ncds/dataset/NCProjectBase.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT NCProject : public NCProjectBase {
 public:
  // Decides whether variables of a dataset may change; see `CanChangeVariables`.
  using ChangeCheck =
      std::function<bool(int dataSetNumber, const NCIntegralVector<unsigned long, 0>& ids)>;

  static boost::shared_ptr<NCProject> Create();
  ~NCProject() override;

  unsigned long CreateUniqueID() override;

  bool CanChangeVariables(int dataSetNumber,
                          const NCIntegralVector<unsigned long, 0>& variableIDs) override;
  // Installs the change check; an empty one allows every change.
  void SetChangeCheck(ChangeCheck check) { mChangeCheck = std::move(check); }

  NCVariables& GetVariables() override { return *mVariables; }
  const NCVariables& GetVariables() const override { return *mVariables; }
  const NCObservations& GetObservationIDSource() const override { return *mObservations; }
  NCObservations& GetObservations() override { return *mObservations; }
  const NCObservations& GetObservations() const override { return *mObservations; }

  int GetDependencyCount() const override { return mDependencyCount; }
  void SetDependencyCount(int count) { mDependencyCount = count; }

  const BatchImportSettings& GetBatchImportSettings() const override { return *mSettings; }
  void SetBatchImportSettings(const BatchImportSettings& settings) override;

  bool SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) override;
  boost::shared_ptr<NCDataContainerBase const> GetDataContainer(int number) const override;
  // The numbers of the stored datasets, ascending.
  std::vector<int> GetDataSetNumbers() const;
  // Forgets the dataset stored under `number`; false when there is none.
  bool RemoveDataSet(int number);

  int GetBatchIdentifierSeries() const override { return mBatchIdentifierSeries; }
  void SetBatchIdentifierSeries(int series) { mBatchIdentifierSeries = series; }

 protected:
  NCProject();

 private:
  bool IsTaken(unsigned long id) const;

  std::unique_ptr<NCVariables> mVariables;
  std::unique_ptr<NCObservations> mObservations;
  std::unique_ptr<BatchImportSettings> mSettings;
  std::map<int, boost::shared_ptr<NCDataSet const>> mDataSets;
  ChangeCheck mChangeCheck;
  unsigned long mLastUniqueID = 0;
  int mDependencyCount = 0;
  int mBatchIdentifierSeries = 0;
};

#endif  // NCDS_PROJECT_NCPROJECT_H
