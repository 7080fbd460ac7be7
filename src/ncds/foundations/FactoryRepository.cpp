#include "ncds/foundations/FactoryRepository.h"

#include <map>
#include <mutex>

namespace OBJCREAT_Details {

ProductFactoryBase::~ProductFactoryBase() = default;

struct FactoryRepositoryBase::Impl {
  mutable std::mutex mutex;
  std::map<std::string, std::unique_ptr<ProductFactoryBase>> byName;
  std::map<std::string, std::string> nameByType;  // typeid name -> registered name
};

FactoryRepositoryBase::FactoryRepositoryBase() : mImpl(std::make_unique<Impl>()) {}

FactoryRepositoryBase& FactoryRepositoryBase::Instance() {
  static FactoryRepositoryBase* repository = new FactoryRepositoryBase;  // never destroyed
  return *repository;
}

void FactoryRepositoryBase::Register(std::unique_ptr<ProductFactoryBase> factory) {
  if (!factory) return;
  std::lock_guard<std::mutex> lock(mImpl->mutex);
  const std::string name = factory->GetName();
  if (mImpl->byName.count(name)) return;
  mImpl->nameByType.emplace(factory->GetType().name(), name);
  mImpl->byName.emplace(name, std::move(factory));
}

const ProductFactoryBase* FactoryRepositoryBase::GetFactory(const std::string& name) const {
  std::lock_guard<std::mutex> lock(mImpl->mutex);
  auto it = mImpl->byName.find(name);
  return it == mImpl->byName.end() ? nullptr : it->second.get();
}

std::string FactoryRepositoryBase::GetRealName(const std::string& name) const {
  std::lock_guard<std::mutex> lock(mImpl->mutex);
  if (mImpl->byName.count(name)) return name;
  auto it = mImpl->nameByType.find(name);
  return it == mImpl->nameByType.end() ? std::string() : it->second;
}

std::string FactoryRepositoryBase::GetRealName(const std::type_info& type) const {
  return GetRealName(std::string(type.name()));
}

}  // namespace OBJCREAT_Details
