#include <Acl/MatchFields.h>

#include "MatchSupport.h"

// What each field of an IPv4 filter asks for, and in which order rules are tried. The fields that IPv6 shares
// are held once more against IPv6 packets in MatchIp6Test.cpp.

namespace {

using namespace TestSupport;
using namespace Acl;
using F = IpFilter;
using Row = FilterRow<IpRule>;

constexpr const char* a = "192.0.2.1";
constexpr const char* b = "198.51.100.7";

FrameBuilder ip() { return frame().eth().ip4(a, b); }
Bytes tcp(uint16_t from = 1024, uint16_t to = 443) { return ip().tcp(from, to); }
Bytes udp(uint16_t from = 1024, uint16_t to = 443) { return ip().udp(from, to); }
Bytes sctp(uint16_t from = 1024, uint16_t to = 443) { return ip().sctp(from, to); }
Bytes flags(uint8_t value) { return ip().tcp(1, 2).flags(value); }
Bytes icmp(uint8_t type, uint8_t code = 0) { return ip().icmp(type, code); }

template <Compare Op, uint16_t First, uint16_t Second = 0, uint8_t Count = 1>
void to(F& f) {
  f.destinationPort = {Op, Count, {First, Second}};
}
template <Compare Op, uint16_t First, uint16_t Second = 0, uint8_t Count = 1>
void from(F& f) {
  f.sourcePort = {Op, Count, {First, Second}};
}

TEST(MatchIp, Addresses) {
  checkFilters<IpRule>({
      {"an empty filter matches every IPv4 packet", [](F&) {}, tcp(), true},
      {"a host", [](F& f) { f.source = ip4(a), f.sourceMask = {~0u}; }, tcp(), true},
      {"another host", [](F& f) { f.source = ip4("192.0.2.2"), f.sourceMask = {~0u}; }, tcp(), false},
      {"the destination is not the source", [](F& f) { f.source = ip4(b), f.sourceMask = {~0u}; }, tcp(),
       false},
      {"a destination", [](F& f) { f.destination = ip4(b), f.destinationMask = {~0u}; }, tcp(), true},
      {"another destination", [](F& f) { f.destination = ip4(a), f.destinationMask = {~0u}; }, tcp(), false},
      {"a prefix", [](F& f) { f.source = ip4("192.0.2.0"), f.sourceMask = ip4("255.255.255.0"); }, tcp(),
       true},
      {"a prefix beside it", [](F& f) { f.source = ip4("192.0.3.0"), f.sourceMask = ip4("255.255.255.0"); },
       tcp(), false},
      {"bits beyond the mask do not count",
       [](F& f) { f.source = ip4("192.0.2.99"), f.sourceMask = ip4("255.255.255.0"); }, tcp(), true},
      {"mask bits anywhere: odd last octets",
       [](F& f) { f.source = ip4("0.0.0.1"), f.sourceMask = ip4("0.0.0.1"); }, tcp(), true},
      {"mask bits anywhere: even last octets",
       [](F& f) { f.source = ip4("0.0.0.0"), f.sourceMask = ip4("0.0.0.1"); }, tcp(), false},
      {"the top bit alone", [](F& f) { f.source = ip4("128.0.0.0"), f.sourceMask = ip4("128.0.0.0"); }, tcp(),
       true},
  });
}

TEST(MatchIp, Protocol) {
  checkFilters<IpRule>({
      {"tcp", [](F& f) { f.protocolNamed = true, f.protocol = 6; }, tcp(), true},
      {"not udp", [](F& f) { f.protocolNamed = true, f.protocol = 6; }, udp(), false},
      {"protocol 0 can be named", [](F& f) { f.protocolNamed = true, f.protocol = 0; }, tcp(), false},
      {"and met", [](F& f) { f.protocolNamed = true, f.protocol = 0; }, ip().protocol(0).payload(8), true},
      {"protocol 255", [](F& f) { f.protocolNamed = true, f.protocol = 255; }, ip().protocol(255).payload(8),
       true},
      {"a number that is not named does not count", [](F& f) { f.protocol = 17; }, tcp(), true},
  });
}

TEST(MatchIp, Ports) {
  using enum Compare;
  checkFilters<IpRule>({
      {"eq", to<eq, 443>, tcp(), true},
      {"eq, one below", to<eq, 443>, tcp(1, 442), false},
      {"eq, one above", to<eq, 443>, tcp(1, 444), false},
      {"of the destination, not the source", to<eq, 1024>, tcp(), false},
      {"source", from<eq, 1024>, tcp(), true},
      {"source, not destination", from<eq, 443>, tcp(), false},
      {"eq the second of two", to<eq, 80, 443, 2>, tcp(), true},
      {"eq none of two", to<eq, 80, 444, 2>, tcp(), false},
      {"what is beyond the count does not count", to<eq, 80, 443, 1>, tcp(), false},
      {"eq port 0", to<eq, 0>, tcp(1, 0), true},
      {"neq", to<neq, 443>, tcp(), false},
      {"neq another", to<neq, 442>, tcp(), true},
      {"neq either of two", to<neq, 80, 443, 2>, tcp(), false},
      {"neq two others", to<neq, 80, 81, 2>, tcp(), true},
      {"lt, below", to<lt, 443>, tcp(1, 442), true},
      {"lt, at", to<lt, 443>, tcp(), false},
      {"lt 0 is nothing", to<lt, 0>, tcp(1, 0), false},
      {"gt, above", to<gt, 443>, tcp(1, 444), true},
      {"gt, at", to<gt, 443>, tcp(), false},
      {"gt 65535 is nothing", to<gt, 65535>, tcp(1, 65535), false},
      {"gt 65534 is 65535", to<gt, 65534>, tcp(1, 65535), true},
      {"range, its low end", to<range, 443, 445, 2>, tcp(1, 443), true},
      {"range, its high end", to<range, 443, 445, 2>, tcp(1, 445), true},
      {"range, below", to<range, 443, 445, 2>, tcp(1, 442), false},
      {"range, above", to<range, 443, 445, 2>, tcp(1, 446), false},
      {"a range of one", to<range, 443, 443, 2>, tcp(), true},
      {"the whole range", to<range, 0, 65535, 2>, tcp(1, 65535), true},
      {"of UDP", to<eq, 443>, udp(), true},
      {"of SCTP", to<eq, 443>, sctp(), true},
      {"SCTP, another", to<eq, 443>, sctp(1, 442), false},
      {"SCTP source", from<range, 1000, 1024, 2>, sctp(), true},
      {"ICMP has no ports", to<neq, 443>, icmp(8), false},
      {"nor has a protocol that is not read", to<neq, 443>, ip().protocol(99).payload(20), false},
  });
  for (uint8_t place = 0; place < PortMatch::maxPorts; ++place) {
    PortMatch ten{eq, PortMatch::maxPorts, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
    EXPECT_TRUE(ten.matches(static_cast<uint16_t>(place + 1))) << "the last of ten counts like the first";
    ten.op = neq;
    EXPECT_FALSE(ten.matches(static_cast<uint16_t>(place + 1)));
  }
}

TEST(MatchIp, IcmpMessages) {
  checkFilters<IpRule>({
      {"type", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 8; }, icmp(8), true},
      {"another type", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 8; }, icmp(0), false},
      {"type 0 can be named", [](F& f) { f.icmpTypeNamed = true; }, icmp(0), true},
      {"and told from others", [](F& f) { f.icmpTypeNamed = true; }, icmp(8), false},
      {"type and code",
       [](F& f) { f.icmpTypeNamed = f.icmpCodeNamed = true, f.icmpType = 3, f.icmpCode = 4; }, icmp(3, 4),
       true},
      {"another code", [](F& f) { f.icmpTypeNamed = f.icmpCodeNamed = true, f.icmpType = 3, f.icmpCode = 4; },
       icmp(3, 3), false},
      {"a code of any type", [](F& f) { f.icmpCodeNamed = true, f.icmpCode = 4; }, icmp(3, 4), true},
      {"another one", [](F& f) { f.icmpCodeNamed = true, f.icmpCode = 4; }, icmp(4, 3), false},
      {"any code", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 3; }, icmp(3, 4), true},
      {"TCP is no ICMP message", [](F& f) { f.icmpTypeNamed = true; }, tcp(0, 0), false},
      {"ICMPv6 inside IPv4 has no message", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 128; },
       ip().icmp6(128), false},
  });
}

TEST(MatchIp, TcpFlags) {
  checkFilters<IpRule>({
      {"established by ACK", [](F& f) { f.established = true; }, flags(Ack), true},
      {"established by RST", [](F& f) { f.established = true; }, flags(Rst), true},
      {"a first SYN is not established", [](F& f) { f.established = true; }, flags(Syn), false},
      {"every other flag is not either", [](F& f) { f.established = true; }, flags(0xff & ~(Ack | Rst)),
       false},
      {"UDP is never established", [](F& f) { f.established = true; }, udp(), false},
      {"a named flag is set", [](F& f) { f.tcpFlags = Syn; }, flags(Syn), true},
      {"others may be set, too", [](F& f) { f.tcpFlags = Syn; }, flags(Syn | Ack | Ece), true},
      {"all named flags", [](F& f) { f.tcpFlags = Syn | Ack; }, flags(Syn | Ack), true},
      {"one of two is not enough", [](F& f) { f.tcpFlags = Syn | Ack; }, flags(Ack), false},
      {"fin", [](F& f) { f.tcpFlags = Fin; }, flags(Fin), true},
      {"rst", [](F& f) { f.tcpFlags = Rst; }, flags(0xff & ~Rst), false},
      {"psh", [](F& f) { f.tcpFlags = Psh; }, flags(Psh), true},
      {"urg", [](F& f) { f.tcpFlags = Urg; }, flags(0xff & ~Urg), false},
      {"UDP has none", [](F& f) { f.tcpFlags = Fin; }, udp(0xffff, 0xffff), false},
  });
}

TEST(MatchIp, TrafficClassAndItsMask) {
  checkFilters<IpRule>({
      {"a DSCP", [](F& f) { f.trafficClass = 46 << 2, f.trafficClassMask = 0xfc; },
       ip().tos(46 << 2).tcp(1, 2), true},
      {"of any ECN", [](F& f) { f.trafficClass = 46 << 2, f.trafficClassMask = 0xfc; },
       ip().tos(46 << 2 | 3).tcp(1, 2), true},
      {"another DSCP", [](F& f) { f.trafficClass = 46 << 2, f.trafficClassMask = 0xfc; },
       ip().tos(45 << 2).tcp(1, 2), false},
      {"DSCP 0 is asked for by its mask", [](F& f) { f.trafficClassMask = 0xfc; }, ip().tos(4).tcp(1, 2),
       false},
      {"and met", [](F& f) { f.trafficClassMask = 0xfc; }, ip().tos(3).tcp(1, 2), true},
      {"a mask compares its own bits only", [](F& f) { f.trafficClass = 0x80, f.trafficClassMask = 0xe0; },
       ip().tos(0x9f).tcp(1, 2), true},
      {"and all of these", [](F& f) { f.trafficClass = 0x80, f.trafficClassMask = 0xe0; },
       ip().tos(0xbf).tcp(1, 2), false},
      {"all eight bits", [](F& f) { f.trafficClass = 0x21, f.trafficClassMask = 0xff; },
       ip().tos(0x20).tcp(1, 2), false},
      {"no mask, no question", [](F& f) { f.trafficClass = 0x21; }, ip().tos(0x20).tcp(1, 2), true},
  });
}

template <Compare Op, uint8_t Value>
void hops(F& f) {
  f.hops = {Op, Value};
}

TEST(MatchIp, TimeToLive) {
  using enum Compare;
  const auto ttl = [](uint8_t value) -> Bytes { return ip().ttl(value).tcp(1, 2); };
  checkFilters<IpRule>({
      {"eq", hops<eq, 255>, ttl(255), true},
      {"eq, below", hops<eq, 255>, ttl(254), false},
      {"eq 0", hops<eq, 0>, ttl(0), true},
      {"neq", hops<neq, 64>, ttl(64), false},
      {"neq another", hops<neq, 64>, ttl(63), true},
      {"lt, below", hops<lt, 64>, ttl(63), true},
      {"lt, at", hops<lt, 64>, ttl(64), false},
      {"lt 0 is nothing", hops<lt, 0>, ttl(0), false},
      {"gt, above", hops<gt, 64>, ttl(65), true},
      {"gt, at", hops<gt, 64>, ttl(64), false},
      {"gt 255 is nothing", hops<gt, 255>, ttl(255), false},
  });
}

TEST(MatchIp, VlanOfTheOuterTag) {
  const auto tagged = [](uint16_t id) -> Bytes { return frame().eth().vlan(id).ip4(a, b).tcp(1, 2); };
  checkFilters<IpRule>({
      {"the id",
       [](F& f) {
         f.vlan = {true, 100, 0};
       },
       tagged(100), true},
      {"another",
       [](F& f) {
         f.vlan = {true, 100, 0};
       },
       tagged(101), false},
      {"untagged is none of them",
       [](F& f) {
         f.vlan = {true, 100, 0};
       },
       tcp(), false},
      {"0 is untagged",
       [](F& f) {
         f.vlan = {true, 0, 0};
       },
       tcp(), true},
      {"0 is priority-tagged",
       [](F& f) {
         f.vlan = {true, 0, 0};
       },
       tagged(0), true},
      {"0 is no tagged frame",
       [](F& f) {
         f.vlan = {true, 0, 0};
       },
       tagged(1), false},
      {"4095",
       [](F& f) {
         f.vlan = {true, 4095, 0};
       },
       tagged(4095), true},
      {"set wildcard bits are ignored",
       [](F& f) {
         f.vlan = {true, 200, 0x00f};
       },
       tagged(207), true},
      {"the others are not",
       [](F& f) {
         f.vlan = {true, 200, 0x00f};
       },
       tagged(208), false},
      {"wildcard bits anywhere",
       [](F& f) {
         f.vlan = {true, 0x801, 0x7fe};
       },
       tagged(0xfff), true},
      {"a wildcard of all bits asks nothing",
       [](F& f) {
         f.vlan = {true, 5, 0xfff};
       },
       tcp(), true},
      {"unnamed asks nothing",
       [](F& f) {
         f.vlan = {false, 5, 0};
       },
       tagged(6), true},
      {"of two tags the outer",
       [](F& f) {
         f.vlan = {true, 7, 0};
       },
       frame().eth().vlan(7, 0x88a8).vlan(8).ip4(a, b).tcp(1, 2), true},
      {"not the inner",
       [](F& f) {
         f.vlan = {true, 8, 0};
       },
       frame().eth().vlan(7, 0x88a8).vlan(8).ip4(a, b).tcp(1, 2), false},
  });
}

TEST(MatchIp, Fragments) {
  const Bytes whole = tcp();
  const Bytes first = ip().fragment(0, true).tcp(1024, 443);
  const Bytes middle = ip().fragment(3, true).protocol(6).payload(40, 0xff);
  const Bytes last = ip().fragment(9, false).protocol(6).payload(40, 0xff);
  checkFilters<IpRule>({
      {"a whole datagram is no fragment", [](F& f) { f.fragments = true; }, whole, false},
      {"the first fragment is not asked for", [](F& f) { f.fragments = true; }, first, false},
      {"a middle one is", [](F& f) { f.fragments = true; }, middle, true},
      {"the last one is", [](F& f) { f.fragments = true; }, last, true},
      {"the first one has ports", to<Compare::eq, 443>, first, true},
      {"ports never match a later one", to<Compare::eq, 0xffff>, middle, false},
      {"not even unequal ones", to<Compare::neq, 1>, middle, false},
      {"flags do not either", [](F& f) { f.tcpFlags = Ack; }, middle, false},
      {"nor does established", [](F& f) { f.established = true; }, middle, false},
      {"nor an ICMP message", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 0xff; },
       ip().fragment(3, true).protocol(1).payload(40, 0xff), false},
      {"a rule without such fields matches all of them", [](F& f) { f.protocolNamed = true, f.protocol = 6; },
       last, true},
      {"fragments and ports contradict each other", [](F& f) { f.fragments = true, to<Compare::neq, 1>(f); },
       middle, false},
  });
}

TEST(MatchIp, WhatTheCallerDoesNotKnowMatchesNoRuleThatAsks) {
  const Bytes tagged = frame().eth().vlan(100).ip4(a, b).ttl(9).tcp(1, 2);
  IpRule vlan, ttl, any;
  vlan.sequence = 1, vlan.filter.vlan = {true, 100, 0};
  ttl.sequence = 2, ttl.filter.hops = {Compare::eq, 9};
  any.sequence = 3;
  const auto list = listOf<IpRule>({vlan, ttl, any});
  EXPECT_EQ(hit<IpRule>(tagged, list), 1u);
  EXPECT_EQ(hit<IpRule>(tagged, list, {.vlan = false}), 2u);
  EXPECT_EQ(hit<IpRule>(tagged, list, {.vlan = false, .hops = false}), 3u)
      << "a rule that does not ask matches";
  ttl.filter.hops = {Compare::neq, 8};
  EXPECT_EQ(hit<IpRule>(tagged, listOf<IpRule>({ttl}), {.hops = false}), std::nullopt)
      << "what is unknown is not unequal either";
  vlan.filter.vlan = {true, 0, 0};
  EXPECT_EQ(hit<IpRule>(tcp(), listOf<IpRule>({vlan}), {.vlan = false}), std::nullopt)
      << "an unknown tag is not untagged";
}

TEST(MatchIp, TheFirstMatchInOrderDecidesWhateverTheIdsAre) {
  const auto rules = MemSlab::make<AclSubConfig>();
  const auto list = MemSlab::make<AclConfig>(Kelp::String("L"));
  list->currCfgIs(rules);
  const auto add = [&](uint64_t id, uint32_t sequence, uint16_t port) {
    IpRule rule;
    rule.sequence = sequence;
    if (port) rule.filter.destinationPort = {Compare::eq, 1, {port}};
    rules->ipRuleByIdIs(Kiv::UniqueId(id), rule);
  };
  const auto idHit = [&](uint16_t port) {
    const ParsedFrame frame(tcp(1, port));
    IpRuleConfig rule;
    Kiv::UniqueId id = Kiv::UniqueId::unset();
    matchRule(frame, list, &rule, &id);
    return id.value();
  };
  EXPECT_EQ(idHit(1), ~uint64_t{0}) << "a list without rules matches nothing";
  add(1, 4294967295u, 0);
  add(2, 30, 80);
  add(9, 10, 80);
  add(5, 20, 0);
  EXPECT_EQ(idHit(80), 9u) << "number 10, though it came third and has the greatest id";
  EXPECT_EQ(idHit(81), 5u);
  rules->ipRuleByIdDel(Kiv::UniqueId(uint64_t{9}));
  EXPECT_EQ(idHit(80), 5u) << "what the configuration says is what the next packet gets";
  rules->ipRuleByIdDel(Kiv::UniqueId(uint64_t{5}));
  EXPECT_EQ(idHit(80), 2u);
  EXPECT_EQ(idHit(81), 1u) << "the greatest number is tried, too";
}

TEST(Match, AListWithoutCurrCfgMatchesNothing) {
  const auto list = MemSlab::make<AclConfig>(Kelp::String("L"));
  EXPECT_EQ(hit<IpRule>(tcp(), list), std::nullopt);
  EXPECT_EQ(hit<Ip6Rule>(frame().eth().ip6("::1", "::2").tcp(1, 2), list), std::nullopt);
  EXPECT_EQ(hit<MacRule>(tcp(), list), std::nullopt);
}

TEST(Match, RulesOfAnotherKindInTheSameListAreNotAsked) {
  const auto list = MemSlab::make<AclConfig>(Kelp::String("L"));
  const auto rules = MemSlab::make<AclSubConfig>();
  list->currCfgIs(rules);
  rules->ip6RuleByIdIs(Kiv::UniqueId(uint64_t{1}), {});
  rules->macRuleByIdIs(Kiv::UniqueId(uint64_t{2}), {});
  EXPECT_EQ(hit<IpRule>(tcp(), list), std::nullopt);
}

TEST(MatchFields, FlagsAreShownByTheirNames) {
  IpBaseFields packet;
  EXPECT_EQ(Shown::tcpFlags(packet), "no tcp header");
  packet.hasTcp = true;
  const std::pair<int, const char*> rows[] = {
      {0, "no flags"}, {Syn, "syn"},           {Ack, "ack"},
      {Fin, "fin"},    {Rst, "rst"},           {Psh, "psh"},
      {Urg, "urg"},    {Syn | Ack, "syn ack"}, {0xff, "syn ack fin rst psh urg"}};
  for (const auto& [flags, text] : rows) {
    packet.tcpFlags = static_cast<uint8_t>(flags);
    EXPECT_EQ(Shown::tcpFlags(packet), text);
  }
}

}  // namespace
