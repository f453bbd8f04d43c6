#pragma once

#include <Velo/Burst.h>
#include <VeloAcl/VeloPlugin/DataplaneAclHelper.h>

#include <array>

namespace Velo::VeloAcl {

/// The burst form of the two steps: DataplaneAclHelper::processPkt for many packets. It asks each list once
/// for all packets that come to it, and remembers what is to be counted.
///
/// It leaves alone what somebody is told of: while traces are on, everything; packets whose rule mirrors, or
/// has a counter that is followed or has still to be made; drops while the drop counts are followed.
///
/// What was found is good as long as the lists, bindings and counters have not changed that were looked at.
/// Their change counts tell; names and rules are kept alive here, so that others cannot come to lie at their
/// places.
class AclBurst final : public BurstForm {
 public:
  /// The helper, not owned, outlives it.
  AclBurst(DataplaneAclHelper* helper, Acl::AclDirection dir) : helper_(helper), dir_(dir) {}

  void begin() override;
  BurstVerdicts judge(const PacketBurst& burst, PacketSet asked, const BurstPlace& place) override;
  bool holds() const override;
  void act(const PacketBurst& burst, PacketSet done) override;

 private:
  using Counter = Velo::Counter::VeloDpAclCounter;

  /// A list that was looked for, and what was found of it.
  struct Asked {
    Nimnet::IntfId intf;
    Acl::AclType type{};
    bool bound = false;
    bool exists = false;
    Kelp::String name{};
    Kelp::Ptr<const Acl::AclSubConfig> rules{};
    uint64_t changes = 0;        // of the rules
    Kiv::UniqueId implicitId{};  // empty: there is none, or nobody has asked for it
    bool implicitAsked = false;
    bool operator==(const Asked&) const = default;
  };
  enum class Why : uint8_t { passes, denied, noMatch };
  /// A packet that a list has judged.
  struct Judged {
    Counter* counter;  // owned by its collection; null: it is not counted
    uint8_t packet;
    Why why;
  };
  /// Places have two interfaces, with at most a list of each type; more places than these in a burst are
  /// rare.
  static constexpr size_t mostAsked = 24;

  /// What there is now of a list that was looked for, as far as it was asked.
  Asked found(const Asked& before) const;
  /// Asks the list of a type at an interface. What it drops or leaves alone goes from `left`.
  void judgeBy(const PacketBurst& burst, const Nimnet::IntfId& intf, Acl::AclType type, PacketSet packets,
               PacketSet& left, BurstVerdicts& verdicts);
  template <class Rule, const Acl::RuleMap<Rule>& (Acl::AclSubConfig::*rulesOf)() const, class PacketAt>
  void judgeAll(const PacketAt& packetAt, const PacketBurst& burst, Asked& asked, PacketSet packets,
                BurstVerdicts& verdicts);
  const DataplaneAclHelper::Counters& collection(Acl::AclType type) const {
    return *helper_->countersFor(dir_, type);
  }

  DataplaneAclHelper* const helper_;
  const Acl::AclDirection dir_;
  size_t askedCount_ = 0;
  std::array<Asked, mostAsked> asked_;
  uint64_t collectionChanges_[3] = {};  // by type
  size_t judgedCount_ = 0;
  // Two interfaces, of each the MAC and the IP list.
  std::array<Judged, 4 * PacketBurst::most> judged_;
  VeloNamedCounters* dropCounts_ = nullptr;  // null: nothing was dropped
};

}  // namespace Velo::VeloAcl
