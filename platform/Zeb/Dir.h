#pragma once

#include <Zeb/Attributes.h>

namespace Zeb {

/// A directory of entities by name, iterated in the order of the names. It owns its entries.
class Dir : public Entity {
  ZEB_ENTITY(Dir, Entity)

 public:
  explicit Dir(Kelp::String name = {}) : Entity(std::move(name)) {}

  using EntryMap = OrderedMap<Kelp::String, Owned<Entity>>;
  const EntryMap& entry() const { return entry_; }
  Kelp::Ptr<const Entity> entry(const Kelp::String& key) const {
    const auto* known = entry_.find(key);
    return known ? known->ptr() : nullptr;
  }
  /// Files an entity under its own name, in place of another of that name. Null files nothing.
  bool entryIs(const Kelp::Ptr<Entity>& entity) {
    if (!entity) return false;
    const auto* known = entry_.find(entity->name());
    if (known && known->get() == entity.get()) return false;
    return zebPut(entryAttribute(), entry_, entity->name(), Owned<Entity>(this, entity));
  }
  Kelp::Ptr<Entity> entryDel(const Kelp::String& key) { return zebEraseChild(entryAttribute(), entry_, key); }
  ZEB_ROW(entry, CollectionAttribute<ZebSelf, &ZebSelf::entry_> row("entry"))

 private:
  EntryMap entry_;
};

}  // namespace Zeb
