#include "classbench/Ours.h"

#include <Acl/FirstRule.h>
#include <Acl/Match.h>

#include <array>

#include "support/Allocations.h"

// Everything that the benchmark asks of the matchers goes through the few functions at the top.

namespace Bench {

namespace {

using List = Kelp::Ptr<const Acl::AclConfig>;
using Acl::Ip6Rule;
using Acl::Ip6RuleConfig;
using Acl::IpRule;
using Acl::IpRuleConfig;
using Acl::MacRule;
using Acl::MacRuleConfig;
using Nimnet::Icmp6Hdr;
using Nimnet::IcmpHdr;
using Nimnet::SctpHdr;
using Nimnet::TcpHdr;
using Nimnet::UdpHdr;

bool match(const IpPacket& p, const List& list, IpRuleConfig* rule, Kiv::UniqueId* id) {
  return Acl::matchesIpAclRule(&p.ip, l4<IcmpHdr>(p, 1), l4<TcpHdr>(p, 6), l4<UdpHdr>(p, 17),
                               l4<SctpHdr>(p, 132), p.around.vlanId, list, rule, id, true, true);
}

bool match(const Ip6Packet& p, const List& list, Ip6RuleConfig* rule, Kiv::UniqueId* id) {
  const Nimnet::Ip6Hdr ip(p.fixed, {p.around.protocol, true});
  return Acl::matchesIp6AclRule(&ip, l4<Icmp6Hdr>(p, 58), l4<TcpHdr>(p, 6), l4<UdpHdr>(p, 17),
                                l4<SctpHdr>(p, 132), p.around.vlanId, list, rule, id, true, true);
}

bool match(const MacPacket& p, const List& list, MacRuleConfig* rule, Kiv::UniqueId* id) {
  return Acl::matchesMacAclNoHdr(p.source, p.destination, p.typeOrLen, p.vlanId, list, rule, id);
}

/// A packet as the look-up takes it.
[[gnu::always_inline]] inline Acl::IpPacket asTaken(const IpPacket& p) {
  return {{p.ip, l4(p), p.around.vlanId, true, true}};
}
[[gnu::always_inline]] inline Acl::MacPacket asTaken(const MacPacket& p) {
  return {p.source.bytes.data(), p.destination.bytes.data(), p.typeOrLen, p.vlanId};
}
[[gnu::always_inline]] inline Acl::Ip6Packet asTaken(const Ip6Packet& p, const Nimnet::Ip6Hdr& ip) {
  return {{ip, l4(p), p.around.vlanId, true, true}};
}

template <class Packet, class Rule>
[[gnu::always_inline]] inline const auto* first(const Packet& p, const Acl::RuleMap<Rule>& rules) {
  if constexpr (std::is_same_v<Packet, Ip6Packet>) {
    const Nimnet::Ip6Hdr ip(p.fixed, {p.around.protocol, true});
    return Acl::firstRule(rules, [&] { return asTaken(p, ip); });
  } else {
    return Acl::firstRule(rules, [&] { return asTaken(p); });
  }
}

template <class Packet, class Rule>
void firstOfBurst(const Packet* packets, uint32_t count, const Acl::RuleMap<Rule>& rules,
                  const typename Acl::RuleMap<Rule>::Entry** found) {
  if constexpr (std::is_same_v<Packet, Ip6Packet>) {
    std::array<Nimnet::Ip6Hdr, Classify::burstMost> headers;
    for (uint32_t i = 0; i < count; ++i) headers[i] = {packets[i].fixed, {packets[i].around.protocol, true}};
    Acl::firstRules(
        rules, count, [&](uint32_t i) { return asTaken(packets[i], headers[i]); }, found);
  } else {
    Acl::firstRules(
        rules, count, [packets](uint32_t i) { return asTaken(packets[i]); }, found);
  }
}

template <class Packet, class Rule>
const auto* firstInOrder(const Packet& p, const Acl::RuleMap<Rule>& rules) {
  if constexpr (std::is_same_v<Packet, Ip6Packet>) {
    const Nimnet::Ip6Hdr ip(p.fixed, {p.around.protocol, true});
    return Acl::InOrder::firstRule(rules, asTaken(p, ip));
  } else {
    return Acl::InOrder::firstRule(rules, asTaken(p));
  }
}

template <class Rule>
const Acl::RuleMap<typename Rule::Config>& rulesOf(const Acl::AclSubConfig& list) {
  if constexpr (std::is_same_v<Rule, IpRule>) return list.ipRuleById();
  if constexpr (std::is_same_v<Rule, Ip6Rule>) return list.ip6RuleById();
  if constexpr (std::is_same_v<Rule, MacRule>) return list.macRuleById();
}

void ruleIs(Acl::AclSubConfig& list, Kiv::UniqueId id, const IpRule& rule) { list.ipRuleByIdIs(id, rule); }
void ruleIs(Acl::AclSubConfig& list, Kiv::UniqueId id, const Ip6Rule& rule) { list.ip6RuleByIdIs(id, rule); }
void ruleIs(Acl::AclSubConfig& list, Kiv::UniqueId id, const MacRule& rule) { list.macRuleByIdIs(id, rule); }
template <class Rule>
void ruleDelById(Acl::AclSubConfig& list, Kiv::UniqueId id) {
  if constexpr (std::is_same_v<Rule, IpRule>) list.ipRuleByIdDel(id);
  if constexpr (std::is_same_v<Rule, Ip6Rule>) list.ip6RuleByIdDel(id);
  if constexpr (std::is_same_v<Rule, MacRule>) list.macRuleByIdDel(id);
}

Kiv::UniqueId idOf(size_t i) { return Kiv::UniqueId(uint64_t{i} + 1); }

template <class Packet, class Answer>
uint64_t each(const std::vector<Packet>& packets, Portion portion, const Answer& answer) {
  return answerEach(
      portion, [&](size_t i) { __builtin_prefetch(&packets[i]); },
      [&](size_t i) { return answer(packets[i]); });
}

template <class Entry>
int32_t placeOf(const Entry* entry) {
  return entry ? static_cast<int32_t>(entry->value.sequence()) - 1 : noRule;
}

template <class Entry>
uint64_t numberOf(const Entry* entry) {
  return reinterpret_cast<uintptr_t>(entry);
}

template <class Rule>
Kelp::Ptr<Acl::AclSubConfig> filledWith(const std::vector<Rule>& rules) {
  const auto made = MemSlab::make<Acl::AclSubConfig>();
  for (size_t i = 0; i < rules.size(); ++i) ruleIs(*made, idOf(i), rules[i]);
  return made;
}

}  // namespace

template <class Rule>
OurList<Rule>::OurList(const std::vector<Rule>& rules) : rules_(rules) {
  const int64_t before = allocations().liveBytes;
  const double start = processorTime();
  filled_ = filledWith(rules_);
  fillNs_ = processorTime() - start;
  filled_->compile(Acl::listTypeOf<Rule>);
  compileNs_ = processorTime() - start - fillNs_;
  const auto list = MemSlab::make<Acl::AclConfig>(Kelp::String("L"));
  list->currCfgIs(filled_);
  list_ = list;
  bytes_ = allocations().liveBytes - before;
}

template <class Rule>
int32_t OurList<Rule>::lookUp(const Packet& packet) const {
  return placeOf(first(packet, rulesOf<Rule>(*filled_)));
}

template <class Rule>
int32_t OurList<Rule>::inOrder(const Packet& packet) const {
  return placeOf(firstInOrder(packet, rulesOf<Rule>(*filled_)));
}

template <class Rule>
int32_t OurList<Rule>::match(const Packet& packet) const {
  typename Rule::Config rule;
  Kiv::UniqueId id;
  return Bench::match(packet, list_, &rule, &id) ? static_cast<int32_t>(rule.sequence()) - 1 : noRule;
}

template <class Rule>
uint64_t OurList<Rule>::lookUps(const std::vector<Packet>& packets, Portion portion) const {
  const auto& rules = rulesOf<Rule>(*filled_);
  return each(packets, portion, [&rules](const Packet& packet) { return numberOf(first(packet, rules)); });
}

template <class Rule>
uint64_t OurList<Rule>::inOrder(const std::vector<Packet>& packets, Portion portion) const {
  const auto& rules = rulesOf<Rule>(*filled_);
  return each(packets, portion,
              [&rules](const Packet& packet) { return numberOf(firstInOrder(packet, rules)); });
}

template <class Rule>
uint64_t OurList<Rule>::matches(const std::vector<Packet>& packets, Portion portion) const {
  typename Rule::Config rule;
  Kiv::UniqueId id;
  return each(packets, portion,
              [&](const Packet& packet) { return Bench::match(packet, list_, &rule, &id) ? id.value() : 0; });
}

template <class Rule>
template <class Take>
void OurList<Rule>::eachBurst(const std::vector<Packet>& packets, size_t count, const Take& take) const {
  const auto& rules = rulesOf<Rule>(*filled_);
  constexpr uint32_t most = Classify::burstMost;
  std::array<decltype(first(packets[0], rules)), most> found;
  for (size_t at = 0; at < count; at += most) {
    const auto size = static_cast<uint32_t>(std::min<size_t>(most, count - at));
    for (size_t i = at + most; i < at + 2 * most && i < count; ++i) __builtin_prefetch(&packets[i]);
    firstOfBurst(&packets[at], size, rules, found.data());
    for (uint32_t i = 0; i < size; ++i) take(found[i]);
  }
}

template <class Rule>
uint64_t OurList<Rule>::bursts(const std::vector<Packet>& packets, Portion portion) const {
  uint64_t all = 0;
  eachBurst(packets, portion.count, [&all](const auto* entry) { all += numberOf(entry); });
  return all;
}

template <class Rule>
std::vector<int32_t> OurList<Rule>::lookUpBursts(const std::vector<Packet>& packets) const {
  std::vector<int32_t> places;
  eachBurst(packets, packets.size(), [&places](const auto* entry) { places.push_back(placeOf(entry)); });
  return places;
}

template <class Rule>
void OurList<Rule>::ruleDel(size_t i) {
  ruleDelById<Rule>(*filled_, idOf(i));
}

template <class Rule>
void OurList<Rule>::ruleIs(size_t i) {
  Bench::ruleIs(*filled_, idOf(i), rules_[i]);
}

template <class Rule>
int64_t OurList<Rule>::lookUpBytes() const {
  return static_cast<int64_t>(rulesOf<Rule>(*filled_).compiled()->bytes());
}

template class OurList<Acl::IpRule>;
template class OurList<Acl::Ip6Rule>;
template class OurList<Acl::MacRule>;

}  // namespace Bench
