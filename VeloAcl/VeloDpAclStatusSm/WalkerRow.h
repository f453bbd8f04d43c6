#pragma once

#include <VeloAcl/VeloDpAclStatusSm/Children.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanOperations.h>
#include <VeloAcl/VeloDpAclStatusSm/TopWalker.h>

#include <tuple>
#include <type_traits>
#include <utility>

/// What a walker is declared with, so that its declaration reads like a row of the table in Walkers.h: its
/// place, what it walks, its child, and its scans with their handlers.
namespace Velo::VeloAcl {

/// The numbers of the scans that a walker takes part in, which follow each other.
template <int firstNumber, int... others>
struct Scans {
  static constexpr int first = firstNumber;
  static constexpr int count = 1 + sizeof...(others);
  template <class W>
  struct Operations : ScanOperations<W, firstNumber>, ScanOperations<W, others>... {};
};

/// The collections that a walker walks: one in all scans, or each scan its own. A collection says
///   Entity                          what has it
///   elements(entity), attribute()   the collection or SingleElement, and what announces its changes
///   at(entity, key)                 where children walk the elements: the entity of a key, null for none
///   missed                          what the process ends with when a change was not handled, if it does
template <class First, class... Others>
struct Walks {
  using Entity = typename First::Entity;
  using Key = typename std::remove_cvref_t<decltype(First::elements(std::declval<const Entity&>()))>::Key;
  static constexpr size_t count = 1 + sizeof...(Others);
  static constexpr size_t indexOf(size_t scan) { return count == 1 ? 0 : scan; }
  template <size_t scan>
  using Of = std::tuple_element_t<indexOf(scan), std::tuple<First, Others...>>;
};

/// Calls `visit.operator()<at>()` for every `at` below a count.
template <size_t count, class Visit>
void forEachAt(const Visit& visit) {
  [&]<size_t... at>(std::index_sequence<at...>) { (visit.template operator()<at>(), ...); }
  (std::make_index_sequence<count>());
}

/// A scan's row: what handles an element in it, what handles a change of one, and, where the elements are
/// leaves of the scan, what tells those above that one which is still there is withdrawn.
template <auto handler, auto reactorHandler, auto withdrawal = nullptr>
struct Handlers {
  static constexpr auto handle = handler;
  static constexpr auto reactor = reactorHandler;
  static constexpr auto withdraw = withdrawal;
  static constexpr bool isLeaf = !std::is_null_pointer_v<decltype(withdrawal)>;
};
template <class... Scan>
using HandlerTable = std::tuple<Scan...>;

/// Places: that of the machine's own walkers, and below another, by a key if that has several.
struct Top {
  template <class Entity>
  using Base = TopWalker<Entity>;
};
template <class ParentWalker, class OwnKey = void>
struct Below;

template <class Entity, class Parent>
class WalkerBelow : public WalkerOf<Entity> {
 protected:
  using WalkerOf<Entity>::WalkerOf;
  Parent* parentSm() const { return static_cast<Parent*>(this->parent()); }
};
template <class Entity, class Parent, class OwnKey>
class KeyedWalkerBelow : public WalkerBelow<Entity, Parent> {
 public:
  const OwnKey& key() const { return key_; }

 protected:
  KeyedWalkerBelow(std::string_view name, VeloDpAclStatusSm& machine, Parent* parent,
                   Kelp::Ptr<const Zeb::Entity> entity, const OwnKey& key)
      : WalkerBelow<Entity, Parent>(name, machine, parent, std::move(entity)), key_(key) {}

 private:
  const OwnKey key_;
};
template <class Parent>
struct Below<Parent, void> {
  template <class Entity>
  using Base = WalkerBelow<Entity, Parent>;
};
template <class Parent, class OwnKey>
struct Below {
  template <class Entity>
  using Base = KeyedWalkerBelow<Entity, Parent, OwnKey>;
};

/// Children.
struct NoChild {};
template <class Key, class Child>
struct ChildrenOf {
  using Type = ChildWalkers<Key, Child>;
};
template <class Child>
struct ChildrenOf<SingleElement::Key, Child> {
  using Type = OnlyChild<Child>;
};
template <class Key>
struct ChildrenOf<Key, NoChild> {
  using Type = NoChildren;
};

}  // namespace Velo::VeloAcl
