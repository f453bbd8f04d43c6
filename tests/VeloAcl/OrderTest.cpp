#include "../Acl/ChangeLog.h"
#include "World.h"

// In which order the plugin does what it does: activation, destruction, and what follows a match.

namespace {

using namespace TestSupport;
using Velo::VeloAcl::AclPlugin;

// ---- Activation.

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

// ---- Destruction.

/// Takes the place of the home of one object, and writes down that the object has gone.
class Watched final : public Kelp::NodeHome {
 public:
  template <class T>
  Watched(const Kelp::Ptr<T>& object, const char* name, Lines& gone)
      : home_(MemSlab::slabOf<T>()), name_(name), gone_(gone) {
    object->nodeHomeIs(this);
  }
  void giveBack(void* place) override {
    gone_.emplace_back(name_);
    home_.giveBack(place);
  }

 private:
  MemSlab::Slab& home_;
  const char* const name_;
  Lines& gone_;
};

/// A plugin whose parts it alone holds: none of them is built over another.
class Destruction : public testing::Test {
 protected:
  using Counters = AclPlugin::Counters;

  Destruction() {
    const auto other = MemSlab::make<Acl::Config>();
    const auto intfs = Acl::intfConfigFactory("i");
    const auto counters = MemSlab::make<Counters>("c", CtrPool::FeatureId(1));
    Rix::SmControl synchronous;
    synchronous.mode = Rix::SmControl::synchronous;
    plugin->aclConfigSOIs(other);
    plugin->aclAggregatorSmIs(nullptr, nullptr, other);
    plugin->aclHelperIs(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    plugin->inputStepIs(nullptr);
    plugin->outputStepIs(nullptr);
    plugin->inCountersIs("in", CtrPool::FeatureId(4));
    plugin->macOutCountersIs("mac", CtrPool::FeatureId(3));
    plugin->ipOutCountersIs("ip", CtrPool::FeatureId(1));
    plugin->ip6OutCountersIs("ip6", CtrPool::FeatureId(2));
    plugin->dpAclStatusSmIs(other, intfs, counters, counters, counters, counters,
                            MemSlab::make<Acl::StatusDp>(), synchronous);
    plugin->intfConfigIs(Acl::intfConfigFactory("merged"));
  }

  Lines gone;
  Kelp::Ptr<AclPlugin> plugin = Velo::VeloAcl::aclPluginFactory("Acl");
};

TEST_F(Destruction, TheAttributesAreRemovedInTheirOrder) {
  [[maybe_unused]] const Watched watched[] = {
      {plugin->aclConfig(), "aclConfig", gone},
      {plugin->aclConfigSO(), "aclConfigSO", gone},
      {plugin->aclAggregatorSm(), "aclAggregatorSm", gone},
      {plugin->aclHelper(), "aclHelper", gone},
      {plugin->inputStep(), "inputStep", gone},
      {plugin->outputStep(), "outputStep", gone},
      {plugin->inCounters(), "inCounters", gone},
      {plugin->macOutCounters(), "macOutCounters", gone},
      {plugin->ipOutCounters(), "ipOutCounters", gone},
      {plugin->ip6OutCounters(), "ip6OutCounters", gone},
      {plugin->dpAclStatusSm(), "dpAclStatusSm", gone},
  };
  plugin = nullptr;
  EXPECT_EQ(gone,
            (Lines{"aclConfig", "aclConfigSO", "aclAggregatorSm", "aclHelper", "inputStep", "outputStep",
                   "inCounters", "macOutCounters", "ipOutCounters", "ip6OutCounters", "dpAclStatusSm"}));
}

TEST_F(Destruction, EveryEntityItMadeLosesItsParent) {
  const Kelp::Ptr<Zeb::Entity> made[] = {
      plugin->aclConfig(),      plugin->aclConfigSO(),   plugin->intfConfig(),     plugin->inCounters(),
      plugin->macOutCounters(), plugin->ipOutCounters(), plugin->ip6OutCounters(), plugin->dpAclStatusSm()};
  for (const auto& each : made) EXPECT_EQ(each->parent(), plugin.get()) << each->typeData().name();
  plugin = nullptr;
  for (const auto& each : made) EXPECT_EQ(each->parent(), nullptr) << each->typeData().name();
}

/// On the stack nobody but the destructor itself ends its life as a node.
TEST(DestructionOnTheStack, NothingIsAnnouncedFromItsFirstStepOn) {
  ChangeLog* log = nullptr;
  std::unique_ptr<ChangeLog> owner;
  {
    AclPlugin plugin("Acl");
    owner = std::make_unique<ChangeLog>(plugin);
    log = owner.get();
    plugin.inCountersIs("in", CtrPool::FeatureId(4));
    EXPECT_EQ(log->names(), Lines{"inCounters"});
    log->clear();
  }
  EXPECT_EQ(log->names(), Lines{});
}

// ---- What follows a match.

class AfterAMatch : public World {};

/// Has a look at the moment when a copy is sent.
class Onlooker final : public Velo::MirrorTarget {
 public:
  explicit Onlooker(std::function<void()> look) : look_(std::move(look)) {
    Velo::MirroringStepHelper::singleton()->targetIs(this);
  }
  ~Onlooker() { Velo::MirroringStepHelper::singleton()->targetIs(nullptr); }
  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>&, const Kelp::String&, const IntfId&) override {
    look_();
  }

 private:
  const std::function<void()> look_;
};

TEST_F(AfterAMatch, ThePacketIsCountedThenMirroredThenDropped) {
  rule(AclType::ip, 5, Action::deny, "W");
  bind(AclType::ip, in);
  Lines countedThen, namedThen{"not asked"};
  const Onlooker onlooker([&] { countedThen = counted(), namedThen = named(); });
  EXPECT_FALSE(passes(tcp4()));
  EXPECT_EQ(countedThen, Lines{"DpAclInRuleMatches: in ip L 5 = 1"}) << "when the copy is sent";
  EXPECT_EQ(namedThen, Lines{}) << "the drop comes after it";
  EXPECT_EQ(named(), Lines{"Drop/Velo::Acl/dropping pkt = 1"});
}

TEST_F(AfterAMatch, TheMirroringDirectionIsThatOfThePacket) {
  rule(AclType::ip, 5, Action::permit, "LATER");
  bind(AclType::ip, in), bind(AclType::ip, out);
  EXPECT_TRUE(passes(tcp4(), out));
  EXPECT_EQ(named(), Lines{"Mirror/Velo::Mirroring/egress packet to an undefined session = 1"});
  EXPECT_TRUE(passes(tcp4(), in));
  EXPECT_EQ(named(), (Lines{"Mirror/Velo::Mirroring/egress packet to an undefined session = 1",
                            "Mirror/Velo::Mirroring/ingress packet to an undefined session = 1"}));
}

}  // namespace
