#include <MemSlab/Slab.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <stdexcept>
#include <vector>

#include "../support/Sanitizers.h"

namespace SlabTests {

struct Plain : Kelp::Node {
  uint64_t payload[3] = {};
};
struct Throwing : Kelp::Node {
  explicit Throwing(bool fail) {
    if (fail) throw std::runtime_error("no");
  }
};
struct Half : Kelp::Node {
  explicit Half(bool fail) : whole(MemSlab::make<Plain>()) {
    Kelp::Ptr<Half> self(this);  // a reference from within the constructor does not end it
    if (fail) throw 1;
  }
  Kelp::Ptr<Plain> whole;
};
struct alignas(64) Wide : Kelp::Node {
  char c = 0;
};
struct Left {
  virtual ~Left() = default;
  int left = 1;
};
struct Second : Left, Kelp::Node {
  int right = 2;
};

template <class T>
uint64_t live() {
  return MemSlab::slabOf<T>().liveCount();
}

TEST(SlabTest, CountsLiveObjectsByType) {
  std::vector<Kelp::Ptr<Plain>> held;
  for (int i = 0; i < 1000; ++i) held.push_back(MemSlab::make<Plain>());
  auto one = MemSlab::make<Throwing>(false);
  EXPECT_EQ(live<Plain>(), 1000u);
  EXPECT_EQ(MemSlab::liveCount(), 1001u);
  EXPECT_EQ(MemSlab::liveReport(), "SlabTests::Plain: 1000\nSlabTests::Throwing: 1\n");
  held.resize(10);
  EXPECT_EQ(live<Plain>(), 10u);
  held.clear();
  one = nullptr;
  EXPECT_EQ(MemSlab::liveReport(), "");
}

TEST(SlabTest, AConstructorThatThrowsGivesTheMemoryBack) {
  EXPECT_THROW(MemSlab::make<Throwing>(true), std::runtime_error);
  EXPECT_EQ(live<Throwing>(), 0u);
  EXPECT_THROW(MemSlab::make<Half>(true), int);
  EXPECT_EQ(live<Half>(), 0u);
  EXPECT_EQ(live<Plain>(), 0u) << "what the constructor had made goes, too";
  EXPECT_EQ(MemSlab::make<Half>(false)->nodeUseCount(), 1u);
}

TEST(SlabTest, PlacesAreReusedAndNeverShared) {
  std::set<const void*> places;
  const size_t objects = 5000;
  for (int round = 0; round < 3; ++round) {
    std::vector<Kelp::Ptr<Plain>> held;
    std::set<const void*> now;
    for (size_t i = 0; i < objects; ++i) {
      held.push_back(MemSlab::make<Plain>());
      EXPECT_TRUE(now.insert(held.back().get()).second) << "two objects in one place";
    }
    places.merge(now);
    if (!TestSupport::addressSanitizer) {
      EXPECT_GE(MemSlab::slabOf<Plain>().heldBytes(), objects * sizeof(Plain));
    }
  }
  if (!TestSupport::addressSanitizer) {
    EXPECT_LT(places.size(), objects + 500) << "later rounds live in the places of the first";
  }
}

TEST(SlabTest, ObjectsAreAlignedAndGoBackByTheirOwnPlace) {
  for (int i = 0; i < 5; ++i) {
    auto wide = MemSlab::make<Wide>();
    EXPECT_EQ(reinterpret_cast<uintptr_t>(wide.get()) % 64, 0u);
  }
  Kelp::Ptr<Kelp::Node> node = MemSlab::make<Second>();
  EXPECT_NE(static_cast<void*>(node.get()), dynamic_cast<void*>(node.get()))
      << "Node is not the first base here";
  node = nullptr;
  auto again = MemSlab::make<Second>();
  EXPECT_EQ(again->left + again->right, 3);
  EXPECT_EQ(live<Second>(), 1u);
}

TEST(SlabTest, ARecordIsFoundAgainByNameSizeAndAlignment) {
  MemSlab::Slab& a = MemSlab::slab("SlabTests::Made", 24, 8);
  EXPECT_EQ(&MemSlab::slab("SlabTests::Made", 24, 8), &a) << "as after a plugin was closed and opened again";
  EXPECT_NE(&MemSlab::slab("SlabTests::Made", 32, 8), &a) << "the type has grown meanwhile";
  EXPECT_NE(&MemSlab::slab("SlabTests::Made", 16, 16), &MemSlab::slab("SlabTests::Made", 16, 8))
      << "stricter alignment";
  EXPECT_EQ(MemSlab::typeName<Plain>(), "SlabTests::Plain");
  EXPECT_EQ(MemSlab::typeName<std::vector<int>>().substr(0, 15), "std::vector<int");
}

}  // namespace SlabTests
