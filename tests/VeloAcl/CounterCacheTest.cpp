#include "../Acl/ChangeLog.h"
#include "World.h"

// The counters that the packet path remembers: they are what a search would find, whatever happens to the
// collection, and never another key's.

namespace {

using namespace TestSupport;
using Collection = Velo::Counter::VeloDpAclCounterColl;
using Key = Velo::Counter::VeloDpAclCounterKey;

Kiv::UniqueId id(uint64_t value) { return Kiv::UniqueId(value); }

class CounterCache : public testing::Test {
 protected:
  static Kelp::Ptr<Collection> collectionOf(const Key& key) {
    const auto made = MemSlab::make<Collection>("C", CtrPool::FeatureId(1));
    made->counterCollectionIs(key);
    return made;
  }
  template <class Cache>
  static auto* find(const Cache& cache, const Kelp::Ptr<Collection>& in, const Key& key) {
    return cache.find(*in, key.direction, key.aclType, key.aclName, key.ruleId);
  }

  const Key key{in, AclType::ip, "L", id(5)};
  const Kelp::Ptr<Collection> collection = collectionOf(key);
  /// One place only, so that everything that is remembered meets in it.
  Velo::VeloAcl::CounterCacheOf<1> cache;
};

TEST_F(CounterCache, FindsWhatItRemembers) {
  EXPECT_EQ(find(cache, collection, key), nullptr);
  cache.remember(*collection, key);
  EXPECT_EQ(find(cache, collection, key), collection->counterCollection(key).get());
}

TEST_F(CounterCache, AKeyThatDiffersInOneFieldIsAnother) {
  struct Row {
    const char* why;
    Key other;
  };
  const Row rows[] = {
      {"direction", {out, AclType::ip, "L", id(5)}},
      {"type", {in, AclType::mac, "L", id(5)}},
      {"name of the list", {in, AclType::ip, "M", id(5)}},
      {"rule id", {in, AclType::ip, "L", id(6)}},
  };
  for (const Row& row : rows) {
    collection->counterCollectionIs(row.other);
    cache.remember(*collection, key);
    EXPECT_EQ(find(cache, collection, row.other), nullptr) << row.why;
    cache.remember(*collection, row.other);
    EXPECT_EQ(find(cache, collection, row.other), collection->counterCollection(row.other).get()) << row.why;
    EXPECT_EQ(find(cache, collection, key), nullptr) << row.why << ": its place is taken";
  }
}

TEST_F(CounterCache, TheSameKeyInAnotherCollectionIsAnotherCounter) {
  const auto other = collectionOf(key);
  cache.remember(*collection, key);
  EXPECT_EQ(find(cache, other, key), nullptr);
}

TEST_F(CounterCache, HoldsUntilTheCollectionGetsOrLosesACounter) {
  cache.remember(*collection, key);
  collection->counterCollectionIs(key);
  EXPECT_NE(find(cache, collection, key), nullptr) << "to get one that is there changes nothing";
  collection->counterCollectionIs({in, AclType::ip, "L", id(6)});
  EXPECT_EQ(find(cache, collection, key), nullptr);
  cache.remember(*collection, key);
  collection->counterCollectionDel(key);
  EXPECT_EQ(find(cache, collection, key), nullptr);
}

TEST_F(CounterCache, ACounterThatIsGoneStaysForgottenHoweverOftenTheCollectionChanges) {
  cache.remember(*collection, key);
  const auto kept = collection->counterCollectionDel(key);
  auto& map = const_cast<Collection::counterCollectionMap&>(collection->counterCollection());
  const uint32_t version = map.version();
  map.advanceVersion(0x7fffff);
  EXPECT_EQ(map.version(), version - 1) << "the version is what it was when the counter was remembered";
  EXPECT_EQ(find(cache, collection, key), nullptr);
}

TEST_F(CounterCache, WhatTheCollectionHasNotIsNotRemembered) {
  collection->counterCollectionDel(key);
  cache.remember(*collection, key);
  EXPECT_EQ(find(cache, collection, key), nullptr);
}

TEST_F(CounterCache, KeysWhoseIdsShareTheirLowerBitsKeepApart) {
  Velo::VeloAcl::CounterCache real;
  const Key far{in, AclType::ip, "L", id(5 + (uint64_t{1} << 32))};
  collection->counterCollectionIs(far);
  real.remember(*collection, key);
  EXPECT_EQ(find(real, collection, far), nullptr);
  real.remember(*collection, far);
  EXPECT_EQ(find(real, collection, far), collection->counterCollection(far).get());
  EXPECT_EQ(find(real, collection, key), nullptr);
}

/// What somebody who hears of a counter does to its collection.
struct Deed {
  const char* why;
  std::function<void(Collection&, const Key&)> act;
  Lines left;  ///< after the packet that it heard of
  Lines next;  ///< after one more
};
const std::string counter5 = "DpAclInRuleMatches: in ip L 5 = ";

class CounterAnnounced : public World {
 protected:
  void count() {
    packet(tcp4());
    plugin->aclHelper()->countPkt(ctx->pkt(), in, AclType::ip, "L", id(5));
  }
  /// Acts once, when the publisher announces.
  static void once(ChangeLog& log, const std::function<void()>& act) {
    log.then = [act, done = false](const Zeb::Change&) mutable {
      if (!std::exchange(done, true)) act();
    };
  }
};

TEST_F(CounterAnnounced, WhoHearsOfANewCounterMayTakeItAway) {
  const Deed deeds[] = {
      {"removes it", [](Collection& from, const Key& key) { from.counterCollectionDel(key); }, {}, {"1"}},
      {"replaces it",
       [](Collection& from, const Key& key) {
         from.counterCollectionDel(key);
         from.counterCollectionIs(key);
       },
       {"0"},
       {"1"}},
      {"clears the collection",
       [](Collection& from, const Key&) {
         for (auto at = from.counterCollection().begin(); at; at.next()) from.counterCollectionDel(at.key());
       },
       {},
       {"1"}},
      {"does nothing", [](Collection&, const Key&) {}, {"1"}, {"2"}},
  };
  const auto texts = [](Lines counts) {
    for (auto& each : counts) each = counter5 + each;
    return counts;
  };
  const Key key{in, AclType::ip, "L", id(5)};
  for (const Deed& deed : deeds) {
    {
      ChangeLog log(*plugin->inCounters());
      once(log, [&] { deed.act(*plugin->inCounters(), key); });
      count();
    }
    EXPECT_EQ(counted(), texts(deed.left)) << deed.why;
    count();
    EXPECT_EQ(counted(), texts(deed.next)) << deed.why << ": the next packet meets what is there";
    plugin->inCounters()->counterCollectionDel(key);
  }
}

TEST_F(CounterAnnounced, WhoHearsOfACountMayTakeTheCounterAway) {
  const Key key{in, AclType::ip, "L", id(5)};
  count();
  const auto first = plugin->inCounters()->counterCollection(key);
  ChangeLog log(*first);
  once(log, [&] { plugin->inCounters()->counterCollectionDel(key); });
  count();
  EXPECT_EQ(first->packets(), 2u) << "which was counted before it was announced";
  EXPECT_EQ(counted(), Lines{});
  count();
  EXPECT_EQ(first->packets(), 2u);
  EXPECT_EQ(counted(), Lines{counter5 + "1"});
}

TEST_F(CounterAnnounced, WhoHearsOfANewCounterMayCountAnotherPacket) {
  ChangeLog log(*plugin->inCounters());
  once(log, [&] { count(); });
  count();
  EXPECT_EQ(counted(), Lines{counter5 + "2"});
  count();
  EXPECT_EQ(counted(), Lines{counter5 + "3"});
}

}  // namespace
