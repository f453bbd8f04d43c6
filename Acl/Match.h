#pragma once

#include <Acl/Model.h>
#include <Nimnet/EthHdr.h>
#include <Nimnet/Ip6Hdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>

/// The three matchers: which rule of a list a packet meets first. Rules are tried in the order of their
/// sequence numbers. On a match the rule and its id are copied out and true is returned; else both are left
/// as they were, and so they are when copying a rule throws. A list without rules, or without `currCfg`,
/// matches nothing. What stands in for `currCfg` is asked in its place.
///
/// `vlanId` is the id of the outer VLAN tag: 1 to 4095, or 0 for an untagged or priority-tagged frame.
/// `matchVlan` false says that the caller does not know the tag, `matchHops` false that the TTL or hop limit
/// is not the one the packet came with; a rule that asks for what is not known then matches nothing.
///
/// The L4 headers are null where the packet has none (or none of that kind); non-first fragments have none,
/// and a rule that asks for ports, flags or an ICMP message does not match them.
namespace Acl {

/// IPv4. `ip` is the header in place.
bool matchesIpAclRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp, const Nimnet::TcpHdr* tcp,
                      const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                      const Kelp::Ptr<const AclConfig>& acl, IpRuleConfig* matchedRule,
                      Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops);

/// IPv6. The protocol is the last header of the chain; when the chain could not be read to its end it is
/// unknown, and a rule that names a protocol does not match.
bool matchesIp6AclRule(const Nimnet::Ip6Hdr* ip6, const Nimnet::Icmp6Hdr* icmp6, const Nimnet::TcpHdr* tcp,
                       const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                       const Kelp::Ptr<const AclConfig>& acl, Ip6RuleConfig* matchedRule,
                       Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops);

/// MAC. `typeOrLen` is the type or length field behind the tags. A rule that asks for an MPLS label does not
/// match: labels are not looked at.
bool matchesMacAclNoHdr(Nimnet::EthAddr source, Nimnet::EthAddr destination, uint16_t typeOrLen,
                        uint16_t vlanId, const Kelp::Ptr<const AclConfig>& acl, MacRuleConfig* matchedRule,
                        Kiv::UniqueId* matchedRuleId);

}  // namespace Acl
