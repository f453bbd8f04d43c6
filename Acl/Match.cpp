#include <Acl/Match.h>

namespace Acl {

namespace {

/// What the conditions that IPv4 and IPv6 share are held against.
struct IpView {
  bool protocolKnown;
  uint8_t protocol;
  uint8_t trafficClass;
  uint8_t hops;
  bool nonFirstFragment;
  uint16_t vlanId;
  bool vlanKnown;
  bool hopsKnown;
  bool hasPorts = false;
  uint16_t sourcePort = 0;
  uint16_t destinationPort = 0;
  bool hasTcp = false;
  uint8_t tcpFlags = 0;
  bool hasIcmp = false;
  uint8_t icmpType = 0;
  uint8_t icmpCode = 0;

  template <class Icmp>
  void l4Is(const Icmp* icmp, const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
            const Nimnet::SctpHdr* sctp) {
    const auto portsOf = [this](const auto* hdr) {
      hasPorts = true;
      sourcePort = hdr->sourcePort();
      destinationPort = hdr->destinationPort();
    };
    if (tcp) {
      portsOf(tcp);
      hasTcp = true;
      tcpFlags = tcp->flags();
    } else if (udp) {
      portsOf(udp);
    } else if (sctp) {
      portsOf(sctp);
    } else if (icmp) {
      hasIcmp = true;
      icmpType = icmp->type();
      icmpCode = icmp->code();
    }
  }
};

bool matchesBase(const IpFilterBase& filter, const IpView& packet) {
  if (!filter.vlan.isAny() && !(packet.vlanKnown && filter.vlan.matches(packet.vlanId))) return false;
  if (filter.protocolNamed && !(packet.protocolKnown && filter.protocol == packet.protocol)) return false;
  if ((packet.trafficClass ^ filter.trafficClass) & filter.trafficClassMask) return false;
  if (!filter.hops.isAny() && !(packet.hopsKnown && filter.hops.matches(packet.hops))) return false;
  if (filter.fragments && !packet.nonFirstFragment) return false;
  if (!filter.needsL4()) return true;

  if (!filter.sourcePort.isAny() && !(packet.hasPorts && filter.sourcePort.matches(packet.sourcePort)))
    return false;
  if (!filter.destinationPort.isAny() &&
      !(packet.hasPorts && filter.destinationPort.matches(packet.destinationPort))) {
    return false;
  }
  if (filter.established &&
      !(packet.hasTcp && (packet.tcpFlags & (Nimnet::TcpHdr::ack | Nimnet::TcpHdr::rst))))
    return false;
  if (filter.tcpFlags && !(packet.hasTcp && (packet.tcpFlags & filter.tcpFlags) == filter.tcpFlags))
    return false;
  if (filter.icmpTypeNamed && !(packet.hasIcmp && filter.icmpType == packet.icmpType)) return false;
  if (filter.icmpCodeNamed && !(packet.hasIcmp && filter.icmpCode == packet.icmpCode)) return false;
  return true;
}

bool matchesAddress(Nimnet::IpAddr address, Nimnet::IpAddr value, Nimnet::IpAddr mask) {
  return ((address.value ^ value.value) & mask.value) == 0;
}

bool matchesAddress(const Nimnet::Ip6Addr& address, const Nimnet::Ip6Addr& value,
                    const Nimnet::Ip6Addr& mask) {
  return (((address.high ^ value.high) & mask.high) | ((address.low ^ value.low) & mask.low)) == 0;
}

bool matchesAddress(Nimnet::EthAddr address, Nimnet::EthAddr value, Nimnet::EthAddr mask) {
  return ((address.value() ^ value.value()) & mask.value()) == 0;
}

/// Tries the rules in order. This is the reference that any faster matcher must agree with: keep it plain.
template <class Rule, class Matches>
bool firstMatch(const RuleMap<Rule>& rules, Rule* matchedRule, Kiv::UniqueId* matchedRuleId,
                const Matches& matches) {
  for (const auto* entry : rules.ordered()) {
    if (!matches(entry->value.filter)) continue;
    *matchedRule = entry->value;
    *matchedRuleId = entry->key;
    return true;
  }
  return false;
}

}  // namespace

bool matchesIpAclRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp, const Nimnet::TcpHdr* tcp,
                      const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                      const Kelp::Ptr<const AclConfig>& acl, IpRuleConfig* matchedRule,
                      Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops) {
  const auto rules = acl->currCfg();
  if (!rules) return false;
  IpView packet{true,   ip->protocol(), ip->tos(), ip->ttl(), ip->isNonFirstFragment(),
                vlanId, matchVlan,      matchHops};
  packet.l4Is(icmp, tcp, udp, sctp);
  const Nimnet::IpAddr source = ip->source();
  const Nimnet::IpAddr destination = ip->destination();
  return firstMatch(rules->ipRuleById(), matchedRule, matchedRuleId, [&](const IpFilter& filter) {
    return matchesAddress(source, filter.source, filter.sourceMask) &&
           matchesAddress(destination, filter.destination, filter.destinationMask) &&
           matchesBase(filter, packet);
  });
}

bool matchesIp6AclRule(const Nimnet::Ip6Hdr* ip6, const Nimnet::Icmp6Hdr* icmp6, const Nimnet::TcpHdr* tcp,
                       const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                       const Kelp::Ptr<const AclConfig>& acl, Ip6RuleConfig* matchedRule,
                       Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops) {
  const auto rules = acl->currCfg();
  if (!rules) return false;
  IpView packet{ip6->protocolKnown(),      ip6->protocol(), ip6->trafficClass(), ip6->hopLimit(),
                ip6->isNonFirstFragment(), vlanId,          matchVlan,           matchHops};
  packet.l4Is(icmp6, tcp, udp, sctp);
  const Nimnet::Ip6Addr source = ip6->source();
  const Nimnet::Ip6Addr destination = ip6->destination();
  return firstMatch(rules->ip6RuleById(), matchedRule, matchedRuleId, [&](const Ip6Filter& filter) {
    return matchesAddress(source, filter.source, filter.sourceMask) &&
           matchesAddress(destination, filter.destination, filter.destinationMask) &&
           matchesBase(filter, packet);
  });
}

bool matchesMacAclNoHdr(Nimnet::EthAddr source, Nimnet::EthAddr destination, uint16_t typeOrLen,
                        uint16_t vlanId, const Kelp::Ptr<const AclConfig>& acl, MacRuleConfig* matchedRule,
                        Kiv::UniqueId* matchedRuleId) {
  const auto rules = acl->currCfg();
  if (!rules) return false;
  return firstMatch(rules->macRuleById(), matchedRule, matchedRuleId, [&](const MacFilter& filter) {
    return filter.vlan.matches(vlanId) && !filter.mpls.labelNamed && !filter.mpls.innerLabelNamed &&
           (!filter.etherTypeNamed || filter.etherType == typeOrLen) &&
           matchesAddress(source, filter.source, filter.sourceMask) &&
           matchesAddress(destination, filter.destination, filter.destinationMask);
  });
}

}  // namespace Acl
