#ifndef NCDS_PROJECT_NCPROJECT_H
#define NCDS_PROJECT_NCPROJECT_H

// A complete project kept in memory: the variable and observation metadata of the project,
// its unique IDs, its batch import settings, the batch structures kept per dataset
// (`RUSPData`) and its datasets by number. Applications and
// tools that need no storage of their own use it as it is; the project file builds on it.
//
// Saving a dataset keeps its "NCDS" stream and its description (`NCDataSetInfo`), and keeps
// the dataset itself loaded. A dataset can be unloaded, to free its values, and loaded again
// from its stream; while it is not loaded, `GetDataContainer` answers with its description,
// which needs none of its values. Datasets saved elsewhere (a project file) come in as a
// stream and a description (`RestoreDataSet`), unloaded. The streams are held in memory, each
// about the size of its dataset's values.
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
#include <string>
#include <vector>

#include "ncds/dataset/NCProjectBase.h"
#include "ncds/ncds_export.h"

class NCDataSetInfo;
class RUSPData;

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

  // Writes `dataSet` into a stream kept under its number, with its description, and keeps
  // `dataSet` as the loaded dataset of that number. False when it could not be written; the
  // project keeps what it had.
  bool SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) override;
  // The loaded dataset of `number`, else its description; null when none is stored.
  boost::shared_ptr<NCDataContainerBase const> GetDataContainer(int number) const override;
  // The description of the dataset saved under `number`, or null.
  boost::shared_ptr<NCDataSetInfo const> GetDataSetInfo(int number) const;
  // The numbers of the stored datasets, ascending.
  std::vector<int> GetDataSetNumbers() const;
  // Reads dataset `number` afresh from its saved stream and makes it the loaded one; a dataset
  // loaded before is no longer the project's (its unsaved changes stay with it). Null when no
  // dataset is stored under `number` or its stream is damaged; then nothing changes. Rows
  // whose observations the project no longer holds come without a record.
  boost::shared_ptr<NCDataSet> LoadDataSet(int number);
  // Whether dataset `number` is loaded.
  bool IsDataSetLoaded(int number) const;
  // Lets go of the loaded dataset of `number`, keeping its stream and description; false
  // when it was not loaded.
  bool UnloadDataSet(int number);
  // The saved stream of dataset `number` when the project keeps it in memory, or null. Valid
  // until that dataset is saved, restored or removed.
  const std::string* GetDataSetStream(int number) const;
  // Stores a dataset saved elsewhere as its "NCDS" stream and description, under the
  // description's number and not loaded; it replaces what was stored there. The stream is
  // read only when the dataset is loaded. False for a null description.
  bool RestoreDataSet(std::string stream, boost::shared_ptr<NCDataSetInfo const> info);
  // Forgets the dataset stored under `number`; false when there is none.
  virtual bool RemoveDataSet(int number);

  // The batch structures and row IDs kept per dataset; saved with the project.
  RUSPData& GetRUSPData() { return *mRUSPData; }
  const RUSPData& GetRUSPData() const { return *mRUSPData; }

  // The series set here, else the series in which the observations name their batches (0 when
  // they have none).
  int GetBatchIdentifierSeries() const override;
  void SetBatchIdentifierSeries(int series) { mBatchIdentifierSeries = series; }

 protected:
  NCProject();

  // Where the streams of saved datasets go. This project keeps each in memory (`kept`); a
  // project kept in a file overrides these to write and read its file instead, and may throw
  // `NCError` when the file fails. Write is called before the project records the save, Erase
  // before it forgets a dataset.
  virtual bool WriteDataSetStream(const NCDataSet& dataSet, const NCDataSetInfo& info,
                                  std::string& kept);
  virtual bool ReadDataSetStream(int number, const std::string& kept, NCDataSet& dataSet);
  virtual void EraseDataSetStream(int number);

 private:
  // What the project keeps of one dataset.
  struct StoredDataSet {
    std::string stream;
    boost::shared_ptr<NCDataSetInfo const> info;
    boost::shared_ptr<NCDataSet const> loaded;  // null while not loaded
  };

  bool IsTaken(unsigned long id) const;

  std::unique_ptr<NCVariables> mVariables;
  std::unique_ptr<NCObservations> mObservations;
  std::unique_ptr<BatchImportSettings> mSettings;
  std::unique_ptr<RUSPData> mRUSPData;
  std::map<int, StoredDataSet> mDataSets;
  ChangeCheck mChangeCheck;
  unsigned long mLastUniqueID = 0;
  int mDependencyCount = 0;
  int mBatchIdentifierSeries = 0;
};

#endif  // NCDS_PROJECT_NCPROJECT_H
