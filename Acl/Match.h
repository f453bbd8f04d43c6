#pragma once

#include <Acl/FirstRule.h>
#include <Acl/Model.h>

/// The three matchers: which rule of a list a packet meets first. Rules are tried in the order of their
/// sequence numbers. On a match the rule, which shares what the list's says, and its id are given out and
/// true is returned; else both are left as they were. A list without rules, or without `currCfg`, matches
/// nothing. What stands in for `currCfg` is asked in its place.
///
/// `vlanId` is the id of the outer VLAN tag: 1 to 4095, or 0 for an untagged or priority-tagged frame.
/// `matchVlan` false says that the caller does not know the tag, `matchHops` false that the TTL or hop limit
/// is not the one the packet came with; a rule that asks for what is not known then matches nothing.
///
/// The L4 headers are null where the packet has none (or none of that kind); non-first fragments have none,
/// and a rule that asks for ports, flags or an ICMP message does not match them. Who has the header as an L4
/// gives that: it takes less time.
///
/// Inlined where they are called, see firstRule().
namespace Acl {

/// What the matchers below have in common. `rulesOf` is the map of rules that is asked.
template <class Rule, const RuleMap<Rule>& (AclSubConfig::*rulesOf)() const, class MakePacket>
[[gnu::always_inline]] inline bool matchesRule(const AclConfig& acl, const MakePacket& packet,
                                               Rule* matchedRule, Kiv::UniqueId* matchedRuleId) {
  const AclSubConfig* rules = acl.judging();
  const auto* entry = rules ? firstRule((rules->*rulesOf)(), packet) : nullptr;
  if (!entry) return false;
  *matchedRule = entry->value;
  *matchedRuleId = entry->key;
  return true;
}

/// IPv4. `ip` is the header in place.
[[gnu::always_inline]] inline bool matchesIpAclRule(const Nimnet::IpHdr* ip, const Nimnet::L4& l4,
                                                    uint16_t vlanId, const Kelp::Ptr<const AclConfig>& acl,
                                                    IpRuleConfig* matchedRule, Kiv::UniqueId* matchedRuleId,
                                                    bool matchVlan, bool matchHops) {
  const auto packet = [&] { return IpPacket{{*ip, l4, vlanId, matchVlan, matchHops}}; };
  return matchesRule<IpRuleConfig, &AclSubConfig::ipRuleById>(*acl, packet, matchedRule, matchedRuleId);
}
[[gnu::always_inline]] inline bool matchesIpAclRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp,
                                                    const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                    const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                    const Kelp::Ptr<const AclConfig>& acl,
                                                    IpRuleConfig* matchedRule, Kiv::UniqueId* matchedRuleId,
                                                    bool matchVlan, bool matchHops) {
  return matchesIpAclRule(ip, Nimnet::L4::of(icmp, tcp, udp, sctp), vlanId, acl, matchedRule, matchedRuleId,
                          matchVlan, matchHops);
}

/// IPv6. The protocol is the last header of the chain; when the chain could not be read to its end it is
/// unknown, and a rule that names a protocol does not match.
[[gnu::always_inline]] inline bool matchesIp6AclRule(const Nimnet::Ip6Hdr* ip6, const Nimnet::L4& l4,
                                                     uint16_t vlanId, const Kelp::Ptr<const AclConfig>& acl,
                                                     Ip6RuleConfig* matchedRule, Kiv::UniqueId* matchedRuleId,
                                                     bool matchVlan, bool matchHops) {
  const auto packet = [&] { return Ip6Packet{{*ip6, l4, vlanId, matchVlan, matchHops}}; };
  return matchesRule<Ip6RuleConfig, &AclSubConfig::ip6RuleById>(*acl, packet, matchedRule, matchedRuleId);
}
[[gnu::always_inline]] inline bool matchesIp6AclRule(const Nimnet::Ip6Hdr* ip6, const Nimnet::Icmp6Hdr* icmp6,
                                                     const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                     const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                     const Kelp::Ptr<const AclConfig>& acl,
                                                     Ip6RuleConfig* matchedRule, Kiv::UniqueId* matchedRuleId,
                                                     bool matchVlan, bool matchHops) {
  return matchesIp6AclRule(ip6, Nimnet::L4::of(icmp6, tcp, udp, sctp), vlanId, acl, matchedRule,
                           matchedRuleId, matchVlan, matchHops);
}

/// MAC. `typeOrLen` is the type or length field behind the tags. A rule that asks for an MPLS label does not
/// match: labels are not looked at. Nor are those of the rule checked, see MplsFilter::check().
[[gnu::always_inline]] inline bool matchesMacAclNoHdr(Nimnet::EthAddr source, Nimnet::EthAddr destination,
                                                      uint16_t typeOrLen, uint16_t vlanId,
                                                      const Kelp::Ptr<const AclConfig>& acl,
                                                      MacRuleConfig* matchedRule,
                                                      Kiv::UniqueId* matchedRuleId) {
  const auto packet = [&] {
    return MacPacket{source.bytes.data(), destination.bytes.data(), typeOrLen, vlanId};
  };
  return matchesRule<MacRuleConfig, &AclSubConfig::macRuleById>(*acl, packet, matchedRule, matchedRuleId);
}

}  // namespace Acl
