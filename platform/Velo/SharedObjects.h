#pragma once

#include <Velo/Registered.h>
#include <Zeb/Attributes.h>

namespace Velo {

/// An object that a plugin offers to the others under a name.
class SharedObject : public Zeb::Entity {
  ZEB_ENTITY(SharedObject, Zeb::Entity)

 protected:
  explicit SharedObject(Kelp::String name) : Entity(std::move(name)) {}
};

/// The objects that plugins share, by name.
class SharedObjects : public Zeb::Entity {
  ZEB_ENTITY(SharedObjects, Zeb::Entity)

 public:
  explicit SharedObjects(const Registrant& registrant) : registrant_(registrant) {}

  using Map = Zeb::HashMap2018<Kelp::String, Registered<SharedObject>>;
  const Map& sharedObject() const { return sharedObject_; }
  /// The object of a name, null when there is none.
  Kelp::Ptr<SharedObject> sharedObject(const Kelp::String& name) const {
    const auto* known = sharedObject_.find(name);
    return known ? known->object : nullptr;
  }
  /// Files an object under its name, in place of another of that name.
  void sharedObjectIs(const Kelp::Ptr<SharedObject>& object) {
    zebPut(sharedObjectAttribute(), sharedObject_, object->name(), {object, registrant_.current()});
  }
  void sharedObjectsDelBy(Registrant::Id who) {
    for (auto at = sharedObject_.begin(); at; at.next()) {
      if (at.value().by == who) zebErase(sharedObjectAttribute(), sharedObject_, at.key());
    }
  }
  ZEB_ROW(sharedObject, Zeb::CollectionAttribute<ZebSelf, &ZebSelf::sharedObject_> row("sharedObject"))

 private:
  const Registrant& registrant_;
  Map sharedObject_;
};

}  // namespace Velo
