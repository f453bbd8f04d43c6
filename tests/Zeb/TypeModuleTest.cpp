#include <Zeb/TypeModule.h>
#include <gtest/gtest.h>

#include <memory>

namespace TypeModuleTests {

using Kelp::Ptr;
using Kelp::String;

class Made : public Zeb::Entity {
  ZEB_ENTITY(Made, Zeb::Entity)

 public:
  explicit Made(String name) : Entity(std::move(name)) {}
  ZEB_VALUE(int, number)
};
class Plain : public Zeb::Entity {
  ZEB_ENTITY(Plain, Zeb::Entity)
};

Ptr<Made> madeFactory(const String& name, int number) {
  auto made = MemSlab::make<Made>(name);
  made->numberIs(number);
  return made;
}
Ptr<Made> otherFactory(const String&, int) { return MemSlab::make<Made>("other"); }
Ptr<Plain> plainFactory() { return MemSlab::make<Plain>(); }

template <class... Args>
Ptr<Made> construct(const char* name, Args... args) {
  const std::vector<std::any> list{std::any(args)...};
  return Kelp::ptrCast<Made>(Zeb::constructByName(name, list));
}

TEST(TypeModuleTest, ConstructsFromTheArgumentsThatTheFactoryTakes) {
  const Zeb::TypeModule module("test", {Zeb::typeEntry(madeFactory), Zeb::typeEntry(plainFactory)});
  const char* name = "TypeModuleTests::Made";
  auto made = construct(name, String("n"), 4);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->name(), "n");
  EXPECT_EQ(made->number(), 4);
  EXPECT_EQ(made->nodeUseCount(), 1u);
  EXPECT_NE(Zeb::constructByName("TypeModuleTests::Plain", {}), nullptr) << "without arguments";
  struct Row {
    const char* why;
    Ptr<Made> made;
  };
  const Row refused[] = {
      {"too few arguments", construct(name, String("n"))},
      {"too many", construct(name, String("n"), 4, 4)},
      {"none", construct(name)},
      {"the wrong order", construct(name, 4, String("n"))},
      {"a C string is no String", construct(name, "n", 4)},
      {"an unsigned number is no int", construct(name, String("n"), 4u)},
      {"an unknown type", construct("TypeModuleTests::None", String("n"), 4)},
      {"half a name", construct("Made", String("n"), 4)},
  };
  for (const Row& row : refused) EXPECT_EQ(row.made, nullptr) << row.why;
}

TEST(TypeModuleTest, ATypeWithoutAFactoryIsKnownButNotConstructed) {
  const Zeb::TypeModule module("test", {Zeb::typeEntry<Made>()});
  ASSERT_NE(Zeb::typeByName("TypeModuleTests::Made"), nullptr);
  EXPECT_EQ(construct("TypeModuleTests::Made", String("n"), 4), nullptr);
}

TEST(TypeModuleTest, AModulesTypesGoWithItAndTheLatestOfAnameWins) {
  const char* name = "TypeModuleTests::Made";
  const size_t before = Zeb::typeModules().size();
  EXPECT_EQ(Zeb::typeByName(name), nullptr);
  auto old = std::make_unique<Zeb::TypeModule>("old", std::vector{Zeb::typeEntry(madeFactory)});
  auto next = std::make_unique<Zeb::TypeModule>("next", std::vector{Zeb::typeEntry(otherFactory)});
  EXPECT_EQ(Zeb::typeModules().back()->unit(), "next");
  EXPECT_EQ(construct(name, String("n"), 1)->name(), "other");
  next.reset();
  EXPECT_EQ(construct(name, String("n"), 1)->name(), "n") << "the older one is still there";
  next = std::make_unique<Zeb::TypeModule>("next", std::vector{Zeb::typeEntry(otherFactory)});
  old.reset();
  EXPECT_EQ(construct(name, String("n"), 1)->name(), "other") << "one closed before the later one";
  next.reset();
  EXPECT_EQ(Zeb::typeByName(name), nullptr);
  EXPECT_EQ(Zeb::typeModules().size(), before);
}

}  // namespace TypeModuleTests
