#include "../Acl/ChangeLog.h"
#include "World.h"

// In which order the plugin makes and announces what it has when it is activated.

namespace {

using namespace TestSupport;
using Velo::VeloAcl::AclPlugin;

class Activation : public testing::Test {
 protected:
  Activation() {
    plugin->pluginCtxIs(&agent.context);
    plugin->mountsComplete(agent.entities);
    plugin->setupPluginManager();
  }
  /// Has every announcement of an entity written down, with the number of steps in the pipeline by then.
  void follow(ChangeLog& log, const char* who) {
    log.then = [this, who](const Zeb::Change& change) {
      const std::string key = std::string_view(who) == "holder" ? change.keyAs<Kelp::String>().str()
                                                                : std::string(change.attribute.name());
      journal.push_back(fmt::format("{} {} ({} steps)", who, key, agent.manager.pipeline()->stepCount()));
    };
  }

  AgentSide agent;
  const Kelp::Ptr<AclPlugin> plugin = Velo::VeloAcl::aclPluginFactory("Acl");
  Lines journal;
};

TEST_F(Activation, CountersThenTheStatusMachineThenTheHelperThenTheStepsThenTheStatus) {
  ChangeLog ofPlugin(*plugin), ofHolder(*agent.manager.counterHolder()), ofStatus(*agent.status);
  follow(ofPlugin, "plugin"), follow(ofHolder, "holder"), follow(ofStatus, "status");
  plugin->activeInit();
  Lines expected{
      "plugin inCounters (0 steps)",
      "plugin macOutCounters (0 steps)",
      "plugin ipOutCounters (0 steps)",
      "plugin ip6OutCounters (0 steps)",
      "holder DpAclInRuleMatches (0 steps)",
      "holder DpAclMacOutRuleMatches (0 steps)",
      "holder DpAclIpOutRuleMatches (0 steps)",
      "holder DpAclIp6OutRuleMatches (0 steps)",
      "plugin dpAclStatusSm (0 steps)",
      "plugin aclHelper (0 steps)",
      "plugin inputStep (0 steps)",
      "plugin outputStep (0 steps)",
  };
  for (const auto& flag : capabilitiesAsSet()) {
    expected.push_back(fmt::format("status {} (2 steps)", flag));
  }
  EXPECT_EQ(journal, expected);
}

TEST_F(Activation, TheStatusMachineIsMadeBeforeAnythingJudgesPackets) {
  agent.cli->configIs(AclType::ip)->aclIs("L")->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
  bool published = false;
  ChangeLog ofStatus(*agent.status);
  ofStatus.then = [&](const Zeb::Change& change) {
    if (!change.is(agent.status->statusAttribute())) return;
    published = true;
    EXPECT_FALSE(plugin->aclHelper());
    EXPECT_EQ(agent.manager.pipeline()->stepCount(), 0u);
    EXPECT_FALSE(agent.status->dpAclSupported());
  };
  plugin->activeInit();
  // Without a running scheduler the machine publishes what a first pass finds.
  EXPECT_TRUE(published);
}

}  // namespace
