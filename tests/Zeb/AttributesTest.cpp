#include "Recorder.h"

#include <Zeb/Attributes.h>
#include <gtest/gtest.h>

#include <vector>

namespace AttributesTests {

using Kelp::Ptr;
using Kelp::String;

class Leaf : public Zeb::Entity {
  ZEB_ENTITY(Leaf, Zeb::Entity)

 public:
  explicit Leaf(String name) : Entity(std::move(name)) {}
  ZEB_VALUE(int, number, 7)
};

struct Opaque {
  int x = 0;  // neither comparable nor printable
};

class Base : public Zeb::Entity {
  ZEB_ENTITY(Base, Zeb::Entity)

 public:
  explicit Base(String name = {}) : Entity(std::move(name)) {}
  ZEB_VALUE(int, number, 3)
  ZEB_VALUE(String, text)
};

class Full : public Base {
  ZEB_ENTITY(Full, Base)

 public:
  using Base::Base;
  ZEB_VALUE(Opaque, opaque)
  ZEB_VALUE(Ptr<const Leaf>, view)
  ZEB_COLLECTION(item, Zeb::HashMap2018<String, int>)
  ZEB_COLLECTION(ordered, Zeb::OrderedMap<int, String>)
  ZEB_SET(ids, int)
  ZEB_CHILDREN(leaf, Zeb::OrderedMap<String, Zeb::Owned<Leaf>>)
  ZEB_CHILDREN(hashed, Zeb::HashMap2018<String, Zeb::Owned<Leaf>>)
  ZEB_CHILD(Leaf, only)
  ZEB_HELD(Leaf, held)

 public:
  void heldIs(const Ptr<Leaf>& leaf) { zebAssign(heldAttribute(), held_, leaf); }
  static constexpr Zeb::Operation zebOperations[] = {{"getIt", "what"}};
};

/// Without rows of its own.
class Bare : public Full {
  ZEB_ENTITY(Bare, Full)
};

/// With another type and a function between its rows, and a row of several lines.
class Scattered : public Zeb::Entity {
  ZEB_ENTITY(Scattered, Zeb::Entity)

 public:
  ZEB_VALUE(int, first)
  class Nested : public Zeb::Entity {
    ZEB_ENTITY(Nested, Zeb::Entity)
   public:
    ZEB_VALUE(int, one)
    ZEB_VALUE(int, two)
  };
  int sum() const { return first() + last(); }
  ZEB_COLLECTION(middle, Zeb::HashMap2018<String,  //
                                          int>)
  ZEB_VALUE(int, last)
};
template <class T>
std::string tableOf() {
  std::string names;
  for (const Zeb::AttributeEntry entry : Zeb::attributeTable<T>) names += std::string(entry().name()) + " ";
  return names;
}
static_assert(Zeb::attributeTable<Full>.size() == 9 && Zeb::attributeTable<Bare>.empty());

/// Entity, attribute and key of the changes.
struct Changes : Zeb::Notifiee {
  explicit Changes(const Zeb::Entity& entity) { entity.publisher().subscribe(*this); }
  void handleChange(const Zeb::Change& change) override {
    text += std::string(change.attribute.name());
    if (change.is(Full::itemAttribute()) || change.is(Full::leafAttribute()) ||
        change.is(Full::hashedAttribute())) {
      text += "[" + change.keyAs<String>().str() + "]";
    }
    if (change.is(Full::orderedAttribute()) || change.is(Full::idsAttribute())) {
      text += "[" + std::to_string(change.keyAs<int>()) + "]";
    }
    text += " ";
  }
  std::string take() { return std::exchange(text, ""); }
  std::string text;
};

TEST(AttributesTest, EveryKindOfRowStoresAndAnnouncesWhatChanged) {
  auto full = MemSlab::make<Full>("f");
  Changes changes(*full);
  auto leaf = MemSlab::make<Leaf>("l");
  struct Row {
    const char* why;
    std::function<void()> write;
    const char* announced;
  };
  const Row rows[] = {
      {"a value", [&] { EXPECT_TRUE(full->numberIs(4)); }, "number "},
      {"the value it has", [&] { EXPECT_FALSE(full->numberIs(4)); }, ""},
      {"a value without ==: every write is a change", [&] { EXPECT_TRUE(full->opaqueIs({})); }, "opaque "},
      {"a view", [&] { EXPECT_TRUE(full->viewIs(leaf)); }, "view "},
      {"the view it has", [&] { EXPECT_FALSE(full->viewIs(leaf)); }, ""},
      {"an element", [&] { EXPECT_TRUE(full->itemIs("a", 1)); }, "item[a] "},
      {"the element as it is", [&] { EXPECT_FALSE(full->itemIs("a", 1)); }, ""},
      {"another value", [&] { EXPECT_TRUE(full->itemIs("a", 2)); }, "item[a] "},
      {"an element goes", [&] { EXPECT_TRUE(full->itemDel("a")); }, "item[a] "},
      {"one that is not there", [&] { EXPECT_FALSE(full->itemDel("a")); }, ""},
      {"an ordered element", [&] { EXPECT_TRUE(full->orderedIs(3, "x")); }, "ordered[3] "},
      {"a member of a set", [&] { EXPECT_TRUE(full->idsIs(5)); }, "ids[5] "},
      {"a member already", [&] { EXPECT_FALSE(full->idsIs(5)); }, ""},
      {"a member goes", [&] { EXPECT_TRUE(full->idsDel(5) && !full->ids(5)); }, "ids[5] "},
      {"a child is made", [&] { EXPECT_EQ(full->leafIs("c")->name(), "c"); }, "leaf[c] "},
      {"a child that is there", [&] { EXPECT_EQ(full->leafIs("c"), full->leaf("c")); }, ""},
      {"a hashed child is made", [&] { EXPECT_EQ(full->hashedIs("h")->parent(), full.get()); }, "hashed[h] "},
      {"a child goes", [&] { EXPECT_EQ(full->leafDel("c")->name(), "c"); }, "leaf[c] "},
      {"a child that is not there", [&] { EXPECT_EQ(full->leafDel("c"), nullptr); }, ""},
      {"an only child", [&] { EXPECT_TRUE(full->onlyIs(leaf)); }, "only "},
      {"the same child", [&] { EXPECT_FALSE(full->onlyIs(leaf)); }, ""},
      {"the only child goes", [&] { EXPECT_EQ(full->onlyDel(), leaf); }, "only "},
      {"it has gone", [&] { EXPECT_EQ(full->onlyDel(), nullptr); }, ""},
      {"a setter of its own",
       [&] {
         full->heldIs(leaf);
         EXPECT_EQ(leaf->parent(), nullptr);
       },
       "held "},
  };
  for (const Row& row : rows) {
    row.write();
    EXPECT_EQ(changes.take(), row.announced) << row.why;
  }
}

TEST(AttributesTest, TheTableOfATypeHasItsOwnRowsInTheirOrder) {
  EXPECT_EQ(tableOf<Full>(), "opaque view item ordered ids leaf hashed only held ");
  EXPECT_EQ(tableOf<Base>(), "number text ");
  EXPECT_EQ(tableOf<Bare>(), "");
  EXPECT_EQ(tableOf<Scattered>(), "first middle last ");
  EXPECT_EQ(tableOf<Scattered::Nested>(), "one two ");
}

TEST(AttributesTest, AChildsParentIsWhoHoldsIt) {
  auto owner = MemSlab::make<Full>(), second = MemSlab::make<Full>();
  auto a = MemSlab::make<Leaf>("a"), b = MemSlab::make<Leaf>("b");
  owner->onlyIs(a);
  EXPECT_EQ(a->parent(), owner.get());
  owner->onlyIs(b);
  EXPECT_EQ(a->parent(), nullptr) << "replaced";
  EXPECT_EQ(b->parent(), owner.get());
  second->onlyIs(b);
  EXPECT_EQ(b->parent(), second.get()) << "the last that took it is the parent";
  owner->onlyDel();
  EXPECT_EQ(b->parent(), second.get()) << "the one before it lets go without a say";
  owner->onlyIs(b);
  EXPECT_EQ(b->parent(), owner.get()) << "and takes it back";
  second = nullptr;
  EXPECT_EQ(b->parent(), owner.get());
  auto c = owner->leafIs("c"), h = owner->hashedIs("h");
  EXPECT_EQ(owner->leafDel("c"), c);
  EXPECT_EQ(c->parent(), nullptr) << "deleted";
  EXPECT_NE(owner->leafIs("c"), c) << "the next one of that name is another";
  owner = nullptr;
  EXPECT_EQ(b->parent(), nullptr) << "the owner is destroyed";
  EXPECT_EQ(h->parent(), nullptr);
}

TEST(AttributesTest, HandlersFindTheParentsInOrder) {
  auto owner = MemSlab::make<Full>();
  auto a = MemSlab::make<Leaf>("a"), b = MemSlab::make<Leaf>("b");
  owner->onlyIs(a);
  std::string text;
  Recorder keeper("", text, *owner, [&](const Zeb::Change& change) {
    if (!change.is(Full::onlyAttribute()) || owner->only() != b) return;
    EXPECT_EQ(a->parent(), nullptr) << "the old child is none any more when its going is announced";
    owner->onlyIs(a);
  });
  owner->onlyIs(b);
  EXPECT_EQ(owner->only(), a);
  EXPECT_EQ(a->parent(), owner.get())
      << "put back by a handler, it is a child again when the first write ends";
  EXPECT_EQ(b->parent(), nullptr);

  auto child = owner->leafIs("x");
  keeper.actIs([&](const Zeb::Change&) {
    EXPECT_EQ(owner->leaf("x"), nullptr);
    EXPECT_EQ(child->parent(), nullptr);
  });
  owner->leafDel("x");
}

TEST(AttributesTest, AWalkStillReadsAChildThatWasTakenOut) {
  auto owner = MemSlab::make<Full>();
  for (const char* name : {"a", "b"}) owner->hashedIs(name);
  auto at = owner->hashed().begin();
  const String name = at.key();
  owner->hashedDel(at.key());
  ASSERT_TRUE(at.stale());
  ASSERT_TRUE(at.value());
  EXPECT_EQ(at.value()->name(), name);
  EXPECT_EQ(at.value()->parent(), nullptr);
  owner->hashedIs(name);
  at.next();
  ASSERT_TRUE(at);
  EXPECT_NE(at.key(), name);
  EXPECT_EQ(owner->hashed(name)->parent(), owner.get())
      << "the stale element's end leaves its successor alone";
}

TEST(AttributesTest, AnOldValueMayHoldTheWritersArguments) {
  auto full = MemSlab::make<Full>();
  full->onlyIs(MemSlab::make<Leaf>("named"));
  full->leafIs("named");
  EXPECT_NE(full->leafDel(full->leaf("named")->name()), nullptr) << "the key is the child's own name";
  full->itemIs("k", 1);
  full->itemDel(full->item().begin().key());
  EXPECT_TRUE(full->item().empty());
}

TEST(AttributesTest, ConstOwnersGiveConstChildren) {
  auto full = MemSlab::make<Full>();
  full->leafIs("a");
  const Full& view = *full;
  static_assert(std::is_same_v<decltype(view.leaf("a")), Ptr<const Leaf>>);
  static_assert(std::is_same_v<decltype(view.only()), Ptr<const Leaf>>);
  static_assert(std::is_same_v<decltype(full->leaf("a")), Ptr<Leaf>>);
  EXPECT_EQ(view.leaf("a"), full->leaf("a"));
  EXPECT_EQ(view.leaf("b"), nullptr);
  EXPECT_EQ(view.only(), nullptr);
}

std::string names(const Zeb::TypeData& type) {
  std::string text;
  for (const Zeb::Attribute* attribute : type.attributes()) text += std::string(attribute->name()) + " ";
  return text;
}

TEST(ReflectTest, ATypeListsItsRowsInTheOrderOfDeclaration) {
  auto bare = MemSlab::make<Bare>();
  const Zeb::TypeData& type = bare->typeData();
  EXPECT_EQ(type.name(), "AttributesTests::Bare");
  EXPECT_EQ(names(type), "");
  ASSERT_NE(type.base(), nullptr);
  EXPECT_EQ(type.base()->name(), "AttributesTests::Full");
  EXPECT_EQ(names(*type.base()), "opaque view item ordered ids leaf hashed only held ");
  EXPECT_EQ(names(*type.base()->base()), "number text ");
  EXPECT_EQ(type.base()->base()->base(), nullptr);
  EXPECT_EQ(type.attribute("number"), &Base::numberAttribute()) << "inherited over two bases";
  EXPECT_NE(type.attribute("number"), Zeb::typeDataOf<Leaf>().attribute("number"))
      << "another type's row of that name";
  EXPECT_EQ(type.attribute("nothing"), nullptr);
  ASSERT_EQ(type.base()->operations().size(), 1u);
  EXPECT_EQ(type.base()->operations()[0].parameter, "what");
  EXPECT_EQ(Full::itemAttribute().kind(), Zeb::Attribute::Kind::collection);
  EXPECT_EQ(Full::onlyAttribute().kind(), Zeb::Attribute::Kind::value);
}

TEST(ReflectTest, AttributesAreReadByName) {
  auto full = MemSlab::make<Full>();
  EXPECT_EQ(Zeb::attributeValue<int>(*full, "number"), 3) << "the declared default";
  EXPECT_EQ(Zeb::attributeValue<long>(*full, "number"), std::nullopt) << "another type";
  EXPECT_EQ(Zeb::attributeValue<int>(*full, "none"), std::nullopt);
  full->itemIs("a", 1);
  EXPECT_EQ(Zeb::attributeValue<const Full::itemMap*>(*full, "item"), &full->item());
  full->onlyIs(MemSlab::make<Leaf>("l"));
  EXPECT_EQ(Zeb::attributeValue<Ptr<const Leaf>>(*full, "only"), full->only());
  const std::pair<const char*, const char*> texts[] = {{"number", "3"}, {"text", ""},    {"item", "1"},
                                                       {"ids", "0"},    {"only", "set"}, {"held", "null"},
                                                       {"opaque", "?"}};
  for (auto [name, text] : texts) EXPECT_EQ(full->typeData().attribute(name)->text(*full), text) << name;
}

TEST(ReflectTest, WritesByNameGoThroughTheSetter) {
  auto bare = MemSlab::make<Bare>();
  Changes changes(*bare);
  EXPECT_TRUE(Zeb::attributeValueIs(*bare, "number", 9)) << "inherited";
  EXPECT_EQ(bare->number(), 9);
  EXPECT_EQ(changes.take(), "number ");
  EXPECT_TRUE(Zeb::attributeValueIs(*bare, "number", 9));
  EXPECT_EQ(changes.take(), "") << "an equal write is no change here either";
  EXPECT_TRUE(Zeb::attributeValueIs(*bare, "text", String("t")));
  EXPECT_EQ(changes.take(), "text ");
  struct Row {
    const char* why;
    bool done;
  };
  const Row refused[] = {
      {"another type", Zeb::attributeValueIs(*bare, "number", 9u)},
      {"a literal is no String", Zeb::attributeValueIs(*bare, "text", "literal")},
      {"an unknown name", Zeb::attributeValueIs(*bare, "none", 1)},
      {"a collection", Zeb::attributeValueIs(*bare, "item", 1)},
      {"an owned child", Zeb::attributeValueIs(*bare, "only", Ptr<Leaf>())},
      {"a row without a plain setter", Zeb::attributeValueIs(*bare, "held", Ptr<Leaf>())},
      {"nothing at all", Base::numberAttribute().set(*bare, std::any())},
  };
  for (const Row& row : refused) EXPECT_FALSE(row.done) << row.why;
  EXPECT_EQ(changes.take(), "");
}

}  // namespace AttributesTests
