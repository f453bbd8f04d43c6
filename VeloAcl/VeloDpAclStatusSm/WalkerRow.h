#pragma once

#include <VeloAcl/VeloDpAclStatusSm/Children.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanOperations.h>
#include <VeloAcl/VeloDpAclStatusSm/TopWalker.h>

#include <tuple>
#include <type_traits>
#include <utility>

/// The parts of a walker's declaration, so that it reads like a row of the table in Walkers.h: its place,
/// what it walks, its child, and its scans with their handlers.
namespace Velo::VeloAcl {

/// The numbers of the scans that a walker takes part in, in ascending order without gaps.
template <int firstNumber, int... others>
struct Scans {
  static constexpr int first = firstNumber;
  static constexpr int count = 1 + sizeof...(others);
  template <class W>
  struct Operations : ScanOperations<W, firstNumber>, ScanOperations<W, others>... {};
};

/// The collections that a walker walks: one in all scans, or one for each scan. A collection declares
///   Entity                          the entity that has it
///   elements(entity), attribute()   the collection or SingleElement, and the attribute that announces it
///   at(entity, key)                 if the elements have child walkers: the entity of a key, null for none
///   missed                          if a change that was not handled ends the process: the text for that
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

/// The row of a scan: the handler of an element, the handler of a change of one, and, if the elements are
/// leaves in this scan, the function that tells the walkers above that an element is withdrawn.
template <auto handler, auto reactorHandler, auto withdrawal = nullptr>
struct Handlers {
  static constexpr auto handle = handler;
  static constexpr auto reactor = reactorHandler;
  static constexpr auto withdraw = withdrawal;
  static constexpr bool isLeaf = !std::is_null_pointer_v<decltype(withdrawal)>;
};
template <class... Scan>
using HandlerTable = std::tuple<Scan...>;

/// Places of walkers: directly in the machine, or below another walker, with a key if that one has several
/// children.
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

/// Kinds of children.
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
