#include <Velo/VeloPlugin.h>
#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace Velo;
using Counter::PktCounterCollectionBase;
using Lines = std::vector<std::string>;

class FakeStep : public InputPipelineStep {
  ZEB_ENTITY(FakeStep, InputPipelineStep)
 public:
  FakeStep() : InputPipelineStep("s", 1) { stepFlagsIs(enabled); }
  bool process(const Kelp::Ptr<PacketContext>&) override { return true; }
};
class FakeCounters : public PktCounterCollectionBase {
  ZEB_ENTITY(FakeCounters, PktCounterCollectionBase)
 public:
  explicit FakeCounters(const Kelp::String& name) : PktCounterCollectionBase(name, CtrPool::FeatureId(1)) {}
};
class FakeObject : public SharedObject {
  ZEB_ENTITY(FakeObject, SharedObject)
 public:
  explicit FakeObject(const Kelp::String& name) : SharedObject(name) {}
};

class FakePlugin : public VeloPlugin {
  ZEB_ENTITY(FakePlugin, VeloPlugin)
 public:
  FakePlugin(const char* name, Lines& lines) : VeloPlugin(name), lines_(lines) {}
  ~FakePlugin() override { say("gone"); }
  void handleMountStatus(bool on) override {
    say(on ? "mounted" : "not mounted");
    VeloPlugin::handleMountStatus(on);
  }
  void createLocalEntities() override { say("local"); }
  void mountsComplete(const Kelp::Ptr<Hive::EntityManager>& entities) override {
    say("mounts");
    mountsFrom = entities;
  }
  void setupPluginManager() override {
    say("setup");
    manager()->sharedObjects()->sharedObjectIs(MemSlab::make<FakeObject>(name()));
  }
  void activeInit() override {
    say("active");
    manager()->counterHolder()->collectionIs(MemSlab::make<FakeCounters>(name()));
    manager()->pipeline()->addStep(Kelp::Ptr<InputPipelineStep>(MemSlab::make<FakeStep>()));
  }

  Kelp::Ptr<Hive::EntityManager> mountsFrom;

 private:
  void say(const char* what) { lines_.push_back(fmt::format("{} {}", name(), what)); }
  Lines& lines_;
};

class Manager : public testing::Test {
 protected:
  void add(const char* name) {
    const auto plugin = MemSlab::make<FakePlugin>(name, lines);
    plugin->pluginCtxIs(&context);
    plugin->savePluginRef(context.entityManager);
  }
  std::optional<std::string> run() { return manager.runPhases({{"P", profile}}); }

  Lines lines;
  PluginManager manager;
  PluginContext context{&manager, MemSlab::make<Hive::EntityManager>()};
  Hive::MountProfile profile{{{"a/b", "Zeb::Dir"}}};
};

TEST_F(Manager, DrivesThePhasesInOrderOnce) {
  add("P");
  EXPECT_EQ(run(), std::nullopt);
  EXPECT_EQ(lines, (Lines{"P mounted", "P local", "P mounts", "P setup", "P active"}));
  EXPECT_TRUE(manager.plugins()[0]->mounted());
  EXPECT_TRUE(context.entityManager->getEntity("a/b"));
  lines.clear();
  add("Q");
  run();
  EXPECT_EQ(lines, (Lines{"Q mounted", "Q local", "Q mounts", "Q setup", "Q active"}))
      << "P has been through them";
}

TEST_F(Manager, APluginWhoseMountsFailedStillRuns) {
  profile.mounts.push_back({"a/c", "No::Such"});
  add("P");
  EXPECT_EQ(run(), "a/c: no type No::Such that can be mounted");
  EXPECT_EQ(lines[0], "P not mounted");
  EXPECT_EQ(lines.back(), "P active");
  EXPECT_FALSE(manager.plugins()[0]->mounted());
}

TEST_F(Manager, APluginHasItsOwnProfileMountedInTheTreeThatItWasRecordedWith) {
  const auto mine = MemSlab::make<Hive::EntityManager>(), another = MemSlab::make<Hive::EntityManager>();
  const auto record = [&](const char* name, const Kelp::Ptr<Hive::EntityManager>& entities) {
    const auto plugin = MemSlab::make<FakePlugin>(name, lines);
    plugin->pluginCtxIs(&context);
    plugin->savePluginRef(entities);
    EXPECT_EQ(plugin->entityManager(), entities);
  };
  record("P", mine), record("Q", another), record("R", mine);
  const Hive::MountProfile bad{{{"a/c", "No::Such"}}};
  EXPECT_EQ(manager.runPhases({{"P", profile}, {"Q", bad}, {"X", bad}}),
            "a/c: no type No::Such that can be mounted");
  EXPECT_TRUE(mine->getEntity("a/b"));
  EXPECT_FALSE(another->getEntity("a/b")) << "it is P's";
  EXPECT_FALSE(context.entityManager->getEntity("a/b"));
  const Lines told{"P mounted", "Q not mounted", "R mounted"};
  Lines heard;
  for (const auto& line : lines) {
    if (line.ends_with("mounted")) heard.push_back(line);
  }
  EXPECT_EQ(heard, told) << "R has no profile and so lacks nothing";
  EXPECT_TRUE(manager.plugins()[0]->mounted());
  EXPECT_FALSE(manager.plugins()[1]->mounted());
}

TEST_F(Manager, TheMountsAreTakenFromTheTreeThatThePluginWasRecordedWith) {
  const auto own = MemSlab::make<Hive::EntityManager>();
  const auto plugin = MemSlab::make<FakePlugin>("P", lines);
  plugin->pluginCtxIs(&context);
  plugin->savePluginRef(own);
  run();
  EXPECT_EQ(plugin->mountsFrom, own);
}

using ManagerDeathTest = Manager;

TEST_F(ManagerDeathTest, APluginIsNotRecordedWithoutAStateTree) {
  const auto plugin = MemSlab::make<FakePlugin>("P", lines);
  plugin->pluginCtxIs(&context);
  EXPECT_DEATH(plugin->savePluginRef(nullptr), "recorded with the state tree");
}

TEST_F(Manager, RetiringAPluginTakesAllItRegisteredOutAndNothingElse) {
  manager.pipeline()->addStep(Kelp::Ptr<InputPipelineStep>(MemSlab::make<FakeStep>()));
  add("P");
  add("Q");
  run();
  EXPECT_EQ(manager.pipeline()->stepCount(), 3u);
  manager.pluginDel("P");
  EXPECT_EQ(lines.back(), "P gone");
  EXPECT_EQ(manager.pipeline()->stepCount(), 2u);
  EXPECT_FALSE(manager.sharedObjects()->sharedObject("P"));
  EXPECT_FALSE(manager.counterHolder()->collection("P"));
  EXPECT_TRUE(manager.sharedObjects()->sharedObject("Q"));
  EXPECT_TRUE(manager.counterHolder()->collection("Q"));
  manager.pluginDel("P");
  EXPECT_EQ(manager.plugins().size(), 1u);
}

TEST_F(Manager, APluginReplacesTheOneOfItsName) {
  add("P");
  run();
  lines.clear();
  add("P");
  EXPECT_EQ(lines, Lines{"P gone"});
  EXPECT_EQ(manager.pipeline()->stepCount(), 0u) << "the old one's step is out before the new one runs";
  run();
  EXPECT_EQ(manager.pipeline()->stepCount(), 1u);
  EXPECT_EQ(manager.plugins().size(), 1u);
}

TEST_F(Manager, RegistriesFileByNameAndAnEqualFilingIsNoChange) {
  const auto first = MemSlab::make<FakeCounters>("C"), second = MemSlab::make<FakeCounters>("C");
  const auto& holder = manager.counterHolder();
  holder->collectionIs(first);
  const uint32_t version = holder->collection().version();
  holder->collectionIs(first);
  EXPECT_EQ(holder->collection().version(), version);
  holder->collectionIs(second);
  EXPECT_EQ(holder->collection("C"), second);
  EXPECT_EQ(holder->collection().size(), 1u);
}

}  // namespace
