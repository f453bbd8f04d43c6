#include <Velo/ParseFault.h>

#include "../support/Frames.h"
#include "ShownParse.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace TestSupport;
using Nimnet::Pkt;
using Velo::ParsedPacket;
using Velo::ParseFault;

FrameBuilder eth() { return frame().eth(); }
FrameBuilder ip4() { return eth().ip4("192.0.2.1", "192.0.2.2"); }
FrameBuilder ip6() { return eth().ip6("::1", "::2"); }
const std::string shown4 = "0800 Ipv4 192.0.2.1>192.0.2.2 ";
const std::string shown6 = "86dd Ipv6 ::1>::2 ";

/// `cutTo` octets of the frame were captured; 0: all.
struct Row {
  const char* why;
  Bytes frame;
  std::string expected;
  size_t cutTo = 0;
};

void check(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const Bytes captured = row.cutTo ? cut(row.frame, row.cutTo) : row.frame;
    EXPECT_EQ(parse(captured, row.frame.size()), row.expected) << row.why;
  }
}

TEST(ParseFault, EveryFaultHasItsOwnReason) {
  std::set<std::string_view> reasons;
  for (uint32_t i = 0; i < Velo::parseFaultCount; ++i) reasons.insert(reason(static_cast<ParseFault>(i)));
  EXPECT_EQ(reasons.size(), Velo::parseFaultCount);
  EXPECT_EQ(reason(ParseFault::none), "");
}

TEST(ParseFault, EthernetAndTags) {
  check({
      {"nothing", {}, "no eth ! ethernet header cut short"},
      {"an octet less than the header", cut(eth().payload(1), 13), "no eth ! ethernet header cut short"},
      {"a header and nothing else is whole", eth().ethType(0x88cc), "88cc"},
      {"an octet less than tag and type", cut(eth().vlan(5).arp("0.0.0.0", "0.0.0.0"), 17),
       "8100 ! vlan tag cut short"},
      {"the same of the second tag", cut(eth().vlan(5).vlan(6).payload(4), 21),
       "8100 vlan 5 ! vlan tag cut short"},
      {"the capture must not cut a tag", eth().vlan(5).payload(46), "8100 ! vlan tag cut short", 16},
      {"a third tag", eth().vlan(5).vlan(6).vlan(7).ip4("0.0.0.0", "0.0.0.0"),
       "8100 vlan 5 ! more than two vlan tags"},
      {"a third tag of another kind", eth().vlan(5).vlan(6).vlan(7, 0x88a8),
       "88a8 vlan 5 ! more than two vlan tags"},
      {"also one that is not all there", cut(eth().vlan(5).vlan(6, 0x88a8).vlan(7, 0x9100), 22),
       "9100 vlan 5 ! more than two vlan tags"},
  });
}

TEST(ParseFault, Ipv4Header) {
  check({
      {"an octet less than the fixed header", cut(ip4().udp(1, 2), 33), "0800 ! ipv4 header cut short"},
      {"the type alone claims IP", eth().ethType(0x0800), "0800 ! ipv4 header cut short"},
      {"the capture must not cut it", ip4().udp(1, 2), "0800 ! ipv4 header cut short", 33},
      {"version 6 under the type of IPv4", ip4().version(6).udp(1, 2), "0800 ! ipv4 version is not 4"},
      {"version 0", ip4().version(0).udp(1, 2), "0800 ! ipv4 version is not 4"},
      {"a header of 4 words", ip4().ihl(4).udp(1, 2), shown4 + "17 @14 ! ipv4 header length under 20"},
      {"total length 0, as segmentation offload leaves it", ip4().totalLength(0).tcp(1, 2),
       shown4 + "6 @14 ! ipv4 total length under the header length"},
      {"total length under the options", ip4().options({1}).totalLength(23).udp(1, 2),
       shown4 + "17 @14 ! ipv4 total length under the header length"},
      {"total length beyond the wire; what is there is read", ip4().totalLength(29).udp(1, 2),
       shown4 + "17 udp 1>2 @14 ! ipv4 total length beyond the frame"},
      {"total length beyond the 802.3 length, within the padding",
       eth().snap().ip4("192.0.2.1", "192.0.2.2").totalLength(29).udp(1, 2).padTo(60),
       shown4 + "17 udp 1>2 @22 ! ipv4 total length beyond the frame"},
      {"total length beyond a false 802.3 length",
       eth().ethType(8 + 27).snap().ip4("192.0.2.1", "192.0.2.2").udp(1, 2),
       shown4 + "17 @22 ! ipv4 total length beyond the frame"},
      {"a header beyond a false 802.3 length",
       eth().ethType(8 + 19).snap().ip4("192.0.2.1", "192.0.2.2").udp(1, 2), "0800 ! ipv4 header cut short"},
      {"options beyond the wire", ip4().ihl(15).totalLength(60).udp(1, 2),
       shown4 + "17 @14 ! ipv4 total length beyond the frame"},
      {"the capture must not cut options", ip4().options(Bytes(8)).udp(1, 2).payload(99),
       shown4 + "17 @14 ! ipv4 header cut short", 41},
      {"it may cut payload", ip4().udp(1, 2).payload(99), shown4 + "17 udp 1>2 @14", 42},
  });
}

TEST(ParseFault, Ipv6HeaderAndChain) {
  const auto eight = [] {
    return ip6().hopByHop().routing().routing().routing().routing().routing().routing().routing();
  };
  check({
      {"an octet less than the fixed header", cut(ip6().udp(1, 2), 53), "86dd ! ipv6 header cut short"},
      {"the capture must not cut it", ip6().udp(1, 2), "86dd ! ipv6 header cut short", 53},
      {"version 4 under the type of IPv6", ip6().version(4).udp(1, 2), "86dd ! ipv6 version is not 6"},
      {"payload length beyond the wire; what is there is read", ip6().payloadLength(9).udp(1, 2),
       shown6 + "17 udp 1>2 @14 ! ipv6 payload length beyond the frame"},
      {"payload length beyond the 802.3 length, within the padding",
       eth().snap().ip6("::1", "::2").payloadLength(9).udp(1, 2).padTo(100),
       shown6 + "17 udp 1>2 @22 ! ipv6 payload length beyond the frame"},
      {"an L4 header in the padding behind the 802.3 length is none",
       eth().ethType(8 + 40).snap().ip6("::1", "::2").udp(1, 2),
       shown6 + "17 @22 ! ipv6 payload length beyond the frame"},
      {"a payload length of 0 has no chain, as a jumbogram's", ip6().payloadLength(0).hopByHop().udp(1, 2),
       shown6 + "? @14 ! ipv6 header chain cut short"},
      {"nor an L4 header", ip6().payloadLength(0).udp(1, 2), shown6 + "17 @14 ! udp header cut short"},
      {"a chain that ends before the header it names", ip6().hopByHop().protocol(60),
       shown6 + "? @14 ! ipv6 header chain cut short"},
      {"an extension header longer than the packet", ip6().hopByHop(16).extLength(2),
       shown6 + "? @14 ! ipv6 header chain cut short"},
      {"padding does not continue a chain", ip6().hopByHop(16).payloadLength(8).padTo(100),
       shown6 + "? @14 ! ipv6 header chain cut short"},
      {"the capture must not cut a chain", ip6().destinationOptions(64).udp(1, 2),
       shown6 + "? @14 ! ipv6 header chain cut short", 100},
      {"a first fragment has the whole chain", ip6().fragment(0, true).protocol(60),
       shown6 + "? frag 0+ @14 ! ipv6 header chain cut short"},
      {"a fragment header cut short", cut(ip6().payloadLength(7).fragment(1, true), 61),
       shown6 + "? @14 ! ipv6 header chain cut short"},
      {"eight headers and an upper layer", eight().udp(1, 2), shown6 + "17 udp 1>2 @14"},
      {"nine headers", eight().destinationOptions().udp(1, 2),
       shown6 + "? @14 ! ipv6 header chain over 8 headers"},
      {"nine headers, the last of which is not there", eight().protocol(44),
       shown6 + "? @14 ! ipv6 header chain over 8 headers"},
      {"a second fragment header", ip6().fragment(0, true).fragment(0, false).udp(1, 2),
       shown6 + "? frag 0+ @14 ! ipv6 second fragment header"},
      {"one that would make it a later fragment",
       ip6().fragment(0, false).destinationOptions().fragment(9, false).udp(1, 2),
       shown6 + "? @14 ! ipv6 second fragment header"},
      {"an authentication header of 8", ip6().ah(8).udp(1, 2),
       shown6 + "? @14 ! ipv6 authentication header under 12"},
      {"one of 12 is whole", ip6().ah(12).udp(1, 2), shown6 + "17 udp 1>2 @14"},
      {"an authentication header longer than the packet", ip6().ah(12).extLength(2),
       shown6 + "? @14 ! ipv6 header chain cut short"},
  });
}

TEST(ParseFault, L4Headers) {
  check({
      {"TCP declared a word short, padding behind it", ip4().totalLength(39).tcp(1, 2).padTo(60),
       shown4 + "6 @14 ! tcp header cut short"},
      {"TCP cut by the capture", ip4().tcp(1, 2), shown4 + "6 @14 ! tcp header cut short", 53},
      {"no payload for TCP", ip4().protocol(6), shown4 + "6 @14 ! tcp header cut short"},
      {"a first fragment too short for TCP", ip4().fragment(0, true).protocol(6).payload(16),
       shown4 + "6 frag 0+ @14 ! tcp header cut short"},
      {"data offset 4", ip4().tcp(1, 2).dataOffset(4),
       shown4 + "6 tcp 1>2 flags 00 @14 ! tcp data offset under 5"},
      {"data offset beyond the packet, within the padding", ip4().tcp(1, 2).dataOffset(6).padTo(60),
       shown4 + "6 tcp 1>2 flags 00 @14 ! tcp data offset beyond the packet"},
      {"data offset right at its end", ip4().tcp(1, 2).tcpOptions({1}), shown4 + "6 tcp 1>2 flags 00 @14"},
      {"the capture may cut TCP options", ip4().tcp(1, 2).tcpOptions(Bytes(20)),
       shown4 + "6 tcp 1>2 flags 00 @14", 54},
      {"a TCP fragment at offset 1", ip4().fragment(1, false).protocol(6).payload(40),
       shown4 + "6 frag 1 @14 ! tcp fragment at offset 1"},
      {"at offset 2 it overwrites no flags", ip4().fragment(2, false).protocol(6).payload(40),
       shown4 + "6 frag 2 @14"},
      {"UDP declared short", ip4().totalLength(27).udp(1, 2).padTo(60),
       shown4 + "17 @14 ! udp header cut short"},
      {"UDP cut by the capture", ip4().udp(1, 2), shown4 + "17 @14 ! udp header cut short", 41},
      {"UDP length 7", ip4().udp(1, 2).udpLength(7), shown4 + "17 udp 1>2 @14 ! udp length under 8"},
      {"UDP length 0 is no jumbogram in IPv4", ip4().udp(1, 2).udpLength(0),
       shown4 + "17 udp 1>2 @14 ! udp length under 8"},
      {"SCTP declared short", ip4().totalLength(31).sctp(1, 2), shown4 + "132 @14 ! sctp header cut short"},
      {"ICMP declared short", ip4().totalLength(23).icmp(8), shown4 + "1 @14 ! icmp header cut short"},
      {"4 octets of ICMP are enough", ip4().totalLength(24).icmp(8), shown4 + "1 icmp 8/0 @14"},
      {"ICMPv6 inside IPv4 has no header to be cut", ip4().protocol(58), shown4 + "58 @14"},

      {"TCP in IPv6 declared short", ip6().payloadLength(19).tcp(1, 2),
       shown6 + "6 @14 ! tcp header cut short"},
      {"a later TCP fragment at offset 1 in IPv6", ip6().fragment(1, false).protocol(6).payload(40),
       shown6 + "6 frag 1 @14 ! tcp fragment at offset 1"},
      {"data offset in IPv6 counts from behind the chain", ip6().hopByHop().tcp(1, 2).dataOffset(6),
       shown6 + "6 tcp 1>2 flags 00 @14 ! tcp data offset beyond the packet"},
      {"a first fragment in IPv6 too short for UDP", ip6().fragment(0, true).protocol(17).payload(7),
       shown6 + "17 frag 0+ @14 ! udp header cut short"},
      {"UDP length 7 in IPv6", ip6().udp(1, 2).udpLength(7), shown6 + "17 udp 1>2 @14 ! udp length under 8"},
      {"SCTP in IPv6 cut by the capture", ip6().sctp(1, 2), shown6 + "132 @14 ! sctp header cut short", 65},
      {"ICMPv6 declared short", ip6().payloadLength(3).icmp6(128),
       shown6 + "58 @14 ! icmpv6 header cut short"},
      {"ICMP inside IPv6 has no header to be cut", ip6().protocol(1), shown6 + "1 @14"},
  });
}

TEST(ParseFault, TheFirstFaultIsTheOneNamed) {
  check({
      {"length before data offset", ip4().totalLength(41).tcp(1, 2).dataOffset(4),
       shown4 + "6 tcp 1>2 flags 00 @14 ! ipv4 total length beyond the frame"},
      {"length before chain", ip6().payloadLength(99).ah(8),
       shown6 + "? @14 ! ipv6 payload length beyond the frame"},
  });
}

/// Frames without a fault, and how many octets their headers take up.
struct Whole {
  const char* name;
  Bytes frame;
  size_t headers;
};

std::vector<Whole> wholeFrames() {
  return {
      {"no IP", eth().ethType(0x88cc).payload(46), 14},
      {"tagged ARP", eth().vlan(5).arp("192.0.2.1", "192.0.2.2"), 18},
      {"MPLS", eth().vlan(5).vlan(6).mpls(16).ip4("192.0.2.1", "192.0.2.2").tcp(1, 2), 22},
      {"TCP", ip4().options(Bytes(8)).tcp(1, 2).tcpOptions(Bytes(12)).payload(20), 14 + 28 + 20},
      {"UDP", eth().vlan(5).vlan(6).ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(20), 22 + 20 + 8},
      {"SCTP", ip4().sctp(1, 2).payload(20), 14 + 20 + 12},
      {"ICMP", ip4().icmp(8).payload(20), 14 + 20 + 4},
      {"later fragment", ip4().options(Bytes(40)).fragment(5, true).protocol(6).payload(80), 14 + 60},
      {"IPv6 chain",
       ip6().hopByHop().routing(24).destinationOptions(16).ah(12).fragment(0, true).udp(1, 2).payload(9),
       14 + 40 + 68 + 8},
      {"IPv6 later fragment", ip6().fragment(5, true).protocol(43).payload(80), 14 + 48},
      {"ICMPv6", eth().vlan(5).ip6("::1", "::2").icmp6(128).payload(9), 18 + 40 + 4},
      {"IPv6 without payload", ip6().payload(9).payloadLength(0), 14 + 40},
  };
}

TEST(ParseFault, APrefixThatWasTheWholeFrameIsMalformedOrHasAllItDeclares) {
  for (const Whole& whole : wholeFrames()) {
    const std::string all = parse(whole.frame, whole.frame.size());
    ASSERT_EQ(all.find('!'), std::string::npos) << whole.name << ": " << all;
    const bool declares =
        all.find("Ipv") != std::string::npos && std::string(whole.name) != "IPv6 without payload";
    for (size_t size = 0; size < whole.frame.size(); ++size) {
      const std::string part = parse(cut(whole.frame, size), size);
      const bool faultless = !declares && size >= whole.headers;
      EXPECT_EQ(part.find('!') == std::string::npos, faultless)
          << whole.name << " cut to " << size << ": " << part;
    }
  }
}

TEST(ParseFault, ACaptureThatCutsAFrameIsMalformedExactlyWhenItCutsHeaders) {
  for (const Whole& whole : wholeFrames()) {
    const std::string all = parse(whole.frame, whole.frame.size());
    for (size_t size = 0; size < whole.frame.size(); ++size) {
      const std::string part = parse(cut(whole.frame, size), whole.frame.size());
      if (size >= whole.headers) {
        EXPECT_EQ(part, all) << whole.name << " cut to " << size;
      } else {
        EXPECT_NE(part.find('!'), std::string::npos) << whole.name << " cut to " << size << ": " << part;
      }
    }
  }
}

TEST(ParseFault, AnySnapPrefixIsReadWithinItsBounds) {
  // A cut in LLC or SNAP leaves a frame that claims nothing but a length, so it is no fault.
  const Bytes whole = eth().vlan(5).snap().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(9);
  for (size_t size = 0; size < whole.size(); ++size) {
    const std::string part = parse(cut(whole, size), size);
    EXPECT_EQ(part.find('!') == std::string::npos, size >= 18 && size < 26) << size << ": " << part;
  }
}

TEST(ParseFault, MutatedFramesShowOnlyWhatLiesInTheCapture) {
  std::mt19937 random(2);
  const std::vector<Whole> wholes = wholeFrames();
  uint32_t faults = 0;
  constexpr uint32_t rounds = 100000;
  for (uint32_t round = 0; round < rounds; ++round) {
    Bytes bytes = wholes[random() % wholes.size()].frame;
    const size_t wire = bytes.size();
    for (unsigned flips = random() % 4; flips > 0; --flips)
      bytes[random() % std::min<size_t>(bytes.size(), 100)] = static_cast<uint8_t>(random());
    if (random() % 2) bytes.resize(random() % (bytes.size() + 1));
    Pkt pkt;
    pkt.assign(bytes, random() % 2 ? static_cast<uint32_t>(wire) : 0, 0);
    ParsedPacket parsed;
    parsed.reset(&pkt);
    parsed.maybeDoFullParse();
    shown(pkt, parsed);
    if (parsed.fault() != ParseFault::none) ++faults;
    const auto inside = [&pkt](const auto* hdr) {
      const auto* at = reinterpret_cast<const uint8_t*>(hdr);
      return !hdr || (at >= pkt.data() && at + sizeof *hdr <= pkt.frame().data() + pkt.size());
    };
    const Velo::ParsedL4& l4 = parsed.l4();
    ASSERT_TRUE(inside(l4.tcp()) && inside(l4.udp()) && inside(l4.sctp()) && inside(l4.icmp()) &&
                inside(l4.icmp6()));
    ASSERT_LE(!!l4.tcp() + !!l4.udp() + !!l4.sctp() + !!l4.icmp() + !!l4.icmp6(), parsed.ipHdr() ? 1 : 0);
    ASSERT_LE(pkt.frontOffset() + (parsed.ipHdr() ? 20u : 0u), pkt.size());
  }
  EXPECT_GT(faults, rounds / 4);
  EXPECT_LT(faults, rounds - rounds / 10);
}

}  // namespace
