#include "ncds/dataset/NCFullDataContainerBase.h"

#include <utility>

NCFullDataContainerBase::NCFullDataContainerBase(boost::shared_ptr<NCProjectBase> project)
    : NCDataContainerBase(std::move(project)) {}

NCFullDataContainerBase::~NCFullDataContainerBase() = default;

NCDataMatrix<float> NCFullDataContainerBase::GetData(
    bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const {
  return DoGetData(centered, std::move(defaults));
}
