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
  EXPECT_EQ(plugin->aclConfigSODel(), second);
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
