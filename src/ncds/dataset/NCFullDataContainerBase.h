#ifndef NCDS_DATASET_NCFULLDATACONTAINERBASE_H
#define NCDS_DATASET_NCFULLDATACONTAINERBASE_H

// A container that also holds values: single cells as text and the whole matrix for the
// modelling code. `GetData` is the one entry for the matrix; each container implements
// `DoGetData`, so that what every retrieval must do stays in one place.

#include <boost/shared_ptr.hpp>
#include <string>

#include "ncds/dataset/NCDataContainerBase.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/ncds_export.h"

class DefaultCenterValues;

class NCDS_EXPORT NCFullDataContainerBase : public NCDataContainerBase {
 public:
  explicit NCFullDataContainerBase(boost::shared_ptr<NCProjectBase> project);
  ~NCFullDataContainerBase() override;

  // The cell of row `obs` and column `var` (both from 1) as text.
  virtual std::string GetStrValue(int obs, int var) const = 0;

  // The values as a new matrix, observations × variables; with `centered`, locally centered
  // (each group's stored centers subtracted, `defaults` standing in where a group has none;
  // `defaults` may be null).
  NCDataMatrix<float> GetData(bool centered,
                              boost::shared_ptr<DefaultCenterValues const> defaults) const;

 protected:
  NCFullDataContainerBase(const NCFullDataContainerBase&) = default;
  NCFullDataContainerBase& operator=(const NCFullDataContainerBase&) = default;

  virtual NCDataMatrix<float> DoGetData(
      bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const = 0;
};

#endif  // NCDS_DATASET_NCFULLDATACONTAINERBASE_H
