#pragma once

#include <Acl/Match.h>
#include <Velo/ParsedPacket.h>
#include <gtest/gtest.h>

#include "../support/Frames.h"

#include <optional>
#include <string_view>
#include <vector>

namespace TestSupport {

inline Nimnet::IpAddr ip4(std::string_view text) { return Nimnet::IpAddr::parse(text).value(); }
inline Nimnet::Ip6Addr ip6(std::string_view text) { return Nimnet::Ip6Addr::parse(text).value(); }
inline Nimnet::EthAddr mac(std::string_view text) { return Nimnet::EthAddr::parse(text).value(); }

/// A frame parsed as the packet path parses it.
struct ParsedFrame {
  explicit ParsedFrame(const Bytes& bytes) {
    pkt.assign(bytes, static_cast<uint32_t>(bytes.size()), 0);
    parsed.reset(&pkt);
    parsed.maybeDoFullParse();
  }
  Nimnet::Pkt pkt;
  Velo::ParsedPacket parsed;
};

/// What the caller of a matcher says it knows of the packet.
struct Known {
  bool vlan = true;
  bool hops = true;
};

inline bool matchRule(const ParsedFrame& frame, const Kelp::Ptr<const Acl::AclConfig>& acl,
                      Acl::IpRuleConfig* rule, Kiv::UniqueId* id, Known known = {}) {
  const auto& l4 = frame.parsed.l4();
  return Acl::matchesIpAclRule(reinterpret_cast<const Nimnet::IpHdr*>(frame.pkt.data()), l4.icmp(), l4.tcp(),
                               l4.udp(), l4.sctp(), frame.pkt.vlanId(), acl, rule, id, known.vlan,
                               known.hops);
}

inline bool matchRule(const ParsedFrame& frame, const Kelp::Ptr<const Acl::AclConfig>& acl,
                      Acl::Ip6RuleConfig* rule, Kiv::UniqueId* id, Known known = {}) {
  const auto& l4 = frame.parsed.l4();
  return Acl::matchesIp6AclRule(frame.parsed.ipHdr()->ip6Hdr(), l4.icmp6(), l4.tcp(), l4.udp(), l4.sctp(),
                                frame.pkt.vlanId(), acl, rule, id, known.vlan, known.hops);
}

inline bool matchRule(const ParsedFrame& frame, const Kelp::Ptr<const Acl::AclConfig>& acl,
                      Acl::MacRuleConfig* rule, Kiv::UniqueId* id, Known = {}) {
  const Nimnet::EthHdr* eth = frame.parsed.ethPacket()->ethHdr();
  return Acl::matchesMacAclNoHdr(eth->source(), eth->destination(), frame.parsed.typeOrLen(),
                                 frame.pkt.vlanId(), acl, rule, id);
}

inline bool ruleIs(Acl::AclSubConfig& list, const Kiv::UniqueId& id, const Acl::IpRule& rule) {
  return list.ipRuleByIdIs(id, rule);
}
inline bool ruleIs(Acl::AclSubConfig& list, const Kiv::UniqueId& id, const Acl::Ip6Rule& rule) {
  return list.ip6RuleByIdIs(id, rule);
}
inline bool ruleIs(Acl::AclSubConfig& list, const Kiv::UniqueId& id, const Acl::MacRule& rule) {
  return list.macRuleByIdIs(id, rule);
}

/// A list of these rules; the id of a rule is its sequence number plus 1000.
template <class Rule>
Kelp::Ptr<Acl::AclConfig> listOf(const std::vector<Rule>& rules) {
  const auto rulesOf = MemSlab::make<Acl::AclSubConfig>();
  for (const Rule& rule : rules) ruleIs(*rulesOf, Kiv::UniqueId(uint64_t{1000} + rule.sequence), rule);
  const auto list = MemSlab::make<Acl::AclConfig>(Kelp::String("L"));
  list->currCfgIs(rulesOf);
  return list;
}

inline const auto* ruleIn(const Acl::AclSubConfig& list, const Kiv::UniqueId& id, const Acl::IpRuleConfig&) {
  return list.ipRuleById(id);
}
inline const auto* ruleIn(const Acl::AclSubConfig& list, const Kiv::UniqueId& id, const Acl::Ip6RuleConfig&) {
  return list.ip6RuleById(id);
}
inline const auto* ruleIn(const Acl::AclSubConfig& list, const Kiv::UniqueId& id, const Acl::MacRuleConfig&) {
  return list.macRuleById(id);
}

/// The sequence number of the rule that a frame meets, nothing when it meets none; holds the contract of the
/// two results along the way.
template <class Rule>
std::optional<uint32_t> hit(const Bytes& frame, const Kelp::Ptr<const Acl::AclConfig>& list,
                            Known known = {}) {
  const ParsedFrame parsed(frame);
  Rule before;
  before.sequence = 77;
  before.mirrorSession = "untouched";
  const typename Rule::Config untouched(before);
  typename Rule::Config rule = untouched;
  Kiv::UniqueId id = Kiv::UniqueId::unset();
  if (!matchRule(parsed, list, &rule, &id, known)) {
    EXPECT_TRUE(rule.sharesBody(untouched)) << "nothing matched: the rule is as it was";
    EXPECT_EQ(id, Kiv::UniqueId::unset()) << "nothing matched: the id is as it was";
    return std::nullopt;
  }
  EXPECT_EQ(id.value(), uint64_t{1000} + rule.sequence()) << "the id of the very rule";
  const auto* listed = ruleIn(*list->judging(), id, rule);
  EXPECT_TRUE(listed && rule.sharesBody(*listed)) << "the rule of the list, not one that looks like it";
  return rule.sequence();
}

/// One filter against one frame.
template <class Rule>
struct FilterRow {
  const char* why;
  void (*set)(typename Rule::FilterType&);
  Bytes frame;
  bool matches;
};

template <class Rule>
void checkFilters(const std::vector<FilterRow<Rule>>& rows) {
  for (const auto& row : rows) {
    Rule rule;
    rule.sequence = 10;
    row.set(rule.filter);
    EXPECT_EQ(hit<Rule>(row.frame, listOf<Rule>({rule})).has_value(), row.matches) << row.why;
  }
}

}  // namespace TestSupport
