#include <Velo/ParsedPacket.h>

#include "../support/Frames.h"
#include "ShownParse.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace TestSupport;
using Nimnet::Pkt;
using Velo::ParsedPacket;

constexpr const char* a4 = "192.0.2.1";
constexpr const char* b4 = "198.51.100.7";
constexpr const char* a6 = "2001:db8::1";
constexpr const char* b6 = "2001:db8::2";

FrameBuilder ip4() { return frame().eth().ip4(a4, b4); }
FrameBuilder ip6() { return frame().eth().ip6(a6, b6); }

struct Row {
  const char* why;
  Bytes frame;
  const char* expected;
};

void check(const std::vector<Row>& rows) {
  for (const Row& row : rows) EXPECT_EQ(parse(row.frame, row.frame.size()), row.expected) << row.why;
}

TEST(ParsedPacket, ReadsEthernetAndItsTags) {
  check({
      {"Ethernet II", frame().eth().ethType(0x88cc).payload(46), "88cc"},
      {"ARP has no IP header", frame().eth().arp(a4, b4), "0806"},
      {"one tag", frame().eth().vlan(100).arp(a4, b4), "0806 vlan 100"},
      {"priority and the drop bit are no part of the id",
       frame().eth().vlan(0x1000 | 5, 0x8100, 7).arp(a4, b4), "0806 vlan 5"},
      {"a service tag", frame().eth().vlan(7, 0x88a8).arp(a4, b4), "0806 vlan 7"},
      {"the older stacked tag", frame().eth().vlan(4095, 0x9100).arp(a4, b4), "0806 vlan 4095"},
      {"of two tags the outer one names the VLAN", frame().eth().vlan(7, 0x88a8).vlan(8).arp(a4, b4),
       "0806 vlan 7"},
      {"an outer priority tag names none", frame().eth().vlan(0, 0x8100, 5).vlan(8).arp(a4, b4), "0806"},
      {"MPLS is not looked behind", frame().eth().mpls(16).mpls(17).ip4(a4, b4).tcp(1, 2), "8847"},
      {"nor is PPPoE", frame().eth().ethType(0x8864).payload(46), "8864"},
      {"another tag's type is a type", frame().eth().ethType(0x9200).payload(46), "9200"},
  });
}

TEST(ParsedPacket, ReadsPacketsWithoutAnEthernetHeaderByTheTypeThatTheyCameWith) {
  struct Case {
    const char* why;
    uint16_t type;
    Bytes frame;  ///< with an Ethernet header, which is left out
    const char* expected;
  };
  for (const Case& row : {
           Case{"IPv4", 0x0800, ip4().udp(1, 2), "0800 alone Ipv4 192.0.2.1>198.51.100.7 17 udp 1>2"},
           Case{"IPv6", 0x86dd, ip6().udp(1, 2), "86dd alone Ipv6 2001:db8::1>2001:db8::2 17 udp 1>2"},
           Case{"another type", 0x0806, frame().eth().arp(a4, b4), "0806 alone"},
           Case{"two tags, of which the first type came with it", 0x8100,
                frame().eth().vlan(7).vlan(8).ip4(a4, b4).udp(1, 2),
                "0800 alone vlan 7 Ipv4 192.0.2.1>198.51.100.7 17 udp 1>2 @8"},
           Case{"a third tag", 0x8100, frame().eth().vlan(7).vlan(8).vlan(9).arp(a4, b4),
                "8100 alone vlan 7 ! more than two vlan tags"},
           Case{"a cut tag", 0x8100, cut(frame().eth().vlan(7).bytes(), 17),
                "8100 alone ! vlan tag cut short"},
           Case{"nothing behind a type of IP", 0x0800, Bytes(14), "0800 alone ! ipv4 header cut short"},
       }) {
    Pkt pkt;
    pkt.assignBehindType(row.type, std::span(row.frame).subspan(14), 0, 0);
    ParsedPacket parsed;
    parsed.reset(&pkt);
    parsed.maybeDoFullParse();
    EXPECT_EQ(shown(pkt, parsed), row.expected) << row.why;
    Pkt copy;
    copy.assign(pkt);
    parsed.reset(&copy);
    parsed.maybeDoFullParse();
    EXPECT_EQ(shown(copy, parsed), row.expected) << "of a copy: " << row.why;
    copy.assign(row.frame, 0, 0);
    EXPECT_TRUE(copy.hasEthernet()) << "the next frame has one again";
  }
}

TEST(ParsedPacket, ReadsLengthsAndSnap) {
  check({
      {"a length with LLC behind it", frame().eth().llc(0x42, 0x42, 3).payload(35).padTo(60), "0026"},
      {"a length behind a tag", frame().eth().vlan(9).llc(0x42, 0x42, 3).payload(35), "0026 vlan 9"},
      {"SNAP with the zero organisation code shows its type", frame().eth().snap().ethType(0x88cc).payload(8),
       "88cc"},
      {"behind a tag, too", frame().eth().vlan(9).snap().arp(a4, b4), "0806 vlan 9"},
      {"another organisation's type is not an EtherType",
       frame().eth().snap(0x00000c).ethType(0x2000).payload(8), "0010"},
      {"a SNAP type that would be a length is shown as it is", frame().eth().snap().ethType(100).payload(8),
       "0064"},
      {"tags behind SNAP are not read", frame().eth().snap().vlan(5).ip4(a4, b4).tcp(1, 2), "8100"},
      {"SNAP needs 8 octets of the length", frame().eth().ethType(7).raw({0xaa, 0xaa, 3, 0, 0, 0, 8, 0}),
       "0007"},
      {"8 are enough", frame().eth().ethType(8).raw({0xaa, 0xaa, 3, 0, 0, 0, 0x88, 0xcc}), "88cc"},
      {"SNAP that is not all there is none", frame().eth().ethType(8).raw({0xaa, 0xaa, 3, 0, 0, 0, 8}),
       "0008"},
      {"1500 is the greatest length", frame().eth().ethType(1500).raw({0xaa, 0xaa, 3, 0, 0, 0, 0x88, 0xcc}),
       "88cc"},
      {"1501 is a type", frame().eth().ethType(1501).raw({0xaa, 0xaa, 3, 0, 0, 0, 0x88, 0xcc}), "05dd"},
      {"a length that is no SNAP information frame",
       frame().eth().ethType(8).raw({0xaa, 0xaa, 0xf3, 0, 0, 0, 8, 0}), "0008"},
      {"IP behind SNAP is IP", frame().eth().snap().ip4(a4, b4).tcp(1, 2),
       "0800 Ipv4 192.0.2.1>198.51.100.7 6 tcp 1>2 flags 00 @22"},
      {"its padding is beyond the 802.3 length", frame().eth().snap().ip4(a4, b4).udp(1, 2).padTo(60),
       "0800 Ipv4 192.0.2.1>198.51.100.7 17 udp 1>2 @22"},
      {"IPv6 behind SNAP and a tag", frame().eth().vlan(3).snap().ip6(a6, b6).udp(1, 2),
       "86dd vlan 3 Ipv6 2001:db8::1>2001:db8::2 17 udp 1>2 @26"},
  });
}

TEST(ParsedPacket, ReadsIpv4) {
  check({
      {"TCP", ip4().tcp(1024, 443).flags(Syn | Ack),
       "0800 Ipv4 192.0.2.1>198.51.100.7 6 tcp 1024>443 flags 12 @14"},
      {"UDP behind two tags", frame().eth().vlan(1).vlan(2).ip4(a4, b4).udp(53, 5353),
       "0800 vlan 1 Ipv4 192.0.2.1>198.51.100.7 17 udp 53>5353 @22"},
      {"SCTP", ip4().sctp(2905, 2906), "0800 Ipv4 192.0.2.1>198.51.100.7 132 sctp 2905>2906 @14"},
      {"ICMP", ip4().icmp(3, 1), "0800 Ipv4 192.0.2.1>198.51.100.7 1 icmp 3/1 @14"},
      {"ICMPv6 inside IPv4 is no header", ip4().icmp6(128), "0800 Ipv4 192.0.2.1>198.51.100.7 58 @14"},
      {"L4 is behind the options", ip4().options(Bytes(40, 1)).tcp(7, 8),
       "0800 Ipv4 192.0.2.1>198.51.100.7 6 tcp 7>8 flags 00 @14"},
      {"another protocol has no L4 header", ip4().protocol(89).payload(40),
       "0800 Ipv4 192.0.2.1>198.51.100.7 89 @14"},
      {"an authentication header is not walked in IPv4", ip4().ah().tcp(1, 2),
       "0800 Ipv4 192.0.2.1>198.51.100.7 51 @14"},
      {"no payload at all", ip4().protocol(50), "0800 Ipv4 192.0.2.1>198.51.100.7 50 @14"},
      {"the first fragment has its L4 header", ip4().fragment(0, true).tcp(1, 2).payload(8),
       "0800 Ipv4 192.0.2.1>198.51.100.7 6 frag 0+ tcp 1>2 flags 00 @14"},
      {"a later fragment has none", ip4().fragment(185, true).protocol(17).payload(64),
       "0800 Ipv4 192.0.2.1>198.51.100.7 17 frag 185+ @14"},
      {"nor has the last one, however short", ip4().fragment(8191, false).protocol(6).payload(1),
       "0800 Ipv4 192.0.2.1>198.51.100.7 6 frag 8191 @14"},
      {"UDP at offset 1 overwrites no flags", ip4().fragment(1, false).protocol(17).payload(8),
       "0800 Ipv4 192.0.2.1>198.51.100.7 17 frag 1 @14"},
      {"TCP with all its options", ip4().tcp(1, 2).tcpOptions(Bytes(40, 1)),
       "0800 Ipv4 192.0.2.1>198.51.100.7 6 tcp 1>2 flags 00 @14"},
      {"a wrong checksum is nobody's business here", ip4().checksum(1).udp(1, 2).checksum(1),
       "0800 Ipv4 192.0.2.1>198.51.100.7 17 udp 1>2 @14"},
      {"nor is a UDP length beyond the packet", ip4().udp(1, 2).udpLength(9),
       "0800 Ipv4 192.0.2.1>198.51.100.7 17 udp 1>2 @14"},
  });
}

TEST(ParsedPacket, ReadsIpv6) {
  check({
      {"TCP", ip6().tcp(1024, 443).flags(Rst),
       "86dd Ipv6 2001:db8::1>2001:db8::2 6 tcp 1024>443 flags 04 @14"},
      {"ICMPv6", ip6().icmp6(135), "86dd Ipv6 2001:db8::1>2001:db8::2 58 icmp6 135/0 @14"},
      {"ICMP inside IPv6 is no header", ip6().icmp(8), "86dd Ipv6 2001:db8::1>2001:db8::2 1 @14"},
      {"a chain of every kind",
       ip6().hopByHop().routing(24).fragment(0, true).ah(12).destinationOptions(16).udp(5, 6),
       "86dd Ipv6 2001:db8::1>2001:db8::2 17 frag 0+ udp 5>6 @14"},
      {"eight headers are read",
       ip6().hopByHop().routing().routing().routing().routing().routing().routing().destinationOptions().sctp(
           1, 2),
       "86dd Ipv6 2001:db8::1>2001:db8::2 132 sctp 1>2 @14"},
      {"an atomic fragment is whole", ip6().fragment(0, false).tcp(1, 2),
       "86dd Ipv6 2001:db8::1>2001:db8::2 6 tcp 1>2 flags 00 @14"},
      {"a fragment header has no length octet, whatever stands there",
       ip6().fragment(0, true).extLength(9).udp(5, 6),
       "86dd Ipv6 2001:db8::1>2001:db8::2 17 frag 0+ udp 5>6 @14"},
      {"a later fragment has no L4 header", ip6().fragment(100, true).protocol(17).payload(64),
       "86dd Ipv6 2001:db8::1>2001:db8::2 17 frag 100+ @14"},
      {"its protocol is what the fragment header names, an extension header, too",
       ip6().hopByHop().fragment(100, false).protocol(60).payload(1),
       "86dd Ipv6 2001:db8::1>2001:db8::2 60 frag 100 @14"},
      {"a mobility header is upper layer", ip6().protocol(135).payload(8),
       "86dd Ipv6 2001:db8::1>2001:db8::2 135 @14"},
      {"no next header, no payload", ip6(), "86dd Ipv6 2001:db8::1>2001:db8::2 59 @14"},
      {"no next header behind an extension header", ip6().destinationOptions(),
       "86dd Ipv6 2001:db8::1>2001:db8::2 59 @14"},
      {"ESP ends the chain", ip6().hopByHop().protocol(50).payload(8),
       "86dd Ipv6 2001:db8::1>2001:db8::2 50 @14"},
      {"IPv6 inside IPv6 is not looked into", ip6().ip6(a6, b6).tcp(1, 2),
       "86dd Ipv6 2001:db8::1>2001:db8::2 41 @14"},
  });
}

TEST(ParsedPacket, HeaderFieldsAreInHostOrder) {
  Pkt pkt;
  pkt.assign(ip4().tos(0xb9).ttl(3).fragment(0x1234, true).totalLength(0x1234).protocol(200).bytes(), 0, 0);
  ParsedPacket parsed;
  parsed.reset(&pkt);
  parsed.maybeDoFullParse();
  const Nimnet::IpHdr& ip = *parsed.ipHdr()->ipHdr();
  EXPECT_EQ(ip.tos(), 0xb9);
  EXPECT_EQ(ip.dscp(), 0x2e);
  EXPECT_EQ(ip.ttl(), 3);
  EXPECT_EQ(ip.fragmentOffset(), 0x1234);
  EXPECT_TRUE(ip.moreFragments());
  EXPECT_EQ(ip.totalLength(), 0x1234u);
  EXPECT_EQ(ip.headerLength(), 20u);

  pkt.assign(ip6().trafficClass(0xb9).flowLabel(0x54321).hopLimit(9).payload(300).bytes(), 0, 0);
  parsed.reset(&pkt);
  parsed.maybeDoFullParse();
  const Nimnet::Ip6Hdr& hdr6 = *parsed.ipHdr()->ip6Hdr();
  EXPECT_EQ(hdr6.trafficClass(), 0xb9);
  EXPECT_EQ(hdr6.dscp(), 0x2e);
  EXPECT_EQ(hdr6.flowLabel(), 0x54321u);
  EXPECT_EQ(hdr6.hopLimit(), 9);
  EXPECT_EQ(hdr6.payloadLength(), 300u);

  pkt.assign(frame().eth("00:00:00:00:01:02", "00:00:00:00:03:04").payload(46).bytes(), 0, 0);
  parsed.reset(&pkt);
  EXPECT_EQ(parsed.ethPacket()->ethHdr()->source().value(), 0x102u);
  EXPECT_EQ(parsed.ethPacket()->ethHdr()->destination().value(), 0x304u);
}

TEST(ParsedPacket, TheFirstStageReadsEthernetOnlyAndTheSecondRunsOnce) {
  Pkt pkt;
  pkt.assign(frame().eth().vlan(5).ip4(a4, b4).udp(1, 2).bytes(), 0, 0);
  ParsedPacket parsed;
  parsed.reset(&pkt);
  EXPECT_EQ(shown(pkt, parsed), "0800 vlan 5");
  parsed.maybeDoFullParse();
  const std::string whole = shown(pkt, parsed);
  EXPECT_EQ(whole, "0800 vlan 5 Ipv4 192.0.2.1>198.51.100.7 17 udp 1>2 @18");
  pkt.frontOffsetIs(0);
  parsed.maybeDoFullParse();
  EXPECT_EQ(pkt.frontOffset(), 0u) << "a second full parse does nothing";
}

TEST(ParsedPacket, NothingIsLeftOfTheFrameBefore) {
  Pkt pkt;
  ParsedPacket parsed;
  const Bytes frames[] = {
      ip4().tcp(1, 2),
      ip6().icmp6(1),
      frame().eth().vlan(3).arp(a4, b4),
      {},
      ip4().ttl(0).udp(3, 4),
      ip6().hopByHop(),
      ip4().icmp(0),
      frame().eth().vlan(1).vlan(2).vlan(3),
      ip6().sctp(1, 2),
  };
  for (const Bytes& before : frames) {
    for (const Bytes& after : frames) {
      for (const Bytes* bytes : {&before, &after}) {
        pkt.assign(*bytes, 0, 0);
        parsed.reset(&pkt);
        parsed.maybeDoFullParse();
      }
      EXPECT_EQ(shown(pkt, parsed), parse(after, after.size()));
    }
  }
}

}  // namespace
