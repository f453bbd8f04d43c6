#include "../Acl/ChangeLog.h"
#include "World.h"

// AclPlugin: its phases, what it registers where, and what stays when it goes.

namespace {

using namespace TestSupport;
using Velo::VeloAcl::AclPlugin;
using Velo::VeloAcl::VeloAclConfigSharedObject;

/// A plugin that has its context, and nothing else yet.
class AclPluginPhases : public testing::Test {
 protected:
  AclPluginPhases() { plugin->pluginCtxIs(&agent.context); }
  void mount() { plugin->mountsComplete(agent.entities); }
  void setUpManager() {
    mount();
    plugin->setupPluginManager();
  }
  void activate() {
    setUpManager();
    plugin->activeInit();
  }
  Kelp::Ptr<Acl::Config> shared() {
    return VeloAclConfigSharedObject::getAclConfig(agent.manager.sharedObjects());
  }

  AgentSide agent;
  Kelp::Ptr<AclPlugin> plugin = Velo::VeloAcl::AclPluginIs("Acl");
};

TEST_F(AclPluginPhases, ConstructedItHasAnEmptyConfigurationAlreadyWrappedToBeShared) {
  EXPECT_EQ(plugin->name(), "Acl");
  ASSERT_TRUE(plugin->aclConfig());
  EXPECT_TRUE(plugin->aclConfig()->config().empty());
  EXPECT_EQ(plugin->aclConfig()->parent(), plugin.get());
  ASSERT_TRUE(plugin->aclConfigSO());
  EXPECT_EQ(plugin->aclConfigSO()->aclConfig(), plugin->aclConfig());
  EXPECT_EQ(plugin->aclConfigSO()->parent(), plugin.get());
  EXPECT_EQ(shared(), nullptr) << "not shared yet";
  for (const auto* attribute : plugin->typeData().attributes()) {
    const bool made = attribute->name() == "aclConfig" || attribute->name() == "aclConfigSO";
    EXPECT_EQ(attribute->text(*plugin), made ? "set" : "null") << attribute->name();
  }
}

TEST_F(AclPluginPhases, TheAttributesAreReflectedInTheOrderOfTheirDeclaration) {
  Lines names;
  for (const auto* attribute : plugin->typeData().attributes()) names.emplace_back(attribute->name());
  const Lines expected{"aclInputDir",   "aclCliInput",    "aclIntfInput",         "aclIntfCliInput",
                       "aclStatus",     "aclConfig",      "aclConfigSO",          "aclAggregatorSm",
                       "intfConfig",    "intfConfigSm",   "intfConfigDirMergeSm", "aclHelper",
                       "inputStep",     "outputStep",     "inCounters",           "macOutCounters",
                       "ipOutCounters", "ip6OutCounters", "dpAclStatusSm"};
  EXPECT_EQ(names, expected);
  EXPECT_EQ(plugin->typeData().name(), "Velo::VeloAcl::AclPlugin");
}

TEST_F(AclPluginPhases, MountsCompleteTakesTheFiveEntities) {
  ChangeLog log(*plugin);
  mount();
  EXPECT_EQ(plugin->aclInputDir(), agent.lists);
  EXPECT_EQ(plugin->aclCliInput(), agent.cli);
  EXPECT_EQ(plugin->aclIntfInput(), agent.intfs);
  EXPECT_EQ(plugin->aclIntfCliInput(), agent.cliIntfs);
  EXPECT_EQ(plugin->aclStatus(), agent.status);
  const Lines five{"aclInputDir", "aclCliInput", "aclIntfInput", "aclIntfCliInput", "aclStatus"};
  EXPECT_EQ(log.names(), five);
  mount();
  EXPECT_EQ(log.names(), five) << "the same again is no change";
}

TEST_F(AclPluginPhases, APathThatIsMissingOrHoldsAnotherTypeIsNull) {
  mount();
  const char* paths[] = {"acl/config/input", "acl/config/cli", "acl/intf/config/input", "acl/intf/config/cli",
                         "acl/status/dp/kepa"};
  const auto isNull = [&](int i) {
    const bool null[] = {!plugin->aclInputDir(), !plugin->aclCliInput(), !plugin->aclIntfInput(),
                         !plugin->aclIntfCliInput(), !plugin->aclStatus()};
    return null[i];
  };
  for (int i = 0; i < 5; ++i) {
    const auto right = agent.entities->getEntity(paths[i]);
    agent.entities->mountDel(paths[i]);
    mount();
    EXPECT_TRUE(isNull(i)) << paths[i] << " is missing";
    agent.entities->mountIs(paths[i], right);
    mount();
    EXPECT_FALSE(isNull(i));
    agent.entities->mountIs(paths[i], MemSlab::make<Acl::Config>());
    mount();
    EXPECT_TRUE(isNull(i)) << paths[i] << " holds a plain configuration";
    agent.entities->mountIs(paths[i], right);
    mount();
  }
}

TEST_F(AclPluginPhases, SetupMergesTheConfigurationAndSharesIt) {
  mount();
  ChangeLog log(*plugin);
  plugin->setupPluginManager();
  EXPECT_EQ(log.names(), (Lines{"aclAggregatorSm", "intfConfig", "intfConfigDirMergeSm", "intfConfigSm"}));
  EXPECT_EQ(plugin->intfConfig()->name(), "intfConfig");
  EXPECT_TRUE(plugin->intfConfig()->initialized());
  EXPECT_EQ(plugin->intfConfig()->parent(), plugin.get());
  EXPECT_EQ(shared(), plugin->aclConfig()) << "the very configuration that is aggregated into";

  agent.cli->configIs(AclType::ip)->aclIs("C");
  const auto input = MemSlab::make<Acl::Input::Config>(Kelp::String("x"));
  input->configIs(AclType::mac)->aclIs("D");
  agent.lists->entryIs(input);
  EXPECT_TRUE(shared()->config(AclType::ip)->acl("C")) << "a reader sees every later change";
  EXPECT_TRUE(shared()->config(AclType::mac)->acl("D"));

  const auto bindings = Acl::intfConfigFactory("x");
  bindings->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId("eth1"), "D");
  agent.intfs->entryIs(bindings);
  const auto inForce = [&] { return plugin->intfConfig()->config(AclType::ip)->intf(AclDirection::in); };
  EXPECT_EQ(*inForce()->intf(IntfId("eth1")), "D");
  agent.cliIntfs->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(IntfId("eth1"), "C");
  EXPECT_EQ(*inForce()->intf(IntfId("eth1")), "C") << "the command line goes first";
}

TEST_F(AclPluginPhases, SetupSharesWhatItHasMergedAndTheMergersUntilThePluginGoes) {
  mount();
  EXPECT_EQ(Acl::MergedConfig::of(*agent.manager.sharedObjects()), nullptr) << "not shared yet";
  plugin->setupPluginManager();
  const auto merged = Acl::MergedConfig::of(*agent.manager.sharedObjects());
  ASSERT_TRUE(merged);
  EXPECT_EQ(merged->lists(), plugin->aclConfig());
  EXPECT_EQ(merged->bindings(), plugin->intfConfig());
  EXPECT_EQ(merged->listMerger(), plugin->aclAggregatorSm());
  EXPECT_EQ(merged->bindingMerger(), plugin->intfConfigSm());
  EXPECT_EQ(merged->parent(), plugin.get());
  plugin = nullptr;
  EXPECT_EQ(merged->parent(), nullptr);
  EXPECT_FALSE(merged->lists() || merged->bindings() || merged->listMerger() || merged->bindingMerger())
      << "nothing is merged by a plugin that is gone";
}

TEST_F(AclPluginPhases, MissingInputsAreNoObstacle) {
  for (const char* path :
       {"acl/config/input", "acl/config/cli", "acl/intf/config/input", "acl/intf/config/cli"}) {
    agent.entities->mountDel(path);
  }
  activate();
  EXPECT_TRUE(plugin->aclConfig()->config().empty());
  EXPECT_EQ(agent.manager.pipeline()->stepCount(), 2u);
}

TEST_F(AclPluginPhases, ActiveInitMakesCountersHelperAndStepsAndHandsThemToTheAgent) {
  setUpManager();
  ChangeLog log(*plugin);
  ChangeLog holder(*agent.manager.counterHolder());
  plugin->activeInit();
  EXPECT_EQ(log.names(), (Lines{"inCounters", "macOutCounters", "ipOutCounters", "ip6OutCounters",
                                "dpAclStatusSm", "aclHelper", "inputStep", "outputStep"}));
  struct Row {
    Kelp::Ptr<AclPlugin::Counters> counters;
    const char* name;
    uint32_t feature;
  };
  const Row rows[] = {{plugin->inCounters(), "DpAclInRuleMatches", 4},
                      {plugin->macOutCounters(), "DpAclMacOutRuleMatches", 3},
                      {plugin->ipOutCounters(), "DpAclIpOutRuleMatches", 1},
                      {plugin->ip6OutCounters(), "DpAclIp6OutRuleMatches", 2}};
  for (const auto& [counters, name, feature] : rows) {
    ASSERT_TRUE(counters) << name;
    EXPECT_EQ(counters->name(), name);
    EXPECT_EQ(counters->featureId(), CtrPool::FeatureId(feature));
    EXPECT_EQ(counters->parent(), plugin.get());
    EXPECT_EQ(agent.manager.counterHolder()->collection(name), counters);
  }
  EXPECT_EQ(holder.names().size(), 4u);
  EXPECT_EQ(agent.manager.pipeline()->stepCount(), 2u);
  EXPECT_EQ(plugin->inputStep()->helper(), plugin->aclHelper());
  EXPECT_EQ(plugin->outputStep()->helper(), plugin->aclHelper());
  EXPECT_EQ(plugin->aclHelper()->mirroringHelper(), Velo::MirroringStepHelper::singleton());
}

TEST_F(AclPluginPhases, TheCapabilitiesAreSetInOrderAndTheStatusIsCompleteLast) {
  setUpManager();
  ChangeLog log(*agent.status);
  plugin->activeInit();
  Lines set;
  for (const auto& name : log.names()) {
    if (name != "status") set.push_back(name);
  }
  EXPECT_EQ(set, capabilitiesAsSet());
  for (const auto& name : set) EXPECT_EQ(Zeb::attributeValue<bool>(*agent.status, name), true) << name;
}

TEST_F(AclPluginPhases, ASecondActiveInitKeepsEverythingAndHandsItOverAgain) {
  activate();
  const auto in = plugin->inCounters();
  const auto helper = plugin->aclHelper();
  const auto input = plugin->inputStep();
  const auto machine = plugin->dpAclStatusSm();
  agent.manager.counterHolder()->collectionIs(
      MemSlab::make<AclPlugin::Counters>(in->name(), in->featureId()));
  EXPECT_NE(agent.manager.counterHolder()->collection(in->name()), in) << "somebody else's under that name";
  ChangeLog log(*plugin);
  plugin->activeInit();
  EXPECT_EQ(log.names(), Lines{}) << "the plugin's own objects stay";
  EXPECT_EQ(plugin->inCounters(), in);
  EXPECT_EQ(plugin->aclHelper(), helper);
  EXPECT_EQ(plugin->inputStep(), input);
  EXPECT_EQ(plugin->dpAclStatusSm(), machine);
  EXPECT_EQ(agent.manager.counterHolder()->collection(in->name()), in) << "handed over again";
  EXPECT_EQ(agent.manager.pipeline()->stepCount(), 2u) << "a step handed over twice is there once";
}

TEST_F(AclPluginPhases, WhatItRegisteredStaysWhenItGoesAndItsOwnObjectsLoseTheirParent) {
  activate();
  agent.cli->configIs(AclType::mac)->aclIs("L")->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
  agent.cliIntfs->configIs(AclType::mac)->intfIs(AclDirection::in)->intfIs(IntfId("eth1"), "L");
  const auto config = plugin->aclConfig();
  const auto intfConfig = plugin->intfConfig();
  const auto counters = plugin->inCounters();
  plugin = nullptr;
  EXPECT_EQ(config->parent(), nullptr);
  EXPECT_EQ(intfConfig->parent(), nullptr);
  EXPECT_EQ(counters->parent(), nullptr);
  EXPECT_EQ(agent.manager.pipeline()->stepCount(), 2u);
  EXPECT_EQ(agent.manager.counterHolder()->collection("DpAclInRuleMatches"), counters);
  EXPECT_EQ(shared(), config);

  const auto ctx = MemSlab::make<Velo::PacketContext>(MemSlab::make<Velo::VeloNamedCounters>());
  const Bytes frame = arp();
  ctx->pkt()->assign(frame, static_cast<uint32_t>(frame.size()), 0);
  ctx->begin(IntfId("eth1"));
  EXPECT_NE(agent.manager.pipeline()->process(ctx), nullptr) << "packets are judged by what stands";
  agent.cliIntfs->configDel(AclType::mac);
  EXPECT_NE(agent.manager.pipeline()->process(ctx), nullptr) << "which nobody keeps up any more";
  EXPECT_TRUE(agent.status->vlanSupported()) << "the status outlives the plugin";
}

TEST_F(AclPluginPhases, NobodyHearsOfItsDestruction) {
  activate();
  ChangeLog log(*plugin);
  plugin = nullptr;
  EXPECT_EQ(log.names(), Lines{});
}

TEST_F(AclPluginPhases, TheAgentTakesItsThingsOutOfTheRegistries) {
  plugin->savePluginRef(agent.entities);
  agent.manager.runPhases({});
  EXPECT_EQ(agent.manager.pipeline()->stepCount(), 2u);
  plugin = nullptr;
  agent.manager.pluginDel("Acl");
  EXPECT_EQ(agent.manager.pipeline()->stepCount(), 0u);
  EXPECT_TRUE(agent.manager.counterHolder()->collection().empty());
  EXPECT_EQ(shared(), nullptr);
}

using AclPluginDeathTest = AclPluginPhases;

TEST_F(AclPluginDeathTest, ActiveInitNeedsTheStatus) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  agent.entities->mountDel("acl/status/dp/kepa");
  setUpManager();
  EXPECT_DEATH(plugin->activeInit(), "aclStatus\\(\\) && ");
}

}  // namespace
