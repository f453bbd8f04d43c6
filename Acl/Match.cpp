#include <Acl/Compiled.h>
#include <Acl/InOrder.h>
#include <Acl/MatchFields.h>

namespace Acl {

namespace {

/// Tries the rules in order. This is the reference that the compiled form must agree with: keep it plain.
template <class Rule, class Packet>
[[gnu::noinline]] const typename RuleMap<Rule>::Entry* firstInOrder(const RuleMap<Rule>& rules,
                                                                    const Packet& packet) {
  const auto fields = packet.fields();
  for (const auto* entry : rules.ordered()) {
    if (matchesFilter(entry->value.filter, fields)) return entry;
  }
  return nullptr;
}

/// By the compiled form; by the rules in order where there is none, or where it does not know.
template <class Rule, class Packet>
const typename RuleMap<Rule>::Entry* first(const RuleMap<Rule>& rules, const Packet& packet) {
  const typename RuleMap<Rule>::Entry* found;
  const auto* compiled = static_cast<const Compiled<Rule>*>(rules.compiled());
  if (compiled && compiled->find(packet, found)) [[likely]]
    return found;
  return firstInOrder(rules, packet);
}

template <class Rule>
bool copyOut(const typename RuleMap<Rule>::Entry* entry, Rule* matchedRule, Kiv::UniqueId* matchedRuleId) {
  if (!entry) return false;
  *matchedRule = entry->value;
  *matchedRuleId = entry->key;
  return true;
}

/// A packet before IPv4 or IPv6 rules, as the matchers are given it.
template <class Header, class Icmp, class FieldsOfKind>
struct IpPacket {
  const Header& ip;
  const Icmp* icmp;
  const Nimnet::TcpHdr* tcp;
  const Nimnet::UdpHdr* udp;
  const Nimnet::SctpHdr* sctp;
  uint16_t vlanId;
  bool vlanKnown;
  bool hopsKnown;

  FieldsOfKind fields() const {
    FieldsOfKind made(ip);
    made.vlanId = vlanId;
    made.vlanKnown = vlanKnown;
    made.hopsKnown = hopsKnown;
    made.l4Is(icmp, tcp, udp, sctp);
    return made;
  }
};

struct Ip4Packet : IpPacket<Nimnet::IpHdr, Nimnet::IcmpHdr, IpFields> {
  uint32_t find(const Classify::View& view, const Classify::Questions& questions, const void* context) const {
    const Classify::Key key = keyOf(ip, icmp, tcp, udp, sctp, vlanId, vlanKnown, hopsKnown);
    return Classify::kernels->find(view, key.bits[0], key.bits[1], key.quad, questions, context);
  }
};

struct Ip6Packet : IpPacket<Nimnet::Ip6Hdr, Nimnet::Icmp6Hdr, Ip6Fields> {
  static constexpr uint32_t addressesAt = 8;  // source, then destination

  uint32_t find(const Classify::View& view, const Classify::Questions& questions, const void* context) const {
    const Classify::Key key = keyOf(ip, icmp, tcp, udp, sctp, vlanId, vlanKnown, hopsKnown);
    return Classify::kernels->findLong(view, ip.fixed() + addressesAt, key.bits[1], key.quad, questions,
                                       context);
  }
};

struct MacPacket {
  Nimnet::EthAddr source, destination;
  uint16_t typeOrLen;
  uint16_t vlanId;

  MacFields fields() const { return {source, destination, typeOrLen, vlanId}; }
  uint32_t find(const Classify::View& view, const Classify::Questions& questions, const void* context) const {
    const Classify::Key key = keyOf(source, destination, typeOrLen, vlanId);
    return Classify::kernels->find(view, key.bits[0], key.bits[1], key.quad, questions, context);
  }
};

}  // namespace

const RuleMap<IpRuleConfig>::Entry* firstIpRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp,
                                                const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                const RuleMap<IpRuleConfig>& rules, bool matchVlan,
                                                bool matchHops) {
  return first(rules, Ip4Packet{{*ip, icmp, tcp, udp, sctp, vlanId, matchVlan, matchHops}});
}

const RuleMap<Ip6RuleConfig>::Entry* firstIp6Rule(const Nimnet::Ip6Hdr* ip, const Nimnet::Icmp6Hdr* icmp,
                                                  const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                  const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                  const RuleMap<Ip6RuleConfig>& rules, bool matchVlan,
                                                  bool matchHops) {
  return first(rules, Ip6Packet{{*ip, icmp, tcp, udp, sctp, vlanId, matchVlan, matchHops}});
}

const RuleMap<MacRuleConfig>::Entry* firstMacRule(Nimnet::EthAddr source, Nimnet::EthAddr destination,
                                                  uint16_t typeOrLen, uint16_t vlanId,
                                                  const RuleMap<MacRuleConfig>& rules) {
  return first(rules, MacPacket{source, destination, typeOrLen, vlanId});
}

const RuleMap<IpRuleConfig>::Entry* InOrder::firstIpRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp,
                                                         const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                         const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                         const RuleMap<IpRuleConfig>& rules, bool matchVlan,
                                                         bool matchHops) {
  return firstInOrder(rules, Ip4Packet{{*ip, icmp, tcp, udp, sctp, vlanId, matchVlan, matchHops}});
}

const RuleMap<Ip6RuleConfig>::Entry* InOrder::firstIp6Rule(
    const Nimnet::Ip6Hdr* ip, const Nimnet::Icmp6Hdr* icmp, const Nimnet::TcpHdr* tcp,
    const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
    const RuleMap<Ip6RuleConfig>& rules, bool matchVlan, bool matchHops) {
  return firstInOrder(rules, Ip6Packet{{*ip, icmp, tcp, udp, sctp, vlanId, matchVlan, matchHops}});
}

const RuleMap<MacRuleConfig>::Entry* InOrder::firstMacRule(Nimnet::EthAddr source,
                                                           Nimnet::EthAddr destination, uint16_t typeOrLen,
                                                           uint16_t vlanId,
                                                           const RuleMap<MacRuleConfig>& rules) {
  return firstInOrder(rules, MacPacket{source, destination, typeOrLen, vlanId});
}

bool matchesIpAclRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp, const Nimnet::TcpHdr* tcp,
                      const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                      const Kelp::Ptr<const AclConfig>& acl, IpRuleConfig* matchedRule,
                      Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops) {
  const auto rules = acl->currCfg();
  return rules &&
         copyOut(firstIpRule(ip, icmp, tcp, udp, sctp, vlanId, rules->ipRuleById(), matchVlan, matchHops),
                 matchedRule, matchedRuleId);
}

bool matchesIp6AclRule(const Nimnet::Ip6Hdr* ip6, const Nimnet::Icmp6Hdr* icmp6, const Nimnet::TcpHdr* tcp,
                       const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                       const Kelp::Ptr<const AclConfig>& acl, Ip6RuleConfig* matchedRule,
                       Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops) {
  const auto rules = acl->currCfg();
  return rules &&
         copyOut(firstIp6Rule(ip6, icmp6, tcp, udp, sctp, vlanId, rules->ip6RuleById(), matchVlan, matchHops),
                 matchedRule, matchedRuleId);
}

bool matchesMacAclNoHdr(Nimnet::EthAddr source, Nimnet::EthAddr destination, uint16_t typeOrLen,
                        uint16_t vlanId, const Kelp::Ptr<const AclConfig>& acl, MacRuleConfig* matchedRule,
                        Kiv::UniqueId* matchedRuleId) {
  const auto rules = acl->currCfg();
  return rules && copyOut(firstMacRule(source, destination, typeOrLen, vlanId, rules->macRuleById()),
                          matchedRule, matchedRuleId);
}

}  // namespace Acl
