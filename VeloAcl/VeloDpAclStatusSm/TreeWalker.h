#pragma once

#include <VeloAcl/VeloDpAclStatusSm/WalkerRow.h>

namespace Velo::VeloAcl {

/// What all ten walkers are. A walker `W` derives from this with its row (WalkerRow.h) and adds
///   walkerName     its name in traces
///   Table          its handlers, a row a scan
///   streamScanIs   a top walker: what tells the machine that a pass of a scan is over, scan by scan
/// and the handlers themselves: follow() where elements have walkers of their own, and for a leaf visits()
/// and its event.
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

  /// The child of an element, made when there is none; of an attribute, without a key.
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
    forEachScan([&]<size_t at>() {
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

  /// What a handler of a scan does first, with the key that it is about: false when that is all.
  template <int number = ScanNumbers::first, class Shown>
  bool visits(const Shown& key, int line = __builtin_LINE()) {
    if (!this->active()) return false;
    traceStatusAt(line, 8, "k: {}", key);
    using Visited = typename Walked::template Of<number - first>;
    versions_[Walked::indexOf(number - first)] = Visited::elements(*this->raw()).version();
    return true;
  }
  /// The handler of an element with a walker of its own, and of an attribute that names one.
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

  W& self() { return static_cast<W&>(*this); }
  template <class Visit>
  static void forEachScan(const Visit& visit);
  template <class Visit>
  static void forEachCollection(const Visit& visit);
  template <auto handler>
  void call(const Key& key);
  template <size_t at>
  void scanOne();
  template <size_t at>
  void withdrawLeaves();

  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void versionsSeen() override;
  uint64_t mark() const override;
  void handleScanDone(int number) override;

  typename ChildrenOf<Key, Child>::Type children_;
  std::array<ScanPlace<Key>, ScanNumbers::count> places_;
  std::array<uint32_t, Walked::count> versions_{};
};

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <class Visit>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::forEachScan(const Visit& visit) {
  [&]<size_t... at>(std::index_sequence<at...>) { (visit.template operator()<at>(), ...); }
  (std::make_index_sequence<ScanNumbers::count>());
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <class Visit>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::forEachCollection(const Visit& visit) {
  [&]<size_t... at>(std::index_sequence<at...>) { (visit.template operator()<at>(), ...); }
  (std::make_index_sequence<Walked::count>());
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <auto handler>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::call(const Key& key) {
  if constexpr (std::is_invocable_v<decltype(handler), W&, const Key&>) {
    (self().*handler)(key);
  } else {
    (self().*handler)();
  }
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <size_t at>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::scanOne() {
  using Scan = std::tuple_element_t<at, typename W::Table>;
  const auto handle = [this](const Key& key) { call<Scan::handle>(key); };
  const auto childOf = [&]([[maybe_unused]] const Key& key) -> Kelp::Ptr<Walker> {
    if constexpr (Scan::isLeaf) {
      return nullptr;
    } else {
      return children_.find(key);
    }
  };
  const auto scanThose = [&](const auto* elements) {
    this->scanElements(first + int{at}, places_[at], elements, handle, childOf);
  };
  using Scanned = typename Walked::template Of<at>;
  using Elements = std::remove_cvref_t<decltype(Scanned::elements(*this->raw()))>;
  if (!this->raw()) return scanThose(static_cast<const Elements*>(nullptr));
  const Elements& elements = Scanned::elements(*this->raw());
  scanThose(&elements);
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
template <size_t at>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::withdrawLeaves() {
  using Scan = std::tuple_element_t<at, typename W::Table>;
  if constexpr (Scan::isLeaf) {
    const auto& elements = Walked::template Of<at>::elements(*this->raw());
    for (auto left = elements.begin(); left && this->active(); left.next()) {
      (self().*Scan::withdraw)(left.key());
    }
  }
}

/// Children go first. Of leaves those of the last scan go first.
template <class W, class Place, class Walked, class Child, class ScanNumbers>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::doDeleteAll() {
  if (!this->active()) return;
  traceStatus(9, "");
  forEachCollection([&]<size_t at>() {
    using Checked = typename Walked::template Of<at>;
    if constexpr (requires { Checked::missed; }) {
      KELP_ASSERT(Checked::elements(*this->raw()).version() == versions_[at], Checked::missed);
    }
  });
  children_.delAll();
  if (!this->initialScanDone()) return;
  forEachScan([&]<size_t at>() { withdrawLeaves<ScanNumbers::count - 1 - at>(); });
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::dispatch(const Zeb::Change& change) {
  forEachScan([&]<size_t at>() {
    using Scan = std::tuple_element_t<at, typename W::Table>;
    if (!change.is(Walked::template Of<at>::attribute())) return;
    if constexpr (std::is_same_v<Key, SingleElement::Key>) {
      call<Scan::reactor>(true);
    } else {
      call<Scan::reactor>(change.keyAs<Key>());
    }
  });
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::versionsSeen() {
  forEachCollection(
      [&]<size_t at>() { versions_[at] = Walked::template Of<at>::elements(*this->raw()).version(); });
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
uint64_t TreeWalker<W, Place, Walked, Child, ScanNumbers>::mark() const {
  uint64_t sum = 0;
  forEachCollection([&]<size_t at>() { sum += Walked::template Of<at>::elements(*this->raw()).changes(); });
  return sum;
}

template <class W, class Place, class Walked, class Child, class ScanNumbers>
void TreeWalker<W, Place, Walked, Child, ScanNumbers>::handleScanDone(int number) {
  if constexpr (isTop) {
    Base::handleScanDone(number);
    (this->machine().inputSmScanState().get()->*W::streamScanIs[number - first])(true);
  }
}

}  // namespace Velo::VeloAcl
