#include <Acl/FirstRule.h>
#include <Acl/Match.h>

#include <type_traits>

namespace Acl {

namespace {

template <class Entry, class Rule>
bool copyOut(const Entry* entry, Rule* matchedRule, Kiv::UniqueId* matchedRuleId) {
  if (!entry) return false;
  if constexpr (std::is_same_v<Rule, MacRuleConfig>) {
    *matchedRule = Rule(entry->value);  // at once or, when it throws, not at all
  } else {
    *matchedRule = entry->value;
  }
  *matchedRuleId = entry->key;
  return true;
}

}  // namespace

bool matchesIpAclRule(const Nimnet::IpHdr* ip, const Nimnet::IcmpHdr* icmp, const Nimnet::TcpHdr* tcp,
                      const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                      const Kelp::Ptr<const AclConfig>& acl, IpRuleConfig* matchedRule,
                      Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops) {
  const auto* rules = acl->judging();
  if (!rules) return false;
  const auto packet = [&] { return IpPacket{{*ip, icmp, tcp, udp, sctp, vlanId, matchVlan, matchHops}}; };
  return copyOut(firstRule(rules->ipRuleById(), packet), matchedRule, matchedRuleId);
}

bool matchesIp6AclRule(const Nimnet::Ip6Hdr* ip6, const Nimnet::Icmp6Hdr* icmp6, const Nimnet::TcpHdr* tcp,
                       const Nimnet::UdpHdr* udp, const Nimnet::SctpHdr* sctp, uint16_t vlanId,
                       const Kelp::Ptr<const AclConfig>& acl, Ip6RuleConfig* matchedRule,
                       Kiv::UniqueId* matchedRuleId, bool matchVlan, bool matchHops) {
  const auto* rules = acl->judging();
  if (!rules) return false;
  const auto packet = [&] { return Ip6Packet{{*ip6, icmp6, tcp, udp, sctp, vlanId, matchVlan, matchHops}}; };
  return copyOut(firstRule(rules->ip6RuleById(), packet), matchedRule, matchedRuleId);
}

bool matchesMacAclNoHdr(Nimnet::EthAddr source, Nimnet::EthAddr destination, uint16_t typeOrLen,
                        uint16_t vlanId, const Kelp::Ptr<const AclConfig>& acl, MacRuleConfig* matchedRule,
                        Kiv::UniqueId* matchedRuleId) {
  const auto* rules = acl->judging();
  if (!rules) return false;
  const auto packet = [&] {
    return MacPacket{source.bytes.data(), destination.bytes.data(), typeOrLen, vlanId};
  };
  return copyOut(firstRule(rules->macRuleById(), packet), matchedRule, matchedRuleId);
}

}  // namespace Acl
