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
// Compound datasets (`CompoundDataset`: several datasets seen as one) share the numbers of the
// datasets: a number is a dataset's or a compound's, never both. The project keeps its own
// copy of each compound and refreshes them whenever a dataset is saved, restored, loaded,
// unloaded or removed. Removing a dataset leaves the compounds that include it in place,
// reporting it among their missing members (and answering empty) until a dataset is stored
// under that number again. Auxiliary data (`AuxiliaryData`) is kept by name for the models.
// Both belong to the project's metadata; how they are stored is the concern of the subclass
// (`WriteCompoundDatasets`, `WriteAuxiliaryData`).
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

class AuxiliaryData;
class CompoundDataset;
class FullCompoundDataset;
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
  // `dataSet` as the loaded dataset of that number. False when it could not be written or its
  // number is a compound's; the project keeps what it had.
  bool SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) override;
  // The loaded dataset of `number`, else its description, else the compound of that number;
  // null when none is stored.
  boost::shared_ptr<NCDataContainerBase const> GetDataContainer(int number) const override;
  // The description of the dataset saved under `number`, or null.
  boost::shared_ptr<NCDataSetInfo const> GetDataSetInfo(int number) const;
  // The numbers of the stored datasets, ascending.
  std::vector<int> GetDataSetNumbers() const;
  // The lowest number from 1 that no dataset (a damaged one in a file included) and no
  // compound dataset has: the number of the next new dataset.
  int GetFreeNumber() const;
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
  // read only when the dataset is loaded. False for a null description or a compound's number.
  bool RestoreDataSet(std::string stream, boost::shared_ptr<NCDataSetInfo const> info);
  // Forgets the dataset stored under `number`; false when there is none (a compound is removed
  // with `RemoveCompoundDataset`). Compounds that include it keep it as a missing member.
  virtual bool RemoveDataSet(int number);

  // ---- Compound datasets ----
  using CompoundDatasets = std::map<int, boost::shared_ptr<CompoundDataset const>>;
  // Hands out a dataset with its values by number, as `FullCompoundDataset` asks for them.
  using DataSetLoader = std::function<boost::shared_ptr<NCDataSet const>(int number)>;

  // Keeps a copy of `compound` under its number, replacing the compound stored there. Throws
  // `NCError` when the number is taken by a dataset or a member is a compound's number (the
  // compound's own included), and `InvalidArgument` for a compound of another project; the
  // project then keeps what it had. Members the project does not hold are allowed (missing).
  void SetCompoundDataset(const CompoundDataset& compound);
  // The compound stored under `number`, or null.
  boost::shared_ptr<CompoundDataset const> GetCompoundDataset(int number) const;
  // The numbers of the stored compounds, ascending.
  std::vector<int> GetCompoundDatasetNumbers() const;
  // Forgets compound `number`; false when there is none.
  bool RemoveCompoundDataset(int number);
  // Compound `number` with its values, taken through `GetDataSetLoader`; null when no
  // compound is stored under `number`.
  boost::shared_ptr<FullCompoundDataset> MakeFullCompoundDataset(int number);
  // A loader that answers the loaded dataset of a number, else loads it (`LoadDataSet`: it
  // stays loaded); null when none is stored, its stream is damaged or the project is gone
  // (the loader refers to the project weakly). A damaged project file throws `NCError`.
  DataSetLoader GetDataSetLoader();

  // ---- Auxiliary data ----
  using AuxiliaryDataByName = std::map<std::string, boost::shared_ptr<AuxiliaryData const>>;

  // Keeps `data` under `name`, replacing what was kept there. Throws `NCError` for an empty
  // name; the project then keeps what it had.
  void SetAuxiliaryData(const std::string& name, AuxiliaryData data);
  // The data kept under `name`, or null. A later set replaces it without changing this copy.
  boost::shared_ptr<AuxiliaryData const> GetAuxiliaryData(const std::string& name) const;
  // The names of the data kept, sorted.
  std::vector<std::string> GetAuxiliaryDataNames() const;
  // Forgets the data kept under `name`; false when there is none.
  bool RemoveAuxiliaryData(const std::string& name);

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
  // Where compounds and auxiliary data go when they change: called with the whole new
  // collection before the project takes it. This project keeps them in memory only; a project
  // kept in a file writes them and may throw `NCError`, and the project then keeps what it had.
  virtual void WriteCompoundDatasets(const CompoundDatasets& compounds);
  virtual void WriteAuxiliaryData(const AuxiliaryDataByName& data);
  // Whether `number` belongs to a dataset: a stored one here; a project file adds the numbers
  // of its damaged datasets.
  virtual bool IsDataSetNumber(int number) const;

  const CompoundDatasets& GetCompoundDatasets() const { return mCompounds; }
  const AuxiliaryDataByName& GetAuxiliaryDataByName() const { return mAuxiliary; }
  // Takes collections read from storage as they are, without the checks of the setters and
  // without writing them.
  void RestoreCompoundDatasets(CompoundDatasets compounds);
  void RestoreAuxiliaryData(AuxiliaryDataByName data);

 private:
  // What the project keeps of one dataset.
  struct StoredDataSet {
    std::string stream;
    boost::shared_ptr<NCDataSetInfo const> info;
    boost::shared_ptr<NCDataSet const> loaded;  // null while not loaded
  };

  bool IsTaken(unsigned long id) const;
  // Has every compound work out its rows and columns again: a dataset changed.
  void RefreshCompounds() const;

  std::unique_ptr<NCVariables> mVariables;
  std::unique_ptr<NCObservations> mObservations;
  std::unique_ptr<BatchImportSettings> mSettings;
  std::unique_ptr<RUSPData> mRUSPData;
  std::map<int, StoredDataSet> mDataSets;
  CompoundDatasets mCompounds;
  AuxiliaryDataByName mAuxiliary;
  ChangeCheck mChangeCheck;
  unsigned long mLastUniqueID = 0;
  int mDependencyCount = 0;
  int mBatchIdentifierSeries = 0;
};

#endif  // NCDS_PROJECT_NCPROJECT_H
