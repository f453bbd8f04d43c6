#include <Hive/Cell.h>
#include <Hive/EntityManager.h>
#include <Zeb/Dir.h>
#include <Zeb/TypeModule.h>
#include <gtest/gtest.h>

namespace HiveTests {

using Kelp::Ptr;
using Kelp::String;

class Config : public Zeb::Entity {
  ZEB_ENTITY(Config, Zeb::Entity)

 public:
  explicit Config(String name) : Entity(std::move(name)) {}
};
class Bare : public Zeb::Entity {
  ZEB_ENTITY(Bare, Zeb::Entity)
};

Ptr<Config> configFactory(const String& name) { return MemSlab::make<Config>(name); }
Ptr<Zeb::Dir> dirFactory(const String& name) { return MemSlab::make<Zeb::Dir>(name); }
Ptr<Bare> bareFactory() { return MemSlab::make<Bare>(); }

struct EntityManagerTest : testing::Test {
  const Zeb::TypeModule module{
      "hive-tests", {Zeb::typeEntry(configFactory), Zeb::typeEntry(dirFactory), Zeb::typeEntry(bareFactory)}};
  Ptr<Hive::EntityManager> manager = MemSlab::make<Hive::EntityManager>();
};

TEST_F(EntityManagerTest, MountsWhatAProfileAsksForUnderItsLastWord) {
  const Hive::MountProfile profile{{{"acl/config/cli", "HiveTests::Config", Hive::MountProfile::Mode::read},
                                    {"plain", "Zeb::Dir", Hive::MountProfile::Mode::write}}};
  EXPECT_EQ(manager->mountProfile(profile), std::nullopt);
  auto cli = manager->getEntity("acl/config/cli");
  ASSERT_NE(Kelp::ptrCast<Config>(cli), nullptr);
  EXPECT_EQ(cli->name(), "cli");
  EXPECT_EQ(manager->getEntity("plain")->name(), "plain");
  for (const char* none : {"", "acl", "acl/config", "acl/config/", "acl/config/cli/", "/plain"}) {
    EXPECT_EQ(manager->getEntity(none), nullptr) << none;
  }
  EXPECT_EQ(manager->mountProfile(profile), std::nullopt);
  EXPECT_EQ(manager->getEntity("acl/config/cli"), cli) << "what is mounted stays, whoever asks again";
}

TEST_F(EntityManagerTest, AProfileIsMountedWholeOrNotAtAll) {
  auto known = MemSlab::make<Config>("known");
  manager->mountIs("known", known);
  struct Row {
    const char* why;
    Hive::MountProfile::Mount bad;
    const char* text;
  };
  const Row rows[] = {
      {"an unknown type", {"x/y", "HiveTests::None"}, "x/y: no type HiveTests::None that can be mounted"},
      {"a type that is not made from a name",
       {"x", "HiveTests::Bare"},
       "x: no type HiveTests::Bare that can be mounted"},
      {"mounted as another type",
       {"known", "Zeb::Dir"},
       "known is mounted as HiveTests::Config, not as Zeb::Dir"},
      {"asked for twice as two types",
       {"new", "Zeb::Dir"},
       "new is mounted as HiveTests::Config, not as Zeb::Dir"},
  };
  for (const Row& row : rows) {
    const Hive::MountProfile profile{{{"new", "HiveTests::Config"}, row.bad, {"later", "Zeb::Dir"}}};
    EXPECT_EQ(manager->mountProfile(profile), row.text) << row.why;
    for (const char* path : {"new", "later", "x", "x/y"})
      EXPECT_EQ(manager->getEntity(path), nullptr) << row.why;
    EXPECT_EQ(manager->getEntity("known"), known) << row.why;
  }
  EXPECT_EQ(MemSlab::slabOf<Config>().liveCount(), 1u) << "nothing that was made for it is left";
}

TEST_F(EntityManagerTest, OnePathAskedForTwiceIsOneEntity) {
  EXPECT_EQ(manager->mountProfile({{{"a", "Zeb::Dir"}, {"a", "Zeb::Dir"}}}), std::nullopt);
  EXPECT_NE(manager->getEntity("a"), nullptr);
  EXPECT_EQ(MemSlab::slabOf<Zeb::Dir>().liveCount(), 1u);
}

TEST_F(EntityManagerTest, AMountHoldsItsEntityUntilItIsReplacedOrTakenOut) {
  auto a = MemSlab::make<Config>("a"), b = MemSlab::make<Config>("b");
  manager->mountIs("p", a);
  manager->mountIs("p", a);
  EXPECT_EQ(a->nodeUseCount(), 2u);
  manager->mountIs("p", b);
  EXPECT_EQ(a->nodeUseCount(), 1u);
  EXPECT_EQ(manager->getEntity("p"), b);
  manager->mountDel("p");
  manager->mountDel("p");
  EXPECT_EQ(manager->getEntity("p"), nullptr);
  EXPECT_EQ(b->nodeUseCount(), 1u);
}

TEST(CellTest, ThePlainPathIsThatOfCellZero) {
  EXPECT_EQ(Cell::path("acl/status", 0), "acl/status");
  EXPECT_EQ(Cell::path("acl/status", 1), "cell/1/acl/status");
  EXPECT_EQ(Cell::path("", 4294967295), "cell/4294967295/");
}

}  // namespace HiveTests
