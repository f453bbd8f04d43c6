#include "DifferentialModel.h"

#include <fmt/format.h>

#include <algorithm>

namespace TestSupport::Differential {

namespace {

using Acl::Compare;
using Acl::Ip6Rule;
using Acl::Ip6RuleConfig;
using Acl::IpRule;
using Acl::IpRuleConfig;
using Acl::MacRule;
using Acl::MacRuleConfig;

struct Interval {
  int low, high;
};

/// The ports that a condition allows.
std::vector<Interval> allowed(const Acl::PortMatch& asked) {
  const int a = asked.ports[0], b = asked.ports[1];
  switch (asked.op) {
    case Compare::any:
      return {{0, 65535}};
    case Compare::lt:
      return {{0, a - 1}};
    case Compare::gt:
      return {{a + 1, 65535}};
    case Compare::range:
      return {{a, b}};
    default:
      break;
  }
  std::vector<int> operands(asked.ports.begin(), asked.ports.begin() + asked.count);
  std::sort(operands.begin(), operands.end());
  std::vector<Interval> all;
  if (asked.op == Compare::eq) {
    for (const int operand : operands) all.push_back({operand, operand});
    return all;
  }
  int next = 0;
  for (const int operand : operands) {
    all.push_back({next, operand - 1});
    next = operand + 1;
  }
  all.push_back({next, 65535});
  return all;
}

bool isIn(const std::vector<Interval>& intervals, int number) {
  return std::any_of(intervals.begin(), intervals.end(),
                     [number](Interval in) { return in.low <= number && number <= in.high; });
}

std::bitset<256> allowedHops(const Acl::HopMatch& asked) {
  std::bitset<256> hops;
  for (unsigned i = 0; i < 256; ++i) {
    const bool met[] = {true, i == asked.value, i != asked.value, i<asked.value, i> asked.value, false};
    hops[i] = met[static_cast<size_t>(asked.op)];
  }
  return hops;
}

U128 number(Nimnet::IpAddr a) { return a.value; }
U128 number(const Nimnet::Ip6Addr& a) { return U128{a.high} << 64 | a.low; }
U128 number(const Nimnet::EthAddr& a) {
  U128 all = 0;
  for (const uint8_t octet : a.bytes) all = all * 256 + octet;
  return all;
}

void put(uint8_t* at, size_t octets, U128 value) {
  while (octets-- > 0) {
    at[octets] = static_cast<uint8_t>(value);
    value >>= 8;
  }
}

/// The one L4 header of a packet in the octets of a frame.
struct L4Octets {
  alignas(8) uint8_t octets[20] = {};
  const L4 kind;

  explicit L4Octets(const Fields& f) : kind(f.l4) {
    if (kind == L4::icmp) {
      octets[0] = f.icmpType;
      octets[1] = f.icmpCode;
      put(octets + 2, 2, 0xa55a);  // a checksum, which no rule asks for
      return;
    }
    put(octets, 2, f.sourcePort);
    put(octets + 2, 2, f.destinationPort);
    octets[12] = 0x50;
    octets[13] = f.flags;
  }
  /// `icmp`: what ICMP is called in this version of IP. What is read where there is no header decides
  /// nothing.
  Nimnet::L4 hdr(Nimnet::L4Kind icmp) const {
    using Nimnet::L4Kind;
    const L4Kind kinds[] = {L4Kind::none, L4Kind::tcp, L4Kind::udp, L4Kind::sctp, icmp};
    return {kinds[static_cast<size_t>(kind)], octets};
  }
};

std::string text(const Acl::PortMatch& port) {
  static constexpr const char* names[] = {"any", "eq", "neq", "lt", "gt", "range"};
  return fmt::format("{} {}", names[static_cast<size_t>(port.op)],
                     fmt::join(port.ports.begin(), port.ports.begin() + port.count, " "));
}

std::string text(const Acl::VlanMatch& vlan) {
  return vlan.named ? fmt::format(" vlan {} wildcard {:#x}", vlan.id, vlan.wildcard) : "";
}

template <class Rule>
std::string describeIp(const Rule& rule) {
  const auto& f = rule.filter;
  std::string all =
      fmt::format("{} {} {}&{} -> {}&{}", rule.sequence, stringValue(rule.action), f.source.str(),
                  f.sourceMask.str(), f.destination.str(), f.destinationMask.str());
  if (f.protocolNamed) all += fmt::format(" protocol {}", f.protocol);
  if (!f.sourcePort.isAny()) all += " from " + text(f.sourcePort);
  if (!f.destinationPort.isAny()) all += " to " + text(f.destinationPort);
  if (f.icmpTypeNamed) all += fmt::format(" type {}", f.icmpType);
  if (f.icmpCodeNamed) all += fmt::format(" code {}", f.icmpCode);
  if (f.established) all += " established";
  if (f.tcpFlags) all += fmt::format(" flags {:#x}", f.tcpFlags);
  if (f.trafficClassMask) all += fmt::format(" class {:#x}&{:#x}", f.trafficClass, f.trafficClassMask);
  if (!f.hops.isAny()) all += fmt::format(" hops op {} {}", static_cast<int>(f.hops.op), f.hops.value);
  if (f.fragments) all += " fragments";
  if (f.alternatives.given()) {
    all += " any of";
    for (const auto& filter : f.alternatives.all()) {
      Rule each = rule;
      each.filter = filter;
      all += " (" + describeIp(each) + ")";
    }
  }
  return all + text(f.vlan);
}

}  // namespace

/// What a rule, or one of the filters that it stands for, asks beside the addresses.
template <class Rule>
struct Oracle<Rule>::Conditions {
  const Rule rule;
  const typename Rule::FilterType asked;
  std::vector<Interval> sourcePorts, destinationPorts;
  std::bitset<256> hops;

  Conditions(const Rule& r, const typename Rule::FilterType& filter) : rule(r), asked(filter) {
    if constexpr (!std::is_same_v<Rule, MacRule>) {
      sourcePorts = allowed(asked.sourcePort);
      destinationPorts = allowed(asked.destinationPort);
      hops = allowedHops(asked.hops);
    }
  }

  bool vlanMet(const Fields& p) const {
    const auto& vlan = asked.vlan;
    return !vlan.named ||
           (p.vlanKnown && (p.vlan | vlan.wildcard) % 4096 == (vlan.id | vlan.wildcard) % 4096);
  }

  bool met(const Fields& p) const {
    const auto& f = asked;
    if constexpr (std::is_same_v<Rule, MacRule>) {
      return vlanMet(p) && (!f.etherTypeNamed || f.etherType == p.etherType) && !f.mpls.labelNamed() &&
             !f.mpls.innerLabelNamed();
    } else {
      if (f.protocolNamed && (!p.protocolKnown || p.protocol != f.protocol)) return false;
      if ((p.trafficClass & f.trafficClassMask) != (f.trafficClass & f.trafficClassMask)) return false;
      if (f.fragments && !p.later) return false;
      if (f.hops.op != Compare::any && (!p.hopsKnown || !hops[p.hops])) return false;
      const bool ports = p.l4 == L4::tcp || p.l4 == L4::udp || p.l4 == L4::sctp;
      if (f.sourcePort.op != Compare::any && !(ports && isIn(sourcePorts, p.sourcePort))) return false;
      if (f.destinationPort.op != Compare::any && !(ports && isIn(destinationPorts, p.destinationPort)))
        return false;
      const uint8_t flags = p.l4 == L4::tcp ? p.flags : 0;
      constexpr uint8_t ackOrRst = 0x14;
      if (f.established && !(flags & ackOrRst)) return false;
      if ((flags & f.tcpFlags) != f.tcpFlags) return false;
      if (f.icmpTypeNamed && !(p.l4 == L4::icmp && p.icmpType == f.icmpType)) return false;
      if (f.icmpCodeNamed && !(p.l4 == L4::icmp && p.icmpCode == f.icmpCode)) return false;
      return vlanMet(p);
    }
  }
};

template <class Rule>
void Oracle<Rule>::ruleIs(Kiv::UniqueId id, const Rule& rule) {
  ruleDel(id);
  const auto add = [&](const typename Rule::FilterType& f) {
    const std::array<U128, 2> mask{number(f.sourceMask), number(f.destinationMask)};
    const Place place{rule.sequence,
                      id,
                      {number(f.source) & mask[0], number(f.destination) & mask[1]},
                      mask,
                      std::make_shared<Conditions>(rule, f)};
    places_.insert(std::lower_bound(places_.begin(), places_.end(), place), place);
  };
  sequences_[id.value()] = rule.sequence;
  if constexpr (!std::is_same_v<Rule, MacRule>) {
    if (rule.filter.alternatives.given()) {
      for (const auto& each : rule.filter.alternatives.all()) add(each);
      return;
    }
  }
  add(rule.filter);
}

template <class Rule>
void Oracle<Rule>::ruleDel(Kiv::UniqueId id) {
  const auto known = sequences_.find(id.value());
  if (known == sequences_.end()) return;
  const Place place{known->second, id, {}, {}, nullptr};
  const auto [first, last] = std::equal_range(places_.begin(), places_.end(), place);
  places_.erase(first, last);
  sequences_.erase(known);
}

template <class Rule>
void Oracle<Rule>::clear() {
  places_.clear();
  sequences_.clear();
}

template <class Rule>
auto Oracle<Rule>::first(const Fields& packet) const -> Answer {
  for (const Place& place : places_) {
    if ((packet.source & place.mask[0]) != place.value[0]) continue;
    if ((packet.destination & place.mask[1]) != place.value[1]) continue;
    if (place.conditions->met(packet)) return {&place.conditions->rule, place.id};
  }
  return {nullptr, {}};
}

template class Oracle<IpRule>;
template class Oracle<Ip6Rule>;
template class Oracle<MacRule>;

namespace {

/// A packet's headers as its frame has them, and what the matchers are given of them. Does not move.
template <class Rule>
struct Headers;

template <>
struct Headers<IpRule> {
  explicit Headers(const Fields& fields) : f(fields), l4(fields) {
    ip.bytes[0] = 0x45;
    ip.bytes[1] = f.trafficClass;
    put(ip.bytes + 6, 2, f.later ? 0x2007u : 0x4000u);
    ip.bytes[8] = f.hops;
    ip.bytes[9] = f.protocol;
    put(ip.bytes + 12, 4, f.source);
    put(ip.bytes + 16, 4, f.destination);
  }
  Acl::IpPacket packet() const {
    return {{ip, l4.hdr(Nimnet::L4Kind::icmp), f.vlan, f.vlanKnown, f.hopsKnown}};
  }

  const Fields& f;
  Nimnet::IpHdr ip{};
  const L4Octets l4;
};

template <>
struct Headers<Ip6Rule> {
  explicit Headers(const Fields& fields)
      : f(fields),
        ip(fixed, {.protocol = f.protocol,
                   .protocolKnown = f.protocolKnown,
                   .hasFragmentHeader = f.later,
                   .moreFragments = f.later,
                   .fragmentOffset = static_cast<uint16_t>(f.later ? 7 : 0)}),
        l4(fields) {
    put(fixed, 2, 0x6000u | static_cast<unsigned>(f.trafficClass << 4));
    fixed[6] = f.later ? 44 : f.protocol;
    fixed[7] = f.hops;
    put(fixed + 8, 16, f.source);
    put(fixed + 24, 16, f.destination);
  }
  Acl::Ip6Packet packet() const {
    return {{ip, l4.hdr(Nimnet::L4Kind::icmp6), f.vlan, f.vlanKnown, f.hopsKnown}};
  }

  const Fields& f;
  uint8_t fixed[Nimnet::Ip6Hdr::size] = {};
  const Nimnet::Ip6Hdr ip;
  const L4Octets l4;
};

template <>
struct Headers<MacRule> {
  explicit Headers(const Fields& fields) : f(fields) {
    put(source.bytes.data(), 6, f.source);
    put(destination.bytes.data(), 6, f.destination);
  }
  Acl::MacPacket packet() const {
    return {source.bytes.data(), destination.bytes.data(), f.etherType, f.vlan};
  }

  const Fields& f;
  Nimnet::EthAddr source, destination;
};

template <class Rule>
BurstAnswers answersOf(const std::vector<Fields>& packets, const Acl::RuleMap<typename Rule::Config>& rules) {
  std::vector<std::unique_ptr<const Headers<Rule>>> headers;
  for (const Fields& packet : packets) headers.push_back(std::make_unique<Headers<Rule>>(packet));
  const auto size = static_cast<uint32_t>(packets.size());
  std::vector<const typename Acl::RuleMap<typename Rule::Config>::Entry*> found(size);
  Acl::firstRules(
      rules, size, [&headers](uint32_t i) { return headers[i]->packet(); }, found.data());
  BurstAnswers answers;
  for (const auto* entry : found) answers.push_back(entry ? std::optional(entry->key) : std::nullopt);
  return answers;
}

}  // namespace

bool askMatcher(const Fields& f, const Kelp::Ptr<const Acl::AclConfig>& list, IpRuleConfig* rule,
                Kiv::UniqueId* id) {
  const Headers<IpRule> headers(f);
  const Acl::IpPacket p = headers.packet();
  return Acl::matchesIpAclRule(&p.ip, p.l4.as<Nimnet::IcmpHdr>(), p.l4.as<Nimnet::TcpHdr>(),
                               p.l4.as<Nimnet::UdpHdr>(), p.l4.as<Nimnet::SctpHdr>(), f.vlan, list, rule, id,
                               f.vlanKnown, f.hopsKnown);
}

bool askMatcher(const Fields& f, const Kelp::Ptr<const Acl::AclConfig>& list, Ip6RuleConfig* rule,
                Kiv::UniqueId* id) {
  const Headers<Ip6Rule> headers(f);
  const Acl::Ip6Packet p = headers.packet();
  return Acl::matchesIp6AclRule(&p.ip, p.l4.as<Nimnet::Icmp6Hdr>(), p.l4.as<Nimnet::TcpHdr>(),
                                p.l4.as<Nimnet::UdpHdr>(), p.l4.as<Nimnet::SctpHdr>(), f.vlan, list, rule, id,
                                f.vlanKnown, f.hopsKnown);
}

bool askMatcher(const Fields& f, const Kelp::Ptr<const Acl::AclConfig>& list, MacRuleConfig* rule,
                Kiv::UniqueId* id) {
  const Headers<MacRule> headers(f);
  return Acl::matchesMacAclNoHdr(headers.source, headers.destination, f.etherType, f.vlan, list, rule, id);
}

BurstAnswers askBurst(const std::vector<Fields>& packets, const Acl::AclSubConfig& list, const IpRule&) {
  return answersOf<IpRule>(packets, list.ipRuleById());
}
BurstAnswers askBurst(const std::vector<Fields>& packets, const Acl::AclSubConfig& list, const Ip6Rule&) {
  return answersOf<Ip6Rule>(packets, list.ip6RuleById());
}
BurstAnswers askBurst(const std::vector<Fields>& packets, const Acl::AclSubConfig& list, const MacRule&) {
  return answersOf<MacRule>(packets, list.macRuleById());
}

std::string describe(const IpRule& rule) { return describeIp(rule); }
std::string describe(const Ip6Rule& rule) { return describeIp(rule); }
std::string describe(const MacRule& rule) {
  const auto& f = rule.filter;
  std::string all =
      fmt::format("{} {} {}&{} -> {}&{}", rule.sequence, stringValue(rule.action), f.source.str(),
                  f.sourceMask.str(), f.destination.str(), f.destinationMask.str());
  if (f.etherTypeNamed) all += fmt::format(" type {:#x}", f.etherType);
  if (f.mpls.labelNamed() || f.mpls.innerLabelNamed()) all += " mpls";
  return all + text(f.vlan);
}

std::string Fields::str() const {
  static constexpr const char* names[] = {"none", "tcp", "udp", "sctp", "icmp"};
  return fmt::format(
      "{:016x}{:016x} -> {:016x}{:016x} protocol {}{} class {:#x} hops {}{}{} vlan {}{} l4 {} ports {} {} "
      "flags {:#x} "
      "icmp {} {} type {:#x}",
      static_cast<uint64_t>(source >> 64), static_cast<uint64_t>(source),
      static_cast<uint64_t>(destination >> 64), static_cast<uint64_t>(destination), protocol,
      protocolKnown ? "" : " (unknown)", trafficClass, hops, hopsKnown ? "" : " (unknown)",
      later ? " later fragment" : "", vlan, vlanKnown ? "" : " (unknown)", names[static_cast<size_t>(l4)],
      sourcePort, destinationPort, flags, icmpType, icmpCode, etherType);
}

}  // namespace TestSupport::Differential
