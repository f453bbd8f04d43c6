// Frames in bursts beside the same frames one by one, in the same world: whatever anybody sees has to be the
// same.
#include <Zeb/System.h>
#include <Zeb/TraceHandle.h>
#include <agent/change/Apply.h>
#include <agent/core/TaskLoop.h>
#include <agent/forward/Forwarder.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "../../Zeb/TraceCapture.h"
#include "../../support/RandomFrames.h"
#include "../support/ModelOf.h"

#include <bit>
#include <regex>

namespace {

using namespace TestSupport;
using Acl::AclDirection;
using Acl::AclType;
using Nimnet::IntfId;
using Velo::PacketSet;

constexpr const char* ips[] = {"permit ip any any",
                               "deny udp any any",
                               "permit tcp any any eq 80",
                               "permit udp any any eq 53 mirror session S",
                               "deny ip any host 192.0.2.2 mirror session S",
                               "permit ip host 192.0.2.1 any log",
                               "deny ip host 198.51.100.7 any",
                               "permit icmp any any",
                               "permit ip any any ttl gt 63"};
constexpr const char* ip6s[] = {"permit ipv6 any any", "deny udp any any",
                                "permit ipv6 host 2001:db8::1 any log", "permit tcp any any mirror session S",
                                "deny ipv6 any host fe80::1"};
constexpr const char* macRules[] = {"permit any any", "deny any host ff:ff:ff:ff:ff:ff",
                                    "permit host 02:00:5e:00:00:01 any mirror session W",
                                    "deny host 02:00:5e:00:01:01 any", "permit any any log"};
constexpr const char* portNames[] = {"eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7", "po1"};
constexpr const char* lists[] = {"A", "B"};
constexpr const char* interfaces =
    "port-channel po1 members eth5 eth6\nmirror session S destination eth9\n"
    "mirror session W destination eth2 po1\n";

template <class Rules>
std::string listText(const char* kind, const char* name, const Rules& rules, Dice& dice) {
  std::string text = fmt::format("{} access-list {}\n", kind, name);
  for (auto count = dice.below(6); count > 0; --count) text += fmt::format(" {}\n", dice.of(rules));
  return text;
}

Config::Model someModel(Dice& dice) {
  std::string text = interfaces;
  constexpr const char* kinds[] = {"ip", "ipv6", "mac"};
  constexpr const char* directions[] = {"in", "out"};
  for (const char* name : lists) {
    if (!dice.once(6)) text += listText("ip", name, ips, dice);
    if (!dice.once(3)) text += listText("ipv6", name, ip6s, dice);
    if (!dice.once(3)) text += listText("mac", name, macRules, dice);
  }
  for (const char* port : portNames) {
    text += fmt::format("interface {}\n", port);
    for (const char* kind : kinds) {
      for (const char* direction : directions) {
        if (dice.once(3)) text += fmt::format(" {} access-group {} {}\n", kind, dice.of(lists), direction);
      }
    }
  }
  return modelOf(text);
}

/// Everything that somebody sees of frames: those that are sent, and every change that a follower hears of,
/// with what the counters of the ports were at that moment. The follower changes something now and then.
class World : private Zeb::Notifiee, private Agent::FrameObserver {
 public:
  World(uint64_t seed, bool bursts)
      : seed_(seed),
        bursts_(bursts),
        dice_(seed),
        follower_(seed + 1),
        policy_(dice_.once(4) ? Velo::MalformedPolicy::pass : Velo::MalformedPolicy::drop),
        changesEvery_(dice_.once(2) ? 5 : 30) {
    Zeb::System::clockIs(&clock_);
    const auto refusal = core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
    EXPECT_FALSE(refusal) << *refusal;
    EXPECT_FALSE(Agent::putInForce(core_, {someModel(dice_), {}}));
    tasks_.settle();
    forwarder_.portsOfConfigurationIs();
    const bool patched = dice_.once(2);
    EXPECT_FALSE(forwarder_.patchIs("eth1", patched ? "po1" : "eth2"));
    EXPECT_FALSE(forwarder_.bridgeIs({"eth3", "eth4", patched ? "eth2" : "po1"}, clock_));
    for (const char* name : {"eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth9"}) {
      sinks_.push_back(std::make_unique<Sink>(*this, name));
      forwarder_.portIs(name).sink = sinks_.back().get();
    }
    if (dice_.once(3)) core_.namedCounters()->publisher().subscribe(*this);
    for (const auto& collection : core_.inForce().counters()) collection->publisher().subscribe(*this);
  }
  ~World() override {
    forwarder_.observerIs(nullptr);
    Zeb::TraceHandle::disableAll();
    Zeb::System::clockIs(nullptr);
  }

  void run() {
    for (int burst = 0; burst < 12; ++burst) {
      clock_.advance(Kelp::Duration(0.25));
      tasks_.settle();
      if (dice_.once(4)) change(dice_);
      std::vector<Bytes> frames(1 + dice_.below(Velo::PacketBurst::most));
      const Bytes usual = dice_.once(3) ? randomFrame(dice_) : randomIp4Frame(dice_);
      for (Bytes& frame : frames) {
        frame = dice_.once(3) ? randomFrame(dice_) : usual;
        if (dice_.once(12)) damage(frame, dice_);
      }
      receive(forwarder_.portIs(dice_.once(3) ? "eth1" : portNames[dice_.below(7)]), frames);
    }
    for (const auto& collection : core_.inForce().counters()) tellCounters(*collection);
    for (auto at = core_.namedCounters()->counter().begin(); at; at.next()) {
      last_.push_back(
          fmt::format("{}/{}/{} {}", at.key().category, at.key().facility, at.key().reason, at.value()));
    }
    std::sort(last_.begin(), last_.end());
    log_.insert(log_.end(), last_.begin(), last_.end());
    log_.push_back(portCounts());
  }

  /// Ids come from a count that goes on from world to world: here they have the numbers in which they appear.
  std::vector<std::string> log() const {
    static const std::regex id("0x[0-9a-f]{16}");
    std::map<std::string, size_t> ids;
    std::vector<std::string> all;
    for (const std::string& line : log_) {
      std::string told;
      auto from = line.begin();
      for (std::sregex_iterator at(line.begin(), line.end(), id), end; at != end; ++at) {
        told.append(from, (*at)[0].first);
        told += fmt::format("#{}", ids.try_emplace(at->str(), ids.size()).first->second);
        from = (*at)[0].second;
      }
      all.push_back(told.append(from, line.end()));
    }
    return all;
  }

  uint64_t together = 0,
           alone = 0;  ///< packets that were handled with others, and in bursts, but by themselves

 private:
  struct Sink final : Agent::FrameSink {
    Sink(World& owner, const char* port) : world(owner), name(port) {}
    void send(const Nimnet::Pkt& pkt) override {
      const std::string_view octets(reinterpret_cast<const char*>(pkt.frame().data()), pkt.size());
      world.tell(fmt::format("{} sends {} of {} octets, {:x}, vlan {}", name, pkt.traceId(), pkt.wireLength(),
                             std::hash<std::string_view>()(octets), pkt.vlanId()));
    }
    World& world;
    const char* const name;
  };

  void tell(std::string line) { log_.push_back(std::move(line)); }
  void tellTraces() {
    for (const std::string& text : traces_.texts()) tell(text);
    traces_.clear();
  }

  void receive(Agent::Port& port, const std::vector<Bytes>& frames) {
    const double now = Zeb::System::currentTime().seconds();
    PacketSet passed = 0;
    const auto count = static_cast<uint32_t>(frames.size());
    const auto sizeOf = [&](uint32_t i) { return static_cast<uint32_t>(frames[i].size()); };
    receiving_ = true;
    receivedOn_ = port.id;
    if (seed_ % 4 != 0) port.unplanned = 0;  // the other worlds have bursts that are not planned, too
    if (bursts_) {
      Velo::PacketBurst& burst = forwarder_.burst();
      burst.countIs(count);
      for (uint32_t i = 0; i < count; ++i) {
        burst.pkt(i).refer(frames[i], sizeOf(i), now);
        burst.pkt(i).traceIdIs(0);
      }
      passed = forwarder_.receiveBurst(port);
      for (uint32_t i = 0; i < count; ++i) ++(burst.pkt(i).traceId() != 0 ? together : alone);
    } else {
      for (uint32_t i = 0; i < count; ++i) {
        forwarder_.packet().refer(frames[i], sizeOf(i), now);
        passed |= PacketSet{forwarder_.receive(port).passed()} << i;
      }
    }
    receiving_ = false;
    tellTraces();
    tell(fmt::format("of {} on {} passed {:x}", count, port.id.name(), passed));
  }

  std::string portCounts() {
    std::string text;
    for (const auto& [id, port] : forwarder_.ports()) {
      text += fmt::format(" {}:{},{},{},{},{},{}", id.name(), port->received, port->sent, port->droppedIn,
                          port->droppedOut, port->mirrored, port->nowhere);
    }
    return text;
  }
  void tellCounters(const Velo::Counter::VeloDpAclCounterColl& collection) {
    for (auto at = collection.counterCollection().begin(); at; at.next()) {
      const auto& [key, counter] = *at;
      last_.push_back(fmt::format("{} {} {} {} {} {}", key.direction, key.aclType, key.aclName,
                                  counter->packets(), counter->bytes(), counter->lastUpdateTime().seconds()));
    }
  }

  void handleChange(const Zeb::Change& change) override {
    tellTraces();
    tell(fmt::format("{} of {} in packet {}:{}", change.attribute.name(), change.entity.name(),
                     receiving_ ? forwarder_.context()->traceId() : 0, portCounts()));
    auto* collection = dynamic_cast<Velo::Counter::VeloDpAclCounterColl*>(&change.entity);
    if (collection && collection->counterCollection(change.keyAs<Key>()) && follower_.once(3)) {
      collection->counterCollection(change.keyAs<Key>())->publisher().subscribe(*this);
    }
    if (follower_.once(changesEvery_)) this->change(follower_);
  }
  void handleMirrored(const Kelp::String& session) override { tell(fmt::format("mirrored to {}", session)); }
  void handleMirroredDone() override { tell("mirrored"); }
  void handleEgress(const Agent::Port& port, const Velo::PipelineStep* droppedBy) override {
    tell(fmt::format("at {}: {}", port.id.name(), droppedBy ? droppedBy->name().view() : "sent"));
  }
  void handleVerdict(const Agent::Port& port, const Agent::Verdict& verdict) override {
    tell(fmt::format("from {}: {}", port.id.name(), verdict.passed()));
    if (follower_.once(20)) forwarder_.observerIs(nullptr);
  }

  using Key = Velo::Counter::VeloDpAclCounterKey;

  /// Changes something by which packets are judged, or something of who looks at them.
  void change(Dice& dice) {
    constexpr AclDirection bothWays[] = {AclDirection::in, AclDirection::out};
    constexpr AclType types[] = {AclType::ip, AclType::ipv6, AclType::mac};
    const auto source = core_.sourceIs("");
    const AclType type = dice.once(2) ? AclType::ip : dice.of(types);
    const IntfId intf = dice.once(2) ? receivedOn_ : IntfId(dice.of(portNames));
    const auto list = source.lists->configIs(type)->aclIs(dice.of(lists));
    switch (dice.below(14)) {
      case 0:
      case 1: {
        const auto bound = source.bindings->configIs(type)->intfIs(dice.of(bothWays));
        bound->intfIs(intf, dice.of(lists));
        break;
      }
      case 2: {
        const auto bound = source.bindings->configIs(type)->intfIs(dice.of(bothWays));
        bound->intfDel(intf);
        break;
      }
      case 3:
        source.lists->configIs(type)->aclDel(dice.of(lists));
        break;
      case 4:
      case 5:
        changeRules(*list, type, dice);
        break;
      case 6:
      case 7:
        forwarder_.portUpIs(forwarder_.portIs(dice.once(2) ? "eth5" : "eth6"), dice.once(2));
        break;
      case 8:
        if (dice.once(2)) {
          EXPECT_FALSE(Zeb::TraceHandle::enable("Velo::Acl/0"));
        } else {
          Zeb::TraceHandle::disableAll();
        }
        break;
      case 9:
        forwarder_.observerIs(this);  // until handleVerdict(): not in the middle of a packet
        break;
      case 10:
      case 11:
      case 12:
        changeCounters(dice);
        break;
      default:
        if (core_.namedCounters()->publisher().hasSubscriber(*this)) {
          core_.namedCounters()->publisher().unsubscribe(*this);
        } else {
          core_.namedCounters()->publisher().subscribe(*this);
        }
    }
  }

  static void changeRules(Acl::AclConfig& list, AclType type, Dice& dice) {
    if (!list.currCfg()) list.currCfgIs(MemSlab::make<Acl::AclSubConfig>());
    const auto rules = list.currCfg();
    const Kiv::UniqueId id(uint64_t{0x1000} + dice.below(4));
    const auto made = [&dice](auto rule) {
      rule.sequence = static_cast<uint32_t>(1 + dice.below(60));
      rule.action = dice.once(2) ? Acl::Action::permit : Acl::Action::deny;
      if (dice.once(6)) rule.mirrorSession = "S";
      return rule;
    };
    const bool goes = dice.once(3);
    if (type == AclType::ip) goes ? rules->ipRuleByIdDel(id) : rules->ipRuleByIdIs(id, made(Acl::IpRule()));
    if (type == AclType::ipv6)
      goes ? rules->ip6RuleByIdDel(id) : rules->ip6RuleByIdIs(id, made(Acl::Ip6Rule()));
    if (type == AclType::mac)
      goes ? rules->macRuleByIdDel(id) : rules->macRuleByIdIs(id, made(Acl::MacRule()));
  }

  /// Follows some counter, or no more, or takes it away.
  void changeCounters(Dice& dice) {
    const auto collections = core_.inForce().counters();
    const auto& collection = dice.of(collections);
    // Keys have ids that differ from world to world, and with them the order: so it is all of a list.
    const Kelp::String name = dice.of(lists);
    const auto what = dice.below(3);
    for (auto at = collection->counterCollection().begin(); at; at.next()) {
      if (at.key().aclName != name) continue;
      if (what == 0) at.value()->publisher().subscribe(*this);
      if (what == 1) at.value()->publisher().unsubscribe(*this);
      if (what == 2) collection->counterCollectionDel(at.key());
    }
  }

  const uint64_t seed_;
  const bool bursts_;
  Dice dice_, follower_;
  const Velo::MalformedPolicy policy_;
  const uint64_t changesEvery_;
  Kiv::ManualClock clock_{Kelp::Duration(1000)};
  Agent::TaskLoop tasks_{clock_};
  TraceCapture traces_;
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, policy_};
  std::vector<std::unique_ptr<Sink>> sinks_;
  std::vector<std::string> log_, last_;
  bool receiving_ = false;
  IntfId receivedOn_{"eth1"};
};

TEST(Burst, NobodySeesThatPacketsCameTogether) {
  uint64_t together = 0, alone = 0;
  for (uint64_t seed = 1; seed <= 100; ++seed) {
    std::vector<std::string> logs[2];
    for (const bool bursts : {false, true}) {
      World world(seed, bursts);
      world.run();
      logs[bursts] = world.log();
      together += world.together;
      alone += world.alone;
    }
    const auto [single, burst] =
        std::mismatch(logs[0].begin(), logs[0].end(), logs[1].begin(), logs[1].end());
    ASSERT_TRUE(single == logs[0].end() && burst == logs[1].end())
        << "seed " << seed << ", line " << single - logs[0].begin()
        << "\none by one: " << (single == logs[0].end() ? "the end" : *single)
        << "\nin bursts:  " << (burst == logs[1].end() ? "the end" : *burst);
  }
  EXPECT_GT(together, alone / 4) << "both ways are taken";
  EXPECT_GT(alone, together / 4) << "both ways are taken";
}

}  // namespace
