#pragma once

#include <VeloAcl/VeloDpAclStatusSm/WalkerRow.h>

namespace Velo::VeloAcl {

/// The base of all walkers. A walker `W` derives from this with its row (WalkerRow.h) and adds
///   walkerName     its name in traces
///   Table          its handlers, a row for each scan
///   streamScanIs   in a top walker, for each scan: the setter that tells the machine that a pass is over
/// and the handlers themselves. They call follow() for elements that have walkers of their own, and for a
/// leaf they call visits() and raise its event.
template <class W, class Place, class Walked, class Child, class ScanNumbers>
class TreeWalker : public Place::template Base<typename Walked::Entity>,
                   public ScanNumbers::template Operations<W> {
  using Base = typename Place::template Base<typename Walked::Entity>;

 public:
  using Entity = typename Walked::Entity;
  using Key = typename Walked::Key;

  TreeWalker(const Kelp::Ptr<const Entity>& entity, VeloDpAclStatusSm& machine)
      : Base(W::walkerName, machine, nullptr, entity) {}
  template <class Parent, class... OwnKey>
  TreeWalker(const Kelp::Ptr<const Entity>& entity, Parent& parent, const OwnKey&... key)
      : Base(W::walkerName, parent.machine(), &parent, entity, key...) {}

  /// The child of an element; made when there is none. Without a key for a walker over an attribute.
  template <class ChildEntity, class... OwnKey>
  Kelp::Ptr<Child> childIs(const Kelp::Ptr<const ChildEntity>& entity, const OwnKey&... key) {
    return children_.is(entity, self(), key...);
  }
  void childDelAll() { children_.delAll(); }

  void doInputScan() override {
    for (int number = first; number < first + ScanNumbers::count; ++number) {
      if (!this->active()) return;
      if constexpr (isTop) {
        this->startScan(number);
      } else {
        scan(number);
      }
    }
  }
  void scan(int number) override {
    forEachAt<ScanNumbers::count>([&]<size_t at>() {
      if (number == first + int{at}) scanOne<at>();
    });
  }
  bool scanComplete(int number) const override { return this->placeComplete(places_[number - first]); }
  void doDeleteAll() override;

 protected:
  template <class... OwnKey>
  void childDel(const OwnKey&... key) {
    children_.del(key...);
  }

  /// To be called first in a handler, with the key that it is about. When it returns false the handler must
  /// return.
  template <int number = ScanNumbers::first, class Shown>
  bool visits(const Shown& key, int line = __builtin_LINE()) {
    if (!this->active()) return false;
    traceStatusAt(line, 8, "k: {}", key);
    versions_[Walked::indexOf(number - first)] = elementsOf<number - first>().version();
    return true;
  }
  /// Handlers for elements that have walkers of their own: in a collection, and of an attribute that names
  /// one.
  void follow(const Key& key, int line = __builtin_LINE()) {
    if (visits(key, line)) children_.follow(Collection::at(*this->raw(), key), self(), key);
  }
  void followNamed(int line = __builtin_LINE()) {
    if (visits(this->key(), line)) children_.follow([this] { return Collection::at(*this->raw()); }, self());
  }

 private:
  static constexpr bool isTop = std::is_same_v<Place, Top>;
  static constexpr int first = ScanNumbers::first;
  using Collection = typename Walked::template Of<0>;
  /// A row of W's table. (`Complete` defers the look at W until W is complete.)
  template <size_t at, class Complete = W>
  using ScanAt = std::tuple_element_t<at, typename Complete::Table>;

  W& self() { return static_cast<W&>(*this); }
  /// The elements that are walked in a scan.
  template <size_t at>
  decltype(auto) elementsOf() const {
    return Walked::template Of<at>::elements(*this->raw());
  }
  template <auto handler>
  void call(const Key& key) {
    if constexpr (std::is_invocable_v<decltype(handler), W&, const Key&>) {
      (self().*handler)(key);
    } else {
      (self().*handler)();
    }
  }
  template <size_t at>
  void scanOne();
  template <size_t at>
  void withdrawLeaves();

  void dispatch(const Zeb::Change& change) override {
    forEachAt<ScanNumbers::count>([&]<size_t at>() {
      if (!change.is(Walked::template Of<at>::attribute())) return;
      if constexpr (std::is_same_v<Key, SingleElement::Key>) {
        call<ScanAt<at>::reactor>(true);
      } else {
        call<ScanAt<at>::reactor>(change.keyAs<Key>());
      }
    });
  }
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void versionsSeen() override {
    forEachAt<Walked::count>([&]<size_t at>() { versions_[at] = elementsOf<at>().version(); });
  }
  uint64_t mark() const override {
    uint64_t sum = 0;
    forEachAt<Walked::count>([&]<size_t at>() { sum += elementsOf<at>().changes(); });
    return sum;
  }
  void handleScanDone(int number) override {
    if constexpr (isTop) {
      Base::handleScanDone(number);
      (this->machine().inputSmScanState().get()->*W::streamScanIs[number - first])(true);
    }
  }

  typename ChildrenOf<Key, Child>::Type children_;
  std::array<ScanPlace<Key>, ScanNumbers::count> places_;
  std::array<uint32_t, Walked::count> versions_{};
};

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <size_t at>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::scanOne() {
  const auto handle = [this](const Key& key) { call<ScanAt<at>::handle>(key); };
  const auto childOf = [&]([[maybe_unused]] const Key& key) -> Kelp::Ptr<Walker> {
    if constexpr (ScanAt<at>::isLeaf) {
      return nullptr;
    } else {
      return children_.find(key);
    }
  };
  const auto scanThose = [&](const auto* elements) {
    this->scanElements(first + int{at}, places_[at], elements, handle, childOf);
  };
  using Elements = std::remove_cvref_t<decltype(elementsOf<at>())>;
  if (!this->raw()) return scanThose(static_cast<const Elements*>(nullptr));
  const Elements& elements = elementsOf<at>();
  scanThose(&elements);
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <size_t at>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::withdrawLeaves() {
  if constexpr (ScanAt<at>::isLeaf) {
    const auto& elements = elementsOf<at>();
    for (auto left = elements.begin(); left && this->active(); left.next()) {
      (self().*ScanAt<at>::withdraw)(left.key());
    }
  }
}

/// Children are withdrawn first, then the leaves, from the last scan to the first.
template <class W, class Place, class Walked, class Child, class ScanNumbers>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::doDeleteAll() {
  if (!this->active()) return;
  traceStatus(9, "");
  forEachAt<Walked::count>([&]<size_t at>() {
    using Checked = typename Walked::template Of<at>;
    if constexpr (requires { Checked::missed; }) {
      KELP_ASSERT(elementsOf<at>().version() == versions_[at], Checked::missed);
    }
  });
  children_.delAll();
  if (!this->initialScanDone()) return;
  forEachAt<ScanNumbers::count>([&]<size_t at>() { withdrawLeaves<ScanNumbers::count - 1 - at>(); });
}

}  // namespace Velo::VeloAcl
