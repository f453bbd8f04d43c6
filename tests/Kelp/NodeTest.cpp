#include <Kelp/Ptr.h>
#include <Kelp/String.h>
#include <MemSlab/Slab.h>
#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <unordered_set>
#include <vector>

namespace {

using Kelp::Ptr;

struct Base : Kelp::Node {};
struct Leaf : Base {
  explicit Leaf(int* gone = nullptr) : gone_(gone) {}
  ~Leaf() override {
    if (gone_) ++*gone_;
  }
  int* gone_;
};
struct Other : Base {};

TEST(NodeTest, TheCountFollowsCopiesMovesAndAssignments) {
  int gone = 0;
  auto p = MemSlab::make<Leaf>(&gone);
  EXPECT_EQ(p->nodeUseCount(), 1u) << "the maker owns the only reference";
  Ptr<Leaf> copy = p;
  Ptr<Base> base = p;
  Ptr<const Leaf> view = p;
  EXPECT_EQ(p->nodeUseCount(), 4u);
  Ptr<const Base> moved = std::move(base);
  EXPECT_EQ(p->nodeUseCount(), 4u) << "a move counts nothing, across types, too";
  EXPECT_EQ(base, nullptr);
  Ptr<Leaf>& alias = copy;
  copy = alias;
  EXPECT_EQ(p->nodeUseCount(), 4u) << "self-assignment keeps the reference";
  copy = std::move(alias);
  EXPECT_EQ(copy, p);
  Ptr<Leaf> adopted = Ptr<Leaf>::adopt(copy.detach());
  EXPECT_EQ(p->nodeUseCount(), 4u) << "detach and adopt hand one reference over";
  adopted = nullptr;
  moved = nullptr;
  view = nullptr;
  EXPECT_EQ(p->nodeUseCount(), 1u);
  EXPECT_EQ(gone, 0);
  p = nullptr;
  EXPECT_EQ(gone, 1);
}

TEST(NodeTest, FlagsAndCountShareAWordWithoutDisturbingEachOther) {
  EXPECT_EQ(Kelp::Node::nodeCountMask, 0x9fffffffu);
  EXPECT_EQ((Kelp::nodeLive | Kelp::nodeNotifying) & Kelp::Node::nodeCountMask, 0u);
  int gone = 0;
  for (const bool live : {false, true}) {
    for (const bool notifying : {false, true}) {
      auto p = MemSlab::make<Leaf>(&gone);
      EXPECT_TRUE(p->nodeFlag(Kelp::nodeLive)) << "a node is live from its making";
      EXPECT_FALSE(p->nodeFlag(Kelp::nodeNotifying));
      Ptr<Leaf> second = p;
      for (int twice = 0; twice < 2; ++twice) {
        p->nodeFlagSet(Kelp::nodeLive, live);
        p->nodeFlagSet(Kelp::nodeNotifying, notifying);
      }
      EXPECT_EQ(p->nodeUseCount(), 2u);
      EXPECT_EQ(p->nodeFlag(Kelp::nodeLive), live);
      EXPECT_EQ(p->nodeFlag(Kelp::nodeNotifying), notifying);
      const int before = gone;
      second = nullptr;
      EXPECT_EQ(gone, before);
      EXPECT_EQ(p->nodeFlag(Kelp::nodeNotifying), notifying) << "counting leaves the flags";
      p = nullptr;
      EXPECT_EQ(gone, before + 1) << "an object goes with its count, whatever its flags";
    }
  }
}

/// Hands out and takes back references to itself while it is destroyed.
struct Clinging : Kelp::Node {
  explicit Clinging(int* gone) : gone_(gone) {}
  ~Clinging() override {
    EXPECT_FALSE(nodeFlag(Kelp::nodeLive)) << "destruction has begun";
    for (int i = 0; i < 3; ++i) {
      Ptr<Clinging> self(this);
      Ptr<Kelp::Node> again = self;
    }
    ++*gone_;
  }
  int* gone_;
};

TEST(NodeTest, ReferencesTakenInADestructorDestroyNothingTwice) {
  for (const bool threads : {false, true}) {
    Kelp::multiThreadedIs(threads);
    int gone = 0;
    MemSlab::make<Clinging>(&gone);
    EXPECT_EQ(gone, 1);
  }
  Kelp::multiThreadedIs(false);
}

/// Holds its successor: dropping the first drops them all, and the last one's pointer is cleared on the way.
struct Link : Kelp::Node {
  Ptr<Link> next;
};

TEST(NodeTest, APointerInsideTheObjectItReleasesMayBeOverwritten) {
  auto first = MemSlab::make<Link>();
  first->next = MemSlab::make<Link>();
  first->next->next = MemSlab::make<Link>();
  first = first->next;
  first = std::move(first->next);
  EXPECT_EQ(first->nodeUseCount(), 1u);
  EXPECT_EQ(MemSlab::slabOf<Link>().liveCount(), 1u);
}

TEST(NodeTest, ANodeOnTheStackCountsAndIsNotFreed) {
  Leaf here;
  {
    Ptr<Leaf> p(&here);
    EXPECT_EQ(here.nodeUseCount(), 2u);
  }
  EXPECT_EQ(here.nodeUseCount(), 1u);
}

TEST(NodeDeathTest, DroppingTheMakersReferenceOfANodeWithoutAHomeStopsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_DEATH(
      {
        Leaf here;
        Ptr<Leaf>::adopt(&here);
      },
      "without a home");
}

TEST(NodeTest, CastsGiveTheObjectOrNull) {
  Ptr<Base> leaf = MemSlab::make<Leaf>();
  EXPECT_EQ(Kelp::ptrCast<Leaf>(leaf), leaf);
  EXPECT_EQ(Kelp::ptrCast<Other>(leaf), nullptr) << "another type";
  EXPECT_EQ(Kelp::ptrCast<Kelp::Node>(leaf), leaf) << "upwards, too";
  EXPECT_EQ(Kelp::ptrCast<Leaf>(Ptr<Base>()), nullptr) << "of nothing";
  const Ptr<const Leaf> view = Kelp::ptrCast<const Leaf>(Ptr<const Base>(leaf));
  EXPECT_EQ(view, leaf) << "a read-only view stays one";
  static_assert(!std::is_convertible_v<Ptr<const Base>, Ptr<Base>>, "a view gives no way to write");
  static_assert(!std::is_convertible_v<Ptr<Base>, Ptr<Leaf>>);
  static_assert(sizeof(Ptr<Leaf>) == sizeof(void*));
}

TEST(NodeTest, PointersCompareAndHashByIdentity) {
  auto a = MemSlab::make<Leaf>(), b = MemSlab::make<Leaf>();
  std::unordered_set<Ptr<Leaf>> set{a, a, b};
  EXPECT_EQ(set.size(), 2u);
  EXPECT_TRUE(Ptr<Base>(a) == a && a == Ptr<const Leaf>(a) && a != b);
  EXPECT_TRUE(a != nullptr && nullptr == Ptr<Leaf>());
}

TEST(NodeTest, ThreadsShareObjectsWhileTheSwitchIsSet) {
  Kelp::multiThreadedIs(true);
  int gone = 0;
  {
    auto shared = MemSlab::make<Leaf>(&gone);
    const Kelp::String text = "shared between threads";
    std::latch both(2);
    const auto work = [shared, text, &both] {
      both.arrive_and_wait();
      for (int i = 0; i < 200000; ++i) {
        Ptr<Base> a = shared;
        Ptr<const Base> b = std::move(a);
        Kelp::String copy = text;
        if (i % 16 == 0) MemSlab::make<Other>();
        shared->nodeFlagSet(Kelp::nodeNotifying, i % 2 == 0);
      }
    };
    std::thread one(work), two(work);
    one.join();
    two.join();
    EXPECT_EQ(shared->nodeUseCount(), 2u) << "this one and the one in `work`";
    EXPECT_TRUE(shared->nodeFlag(Kelp::nodeLive));
  }
  Kelp::multiThreadedIs(false);
  EXPECT_EQ(gone, 1);
  EXPECT_EQ(MemSlab::slabOf<Other>().liveCount(), 0u);
}

}  // namespace
