#include "DemoFrames.h"

namespace Demo {

using namespace TestSupport;

std::vector<DemoFrame> malformedFrames() {
  const auto ip = [] { return fromInternet().ip4("192.0.2.10", "198.51.100.7"); };
  const auto ip6 = [] { return fromInternet().ip6("2001:db8:1::10", "2001:db8:7::7"); };
  const auto nineOptions = [&] {
    auto chain = ip6();
    for (int i = 0; i < 9; ++i) chain.destinationOptions();
    return chain.tcp(40020, 443).flags(Ack);
  };

  return {
      {"eth1", "It ends in its own addresses.", malformed("ethernet header cut short"),
       cut(fromInternet().ethType(0x0800), 10)},
      {"eth1", "It ends in its tag.", malformed("vlan tag cut short"),
       cut(fromInternet().vlan(100).ip4("192.0.2.40", "198.51.100.70").udp(5000, 5000), 16)},
      {"eth1", "A third tag, behind which anything might stand.", malformed("more than two vlan tags"),
       fromInternet().vlan(100).vlan(7).vlan(8).ip4("192.0.2.40", "198.51.100.70").udp(5000, 5000)},
      {"eth1", "The type says IPv4, the version does not.", malformed("ipv4 version is not 4"),
       ip().version(6).tcp(40020, 443).flags(Ack)},
      {"eth1", "An IPv4 header of 16 octets, so that the addresses could be taken for ports.",
       malformed("ipv4 header length under 20"), ip().ihl(4).tcp(40020, 443).flags(Ack)},
      {"eth1", "A packet that is shorter than its header.",
       malformed("ipv4 total length under the header length"),
       ip().totalLength(12).tcp(40020, 443).flags(Ack)},
      {"eth1", "A packet that is longer than its frame.", malformed("ipv4 total length beyond the frame"),
       ip().totalLength(1500).tcp(40020, 443).flags(Ack)},
      {"eth1", "A TCP header that ends before its flags, to look neither established nor new.",
       malformed("tcp header cut short"), ip().totalLength(32).tcp(40020, 443).flags(Syn)},
      {"eth1", "A TCP header of four words.", malformed("tcp data offset under 5"),
       ip().tcp(40020, 443).dataOffset(4).flags(Ack)},
      {"eth1", "A TCP header that goes on behind the packet.", malformed("tcp data offset beyond the packet"),
       ip().tcp(40020, 443).dataOffset(15).flags(Ack)},
      {"eth1", "A fragment that would write other flags over the first one's.",
       malformed("tcp fragment at offset 1"), ip().fragment(1, false).protocol(6).payload(40)},
      {"eth1", "A UDP length that does not hold its own header.", malformed("udp length under 8"),
       ip().udp(33334, 53).udpLength(7).payload(8)},
      {"eth1", "An ICMP message without a checksum to its type and code.", malformed("icmp header cut short"),
       ip().protocol(1).raw({8, 0})},
      {"eth1", "SCTP ports and not much more.", malformed("sctp header cut short"),
       ip().protocol(132).raw({0x0b, 0x59, 0x0b, 0x59, 0, 0})},
      {"eth1", "An IPv6 chain whose options end behind the packet.", malformed("ipv6 header chain cut short"),
       ip6().payloadLength(4).hopByHop().tcp(40020, 443).flags(Ack)},
      {"eth1", "An IPv6 chain of nine headers, to hide what stands behind it.",
       malformed("ipv6 header chain over 8 headers"), nineOptions()},
      {"eth1", "A fragment of a fragment.", malformed("ipv6 second fragment header"),
       ip6().fragment(0, false).fragment(0, false).tcp(40020, 443).flags(Ack)},
      {"eth1", "An authentication header of 8 octets.", malformed("ipv6 authentication header under 12"),
       ip6().ah(12).extLength(0).tcp(40020, 443).flags(Ack)},
      {"eth4", "No list is bound for it here, and still it does not pass.", malformed("tcp header cut short"),
       frame().eth("02:00:5e:00:04:01").ip4("198.18.0.9", "198.51.100.7").protocol(6).payload(8)},
  };
}

}  // namespace Demo
