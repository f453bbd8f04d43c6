#include <Hive/DirMerged.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using Hive::DirMerged;
using Hive::DirMergeSm;
using Kelp::Ptr;

struct Named : Zeb::Entity {
  using Entity::Entity;
  ZEB_ENTITY(Named, Zeb::Entity)
};

struct DirMergeTest : testing::Test {
  static Ptr<Named> named(const char* name) { return MemSlab::make<Named>(name); }
  static void file(const Ptr<Zeb::Dir>& dir, std::initializer_list<const char*> names) {
    for (const char* name : names) dir->entryIs(named(name));
  }
  /// "origin:name" of the merged view's entries, in its order.
  std::string shown() const {
    std::string text;
    for (auto [rank, entity] : merged->entry()) {
      EXPECT_EQ(rank.name, entity->name());
      text += std::to_string(rank.origin) + ":" + rank.name.str() + " ";
    }
    return text;
  }

  Ptr<Zeb::Dir> first = MemSlab::make<Zeb::Dir>("first"), second = MemSlab::make<Zeb::Dir>("second");
  Ptr<DirMerged> merged = MemSlab::make<DirMerged>("m");
  Ptr<DirMergeSm> sm = DirMergeSm::DirMergeSmIs(merged);
};

TEST_F(DirMergeTest, ByHandThenDirectoryByDirectoryThenByName) {
  file(first, {"z", "b"});
  file(second, {"a", "z"});
  sm->addInputDir(first);
  merged->addPtr(named("y"));
  sm->addInputDir(second);
  merged->addPtr(named("c"));
  EXPECT_EQ(shown(), "0:c 0:y 1:b 1:z 2:a 2:z ");
  EXPECT_EQ(merged->entry().begin().key().origin, 0u);
}

TEST_F(DirMergeTest, NullsAddNothing) {
  merged->addPtr(nullptr);
  sm->addInputDir(nullptr);
  sm->addInputDir(first);
  file(first, {"a"});
  EXPECT_EQ(shown(), "1:a ") << "and take no place in the order";
}

TEST_F(DirMergeTest, FollowsTheDirectories) {
  struct Listener : Zeb::Notifiee {
    void handleChange(const Zeb::Change& change) override {
      const auto& rank = change.keyAs<Hive::MergeRank>();
      text += std::to_string(rank.origin) + ":" + rank.name.str() + " ";
    }
    std::string text;
  } listener;
  merged->publisher().subscribe(listener);
  sm->addInputDir(first);
  sm->addInputDir(second);
  file(second, {"a"});
  file(first, {"a"});
  EXPECT_EQ(shown(), "1:a 2:a ") << "one name in two directories is two entries";
  const Hive::MergeRank rank{1, "a"};
  auto next = named("a");
  first->entryIs(next);
  EXPECT_EQ(*merged->entry(rank), next) << "another entity under the same name";
  first->entryIs(next);
  first->entryDel("a");
  EXPECT_EQ(shown(), "2:a ");
  EXPECT_EQ(listener.text, "2:a 1:a 1:a 1:a ") << "one change each, none for the equal write";
}

TEST_F(DirMergeTest, ItsEndLeavesTheViewAsItIs) {
  sm->addInputDir(first);
  file(first, {"a", "b"});
  sm = nullptr;
  EXPECT_EQ(shown(), "1:a 1:b ");
  first->entryDel("a");
  file(first, {"c"});
  EXPECT_EQ(shown(), "1:a 1:b ") << "and follows no more";
  EXPECT_EQ(first->nodeUseCount(), 1u);
  EXPECT_EQ(merged->nodeUseCount(), 1u);
}

TEST_F(DirMergeTest, HoldsItsDirectoriesAndTheView) {
  file(first, {"a"});
  sm->addInputDir(first);
  Zeb::Dir* dir = first.get();
  first = nullptr;
  dir->entryIs(named("b"));
  EXPECT_EQ(shown(), "1:a 1:b ");
  DirMerged* view = merged.get();
  merged = nullptr;
  dir->entryDel("a");
  EXPECT_EQ(view->entry().size(), 1u);
}

TEST_F(DirMergeTest, HandlersOfTheViewMayChangeTheInputsAndLetTheMergeGo) {
  struct Listener : Zeb::Notifiee {
    explicit Listener(DirMergeTest& t) : test(t) {}
    void handleChange(const Zeb::Change& change) override {
      const auto name = change.keyAs<Hive::MergeRank>().name.str();
      if (name == "a" && test.first->entry("a")) test.first->entryDel("a");
      if (name == "b") test.sm->addInputDir(test.second);
      if (name == "end") test.sm = nullptr;
    }
    DirMergeTest& test;
  } listener(*this);
  file(second, {"s"});
  file(first, {"a", "b", "c"});
  merged->publisher().subscribe(listener);
  sm->addInputDir(first);
  EXPECT_EQ(shown(), "1:b 1:c 2:s ") << "taken out again, and a directory added while one is being added";
  first->entryIs(named("end"));
  EXPECT_EQ(sm, nullptr);
  first->entryDel("b");
  EXPECT_EQ(shown(), "1:b 1:c 1:end 2:s ");
}

}  // namespace
