#pragma once

#include <Velo/Mirroring.h>
#include <Velo/VeloPlugin.h>
#include <VeloAcl/VeloPlugin/AclPlugin.h>
#include <Zeb/System.h>
#include <Zeb/TraceHandle.h>
#include <gtest/gtest.h>

#include "../Zeb/TraceCapture.h"
#include "../support/Frames.h"

#include <string>
#include <vector>

namespace TestSupport {

using Acl::AclDirection;
using Acl::AclType;
using Acl::Action;
using Nimnet::IntfId;
constexpr AclDirection in = AclDirection::in;
constexpr AclDirection out = AclDirection::out;

/// The state tree, the registries and the clock of an agent, without a plugin.
class AgentSide {
 public:
  AgentSide() {
    Zeb::System::clockIs(&clock);
    entities->mountIs("acl/config/input", lists);
    entities->mountIs("acl/config/cli", cli);
    entities->mountIs("acl/intf/config/input", intfs);
    entities->mountIs("acl/intf/config/cli", cliIntfs);
    entities->mountIs("acl/status/dp/kepa", status);
  }
  ~AgentSide() { Zeb::System::clockIs(nullptr); }

  Kiv::ManualClock clock{Kelp::Duration(1000)};
  Velo::PluginManager manager;
  const Kelp::Ptr<Hive::EntityManager> entities = MemSlab::make<Hive::EntityManager>();
  Velo::PluginContext context{&manager, entities};
  const Kelp::Ptr<Zeb::Dir> lists = MemSlab::make<Zeb::Dir>();
  const Kelp::Ptr<Acl::Input::Config> cli = MemSlab::make<Acl::Input::Config>(Kelp::String("cli"));
  const Kelp::Ptr<Zeb::Dir> intfs = MemSlab::make<Zeb::Dir>();
  const Kelp::Ptr<Acl::IntfConfig> cliIntfs = Acl::intfConfigFactory("cli");
  const Kelp::Ptr<Acl::StatusDp> status = MemSlab::make<Acl::StatusDp>(Kelp::String("kepa"));
};

/// Copies that were mirrored, as text "in W eth9"; sends nothing.
class MirrorLog final : public Velo::MirrorTarget {
 public:
  MirrorLog() { Velo::MirroringStepHelper::singleton()->targetIs(this); }
  ~MirrorLog() {
    Velo::MirroringStepHelper::singleton()->targetIs(nullptr);
    Velo::MirroringStepHelper::singleton()->sessionDel("W");
  }
  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>&, const Kelp::String& session,
                    const IntfId& destination) override {
    copies.push_back(fmt::format("{} to {}", session, destination));
  }
  std::vector<std::string> copies;
};

/// A plugin that has been through its phases, lists and bindings as the command line would set them, and
/// packets. The id of a rule is what `rule` is given.
class World : public testing::Test {
 protected:
  using Plugin = Velo::VeloAcl::AclPlugin;
  using Key = Velo::Counter::VeloDpAclCounterKey;

  World() {
    plugin->pluginCtxIs(&agent.context);
    plugin->savePluginRef(agent.entities);
    EXPECT_EQ(agent.manager.runPhases({}), std::nullopt);
    Velo::MirroringStepHelper::singleton()->sessionIs("W", {IntfId("eth9")});
  }
  ~World() override { Zeb::TraceHandle::disableAll(); }

  Kelp::Ptr<Acl::AclSubConfig> list(AclType type, const char* name = "L") {
    const auto acl = agent.cli->configIs(type)->aclIs(name);
    if (!acl->currCfg()) acl->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
    return acl->currCfg();
  }
  void rule(AclType type, uint64_t id, Action action, const char* session = "", const char* name = "L",
            uint32_t sequence = 10) {
    const auto fill = [&](auto made) {
      made.sequence = sequence, made.action = action, made.mirrorSession = session;
      return made;
    };
    const Kiv::UniqueId ruleId(id);
    if (type == AclType::ip) list(type, name)->ipRuleByIdIs(ruleId, fill(Acl::IpRule()));
    if (type == AclType::ipv6) list(type, name)->ip6RuleByIdIs(ruleId, fill(Acl::Ip6Rule()));
    if (type == AclType::mac) list(type, name)->macRuleByIdIs(ruleId, fill(Acl::MacRule()));
  }
  void bind(AclType type, AclDirection direction, const char* intf = "eth1", const char* name = "L") {
    agent.cliIntfs->configIs(type)->intfIs(direction)->intfIs(IntfId(intf), name);
  }
  /// From here on only the test writes the status.
  void nothingIsPublished() {
    plugin->dpAclStatusSmDel();
    for (auto type = agent.status->status().begin(); type; type.next()) agent.status->statusDel(type.key());
  }
  void implicitId(AclType type, const Kiv::UniqueId& id, const char* name = "L") {
    agent.status->statusIs(type)->aclIs(name)->implicitRuleIdIs(Acl::ImplicitRuleType::drop, id);
  }

  /// Begins with a frame that eth1 received.
  const Kelp::Ptr<Velo::PacketContext>& packet(const Bytes& bytes) {
    ctx->pkt()->assign(bytes, static_cast<uint32_t>(bytes.size()), 0);
    ctx->pkt()->traceIdIs(7);
    ctx->begin(IntfId("eth1"));
    return ctx;
  }
  bool passes(const Bytes& bytes, AclDirection direction = AclDirection::in) {
    return plugin->aclHelper()->processPkt(packet(bytes), direction, IntfId("eth1"));
  }
  const Kelp::Ptr<Velo::OutputPipelineContext>& leaving(const Bytes& bytes, const char* intf) {
    packet(bytes);
    outCtx->egressIntfIs(IntfId(intf));
    return outCtx;
  }

  /// Every counter of every collection, "DpAclInRuleMatches: in ip L 5 = 1", in a fixed order.
  std::vector<std::string> counted() const {
    std::vector<std::string> all;
    for (const auto& held : {plugin->inCounters(), plugin->macOutCounters(), plugin->ipOutCounters(),
                             plugin->ip6OutCounters()}) {
      const size_t first = all.size();
      for (auto at = held->counterCollection().begin(); at; at.next()) {
        const Key& key = at.key();
        all.push_back(fmt::format("{}: {} {} {} {} = {}", held->name(), key.direction, key.aclType,
                                  key.aclName, key.ruleId.value(), at.value()->packets()));
      }
      std::sort(all.begin() + static_cast<long>(first), all.end());
    }
    return all;
  }
  uint64_t matches(AclDirection direction, AclType type, uint64_t id, const char* name = "L") const {
    const auto counter = plugin->aclHelper()->counterForKey({direction, type, name, Kiv::UniqueId(id)});
    return counter->packets();
  }
  /// The named counters, "Drop/Velo::Acl/dropping pkt = 1".
  std::vector<std::string> named() const {
    std::vector<std::string> all;
    for (auto at = counters->counter().begin(); at; at.next()) {
      all.push_back(
          fmt::format("{}/{}/{} = {}", at.key().category, at.key().facility, at.key().reason, at.value()));
    }
    std::sort(all.begin(), all.end());
    return all;
  }
  static void tracesOn() { EXPECT_EQ(Zeb::TraceHandle::enable("Velo::Acl/0"), std::nullopt); }

  AgentSide agent;
  const Kelp::Ptr<Plugin> plugin = Velo::VeloAcl::aclPluginFactory("Acl");
  MirrorLog mirror;
  const Kelp::Ptr<Velo::VeloNamedCounters> counters = MemSlab::make<Velo::VeloNamedCounters>();
  const Kelp::Ptr<Velo::PacketContext> ctx = MemSlab::make<Velo::PacketContext>(counters);
  const Kelp::Ptr<Velo::OutputPipelineContext> outCtx = MemSlab::make<Velo::OutputPipelineContext>(ctx);
};

using Lines = std::vector<std::string>;

/// The attributes of the status that the plugin sets when it becomes active, in its order.
inline Lines capabilitiesAsSet() {
  return {"dscpFilterSupported",
          "dpAclTcSupported",
          "dpAclSupported",
          "dpIpEgressAclSupported",
          "dpIp6AclSupported",
          "dpIp6EgressAclSupported",
          "dpAclHopLimitSupported",
          "dpIpAclMirrorActionSupported",
          "dpIpv6AclMirrorActionSupported",
          "dpMacAclMirrorActionSupported",
          "dpAclCountersSupported",
          "dpMacAclSupported",
          "dpMacEgressAclSupported",
          "dpAclDscpMaskSupported",
          "dpAclDscpMaskIpv6Supported",
          "dpAclDscpSupported",
          "dpAclSctpSupported",
          "dpAclSctpPortMatchSupported",
          "dpAclVlanSupported",
          "vlanSupported",
          "initialized"};
}

inline FrameBuilder ip4() { return frame().eth().ip4("192.0.2.1", "198.51.100.7"); }
inline FrameBuilder ip6() { return frame().eth().ip6("2001:db8::1", "2001:db8::2"); }
inline Bytes tcp4() { return ip4().tcp(1024, 443); }
inline Bytes tcp6() { return ip6().tcp(1024, 443); }
inline Bytes arp() { return frame().eth().arp("192.0.2.1", "192.0.2.2"); }
/// A frame that a list of the kind judges.
inline Bytes frameFor(AclType type) { return type == AclType::ipv6 ? tcp6() : tcp4(); }

}  // namespace TestSupport
