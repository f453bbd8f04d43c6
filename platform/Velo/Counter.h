#pragma once

#include <Nimnet/Pkt.h>
#include <Velo/Registered.h>
#include <Zeb/Attributes.h>

namespace CtrPool {

/// The pool that counters of one use are taken from; shown with a collection, and part of its identity.
enum class FeatureId : uint32_t {};

}  // namespace CtrPool

namespace Velo::Counter {

/// Counts packets and their octets on the wire. A count is announced as a change of `packets`, at no cost
/// when nobody follows the counter.
class PktCounter : public Zeb::Entity {
  ZEB_ENTITY(PktCounter, Zeb::Entity)

 public:
  void count(const Kelp::Ptr<const Nimnet::Pkt>& pkt) {
    ++packets_;
    bytes_ += pkt->wireLength();
    publishChange(packetsAttribute());
  }
  /// Counts one packet of so many octets on the wire that nobody follows; hasSubscribers() says so.
  void countUnfollowed(uint64_t wireLength) {
    ++packets_;
    bytes_ += wireLength;
  }
  /// Sets the counts, for instance to those of an earlier process.
  void countsAre(uint64_t packets, uint64_t bytes) {
    packets_ = packets;
    bytes_ = bytes;
    publishChange(packetsAttribute());
  }
  uint64_t packets() const { return packets_; }
  uint64_t bytes() const { return bytes_; }
  ZEB_ROW(packets, Zeb::ValueAttribute<ZebSelf, &ZebSelf::packets_> row("packets"))
  ZEB_ROW(bytes, Zeb::ValueAttribute<ZebSelf, &ZebSelf::bytes_> row("bytes"))

 private:
  uint64_t packets_ = 0;
  uint64_t bytes_ = 0;
};

/// A named collection of packet counters. Derived types decide what the key of a counter is.
class PktCounterCollectionBase : public Zeb::Entity {
  ZEB_ENTITY(PktCounterCollectionBase, Zeb::Entity)

 public:
  CtrPool::FeatureId featureId() const { return featureId_; }

 protected:
  PktCounterCollectionBase(Kelp::String name, CtrPool::FeatureId featureId)
      : Entity(std::move(name)), featureId_(featureId) {}

 private:
  CtrPool::FeatureId featureId_;
};

/// The counter collections of all plugins, by name.
class PktCounterCollectionHolder : public Zeb::Entity {
  ZEB_ENTITY(PktCounterCollectionHolder, Zeb::Entity)

 public:
  explicit PktCounterCollectionHolder(const Registrant& registrant) : registrant_(registrant) {}

  using Map = Zeb::HashMap2018<Kelp::String, Registered<PktCounterCollectionBase>>;
  const Map& collection() const { return collection_; }
  /// The collection of a name, null when there is none.
  Kelp::Ptr<PktCounterCollectionBase> collection(const Kelp::String& name) const {
    const auto* known = collection_.find(name);
    return known ? known->object : nullptr;
  }
  /// Files a collection under its name, in place of another of that name.
  void collectionIs(const Kelp::Ptr<PktCounterCollectionBase>& collection) {
    zebPut(collectionAttribute(), collection_, collection->name(), {collection, registrant_.current()});
  }
  void collectionsDelBy(Registrant::Id who) {
    for (auto at = collection_.begin(); at; at.next()) {
      if (at.value().by == who) zebErase(collectionAttribute(), collection_, at.key());
    }
  }
  ZEB_ROW(collection, Zeb::CollectionAttribute<ZebSelf, &ZebSelf::collection_> row("collection"))

 private:
  const Registrant& registrant_;
  Map collection_;
};

}  // namespace Velo::Counter
