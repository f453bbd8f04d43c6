#include "../Acl/ChangeLog.h"
#include "World.h"

// The setters of AclPlugin that build objects, and the removers.

namespace {

using namespace TestSupport;
using Velo::VeloAcl::AclPlugin;
using Counters = Velo::Counter::VeloDpAclCounterColl;

class AclPluginSetters : public testing::Test {
 protected:
  const Kelp::Ptr<AclPlugin> plugin = Velo::VeloAcl::aclPluginFactory("Acl");
  ChangeLog log{*plugin};
};

TEST_F(AclPluginSetters, AConfigurationStaysUntilItIsRemoved) {
  const auto first = plugin->aclConfig();
  EXPECT_EQ(plugin->aclConfigIs(), first);
  EXPECT_EQ(log.names(), Lines{});
  EXPECT_EQ(plugin->aclConfigDel(), first) << "a remover hands back what was held";
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_EQ(plugin->aclConfig(), nullptr);
  EXPECT_EQ(plugin->aclConfigDel(), nullptr);
  EXPECT_NE(plugin->aclConfigIs(), first);
  EXPECT_EQ(plugin->aclConfig()->parent(), plugin.get());
  EXPECT_EQ(log.names(), (Lines{"aclConfig", "aclConfig"})) << "one removal, one new one";
}

TEST_F(AclPluginSetters, TheSharedObjectIsKeptForTheSameConfigurationOnly) {
  const auto first = plugin->aclConfigSO();
  EXPECT_EQ(plugin->aclConfigSOIs(plugin->aclConfig()), first);
  const auto other = MemSlab::make<Acl::Config>();
  const auto second = plugin->aclConfigSOIs(other);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->aclConfig(), other);
  EXPECT_EQ(plugin->aclConfigSO(), second);
  EXPECT_EQ(log.names(), Lines{"aclConfigSO"});
  EXPECT_EQ(first->parent(), nullptr) << "the old one is let go of";
  EXPECT_EQ(second->parent(), plugin.get());
  EXPECT_EQ(plugin->aclConfigSODel(), second);
  EXPECT_EQ(second->parent(), nullptr);
  EXPECT_EQ(plugin->aclConfigSO(), nullptr);
}

TEST_F(AclPluginSetters, TheAggregatorAndTheStepsStayWhateverTheArguments) {
  const auto cli = MemSlab::make<Acl::Input::Config>(Kelp::String("cli"));
  const auto aggregator = plugin->aclAggregatorSmIs(nullptr, cli, plugin->aclConfig());
  EXPECT_EQ(plugin->aclAggregatorSmIs(nullptr, nullptr, MemSlab::make<Acl::Config>()), aggregator);
  const auto helper = plugin->aclHelperIs(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  const auto input = plugin->inputStepIs(helper);
  const auto output = plugin->outputStepIs(helper);
  EXPECT_EQ(plugin->inputStepIs(nullptr), input);
  EXPECT_EQ(plugin->outputStepIs(nullptr), output);
  EXPECT_EQ(log.names(), (Lines{"aclAggregatorSm", "aclHelper", "inputStep", "outputStep"}));
  EXPECT_EQ(plugin->aclAggregatorSmDel(), aggregator);
  EXPECT_EQ(plugin->inputStepDel(), input);
  EXPECT_EQ(plugin->outputStepDel(), output);
  EXPECT_NE(plugin->inputStepIs(nullptr), input) << "a new one after the removal";
  EXPECT_EQ(plugin->inputStep()->helper(), nullptr);
}

TEST_F(AclPluginSetters, TheHelperIsKeptForTheVerySameArgumentsOnly) {
  const auto config = MemSlab::make<Acl::Config>();
  const auto intfs = Acl::intfConfigFactory("i");
  const auto status = MemSlab::make<Acl::StatusDp>();
  std::vector<Kelp::Ptr<Counters>> c;
  for (int i = 0; i < 5; ++i) c.push_back(MemSlab::make<Counters>("c", CtrPool::FeatureId(1)));
  const auto first = plugin->aclHelperIs(config, intfs, status, c[0], c[1], c[2], c[3]);
  EXPECT_EQ(first->mirroringHelper(), Velo::MirroringStepHelper::singleton()) << "whenever a helper is set";
  EXPECT_EQ(plugin->aclHelperIs(config, intfs, status, c[0], c[1], c[2], c[3]), first);
  EXPECT_EQ(log.names(), Lines{"aclHelper"});
  // Equal objects in one place each: identity decides.
  const std::function<void()> others[] = {
      [&] { plugin->aclHelperIs(MemSlab::make<Acl::Config>(), intfs, status, c[0], c[1], c[2], c[3]); },
      [&] { plugin->aclHelperIs(config, Acl::intfConfigFactory("i"), status, c[0], c[1], c[2], c[3]); },
      [&] { plugin->aclHelperIs(config, intfs, MemSlab::make<Acl::StatusDp>(), c[0], c[1], c[2], c[3]); },
      [&] { plugin->aclHelperIs(config, intfs, status, c[4], c[1], c[2], c[3]); },
      [&] { plugin->aclHelperIs(config, intfs, status, c[0], c[4], c[2], c[3]); },
      [&] { plugin->aclHelperIs(config, intfs, status, c[0], c[1], c[4], c[3]); },
      [&] { plugin->aclHelperIs(config, intfs, status, c[0], c[1], c[2], c[4]); },
  };
  for (const auto& other : others) {
    const auto before = plugin->aclHelperIs(config, intfs, status, c[0], c[1], c[2], c[3]);
    other();
    EXPECT_NE(plugin->aclHelper(), before);
    EXPECT_EQ(plugin->aclHelper()->mirroringHelper(), Velo::MirroringStepHelper::singleton());
  }
  const auto last = plugin->aclHelper();
  EXPECT_EQ(plugin->aclHelperDel(), last);
  EXPECT_EQ(plugin->aclHelper(), nullptr);
}

TEST_F(AclPluginSetters, TheMergedBindingsHaveThePluginAsParentUntilTheyAreReplaced) {
  const auto first = Acl::intfConfigFactory("i"), second = Acl::intfConfigFactory("i");
  EXPECT_TRUE(plugin->intfConfigIs(first));
  EXPECT_EQ(first->parent(), plugin.get());
  EXPECT_FALSE(plugin->intfConfigIs(first)) << "the same again is no change";
  EXPECT_EQ(first->parent(), plugin.get());
  EXPECT_TRUE(plugin->intfConfigIs(second));
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_EQ(second->parent(), plugin.get());
  EXPECT_EQ(log.names(), (Lines{"intfConfig", "intfConfig"}));
}

class StatusMachineSetter : public AclPluginSetters {
 protected:
  struct Arguments {
    Kelp::Ptr<const Acl::Config> config = MemSlab::make<Acl::Config>();
    Kelp::Ptr<const Acl::IntfConfig> intfs = Acl::intfConfigFactory("i");
    Kelp::Ptr<const Counters> in = some(), macOut = some(), ipOut = some(), ip6Out = some();
    Kelp::Ptr<Acl::StatusDp> status = MemSlab::make<Acl::StatusDp>();
    Rix::SmControl control;

    Arguments() { control.scheduler = MemSlab::make<Kiv::TaskScheduler>(); }
    static Kelp::Ptr<const Counters> some() { return MemSlab::make<Counters>("c", CtrPool::FeatureId(1)); }
  };
  Kelp::Ptr<Velo::VeloAcl::VeloDpAclStatusSm> set(const Arguments& a) {
    return plugin->dpAclStatusSmIs(a.config, a.intfs, a.in, a.macOut, a.ipOut, a.ip6Out, a.status, a.control);
  }
};

TEST_F(StatusMachineSetter, TheMachineIsKeptForTheVerySameArgumentsOnly) {
  const Arguments arguments;
  const auto first = set(arguments);
  EXPECT_EQ(set(arguments), first);
  EXPECT_EQ(log.names(), Lines{"dpAclStatusSm"}) << "what stays is not announced";
  // Equal objects in one place each: identity decides.
  struct Row {
    const char* argument;
    std::function<void(Arguments&)> change;
  };
  const Row rows[] = {
      {"aclConfig", [](Arguments& a) { a.config = MemSlab::make<Acl::Config>(); }},
      {"aclIntfConfig", [](Arguments& a) { a.intfs = Acl::intfConfigFactory("i"); }},
      {"inCounters", [](Arguments& a) { a.in = Arguments::some(); }},
      {"macOutCounters", [](Arguments& a) { a.macOut = Arguments::some(); }},
      {"ipOutCounters", [](Arguments& a) { a.ipOut = Arguments::some(); }},
      {"ip6OutCounters", [](Arguments& a) { a.ip6Out = Arguments::some(); }},
      {"aclStatus", [](Arguments& a) { a.status = MemSlab::make<Acl::StatusDp>(); }},
      {"the control's scheduler",
       [](Arguments& a) { a.control.scheduler = MemSlab::make<Kiv::TaskScheduler>(); }},
      {"the control's priority", [](Arguments& a) { a.control.priority = 1; }},
      {"the control's name", [](Arguments& a) { a.control.name = "n"; }},
      {"the control's mode", [](Arguments& a) { a.control.mode = Rix::SmControl::synchronous; }},
      {"the control's last flag", [](Arguments& a) { a.control.traceAll = true; }},
  };
  for (const Row& row : rows) {
    const auto before = set(arguments);
    Arguments other = arguments;
    row.change(other);
    const auto after = set(other);
    EXPECT_NE(after, before) << row.argument;
    EXPECT_EQ(plugin->dpAclStatusSm(), after) << row.argument;
    EXPECT_EQ(before->parent(), nullptr) << row.argument;
    EXPECT_EQ(after->parent(), plugin.get()) << row.argument;
    EXPECT_EQ(set(other), after) << row.argument << ": and that one is kept";
  }
  const auto last = plugin->dpAclStatusSm();
  EXPECT_EQ(plugin->dpAclStatusSmDel(), last);
  EXPECT_EQ(last->parent(), nullptr);
  EXPECT_EQ(plugin->dpAclStatusSm(), nullptr);
}

/// The old machine and the new one have tasks of the same names.
TEST_F(StatusMachineSetter, AMachineThatReplacesAnotherGoesOnPublishing) {
  Arguments arguments;
  const auto config = MemSlab::make<Acl::Config>();
  arguments.config = config;
  Kiv::ManualClock clock{Kelp::Duration(1000)};
  arguments.control.scheduler = MemSlab::make<Kiv::TaskScheduler>(clock);
  set(arguments);
  arguments.control.priority = 1;
  const auto machine = set(arguments);
  const auto run = [&] {
    for (int turn = 0; turn < 20; ++turn) arguments.control.scheduler->runTurn();
  };
  run();
  EXPECT_TRUE(machine->ready());
  config->configIs(AclType::ip)->aclIs("L")->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
  run();
  ASSERT_TRUE(arguments.status->status(AclType::ip));
  EXPECT_TRUE(arguments.status->status(AclType::ip)->acl("L"));
  const uint64_t copied = machine->inputSmScanState()->copyInCountersCodefDoneGen();
  clock.advance(Kelp::Duration(1.5));
  run();
  EXPECT_GT(machine->inputSmScanState()->copyInCountersCodefDoneGen(), copied) << "its polls run";
}

TEST_F(AclPluginSetters, CountersAreKeptForTheSameNameAndFeature) {
  struct Row {
    const char* attribute;
    const Kelp::Ptr<Counters>& (AclPlugin::*set)(const Kelp::String&, CtrPool::FeatureId);
    Kelp::Ptr<Counters> (AclPlugin::*remove)();
    const Kelp::Ptr<Counters>& (AclPlugin::*get)() const;
  };
  const Row rows[] = {
      {"inCounters", &AclPlugin::inCountersIs, &AclPlugin::inCountersDel, &AclPlugin::inCounters},
      {"macOutCounters", &AclPlugin::macOutCountersIs, &AclPlugin::macOutCountersDel,
       &AclPlugin::macOutCounters},
      {"ipOutCounters", &AclPlugin::ipOutCountersIs, &AclPlugin::ipOutCountersDel, &AclPlugin::ipOutCounters},
      {"ip6OutCounters", &AclPlugin::ip6OutCountersIs, &AclPlugin::ip6OutCountersDel,
       &AclPlugin::ip6OutCounters},
  };
  for (const auto& [attribute, set, remove, get] : rows) {
    log.clear();
    const auto first = (*plugin.*set)("N", CtrPool::FeatureId(1));
    EXPECT_EQ((*plugin.*set)("N", CtrPool::FeatureId(1)), first);
    EXPECT_EQ(log.names(), Lines{attribute}) << "what stays is not announced";
    EXPECT_EQ(first->parent(), plugin.get());
    const auto second = (*plugin.*set)("N", CtrPool::FeatureId(2));
    EXPECT_NE(second, first) << "another feature is another collection";
    EXPECT_EQ(first->parent(), nullptr) << "the old one is let go of";
    const auto third = (*plugin.*set)("M", CtrPool::FeatureId(2));
    EXPECT_NE(third, second) << "so is another name";
    EXPECT_EQ(third->parent(), plugin.get());
    EXPECT_EQ((*plugin.*remove)(), third);
    EXPECT_EQ(third->parent(), nullptr);
    EXPECT_EQ((*plugin.*get)(), nullptr);
    EXPECT_EQ((*plugin.*remove)(), nullptr);
    EXPECT_EQ(log.names(), Lines(4, attribute)) << "three made, one removed";
  }
}

TEST_F(AclPluginSetters, PlainAttributesAreSetThroughReflection) {
  const auto status = MemSlab::make<Acl::StatusDp>(Kelp::String("s"));
  EXPECT_TRUE(Zeb::attributeValueIs<Kelp::Ptr<Acl::StatusDp>>(*plugin, "aclStatus", status));
  EXPECT_EQ(plugin->aclStatus(), status);
  EXPECT_FALSE(Zeb::attributeValueIs(*plugin, "aclStatus", 5));
}

TEST(AclConfigSharedObject, WrapsOneConfigurationForGood) {
  using Velo::VeloAcl::VeloAclConfigSharedObject;
  auto config = MemSlab::make<Acl::Config>();
  const auto shared = Velo::VeloAcl::VeloAclConfigSharedObjectIs(config);
  EXPECT_EQ(shared->name(), "AclConfig");
  EXPECT_EQ(shared->aclConfig(), config);
  EXPECT_EQ(shared->typeData().name(), "Velo::VeloAcl::VeloAclConfigSharedObject");
  ASSERT_EQ(shared->typeData().attributes().size(), 1u);
  EXPECT_EQ(shared->typeData().attributes()[0]->name(), "aclConfig");
  ASSERT_EQ(shared->typeData().operations().size(), 1u);
  EXPECT_EQ(shared->typeData().operations()[0].name, "getAclConfig");
  EXPECT_EQ(shared->typeData().operations()[0].parameter, "sharedObjects");
  EXPECT_FALSE(Zeb::attributeValueIs(*shared, "aclConfig", Kelp::Ptr<Acl::Config>()))
      << "it is never changed";
  Acl::Config* raw = config.get();
  config = nullptr;
  EXPECT_EQ(shared->aclConfig().get(), raw) << "it shares the ownership";
}

TEST(AclConfigSharedObject, IsFoundByItsName) {
  using Velo::VeloAcl::VeloAclConfigSharedObject;
  const Velo::Registrant registrant;
  const auto objects = MemSlab::make<Velo::SharedObjects>(registrant);
  EXPECT_EQ(VeloAclConfigSharedObject::getAclConfig(objects), nullptr);
  const auto config = MemSlab::make<Acl::Config>();
  objects->sharedObjectIs(Velo::VeloAcl::veloAclConfigSharedObjectFactory(config));
  EXPECT_EQ(VeloAclConfigSharedObject::getAclConfig(objects), config);
  objects->sharedObjectIs(Velo::VeloAcl::veloAclConfigSharedObjectFactory(nullptr));
  EXPECT_EQ(VeloAclConfigSharedObject::getAclConfig(objects), nullptr) << "one over nothing";
}

}  // namespace
