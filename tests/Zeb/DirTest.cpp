#include "Recorder.h"

#include <Zeb/Dir.h>
#include <gtest/gtest.h>

namespace {

struct Named : Zeb::Entity {
  using Entity::Entity;
  ZEB_ENTITY(Named, Zeb::Entity)
};

std::string names(const Zeb::Dir& dir) {
  std::string text;
  for (auto [name, entity] : dir.entry()) text += name.str() + " ";
  return text;
}

TEST(DirTest, FilesEntitiesUnderTheirOwnNames) {
  auto dir = MemSlab::make<Zeb::Dir>("d");
  std::string text;
  Recorder listener("", text, *dir, [&](const Zeb::Change& change) {
    EXPECT_TRUE(change.is(Zeb::Dir::entryAttribute()));
    text += change.keyAs<Kelp::String>().str();
  });
  auto b = MemSlab::make<Named>("b"), a = MemSlab::make<Named>("a");
  EXPECT_TRUE(dir->entryIs(b));
  EXPECT_TRUE(dir->entryIs(a));
  EXPECT_EQ(names(*dir), "a b ") << "in the order of the names";
  EXPECT_EQ(text, " b a");
  EXPECT_EQ(a->parent(), dir.get());
  text.clear();
  EXPECT_FALSE(dir->entryIs(a)) << "filed already";
  EXPECT_EQ(a->parent(), dir.get());
  EXPECT_FALSE(dir->entryIs(nullptr)) << "null files nothing";
  EXPECT_EQ(dir->entryDel("c"), nullptr);
  EXPECT_EQ(text, "");
  EXPECT_EQ(dir->entryDel("a"), a);
  EXPECT_EQ(a->parent(), nullptr);
  EXPECT_EQ(text, " a");
  EXPECT_EQ(Zeb::attributeValue<const Zeb::Dir::EntryMap*>(*dir, "entry"), &dir->entry());
}

TEST(DirTest, AnotherEntityOfANameTakesItsPlace) {
  auto dir = MemSlab::make<Zeb::Dir>(), other = MemSlab::make<Zeb::Dir>();
  auto first = MemSlab::make<Named>("x"), second = MemSlab::make<Named>("x");
  dir->entryIs(first);
  std::string text;
  Recorder listener("changed", text, *dir, [&](const Zeb::Change&) {
    EXPECT_EQ(dir->entry("x"), second);
    EXPECT_EQ(first->parent(), nullptr);
  });
  EXPECT_TRUE(dir->entryIs(second));
  EXPECT_EQ(text, "changed ");
  other->entryIs(second);
  EXPECT_EQ(second->parent(), other.get());
  dir = nullptr;
  EXPECT_EQ(second->parent(), other.get()) << "it was taken over";
  other = nullptr;
  EXPECT_EQ(second->parent(), nullptr);
}

}  // namespace
