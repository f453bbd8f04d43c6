#include <Acl/FirstRule.h>
#include <Acl/ListTrial.h>
#include <Kelp/Assert.h>
#include <VeloAcl/VeloPlugin/AclTrace.h>
#include <VeloAcl/VeloPlugin/DataplaneAclHelper.h>
#include <Zeb/System.h>

namespace Velo::VeloAcl {

using Acl::AclDirection;
using Acl::AclType;

namespace {

void countDrop(const PacketContext& ctx, const Kelp::String& reason) {
  static const Kelp::String category("Drop");
  ctx.namedCounters().count(category, aclFacility(), reason);
}

void tellTrial(const PacketContext& ctx, const Acl::AskedList& asked) {
  if (auto* trial = dynamic_cast<Acl::ListTrial*>(ctx.trial())) trial->handleAsked(asked);
}

}  // namespace

/// One packet before one list.
struct DataplaneAclHelper::Lookup {
  const Kelp::Ptr<PacketContext>& ctx;
  const Nimnet::IntfId& intf;
  AclDirection dir;
  AclType type;
  // Until the packet is counted: whoever hears of that may change configuration and bindings.
  const Acl::AclConfig& list;
  const Kelp::String& aclName;
};

/// What a matched rule says.
struct DataplaneAclHelper::Verdict {
  Acl::Action action;
  bool deny;
  Kelp::String mirrorSession;
};

DataplaneAclHelper::DataplaneAclHelper(const Kelp::Ptr<Acl::Config>& aclConfig,
                                       const Kelp::Ptr<Acl::IntfConfig>& intfConfig,
                                       const Kelp::Ptr<Acl::StatusDp>& aclStatus,
                                       const Kelp::Ptr<Counters>& inCounters,
                                       const Kelp::Ptr<Counters>& macOutCounters,
                                       const Kelp::Ptr<Counters>& ipOutCounters,
                                       const Kelp::Ptr<Counters>& ip6OutCounters)
    : aclConfig_(aclConfig),
      intfConfig_(intfConfig),
      aclStatus_(aclStatus),
      inCounters_(inCounters),
      macOutCounters_(macOutCounters),
      ipOutCounters_(ipOutCounters),
      ip6OutCounters_(ip6OutCounters),
      boundLists_(intfConfig_.get(), aclConfig_.get()) {}

DataplaneAclHelper::~DataplaneAclHelper() { nodeFlagSet(Kelp::nodeLive, false); }

bool DataplaneAclHelper::processPkt(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                    Nimnet::IntfId intf) {
  ctx->parsedPacket().maybeDoFullParse();
  if (const Kelp::Ptr<LagPacketInfo> lag = LagPacketInfo::extractInfo(ctx)) {
    const Nimnet::IntfId portChannel =
        dir == AclDirection::in ? lag->ingressPortChannel : lag->egressPortChannel;
    tracePkt(*ctx, "processPkt", "Intf {} is a member of port-channel {}", intf.shortName(),
             portChannel.shortName());
    if (!portChannel.empty() && !(passesL2(ctx, dir, portChannel) && passesL3(ctx, dir, portChannel))) {
      return false;
    }
  }
  return passesL2(ctx, dir, intf) && passesL3(ctx, dir, intf);
}

bool DataplaneAclHelper::processL2Pkt(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                      Nimnet::IntfId intf) {
  return passesL2(ctx, dir, intf);
}

bool DataplaneAclHelper::processL3Pkt(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                      Nimnet::IntfId intf) {
  return passesL3(ctx, dir, intf);
}

bool DataplaneAclHelper::shouldDropPkt(const Kelp::Ptr<PacketContext>& ctx, Nimnet::IntfId intf,
                                       AclDirection dir, AclType type) {
  return drops(ctx, intf, dir, type);
}

bool DataplaneAclHelper::passesL2(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                  const Nimnet::IntfId& intf) {
  if (!ctx->parsedPacket().ethPacket()->ethHdr()) {
    tracePkt(*ctx, "processL2Pkt", "No ethernet header");
    return true;
  }
  return !drops(ctx, intf, dir, AclType::mac);
}

bool DataplaneAclHelper::passesL3(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                  const Nimnet::IntfId& intf) {
  const ParsedIpHdr* ip = ctx->parsedPacket().ipHdr();
  if (!ip) {
    tracePkt(*ctx, "processL3Pkt", "No ip header");
    return true;
  }
  return !drops(ctx, intf, dir, ip->ipHdr() ? AclType::ip : AclType::ipv6);
}

bool DataplaneAclHelper::drops(const Kelp::Ptr<PacketContext>& ctx, const Nimnet::IntfId& intf,
                               AclDirection dir, AclType type) {
  const BoundList& bound = boundLists_.find(intf, dir, type);
  if (!bound.bound) {
    tracePkt(*ctx, "shouldDropPkt", "No {} acls of type {} for intf {}", dir, type, intf);
    return false;
  }
  if (!bound.list || bound.list->hidden()) {
    if (bound.typeKnown) {
      tracePkt(*ctx, "shouldDropPkt", "No acl config present for type {} with name {}", type, bound.name);
    } else {
      tracePkt(*ctx, "shouldDropPkt", "No acl config present for type {}", type);
    }
    tellTrial(*ctx, {dir, intf, type, bound.name, Acl::AskedList::Outcome::undefined});
    return false;
  }
  const Lookup at{ctx, intf, dir, type, *bound.list, bound.name};
  if (type == AclType::mac) return dropsMac(at);
  KELP_ASSERT(type == AclType::ip || type == AclType::ipv6, "an access list is of type ip, ipv6 or mac");

  const ParsedPacket& parsed = ctx->parsedPacket();
  const ParsedL4& l4 = parsed.l4();
  const uint16_t vlanId = ctx->pkt()->vlanId();
  const Acl::AclSubConfig* rules = at.list.judging();
  if (!rules) return dropOnNoMatch(at);
  if (type == AclType::ip) {
    const auto* ip = reinterpret_cast<const Nimnet::IpHdr*>(ctx->pkt()->data());
    return dropsBy(
        at, Acl::firstRule(rules->ipRuleById(), [&] {
          return Acl::IpPacket{{*ip, l4.icmp(), l4.tcp(), l4.udp(), l4.sctp(), vlanId, true, true}};
        }));
  }
  const Nimnet::Ip6Hdr* ip6 = parsed.ipHdr()->ip6Hdr();
  return dropsBy(
      at, Acl::firstRule(rules->ip6RuleById(), [&] {
        return Acl::Ip6Packet{{*ip6, l4.icmp6(), l4.tcp(), l4.udp(), l4.sctp(), vlanId, true, true}};
      }));
}

/// Unlike of the IP kinds, the matched rule is copied: that is what its labels are checked by.
bool DataplaneAclHelper::dropsMac(const Lookup& at) {
  const ParsedPacket& parsed = at.ctx->parsedPacket();
  const Nimnet::EthHdr* eth = parsed.ethPacket()->ethHdr();
  const auto* rules = at.list.judging();
  const auto packet = [&] {
    return Acl::MacPacket{eth->sourceOctets(), eth->destinationOctets(), parsed.typeOrLen(),
                          at.ctx->pkt()->vlanId()};
  };
  const auto* entry = rules ? Acl::firstRule(rules->macRuleById(), packet) : nullptr;
  if (entry) static_cast<void>(Acl::MacRuleConfig(entry->value));
  return dropsBy(at, entry);
}

template <class Entry>
bool DataplaneAclHelper::dropsBy(const Lookup& at, const Entry* entry) {
  if (!entry) return dropOnNoMatch(at);
  // Copied is what is asked below: whoever hears of the count may change the list.
  const auto& rule = entry->value;
  const Verdict verdict{rule.action, rule.action == Acl::Action::deny && !rule.isEq({}), rule.mirrorSession};
  tracePkt(*at.ctx, "shouldDropPkt", "Matched acl {}, rule {} on {}", at.aclName, entry->key, at.intf);
  account(at, &rule, entry->key);
  return dropOnMatch(at, verdict);
}

bool DataplaneAclHelper::dropOnMatch(const Lookup& at, const Verdict& verdict) {
  // A packet that is dropped on its way out was never sent, so there is nothing of it to mirror.
  if (!verdict.mirrorSession.empty() && (at.dir == AclDirection::in || !verdict.deny)) {
    tracePkt(*at.ctx, "shouldDropPkt", "mirroring packet to {}", verdict.mirrorSession);
    const auto direction =
        at.dir == AclDirection::in ? MirroringDirection::ingress : MirroringDirection::egress;
    KELP_ASSERT(mirroringHelper_, "a rule with a mirror session needs the mirroring helper");
    mirroringHelper_->maybeMirrorToSessionTargets(at.ctx, direction, verdict.mirrorSession);
  }

  tracePkt(*at.ctx, "shouldDropPkt", "matched acl has action {}", verdict.action);
  if (!verdict.deny) return false;
  static const Kelp::String reason("dropping pkt");
  tracePkt(*at.ctx, "shouldDropPkt", "{}", reason);
  countDrop(*at.ctx, reason);
  return true;
}

bool DataplaneAclHelper::dropOnNoMatch(const Lookup& at) {
  Kiv::UniqueId implicitId;
  if (const auto* lists = std::as_const(*aclStatus_).status().find(at.type)) {
    if (const auto* status = lists->get()->acl().find(at.aclName)) {
      if (const auto* id = status->get()->implicitRuleId(Acl::ImplicitRuleType::drop)) implicitId = *id;
    }
  }
  if (implicitId.empty() && !at.ctx->trial()) {
    tracePkt(*at.ctx, "shouldDropPkt", "Unable to count implicit drop");
  } else {
    account(at, nullptr, implicitId);
  }
  tracePkt(*at.ctx, "shouldDropPkt", "No match on intf {}, default action is drop", at.intf);
  // One counter for all interfaces: its name keeps the placeholder.
  static const Kelp::String reason("No match on intf %s, default action is drop");
  countDrop(*at.ctx, reason);
  return true;
}

void DataplaneAclHelper::account(const Lookup& at, const Acl::RuleConfig* rule, const Kiv::UniqueId& ruleId) {
  if (!at.ctx->trial()) return countPkt(at.ctx->pkt(), at.dir, at.type, at.aclName, ruleId);
  using Outcome = Acl::AskedList::Outcome;
  tellTrial(*at.ctx,
            {at.dir, at.intf, at.type, at.aclName, rule ? Outcome::matched : Outcome::noMatch, ruleId, rule});
}

const Kelp::Ptr<DataplaneAclHelper::Counters>& DataplaneAclHelper::countersFor(AclDirection dir,
                                                                               AclType type) const {
  if (dir == AclDirection::in) return inCounters_;
  switch (type) {
    case AclType::mac:
      return macOutCounters_;
    case AclType::ip:
      return ipOutCounters_;
    default:
      return ip6OutCounters_;
  }
}

Kelp::Ptr<Velo::Counter::VeloDpAclCounter> DataplaneAclHelper::counterForKey(const CounterKey& key) {
  return countersFor(key.direction, key.aclType)->counterCollectionIs(key);
}

void DataplaneAclHelper::countPkt(const Kelp::Ptr<const Nimnet::Pkt>& pkt, AclDirection dir, AclType type,
                                  const Kelp::String& aclName, const Kiv::UniqueId& ruleId) {
  Counters& collection = *countersFor(dir, type);
  Kelp::Ptr<Velo::Counter::VeloDpAclCounter> counter(
      counterCache_.find(collection, dir, type, aclName, ruleId));
  if (!counter) {
    const CounterKey key{dir, type, aclName, ruleId};
    counter = counterForKey(key);
    counterCache_.remember(collection, key);
  }
  counter->count(pkt);
  counter->lastUpdateTimeIs(Zeb::System::currentTime());
}

Kelp::Ptr<DataplaneAclHelper> dataplaneAclHelperFactory(
    const Kelp::Ptr<Acl::Config>& aclConfig, const Kelp::Ptr<Acl::IntfConfig>& intfConfig,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Kelp::Ptr<DataplaneAclHelper::Counters>& inCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& macOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ipOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ip6OutCounters) {
  return MemSlab::make<DataplaneAclHelper>(aclConfig, intfConfig, aclStatus, inCounters, macOutCounters,
                                           ipOutCounters, ip6OutCounters);
}

Kelp::Ptr<DataplaneAclHelper> DataplaneAclHelperIs(
    const Kelp::Ptr<Acl::Config>& aclConfig, const Kelp::Ptr<Acl::IntfConfig>& intfConfig,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Kelp::Ptr<DataplaneAclHelper::Counters>& inCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& macOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ipOutCounters,
    const Kelp::Ptr<DataplaneAclHelper::Counters>& ip6OutCounters) {
  return dataplaneAclHelperFactory(aclConfig, intfConfig, aclStatus, inCounters, macOutCounters,
                                   ipOutCounters, ip6OutCounters);
}

}  // namespace Velo::VeloAcl
