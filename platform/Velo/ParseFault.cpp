#include <Velo/ParseFault.h>

namespace Velo {

std::string_view reason(ParseFault fault) {
  switch (fault) {
    case ParseFault::none:
      return "";
    case ParseFault::ethHeaderCut:
      return "ethernet header cut short";
    case ParseFault::tagCut:
      return "vlan tag cut short";
    case ParseFault::tooManyTags:
      return "more than two vlan tags";
    case ParseFault::ipHeaderCut:
      return "ipv4 header cut short";
    case ParseFault::ipVersion:
      return "ipv4 version is not 4";
    case ParseFault::ipHeaderLength:
      return "ipv4 header length under 20";
    case ParseFault::ipTotalLengthTooShort:
      return "ipv4 total length under the header length";
    case ParseFault::ipTotalLengthTooLong:
      return "ipv4 total length beyond the frame";
    case ParseFault::ip6HeaderCut:
      return "ipv6 header cut short";
    case ParseFault::ip6Version:
      return "ipv6 version is not 6";
    case ParseFault::ip6PayloadLengthTooLong:
      return "ipv6 payload length beyond the frame";
    case ParseFault::ip6ChainCut:
      return "ipv6 header chain cut short";
    case ParseFault::ip6ChainTooLong:
      return "ipv6 header chain over 8 headers";
    case ParseFault::ip6SecondFragmentHeader:
      return "ipv6 second fragment header";
    case ParseFault::ip6AhTooShort:
      return "ipv6 authentication header under 12";
    case ParseFault::tcpHeaderCut:
      return "tcp header cut short";
    case ParseFault::tcpDataOffsetTooShort:
      return "tcp data offset under 5";
    case ParseFault::tcpDataOffsetTooLong:
      return "tcp data offset beyond the packet";
    case ParseFault::tcpFragmentAtOffsetOne:
      return "tcp fragment at offset 1";
    case ParseFault::udpHeaderCut:
      return "udp header cut short";
    case ParseFault::udpLengthTooShort:
      return "udp length under 8";
    case ParseFault::sctpHeaderCut:
      return "sctp header cut short";
    case ParseFault::icmpHeaderCut:
      return "icmp header cut short";
    case ParseFault::icmp6HeaderCut:
      return "icmpv6 header cut short";
  }
  return "";
}

}  // namespace Velo
