#include <Acl/ListTrial.h>
#include <Acl/Match.h>
#include <Kelp/Assert.h>
#include <VeloAcl/VeloPlugin/AclTrace.h>
#include <VeloAcl/VeloPlugin/DataplaneAclHelper.h>
#include <Zeb/System.h>

namespace Velo::VeloAcl {

using Acl::AclDirection;
using Acl::AclType;

namespace {

void countDrop(VeloNamedCounters& counters, const Kelp::String& reason, uint64_t packets) {
  static const Kelp::String category("Drop");
  counters.count(category, aclFacility(), reason, packets);
}

const Kelp::String& deniedReason() {
  static const Kelp::String reason("dropping pkt");
  return reason;
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
  /// Until the packet is counted: whoever hears of that may change the bindings.
  const Kelp::String& aclName;
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
    if (!portChannel.empty() &&
        !(processL2Pkt(ctx, dir, portChannel) && processL3Pkt(ctx, dir, portChannel))) {
      return false;
    }
  }
  return processL2Pkt(ctx, dir, intf) && processL3Pkt(ctx, dir, intf);
}

bool DataplaneAclHelper::processL2Pkt(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                      Nimnet::IntfId intf) {
  if (!ctx->parsedPacket().ethPacket()->ethHdr()) {
    tracePkt(*ctx, "processL2Pkt", "No ethernet header");
    return true;
  }
  return !shouldDropPkt(ctx, intf, dir, AclType::mac);
}

bool DataplaneAclHelper::processL3Pkt(const Kelp::Ptr<PacketContext>& ctx, AclDirection dir,
                                      Nimnet::IntfId intf) {
  const ParsedIpHdr* ip = ctx->parsedPacket().ipHdr();
  if (!ip) {
    tracePkt(*ctx, "processL3Pkt", "No ip header");
    return true;
  }
  const AclType type = ip->protocolName() == "Ipv4" ? AclType::ip : AclType::ipv6;
  return !shouldDropPkt(ctx, intf, dir, type);
}

bool DataplaneAclHelper::shouldDropPkt(const Kelp::Ptr<PacketContext>& ctx, Nimnet::IntfId intf,
                                       AclDirection dir, AclType type) {
  const BoundList& bound = boundLists_.find(intf, dir, type);
  if (!bound.bound) {
    tracePkt(*ctx, "shouldDropPkt", "No {} acls of type {} for intf {}", dir, type, intf);
    return false;
  }
  if (!bound.list || bound.list->hidden()) {
    tellNoList({ctx, intf, dir, type, bound.name}, bound.typeKnown);
    return false;
  }
  const Lookup at{ctx, intf, dir, type, bound.name};
  const Kelp::Ptr<const Acl::AclConfig> acl(bound.list);
  const ParsedPacket& parsed = ctx->parsedPacket();
  const Nimnet::L4& l4 = parsed.l4().hdr();
  const uint16_t vlanId = ctx->pkt()->vlanId();
  using Kiv::UniqueId;
  switch (type) {
    case AclType::mac: {
      const Nimnet::EthHdr* eth = parsed.ethPacket()->ethHdr();
      return dropsBy<Acl::MacRuleConfig>(at, [&](Acl::MacRuleConfig* rule, UniqueId* ruleId) {
        if (!Acl::matchesMacAclNoHdr(eth->source(), eth->destination(), parsed.typeOrLen(), vlanId, acl, rule,
                                     ruleId)) {
          return false;
        }
        rule->filter().mpls.check();
        return true;
      });
    }
    case AclType::ip: {
      const auto* ip = reinterpret_cast<const Nimnet::IpHdr*>(ctx->pkt()->data());
      return dropsBy<Acl::IpRuleConfig>(at, [&](Acl::IpRuleConfig* rule, UniqueId* ruleId) {
        return Acl::matchesIpAclRule(ip, l4, vlanId, acl, rule, ruleId, true, true);
      });
    }
    case AclType::ipv6:
      return dropsBy<Acl::Ip6RuleConfig>(at, [&](Acl::Ip6RuleConfig* rule, UniqueId* ruleId) {
        return Acl::matchesIp6AclRule(parsed.ipHdr()->ip6Hdr(), l4, vlanId, acl, rule, ruleId, true, true);
      });
  }
  Kelp::fatal("an access list is of type ip, ipv6 or mac", __FILE__, __LINE__);
}

void DataplaneAclHelper::tellNoList(const Lookup& at, bool typeKnown) {
  if (typeKnown) {
    tracePkt(*at.ctx, "shouldDropPkt", "No acl config present for type {} with name {}", at.type, at.aclName);
  } else {
    tracePkt(*at.ctx, "shouldDropPkt", "No acl config present for type {}", at.type);
  }
  tellTrial(*at.ctx, {at.dir, at.intf, at.type, at.aclName, Acl::AskedList::Outcome::undefined});
}

template <class Rule, class Match>
bool DataplaneAclHelper::dropsBy(const Lookup& at, const Match& match) {
  Rule rule;
  Kiv::UniqueId ruleId = Kiv::UniqueId::unset();
  if (!match(&rule, &ruleId)) return dropOnNoMatch(at);
  const bool deny = denies(rule);
  tracePkt(*at.ctx, "shouldDropPkt", "Matched acl {}, rule {} on {}", at.aclName, ruleId, at.intf);
  account(at, &rule, ruleId);
  return dropOnMatch(at, rule, deny);
}

bool DataplaneAclHelper::dropOnMatch(const Lookup& at, const Acl::RuleConfig& rule, bool deny) {
  // A packet that is dropped on its way out is not sent, so it is not mirrored either.
  const Kelp::String& session = rule.mirrorSession();
  if (!session.empty() && (at.dir == AclDirection::in || !deny)) {
    tracePkt(*at.ctx, "shouldDropPkt", "mirroring packet to {}", session);
    const auto direction =
        at.dir == AclDirection::in ? MirroringDirection::ingress : MirroringDirection::egress;
    KELP_ASSERT(mirroringHelper_, "a rule with a mirror session needs the mirroring helper");
    mirroringHelper_->maybeMirrorToSessionTargets(at.ctx, direction, session);
  }

  tracePkt(*at.ctx, "shouldDropPkt", "matched acl has action {}", rule.action());
  if (!deny) return false;
  tracePkt(*at.ctx, "shouldDropPkt", "{}", deniedReason());
  countDenied(at.ctx->namedCounters());
  return true;
}

bool DataplaneAclHelper::dropOnNoMatch(const Lookup& at) {
  const Kiv::UniqueId implicitId = implicitDropId(at.type, at.aclName);
  if (implicitId.empty() && !at.ctx->trial()) {
    tracePkt(*at.ctx, "shouldDropPkt", "Unable to count implicit drop");
  } else {
    account(at, nullptr, implicitId);
  }
  tracePkt(*at.ctx, "shouldDropPkt", "No match on intf {}, default action is drop", at.intf);
  countNoMatch(at.ctx->namedCounters());
  return true;
}

Kiv::UniqueId DataplaneAclHelper::implicitDropId(AclType type, const Kelp::String& aclName) const {
  if (const auto* lists = std::as_const(*aclStatus_).status().find(type)) {
    if (const auto* status = lists->get()->acl().find(aclName)) {
      if (const auto* id = status->get()->implicitRuleId(Acl::ImplicitRuleType::drop)) return *id;
    }
  }
  return {};
}

void DataplaneAclHelper::countDenied(VeloNamedCounters& counters, uint64_t packets) {
  countDrop(counters, deniedReason(), packets);
}

void DataplaneAclHelper::countNoMatch(VeloNamedCounters& counters, uint64_t packets) {
  // There is one counter for all interfaces, so its name keeps the placeholder.
  static const Kelp::String reason("No match on intf %s, default action is drop");
  countDrop(counters, reason, packets);
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

Velo::Counter::VeloDpAclCounter* DataplaneAclHelper::knownCounter(AclDirection dir, AclType type,
                                                                  const Kelp::String& aclName,
                                                                  const Kiv::UniqueId& ruleId) {
  Counters& collection = *countersFor(dir, type);
  if (auto* counter = counterCache_.find(collection, dir, type, aclName, ruleId)) return counter;
  counterCache_.remember(collection, {dir, type, aclName, ruleId});
  return counterCache_.find(collection, dir, type, aclName, ruleId);
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
