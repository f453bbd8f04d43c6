#pragma once

#include <Nimnet/IpHdr.h>
#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

#include "../../Acl/DifferentialModel.h"
#include "../../support/Sanitizers.h"

#include <cstdlib>
#include <vector>

namespace TestSupport {

/// How much more than in the ordinary tests is tried: VELO_PROOF_TIMES.
inline size_t proofTimes() {
  const char* times = std::getenv("VELO_PROOF_TIMES");
  return times ? static_cast<size_t>(std::atoll(times)) : 1;
}
/// How many random cases a test has that otherwise has `count` of them.
inline size_t proofCases(int count) { return static_cast<size_t>(casesOf(count)) * proofTimes(); }

template <class Rule>
constexpr Acl::AclType typeOf = std::is_same_v<Rule, Acl::IpRule>    ? Acl::AclType::ip
                                : std::is_same_v<Rule, Acl::Ip6Rule> ? Acl::AclType::ipv6
                                                                     : Acl::AclType::mac;

/// Rules that the language can say.
template <class Rule>
Rule sayable(Rule rule) {
  if constexpr (std::is_same_v<Rule, Acl::IpRule>) {
    const auto change = [](Acl::IpFilter& filter) {
      filter.trafficClassMask &= 0xfc;
      filter.trafficClass &= 0xfc;
    };
    change(rule.filter);
    if (rule.filter.alternatives.given()) {
      auto all = rule.filter.alternatives.all();
      for (Acl::IpFilter& each : all) change(each);
      rule.filter.alternatives = Acl::Alternatives<Acl::IpFilter>(std::move(all));
    }
  }
  return rule;
}

/// A list of these rules; of those with the same number it has the last.
template <class Rule>
Config::List configList(const std::vector<Rule>& rules) {
  Config::List list;
  list.type = typeOf<Rule>;
  list.name = "L";
  for (const Rule& rule : rules) list.rules.insert_or_assign(rule.sequence, Config::Rule(rule));
  return list;
}

/// Whether packets reach a list of a kind so; what only malformed ones have is taken from it first.
template <class Rule>
bool isReal(Differential::Fields& packet) {
  using Differential::L4;
  packet.vlanKnown = packet.hopsKnown = packet.protocolKnown = true;
  packet.l4 = L4::none;
  if (std::is_same_v<Rule, Acl::MacRule>) return true;
  if (packet.later) return true;
  const bool six = std::is_same_v<Rule, Acl::Ip6Rule>;
  const int p = packet.protocol;
  packet.l4 = p == 6                ? L4::tcp
              : p == 17             ? L4::udp
              : p == 132            ? L4::sctp
              : p == (six ? 58 : 1) ? L4::icmp
                                    : L4::none;
  return !(six && (p == 0 || p == 43 || p == 44 || p == 51 || p == 60));
}

inline Proof::Packet proofPacket(const Differential::Fields& from) {
  using Proof::Field;
  const auto wide = [](Differential::U128 value) {
    return Proof::Value{static_cast<uint64_t>(value >> 64), static_cast<uint64_t>(value)};
  };
  Proof::Packet packet;
  packet[Field::source] = wide(from.source);
  packet[Field::destination] = wide(from.destination);
  for (const auto& [field, value] : {std::pair<Field, uint64_t>{Field::later, from.later ? 1 : 0},
                                     {Field::protocol, from.protocol},
                                     {Field::sourcePort, from.sourcePort},
                                     {Field::destinationPort, from.destinationPort},
                                     {Field::tcpFlags, from.flags},
                                     {Field::icmpType, from.icmpType},
                                     {Field::icmpCode, from.icmpCode},
                                     {Field::trafficClass, from.trafficClass},
                                     {Field::hops, from.hops},
                                     {Field::etherType, from.etherType},
                                     {Field::vlan, from.vlan}})
    packet[field] = {0, value};
  return packet;
}

inline Differential::Fields fieldsOf(const Proof::Packet& from) {
  using Proof::Field;
  const auto wide = [&from](Field field) {
    return (Differential::U128{from[field].high} << 64) | from[field].low;
  };
  Differential::Fields packet;
  packet.source = wide(Field::source);
  packet.destination = wide(Field::destination);
  packet.later = from[Field::later].low != 0;
  for (const auto& [value, field] : {std::pair(&packet.protocol, Field::protocol),
                                     {&packet.trafficClass, Field::trafficClass},
                                     {&packet.hops, Field::hops},
                                     {&packet.flags, Field::tcpFlags},
                                     {&packet.icmpType, Field::icmpType},
                                     {&packet.icmpCode, Field::icmpCode}})
    *value = static_cast<uint8_t>(from[field].low);
  for (const auto& [value, field] : {std::pair(&packet.vlan, Field::vlan),
                                     {&packet.sourcePort, Field::sourcePort},
                                     {&packet.destinationPort, Field::destinationPort},
                                     {&packet.etherType, Field::etherType}})
    *value = static_cast<uint16_t>(from[field].low);
  return packet;
}

}  // namespace TestSupport
