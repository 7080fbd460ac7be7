#ifndef NCDS_DATASET_NCDATACONTAINERBASE_H
#define NCDS_DATASET_NCDATACONTAINERBASE_H

// How every dataset-like object (a dataset, the light description of a stored one,
// prediction data) is seen by the rest of the system: its number and kind in the project, its
// rows (observation records) and columns (variable IDs), the ID series in use, and its batch
// structure. Rows and columns are numbered from 1.
//
// A container belongs to a project but refers to it weakly: the project owns its datasets.
// `GetProject` answers null once the project is gone, and the container then answers empty
// texts. One thread at a time.

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <string>
#include <vector>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class BatchInfoVector;
class NCProjectBase;
class ObservationInfo;
class VariableInfo;

class NCDS_EXPORT NCDataContainerBase {
 public:
  explicit NCDataContainerBase(boost::shared_ptr<NCProjectBase> project);
  virtual ~NCDataContainerBase();

  // The project, or null once it is gone.
  boost::shared_ptr<NCProjectBase> GetProject();
  boost::shared_ptr<NCProjectBase const> GetProject() const;

  // The container's number in its project.
  virtual int GetNumber() const = 0;
  // The data type word: 1 ordinary; bit 32 batch data; bits 16 and 64 further kinds.
  virtual int GetDataType() const = 0;
  // The observation record of every row, in row order.
  virtual const VarObsInfoVector<ObservationInfo>& GetObservationInfoVector() const = 0;
  // The variable ID of every column, in column order.
  virtual NCIntegralVector<unsigned long, 0> GetVarIDs() const = 0;
  virtual int SizeObservations() const;
  virtual int SizeVariables() const;
  // The observation (variable) ID series in use, by number.
  virtual const std::vector<int>& GetUsedObsAliases() const = 0;
  virtual const std::vector<int>& GetUsedVarAliases() const = 0;
  // The variable ID of column `index`; 0 outside 1..SizeVariables(). The default copies
  // `GetVarIDs()`: containers that hold their IDs answer directly.
  virtual unsigned long GetVarID(int index) const;
  // The record of row `index`, which must lie within 1..SizeObservations().
  virtual const ObservationInfo* GetObservationInfo(int index) const;
  // The project's record of the variable of column `index`; null when there is none.
  virtual const VariableInfo* GetVariableInfo(int index) const;
  // The ID of row (column) `index` in ID series `aliasSeries`; empty when the project is gone
  // or `index` is outside 1..size. A row without its record throws `NCError`.
  virtual const std::string& GetObservationID(int index, int aliasSeries) const;
  virtual const std::string& GetVariableID(int index, int aliasSeries) const = 0;
  // The batches, or null for a container without batch structure.
  virtual boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const = 0;
  // The names of the batches in order; empty without batch structure.
  virtual NCStringVector GetBatchNames() const;

 protected:
  NCDataContainerBase(const NCDataContainerBase&) = default;
  NCDataContainerBase& operator=(const NCDataContainerBase&) = default;

 private:
  boost::weak_ptr<NCProjectBase> mProject;
};

#endif  // NCDS_DATASET_NCDATACONTAINERBASE_H
