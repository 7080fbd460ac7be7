#ifndef NCDS_DATASET_NCPROJECTBASE_H
#define NCDS_DATASET_NCPROJECTBASE_H

// What the library asks of the project that owns its datasets. The application implements
// the project and owns it (and through it its datasets) by `boost::shared_ptr`; datasets keep
// only a weak reference. The project owns the project-wide variable and observation metadata,
// hands out unique IDs, decides whether variables that models depend on may change, keeps the
// batch import settings, and stores datasets by number.
//
// Only the operations the library calls are declared here; everything else a project does is
// the application's business. All calls come from the thread that works on the project.

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>

#include "ncds/dataset/UniqueIDFactory.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class BatchImportSettings;
class NCDataContainerBase;
class NCDataSet;
class NCObservations;
class NCVariables;

class NCDS_EXPORT NCProjectBase : public UniqueIDFactory,
                                  public boost::enable_shared_from_this<NCProjectBase> {
 public:
  // Whether the variables `variableIDs` of dataset `dataSetNumber` may change (their values,
  // or their presence). May ask the user through `UserComm`. A refusal leaves the caller's
  // object unchanged.
  virtual bool CanChangeVariables(int dataSetNumber,
                                  const NCIntegralVector<unsigned long, 0>& variableIDs) = 0;

  // The project's variable metadata.
  virtual NCVariables& GetVariables() = 0;
  virtual const NCVariables& GetVariables() const = 0;

  // The observation metadata through which an observation's ID texts are resolved.
  virtual const NCObservations& GetObservationIDSource() const = 0;

  // The project's observation metadata.
  virtual NCObservations& GetObservations() = 0;
  virtual const NCObservations& GetObservations() const = 0;

  // How many models and other objects depend on the project's data; while positive,
  // resetting trimmed values and sorting must pass `CanChangeVariables` first.
  virtual int GetDependencyCount() const = 0;

  virtual const BatchImportSettings& GetBatchImportSettings() const = 0;
  virtual void SetBatchImportSettings(const BatchImportSettings& settings) = 0;

  // Stores `dataSet` under its number, replacing what was stored there; false when it
  // could not be stored (the project keeps what it had).
  virtual bool SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) = 0;

  // The dataset stored under `number`, or null.
  virtual boost::shared_ptr<NCDataContainerBase const> GetDataContainer(int number) const = 0;

  // The observation ID series that identifies batches for local centering; 0 when the
  // project designates none.
  virtual int GetBatchIdentifierSeries() const = 0;

  virtual ~NCProjectBase();

 protected:
  NCProjectBase() = default;
  NCProjectBase(const NCProjectBase&) = delete;
  NCProjectBase& operator=(const NCProjectBase&) = delete;
};

#endif  // NCDS_DATASET_NCPROJECTBASE_H
