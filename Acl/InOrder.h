#pragma once

#include <Acl/Match.h>

/// The rules tried one after the other: the reference that the matchers must agree with, and what they fall
/// back on where a list has no compiled form.
namespace Acl::InOrder {

const RuleMap<IpRuleConfig>::Entry* firstIpRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp,
                                                const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                const RuleMap<IpRuleConfig>& rules, bool matchVlan,
                                                bool matchHops);
const RuleMap<Ip6RuleConfig>::Entry* firstIp6Rule(const Nimnet::Ip6Hdr* ip6, const Nimnet::Icmp6Hdr* icmp6,
                                                  const Nimnet::TcpHdr* tcp, const Nimnet::UdpHdr* udp,
                                                  const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                                                  const RuleMap<Ip6RuleConfig>& rules, bool matchVlan,
                                                  bool matchHops);
const RuleMap<MacRuleConfig>::Entry* firstMacRule(Nimnet::EthAddr source, Nimnet::EthAddr destination,
                                                  uint16_t typeOrLen, uint16_t vlanId,
                                                  const RuleMap<MacRuleConfig>& rules);

}  // namespace Acl::InOrder
