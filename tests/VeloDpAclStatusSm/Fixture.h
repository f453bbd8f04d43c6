#pragma once

#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Kiv/Clock.h>
#include <Kiv/TaskScheduler.h>
#include <VeloAcl/VeloDpAclStatusSm/Factory.h>
#include <VeloAcl/VeloDpAclStatusSm/Walkers.h>
#include <Zeb/System.h>
#include <gtest/gtest.h>

#include <functional>

namespace SmTest {

using Acl::AclDirection;
using Acl::AclType;
using Kiv::UniqueId;
using Machine = Velo::VeloAcl::VeloDpAclStatusSm;
using CounterKey = Velo::Counter::VeloDpAclCounterKey;

/// Everything that a status machine works on, and at most one machine over it. Time stands still until it is
/// told: the scheduler never finds a slice used up unless the test says so (Kiv::alwaysYieldIs, or a slice of
/// zero). Restarting is stop() and start().
class World {
 public:
  World() {
    Zeb::System::clockIs(&clock);
    scheduler->sliceClockIs(sliceClock);
  }
  ~World() {
    stop();
    Kiv::alwaysYieldIs(alwaysYielded_);
    Zeb::System::clockIs(nullptr);
    Rix::Gen::zebDoZombieReactors();
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  static Kelp::Ptr<Machine::Counters> collection(const char* name) {
    return MemSlab::make<Machine::Counters>(name, CtrPool::FeatureId(1));
  }
  Rix::SmControl control(uint8_t mode = Rix::SmControl::machineDefault) const {
    Rix::SmControl c;
    c.scheduler = scheduler;
    c.mode = mode;
    return c;
  }
  /// As the plugin does: makes the machine and has its notification switched on.
  void start(uint8_t mode = Rix::SmControl::machineDefault) {
    sm = Velo::VeloAcl::veloDpAclStatusSmFactory(config, intfConfig, in, macOut, ipOut, ip6Out, status,
                                                 control(mode));
    sm->hasNotificationActiveIs(true);
  }
  void stop() { sm = nullptr; }

  /// Runs turns, without letting time pass, until the machine is idle; false when it never is.
  bool settle(int turns = 100000) {
    while (sm && !sm->idle() && turns-- > 0) {
      if (scheduler->runTurn() == 0) break;
    }
    return sm && sm->idle();
  }
  /// Lets time pass and then runs all that is due.
  bool pass(double seconds, int turns = 100000) {
    clock.advance(Kelp::Duration(seconds));
    while (turns-- > 0) {
      if (scheduler->runTurn() == 0) return true;
    }
    return false;
  }

  // Configuration.
  Kelp::Ptr<Acl::AclConfig> list(AclType type, const char* name) {
    return config->configIs(type)->aclIs(name);
  }
  /// The rules in force of a list, made when there are none.
  Kelp::Ptr<Acl::AclSubConfig> rules(AclType type, const char* name) {
    const auto l = list(type, name);
    if (!l->currCfg()) l->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
    return l->currCfg();
  }
  void delList(AclType type, const char* name) {
    if (const auto lists = config->config(type)) lists->aclDel(name);
  }
  static Acl::IpRule ipRule(uint32_t sequence = 10) {
    Acl::IpRule r;
    r.sequence = sequence;
    r.action = Acl::Action::deny;
    r.text = "deny ip any any";
    return r;
  }
  static Acl::Ip6Rule ip6Rule(uint32_t sequence = 10) {
    Acl::Ip6Rule r;
    r.sequence = sequence;
    r.text = "permit ipv6 any any";
    return r;
  }
  static Acl::MacRule macRule(uint32_t sequence = 10) {
    Acl::MacRule r;
    r.sequence = sequence;
    r.text = "permit any any";
    return r;
  }
  void bind(AclType type, AclDirection direction, const char* intf, const char* name) {
    intfConfig->configIs(type)->intfIs(direction)->intfIs(Nimnet::IntfId(intf), name);
  }
  void unbind(AclType type, AclDirection direction, const char* intf) {
    const auto types = intfConfig->config(type);
    const auto bindings = types ? types->intf(direction) : nullptr;
    if (bindings) bindings->intfDel(Nimnet::IntfId(intf));
  }

  // Counters.
  static void count(const Kelp::Ptr<Machine::Counters>& counters, const CounterKey& key, uint64_t packets,
                    double time) {
    const auto counter = counters->counterCollectionIs(key);
    const auto pkt = MemSlab::make<Nimnet::Pkt>();
    for (uint64_t i = 0; i < packets; ++i) counter->count(pkt);
    counter->lastUpdateTimeIs(Kelp::Duration(time));
  }

  // Status.
  Kelp::Ptr<Acl::AclStatus> statusOf(AclType type, const char* name) const {
    const auto types = status->status(type);
    return types ? types->acl(name) : nullptr;
  }

  Kiv::ManualClock clock{Kelp::Duration(100)};
  Kiv::ManualClock sliceClock;
  Kelp::Ptr<Kiv::TaskScheduler> scheduler = MemSlab::make<Kiv::TaskScheduler>(clock);
  Kelp::Ptr<Acl::Config> config = MemSlab::make<Acl::Config>("config");
  Kelp::Ptr<Acl::IntfConfig> intfConfig = MemSlab::make<Acl::IntfConfig>("intfConfig");
  Kelp::Ptr<Acl::StatusDp> status = MemSlab::make<Acl::StatusDp>("kepa");
  Kelp::Ptr<Machine::Counters> in = collection("in"), macOut = collection("macOut"),
                               ipOut = collection("ipOut"), ip6Out = collection("ip6Out");
  Kelp::Ptr<Machine> sm;

 private:
  const bool alwaysYielded_ = Kiv::alwaysYield();
};

/// A rule id that reads as "r1" in golden traces.
inline UniqueId r(uint64_t number) { return UniqueId(number); }

/// Calls a function for every change of one entity.
class Watch final : public Zeb::Notifiee {
 public:
  using Handle = std::function<void(const Zeb::Change&)>;
  Watch(Zeb::Entity& entity, Handle handle) : handle_(std::move(handle)) {
    entity.publisher().subscribe(*this);
  }
  void handleChange(const Zeb::Change& change) override { handle_(change); }

 private:
  Handle handle_;
};

}  // namespace SmTest
