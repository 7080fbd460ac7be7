#ifndef NCDS_FOUNDATIONS_FACTORYREPOSITORY_H
#define NCDS_FOUNDATIONS_FACTORYREPOSITORY_H

// The process-wide registry of factories for records stored polymorphically. A stream holds
// such a record as its registered class name followed by the object; the reader asks the
// repository for the factory of that name and reads into the object it creates.
//
// Classes register once, at library load, with `FactoryRegistration<T>` at namespace scope
// in their own source file. Registration and lookup are safe from several threads.

#include <memory>
#include <string>
#include <typeinfo>

#include "ncds/foundations/VStreamBase.h"
#include "ncds/ncds_export.h"

namespace OBJCREAT_Details {

class NCDS_EXPORT ProductFactoryBase {
 public:
  explicit ProductFactoryBase(std::string name) : mName(std::move(name)) {}
  virtual ~ProductFactoryBase();

  const std::string& GetName() const { return mName; }
  // A new default-constructed object of the registered class.
  virtual std::unique_ptr<VStreamBase> Create() const = 0;
  // The type of the objects `Create` makes.
  virtual const std::type_info& GetType() const = 0;

 private:
  std::string mName;
};

template <class T>
class ProductFactory final : public ProductFactoryBase {
 public:
  using ProductFactoryBase::ProductFactoryBase;
  std::unique_ptr<VStreamBase> Create() const override { return std::make_unique<T>(); }
  const std::type_info& GetType() const override { return typeid(T); }
};

class NCDS_EXPORT FactoryRepositoryBase {
 public:
  static FactoryRepositoryBase& Instance();

  // Registers `factory` under its name; a second registration of a name is ignored.
  void Register(std::unique_ptr<ProductFactoryBase> factory);
  // The factory registered under `name`, or nullptr.
  const ProductFactoryBase* GetFactory(const std::string& name) const;
  // The registered name of the class of `type` (as `typeid` gives it), or of a registered
  // name itself; empty when neither is known.
  std::string GetRealName(const std::string& name) const;
  std::string GetRealName(const std::type_info& type) const;

 private:
  FactoryRepositoryBase();
  struct Impl;
  std::unique_ptr<Impl> mImpl;
};

}  // namespace OBJCREAT_Details

// Registers the factory of `T` under `name` when constructed; define one at namespace scope.
template <class T>
struct FactoryRegistration {
  explicit FactoryRegistration(const char* name) {
    OBJCREAT_Details::FactoryRepositoryBase::Instance().Register(
        std::make_unique<OBJCREAT_Details::ProductFactory<T>>(name));
  }
};

#endif  // NCDS_FOUNDATIONS_FACTORYREPOSITORY_H
