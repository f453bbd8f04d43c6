#pragma once

#include <MemSlab/Slab.h>
#include <VeloAcl/VeloDpAclStatusSm/Walker.h>
#include <Zeb/HashMap2018.h>

/// How a walker keeps the walkers below it: many by key, at most one, or none. A child is put here before it
/// starts. So a handler that hears of what the child finds, and changes the configuration, finds the child
/// here.
namespace Velo::VeloAcl {

/// The walker that exists already; it must watch the same entity as the one that is asked for.
template <class Sm, class Entity>
const Kelp::Ptr<Sm>& reused(const Kelp::Ptr<Sm>& known, const Kelp::Ptr<const Entity>& entity,
                            Walker* parent) {
  KELP_ASSERT(known->en() == entity,
              "a child state machine cannot be instantiated again with another entity");
  known->parentIs(parent);
  return known;
}

/// A top walker in its place in the machine; made and started when there is none.
template <class Sm, class Entity>
Kelp::Ptr<Sm> topWalkerIs(Kelp::Ptr<Sm>& place, const Kelp::Ptr<const Entity>& entity,
                          VeloDpAclStatusSm& machine) {
  if (place) return reused(place, entity, nullptr);
  const auto sm = MemSlab::make<Sm>(entity, machine);
  place = sm;
  sm->start();
  return sm;
}

/// The children of a walker over a collection. A child stays here until it has withdrawn everything that came
/// from it; until then no other child with its key can be made.
template <class Key, class Child>
class ChildWalkers {
 public:
  Kelp::Ptr<Child> find(const Key& key) const {
    const auto* known = children_.find(key);
    return known ? *known : nullptr;
  }

  /// The child of a key; made and started when there is none.
  template <class Entity, class Parent>
  Kelp::Ptr<Child> is(const Kelp::Ptr<const Entity>& entity, Parent& parent, const Key& key) {
    if (const auto known = find(key)) return reused(known, entity, &parent);
    const auto child = MemSlab::make<Child>(entity, parent, key);
    children_.put(key, child);
    child->start();
    return child;
  }
  /// Withdraws and ends a child. A handler that hears of the withdrawal may have ended it already.
  void del(const Key& key) {
    const auto child = find(key);
    if (!child) return;
    child->doDeleteAll();
    if (find(key) == child) children_.erase(key);
    child->stop();
  }
  /// Makes sure that there is a child for the entity, or none when that is null.
  template <class Entity, class Parent>
  void follow(const Kelp::Ptr<const Entity>& entity, Parent& parent, const Key& key) {
    if (!entity) return del(key);
    is(entity, parent, key);
  }
  void delAll() {
    for (auto at = children_.begin(); at; at.next()) del(at.key());
  }
  void forEach(const std::function<void(Walker&)>& visit) const {
    for (auto at = children_.begin(); at; at.next()) visit(*at.value());
  }

 private:
  Zeb::HashMap2018<Key, Kelp::Ptr<Child>> children_;
};

/// The one child of a walker over an attribute, which may name another entity at any time. The old child is
/// withdrawn before a new one is made.
template <class Child>
class OnlyChild {
 public:
  const Kelp::Ptr<Child>& find(SingleElement::Key) const { return child_; }

  template <class Entity, class Parent>
  Kelp::Ptr<Child> is(const Kelp::Ptr<const Entity>& entity, Parent& parent) {
    if (child_) return reused(child_, entity, &parent);
    const auto child = MemSlab::make<Child>(entity, parent);
    child_ = child;
    child->start();
    return child;
  }
  void del() {
    const auto child = child_;
    if (!child) return;
    child->doDeleteAll();
    child->stop();
    if (child_ == child) child_ = nullptr;
  }
  /// Makes sure that there is a child for the entity that the attribute names, or none when it names none.
  /// entityNow() reads the attribute: a handler that hears of the withdrawal of the old child may have
  /// changed it.
  template <class EntityNow, class Parent>
  void follow(const EntityNow& entityNow, Parent& parent) {
    if (child_ && child_->en() != entityNow()) del();
    if (!parent.active()) return;
    if (const auto entity = entityNow()) is(entity, parent);
  }
  void delAll() { del(); }
  void forEach(const std::function<void(Walker&)>& visit) const {
    if (const auto child = child_) visit(*child);
  }

 private:
  Kelp::Ptr<Child> child_;
};

/// For a walker without children.
struct NoChildren {
  void delAll() {}
  void forEach(const std::function<void(Walker&)>&) const {}
};

}  // namespace Velo::VeloAcl
