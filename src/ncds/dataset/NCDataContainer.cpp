#include "ncds/dataset/NCDataContainer.h"

#include <utility>

NCDataContainer::NCDataContainer(boost::shared_ptr<NCProjectBase> project)
    : NCFullDataContainerBase(std::move(project)) {}

NCDataContainer::~NCDataContainer() = default;
