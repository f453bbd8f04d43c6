#include <Kelp/String.h>
#include <Zeb/HashMap2018.h>
#include <Zeb/OrderedMap.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

namespace {

/// A key whose hash is one of `Hashes` values: chains of equal and of neighbouring hashes.
template <uint32_t Hashes>
struct Colliding {
  int id = 0;
  uint32_t hash() const { return Hashes == 1 ? 0xffffffff : static_cast<uint32_t>(id) % Hashes * 0x20000001; }
  auto operator<=>(const Colliding&) const = default;
};

template <class K>
K keyOf(int id) {
  if constexpr (std::is_same_v<K, Kelp::String>) {
    return Kelp::String(std::to_string(id));
  } else {
    return K{id};
  }
}

template <class M>
struct MapTest : testing::Test {
  using Map = M;
  using Key = typename M::Key;
  static Key key(int id) { return keyOf<Key>(id); }
  static std::vector<Key> keys(const Map& map) {
    std::vector<Key> all;
    for (auto [k, v] : map) all.push_back(k);
    return all;
  }
};
using Maps = testing::Types<Zeb::HashMap2018<int, int>, Zeb::HashMap2018<Kelp::String, int>,
                            Zeb::HashMap2018<Colliding<1>, int>, Zeb::HashMap2018<Colliding<5>, int>,
                            Zeb::OrderedMap<int, int>, Zeb::OrderedMap<Kelp::String, int>>;
TYPED_TEST_SUITE(MapTest, Maps);

TYPED_TEST(MapTest, HoldsWhatAModelHoldsAndVersionsCountTheChanges) {
  std::mt19937 random(1);
  TypeParam map;
  std::map<typename TypeParam::Key, int> model;
  uint32_t changes = 0;
  for (int i = 0; i < 20000; ++i) {
    const auto key = this->key(static_cast<int>(random() % 700));
    const int value = static_cast<int>(random() % 3);
    if (random() % 5 < 3) {
      const auto known = model.find(key);
      const Zeb::MapWrite expected = known == model.end()     ? Zeb::MapWrite::inserted
                                     : known->second == value ? Zeb::MapWrite::unchanged
                                                              : Zeb::MapWrite::replaced;
      ASSERT_EQ(map.put(key, value), expected);
      changes += expected != Zeb::MapWrite::unchanged;
      model[key] = value;
    } else {
      const bool there = model.erase(key) > 0;
      ASSERT_EQ(map.erase(key), there);
      changes += there;
    }
    ASSERT_EQ(map.version(), changes);
    ASSERT_EQ(map.changes(), changes);
    ASSERT_EQ(map.size(), model.size());
    ASSERT_EQ(map.has(key), model.contains(key));
    if (i % 500 == 0) {
      std::map<typename TypeParam::Key, int> seen;
      for (auto [k, v] : map) ASSERT_TRUE(seen.emplace(k, v).second);
      ASSERT_EQ(seen, model);
    }
  }
  map.clear();
  EXPECT_EQ(map.version(), changes + static_cast<uint32_t>(model.size()))
      << "clearing is one change an element";
  EXPECT_TRUE(map.empty() && !map.begin());
}

TYPED_TEST(MapTest, TheOrderDependsOnTheContentOnly) {
  std::mt19937 random(2);
  for (const int size : {1, 2, 3, 5, 17, 300}) {
    std::vector<int> ids(static_cast<size_t>(size));
    for (int i = 0; i < size; ++i) ids[static_cast<size_t>(i)] = i * 7;
    TypeParam straight, shuffled, shrunk;
    for (int id : ids) straight.put(this->key(id), 0);
    std::shuffle(ids.begin(), ids.end(), random);
    for (int id : ids) shuffled.put(this->key(id), 0);
    for (int i = 0; i < 2000; ++i) shrunk.put(this->key(i), 0);
    for (int i = 0; i < 2000; ++i) {
      if (i % 7 != 0 || i >= size * 7) shrunk.erase(this->key(i));
    }
    for (int id : ids) shrunk.put(this->key(id), 0);
    EXPECT_EQ(this->keys(straight), this->keys(shuffled)) << "history of insertion, size " << size;
    EXPECT_EQ(this->keys(straight), this->keys(shrunk)) << "it was much bigger once, size " << size;
  }
}

/// Edits at random between the steps of a walk. Whoever was there all along is met exactly once, nobody twice
/// (unless taken out and put in again meanwhile: then at most once a stay), and everyone in the map's order.
TYPED_TEST(MapTest, AWalkMeetsWhoWasThereAllAlongOnce) {
  constexpr bool oneChain = std::is_same_v<typename TypeParam::Key, Colliding<1>>;
  for (uint32_t seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    TypeParam map;
    const int space = seed % 3 == 0               ? 12
                      : seed % 3 == 1 || oneChain ? 200
                                                  : 4000;  // few keys meet each other, many grow
    const int start = seed % 7 == 0 ? 0 : static_cast<int>(random() % static_cast<uint32_t>(space / 2));
    const auto any = [&] { return this->key(static_cast<int>(random() % static_cast<uint32_t>(space))); };
    for (int i = 0; i < start; ++i) map.put(any(), 0);
    std::set<typename TypeParam::Key> allAlong, met;
    for (auto [k, v] : map) allAlong.insert(k);

    const bool resumes = seed % 2 == 0;  // by from(key) instead of next()
    std::vector<typename TypeParam::Key> order;
    auto at = map.begin();
    for (int steps = 0; at; ++steps) {
      ASSERT_LT(steps, 100000);
      ASSERT_FALSE(at.stale());
      const auto current = at.key();
      ASSERT_TRUE(met.insert(current).second) << "met twice, seed " << seed;
      order.push_back(current);
      const bool grows = seed % 5 == 0 && steps < 20;
      for (uint32_t edits = grows ? 200 : random() % 4; edits > 0; --edits) {
        const auto key = random() % 4 == 0 ? current : any();
        if (grows || random() % 2) {
          map.put(key, static_cast<int>(random()));
        } else if (map.erase(key)) {
          allAlong.erase(key);
        }
        if (random() % 64 == 0 && seed % 11 == 0) {
          map.clear();
          allAlong.clear();
        }
      }
      ASSERT_TRUE(map.has(current) || at.stale());
      ASSERT_EQ(at.key(), current) << "a stale element can be read";
      if (resumes) {
        at = map.from(current);
        if (at && at.key() == current) at.next();
      } else {
        at.next();
      }
    }
    for (const auto& key : allAlong) ASSERT_TRUE(met.contains(key)) << "skipped, seed " << seed;
    // The walk went in the order that a map of all those keys has.
    TypeParam whole;
    for (const auto& key : order) whole.put(key, 0);
    ASSERT_EQ(order, this->keys(whole));
  }
}

TYPED_TEST(MapTest, FromStartsAtTheKeyOrWhereItWouldBe) {
  TypeParam map, full;
  EXPECT_FALSE(map.from(this->key(1))) << "nothing in an empty map";
  for (int i = 0; i < 400; ++i) full.put(this->key(i), 0);
  const auto order = this->keys(full);
  for (size_t i = 0; i < order.size(); i += 3) map.put(order[i], 0);
  for (size_t i = 0; i < order.size(); ++i) {
    const size_t next = (i + 2) / 3 * 3;
    const auto at = map.from(order[i]);
    ASSERT_EQ(static_cast<bool>(at), next < order.size());
    ASSERT_TRUE(!at || at.key() == order[next]);
  }
}

TYPED_TEST(MapTest, AnIteratorStandsOnAnElementThatIsGone) {
  TypeParam map;
  for (int i = 0; i < 10; ++i) map.put(this->key(i), i);
  auto at = map.begin();
  const auto key = at.key();
  const int value = at.value();
  auto copy = at;
  EXPECT_TRUE(map.erase(at.key())) << "by the element's own key";
  EXPECT_TRUE(at.stale() && copy.stale());
  EXPECT_EQ(at.value(), value);
  map.put(key, 77);
  EXPECT_TRUE(at.stale()) << "the one that came back is another element";
  at.next();
  EXPECT_NE(at.key(), key) << "which the walk does not meet again";
  copy = map.from(key);
  EXPECT_EQ(copy.value(), 77);
  map.put(key, 78);
  EXPECT_EQ(copy.value(), 78) << "a write goes into the element";
  EXPECT_FALSE(copy.stale());
}

TYPED_TEST(MapTest, AnIteratorMayBeDroppedAfterTheMap) {
  auto map = std::make_unique<TypeParam>();
  map->put(this->key(1), 5);
  auto at = map->begin();
  map.reset();
  EXPECT_TRUE(at.stale());
  EXPECT_EQ(at.value(), 5);
}

TEST(MapVersionTest, Is23BitsWideAndWrapsWhileTheCountOfChangesGoesOn) {
  Zeb::HashMap2018<int, uint32_t> map;
  for (uint32_t i = 0; i < 0x7fffff; ++i) map.put(0, i);
  EXPECT_EQ(map.version(), 0x7fffffu);
  EXPECT_EQ(map.changes(), 0x7fffffu);
  map.put(0, 0xffffffff);
  EXPECT_EQ(map.version(), 0u);
  EXPECT_EQ(map.changes(), 0x800000u);
  map.put(0, 0xffffffff);
  EXPECT_EQ(map.version(), 0u) << "an equal write is no change";
  EXPECT_EQ(map.changes(), 0x800000u);
  map.advanceVersion((uint64_t{1} << 40) + 1);
  EXPECT_EQ(map.version(), 1u);
  EXPECT_EQ(map.changes(), (uint64_t{1} << 40) + 0x800001);
}

TEST(OrderedMapTest, WalksInTheOrderOfTheKeys) {
  Zeb::OrderedMap<Kelp::String, int> map;
  for (const char* name : {"b", "a10", "", "a2", "B"}) map.put(name, 0);
  std::string text;
  for (auto [k, v] : map) text += k.str() + ",";
  EXPECT_EQ(text, ",B,a10,a2,b,");
}

}  // namespace
