#include "MatchSupport.h"

namespace {

using namespace TestSupport;
using namespace Acl;
using F = Ip6Filter;

constexpr const char* a = "2001:db8::1";
constexpr const char* b = "2001:db8:ffff::7";

FrameBuilder ip() { return frame().eth().ip6(a, b); }
Bytes tcp(uint16_t from = 1024, uint16_t to = 443) { return ip().tcp(from, to); }

TEST(MatchIp6, Addresses) {
  checkFilters<Ip6Rule>({
      {"an empty filter matches every IPv6 packet", [](F&) {}, tcp(), true},
      {"a host",
       [](F& f) {
         f.source = ip6(a), f.sourceMask = {~0ull, ~0ull};
       },
       tcp(), true},
      {"a host that differs in its last bit",
       [](F& f) {
         f.source = ip6("2001:db8::"), f.sourceMask = {~0ull, ~0ull};
       },
       tcp(), false},
      {"one that differs in its first bit",
       [](F& f) {
         f.source = ip6("a001:db8::1"), f.sourceMask = {~0ull, ~0ull};
       },
       tcp(), false},
      {"a prefix",
       [](F& f) {
         f.source = ip6("2001:db8::"), f.sourceMask = {~0ull, 0};
       },
       tcp(), true},
      {"the high half alone",
       [](F& f) {
         f.source = ip6("2001:db9::1"), f.sourceMask = {0, ~0ull};
       },
       tcp(), true},
      {"mask bits anywhere",
       [](F& f) {
         f.destination = {0x10000, 0x6}, f.destinationMask = {0x10000, 0x6};
       },
       tcp(), true},
      {"mask bits anywhere, one wrong",
       [](F& f) {
         f.destination = {0x10000, 0x4}, f.destinationMask = {0x10000, 0x6};
       },
       tcp(), false},
      {"the destination is not the source",
       [](F& f) {
         f.destination = ip6(a), f.destinationMask = {~0ull, ~0ull};
       },
       tcp(), false},
  });
}

TEST(MatchIp6, TheProtocolIsTheLastHeaderOfTheChain) {
  checkFilters<Ip6Rule>({
      {"tcp", [](F& f) { f.protocolNamed = true, f.protocol = 6; }, tcp(), true},
      {"tcp behind extension headers", [](F& f) { f.protocolNamed = true, f.protocol = 6; },
       ip().hopByHop().routing().destinationOptions().ah().tcp(1, 2), true},
      {"an extension header is no protocol", [](F& f) { f.protocolNamed = true, f.protocol = 0; },
       ip().hopByHop().tcp(1, 2), false},
      {"icmpv6", [](F& f) { f.protocolNamed = true, f.protocol = 58; }, ip().icmp6(128), true},
      {"icmp is another", [](F& f) { f.protocolNamed = true, f.protocol = 1; }, ip().icmp6(128), false},
      {"of a chain that is cut off nothing is known", [](F& f) { f.protocolNamed = true, f.protocol = 0; },
       cut(ip().hopByHop().tcp(1, 2), 14 + 40 + 4), false},
      {"and a rule that does not ask matches", [](F& f) { f.trafficClassMask = 0xff; },
       cut(ip().hopByHop().tcp(1, 2), 14 + 40 + 4), true},
      {"a later fragment's is its fragment header's", [](F& f) { f.protocolNamed = true, f.protocol = 17; },
       ip().fragment(5, false).protocol(17).payload(16), true},
  });
}

TEST(MatchIp6, PortsFlagsAndMessages) {
  checkFilters<Ip6Rule>({
      {"tcp destination",
       [](F& f) {
         f.destinationPort = {Compare::eq, 1, {443}};
       },
       tcp(), true},
      {"tcp source",
       [](F& f) {
         f.sourcePort = {Compare::gt, 1, {1023}};
       },
       tcp(), true},
      {"tcp source, at the bound",
       [](F& f) {
         f.sourcePort = {Compare::gt, 1, {1024}};
       },
       tcp(), false},
      {"udp",
       [](F& f) {
         f.destinationPort = {Compare::neq, 1, {53}};
       },
       ip().udp(1, 53), false},
      {"sctp",
       [](F& f) {
         f.destinationPort = {Compare::range, 2, {2905, 2906}};
       },
       ip().sctp(1, 2906), true},
      {"sctp beyond",
       [](F& f) {
         f.destinationPort = {Compare::range, 2, {2905, 2906}};
       },
       ip().sctp(1, 2907), false},
      {"established", [](F& f) { f.established = true; }, ip().tcp(1, 2).flags(Rst), true},
      {"not established", [](F& f) { f.established = true; }, ip().tcp(1, 2).flags(Syn), false},
      {"a flag", [](F& f) { f.tcpFlags = Syn; }, ip().tcp(1, 2).flags(Ack), false},
      {"a message", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 2; }, ip().icmp6(2), true},
      {"another", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 2; }, ip().icmp6(1), false},
      {"a code", [](F& f) { f.icmpTypeNamed = f.icmpCodeNamed = true, f.icmpType = 1, f.icmpCode = 4; },
       ip().icmp6(1, 3), false},
      {"ICMP inside IPv6 has no message", [](F& f) { f.icmpTypeNamed = true, f.icmpType = 8; }, ip().icmp(8),
       false},
  });
}

TEST(MatchIp6, TrafficClassHopLimitAndVlan) {
  checkFilters<Ip6Rule>({
      {"a traffic class", [](F& f) { f.trafficClass = 0x20, f.trafficClassMask = 0xff; },
       ip().trafficClass(0x20).tcp(1, 2), true},
      {"one bit off", [](F& f) { f.trafficClass = 0x20, f.trafficClassMask = 0xff; },
       ip().trafficClass(0x21).tcp(1, 2), false},
      {"under a mask", [](F& f) { f.trafficClass = 0x20, f.trafficClassMask = 0xf0; },
       ip().trafficClass(0x2f).tcp(1, 2), true},
      {"outside the mask's value", [](F& f) { f.trafficClass = 0x20, f.trafficClassMask = 0xf0; },
       ip().trafficClass(0x3f).tcp(1, 2), false},
      {"a flow label is no traffic class", [](F& f) { f.trafficClassMask = 0xff; },
       ip().flowLabel(0xfffff).tcp(1, 2), true},
      {"hop limit gt",
       [](F& f) {
         f.hops = {Compare::gt, 1};
       },
       ip().hopLimit(2).tcp(1, 2), true},
      {"hop limit gt, at",
       [](F& f) {
         f.hops = {Compare::gt, 1};
       },
       ip().hopLimit(1).tcp(1, 2), false},
      {"hop limit eq",
       [](F& f) {
         f.hops = {Compare::eq, 255};
       },
       ip().hopLimit(254).tcp(1, 2), false},
      {"vlan",
       [](F& f) {
         f.vlan = {true, 5, 0};
       },
       frame().eth().vlan(5).ip6(a, b).tcp(1, 2), true},
      {"another vlan",
       [](F& f) {
         f.vlan = {true, 5, 0};
       },
       frame().eth().vlan(6).ip6(a, b).tcp(1, 2), false},
  });
}

TEST(MatchIp6, Fragments) {
  const Bytes atomic = ip().fragment(0, false).tcp(1024, 443);
  const Bytes first = ip().fragment(0, true).tcp(1024, 443);
  const Bytes later = ip().fragment(5, false).protocol(6).payload(40, 0xff);
  checkFilters<Ip6Rule>({
      {"an atomic fragment is a whole packet", [](F& f) { f.fragments = true; }, atomic, false},
      {"and has ports",
       [](F& f) {
         f.destinationPort = {Compare::eq, 1, {443}};
       },
       atomic, true},
      {"so has a first fragment",
       [](F& f) {
         f.destinationPort = {Compare::eq, 1, {443}};
       },
       first, true},
      {"which is not asked for", [](F& f) { f.fragments = true; }, first, false},
      {"a later one is", [](F& f) { f.fragments = true; }, later, true},
      {"and has none",
       [](F& f) {
         f.destinationPort = {Compare::neq, 1, {1}};
       },
       later, false},
      {"but its protocol", [](F& f) { f.fragments = true, f.protocolNamed = true, f.protocol = 6; }, later,
       true},
  });
}

TEST(MatchIp6, WhatTheCallerDoesNotKnowMatchesNoRuleThatAsks) {
  const Bytes packet = frame().eth().vlan(100).ip6(a, b).hopLimit(9).tcp(1, 2);
  Ip6Rule vlan, hops, any;
  vlan.sequence = 1, vlan.filter.vlan = {true, 100, 0};
  hops.sequence = 2, hops.filter.hops = {Compare::eq, 9};
  any.sequence = 3;
  const auto list = listOf<Ip6Rule>({any, hops, vlan});
  EXPECT_EQ(hit<Ip6Rule>(packet, list), 1u);
  EXPECT_EQ(hit<Ip6Rule>(packet, list, {.vlan = false}), 2u);
  EXPECT_EQ(hit<Ip6Rule>(packet, list, {.vlan = false, .hops = false}), 3u);
}

}  // namespace
