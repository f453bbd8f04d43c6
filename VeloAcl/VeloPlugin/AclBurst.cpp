#include <Acl/FirstRule.h>
#include <VeloAcl/VeloPlugin/AclBurst.h>
#include <VeloAcl/VeloPlugin/AclTrace.h>
#include <Zeb/System.h>

namespace Velo::VeloAcl {

using Acl::AclType;

namespace {

uint64_t changesOf(const Acl::AclSubConfig& rules, AclType type) {
  switch (type) {
    case AclType::ip:
      return rules.ipRuleById().changes();
    case AclType::ipv6:
      return rules.ip6RuleById().changes();
    case AclType::mac:
      break;
  }
  return rules.macRuleById().changes();
}

}  // namespace

void AclBurst::begin() {
  for (size_t i = 0; i < askedCount_; ++i) asked_[i] = {};
  askedCount_ = judgedCount_ = 0;
  dropCounts_ = nullptr;
  for (const AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    collectionChanges_[static_cast<size_t>(type)] = collection(type).counterCollection().changes();
  }
}

BurstVerdicts AclBurst::judge(const PacketBurst& burst, PacketSet asked, const BurstPlace& place) {
  constexpr size_t listsOfPlace = 6;
  if (aclTrace().on(0) || askedCount_ + listsOfPlace > mostAsked) return {0, asked};
  BurstVerdicts verdicts;
  PacketSet left = asked;
  for (const Nimnet::IntfId& intf : {place.portChannel, place.intf}) {
    if (intf.empty()) continue;
    judgeBy(burst, intf, AclType::mac, burst.ethernet(), left, verdicts);
    judgeBy(burst, intf, AclType::ip, burst.ip(), left, verdicts);
    judgeBy(burst, intf, AclType::ipv6, burst.ip6(), left, verdicts);
  }
  return verdicts;
}

AclBurst::Asked AclBurst::found(const Asked& before) const {
  const BoundList& bound = helper_->boundLists_.find(before.intf, dir_, before.type);
  Asked now{before.intf, before.type};
  now.bound = bound.bound;
  if (!bound.bound) return now;
  now.exists = bound.list && !bound.list->hidden();
  if (!now.exists) return now;
  now.name = bound.name;
  now.rules = Kelp::Ptr<const Acl::AclSubConfig>(bound.list->judging());
  if (now.rules) now.changes = changesOf(*now.rules, now.type);
  now.implicitAsked = before.implicitAsked;
  if (before.implicitAsked) now.implicitId = helper_->implicitDropId(now.type, now.name);
  return now;
}

void AclBurst::judgeBy(const PacketBurst& burst, const Nimnet::IntfId& intf, AclType type, PacketSet packets,
                       PacketSet& left, BurstVerdicts& verdicts) {
  packets &= left;
  if (packets == 0) return;
  Asked& asked = asked_[askedCount_++] = found({intf, type});
  if (!asked.exists) return;
  const auto ipPacket = [&burst](uint32_t i) {
    const auto& [pkt, parsed] = burst.packet(i);
    return Acl::IpPacket{{*parsed.ipHdr()->ipHdr(), parsed.l4().hdr(), pkt.vlanId(), true, true}};
  };
  const auto ip6Packet = [&burst](uint32_t i) {
    const auto& [pkt, parsed] = burst.packet(i);
    return Acl::Ip6Packet{{*parsed.ipHdr()->ip6Hdr(), parsed.l4().hdr(), pkt.vlanId(), true, true}};
  };
  const auto macPacket = [&burst](uint32_t i) {
    const auto& [pkt, parsed] = burst.packet(i);
    const Nimnet::EthHdr* eth = parsed.ethPacket()->ethHdr();
    return Acl::MacPacket{eth->sourceOctets(), eth->destinationOctets(), parsed.typeOrLen(), pkt.vlanId()};
  };
  switch (type) {
    case AclType::ip:
      judgeAll<Acl::IpRuleConfig, &Acl::AclSubConfig::ipRuleById>(ipPacket, burst, asked, packets, verdicts);
      break;
    case AclType::ipv6:
      judgeAll<Acl::Ip6RuleConfig, &Acl::AclSubConfig::ip6RuleById>(ip6Packet, burst, asked, packets,
                                                                    verdicts);
      break;
    case AclType::mac:
      judgeAll<Acl::MacRuleConfig, &Acl::AclSubConfig::macRuleById>(macPacket, burst, asked, packets,
                                                                    verdicts);
      break;
  }
  left &= ~(verdicts.dropped | verdicts.alone);
}

template <class Rule, const Acl::RuleMap<Rule>& (Acl::AclSubConfig::*rulesOf)() const, class PacketAt>
void AclBurst::judgeAll(const PacketAt& packetAt, const PacketBurst& burst, Asked& asked, PacketSet packets,
                        BurstVerdicts& verdicts) {
  using Entry = typename Acl::RuleMap<Rule>::Entry;
  uint8_t which[PacketBurst::most];
  uint32_t count = 0;
  forEachPacket(packets, [&](uint32_t i) { which[count++] = static_cast<uint8_t>(i); });
  const Entry* rules[PacketBurst::most] = {};
  if (asked.rules) {
    Acl::firstRules((*asked.rules.*rulesOf)(), count, [&](uint32_t i) { return packetAt(which[i]); }, rules);
  }

  const bool dropsFollowed = burst.namedCounters().hasSubscribers();
  Counter* implicit = nullptr;
  for (uint32_t i = 0; i < count; ++i) {
    const PacketSet bit = PacketSet{1} << which[i];
    Judged judged{nullptr, which[i], Why::noMatch};
    bool alone = false;
    if (const Entry* entry = rules[i]) {
      const Rule& rule = entry->value;
      judged.why = DataplaneAclHelper::denies(rule) ? Why::denied : Why::passes;
      judged.counter = helper_->knownCounter(dir_, asked.type, asked.name, entry->key);
      alone = !judged.counter || !rule.mirrorSession().empty();
      if constexpr (std::is_same_v<Rule, Acl::MacRuleConfig>) alone |= !rule.filter().mpls.isInRange();
    } else {
      if (!asked.implicitAsked) {
        asked.implicitAsked = true;
        asked.implicitId = helper_->implicitDropId(asked.type, asked.name);
        if (!asked.implicitId.empty()) {
          implicit = helper_->knownCounter(dir_, asked.type, asked.name, asked.implicitId);
        }
      }
      judged.counter = implicit;
      alone = !implicit && !asked.implicitId.empty();
    }
    alone |= judged.counter && judged.counter->hasSubscribers();
    alone |= judged.why != Why::passes && dropsFollowed;
    if (alone) {
      verdicts.alone |= bit;
      continue;
    }
    judged_[judgedCount_++] = judged;
    if (judged.why == Why::passes) continue;
    verdicts.dropped |= bit;
    dropCounts_ = &burst.namedCounters();
  }
}

bool AclBurst::holds() const {
  if (aclTrace().on(0) || (dropCounts_ && dropCounts_->hasSubscribers())) return false;
  for (const AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    if (collectionChanges_[static_cast<size_t>(type)] != collection(type).counterCollection().changes()) {
      return false;
    }
  }
  for (size_t i = 0; i < askedCount_; ++i) {
    if (asked_[i] != found(asked_[i])) return false;
  }
  // Only now: the counters are where they were.
  for (size_t i = 0; i < judgedCount_; ++i) {
    if (judged_[i].counter && judged_[i].counter->hasSubscribers()) return false;
  }
  return true;
}

void AclBurst::act(const PacketBurst& burst, PacketSet done) {
  const Kelp::Duration now = Zeb::System::currentTime();
  uint64_t denied = 0, noMatch = 0;
  for (size_t i = 0; i < judgedCount_; ++i) {
    const Judged& judged = judged_[i];
    if ((done >> judged.packet & 1) == 0) continue;
    if (judged.counter) {
      judged.counter->countUnfollowed(burst.packet(judged.packet).pkt.wireLength());
      judged.counter->lastUpdateTimeIs(now);
    }
    denied += judged.why == Why::denied;
    noMatch += judged.why == Why::noMatch;
  }
  if (denied > 0) DataplaneAclHelper::countDenied(burst.namedCounters(), denied);
  if (noMatch > 0) DataplaneAclHelper::countNoMatch(burst.namedCounters(), noMatch);
}

}  // namespace Velo::VeloAcl
