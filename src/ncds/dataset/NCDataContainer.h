#ifndef NCDS_DATASET_NCDATACONTAINER_H
#define NCDS_DATASET_NCDATACONTAINER_H

// A full container with phase structure: the base of the dataset.

#include <boost/shared_ptr.hpp>

#include "ncds/dataset/NCFullDataContainerBase.h"
#include "ncds/ncds_export.h"

class ClassInfoVector;

class NCDS_EXPORT NCDataContainer : public NCFullDataContainerBase {
 public:
  explicit NCDataContainer(boost::shared_ptr<NCProjectBase> project);
  ~NCDataContainer() override;

  // The phases, or null for a container without phases.
  virtual boost::shared_ptr<ClassInfoVector const> GetPhaseInfoVector() const = 0;

 protected:
  NCDataContainer(const NCDataContainer&) = default;
  NCDataContainer& operator=(const NCDataContainer&) = default;
};

#endif  // NCDS_DATASET_NCDATACONTAINER_H
