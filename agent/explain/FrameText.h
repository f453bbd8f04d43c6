#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A frame from its Ethernet header on, without a frame check sequence.
struct Frame {
  std::vector<uint8_t> octets;
  uint32_t wireLength = 0;  ///< of a capture that cut the frame short, more than there are octets
};

/// Makes the frame that a text describes:
///
///   tcp|udp|sctp ADDRESS:PORT > ADDRESS:PORT [words]
///   icmp|icmpv6 ADDRESS > ADDRESS [MESSAGE | TYPE [CODE]] [words]
///   ip|ipv6 ADDRESS > ADDRESS [words]
///   arp ADDRESS > ADDRESS [words]
///   eth MAC > MAC TYPE [words]
///
/// Addresses are IPv4 or IPv6, both of one kind; an IPv6 address with a port stands in brackets. Ports,
/// protocols, messages and types may be named as in the configuration text. The words, in any order: `vlan
/// ID` (a second one is the inner tag), `from MAC`, `to MAC`, `ttl N`, `hop-limit N`, `dscp VALUE`,
/// `traffic-class N`, `protocol P` (of ip and ipv6), `fragment [OFFSET]` (a later fragment; the offset counts
/// 8 octets), `syn ack fin rst psh urg`, `size N` (octets of the frame).
///
/// Lengths are right, checksums are left zero: nothing here reads them. Returns nothing, with what is wrong,
/// for any other text.
std::optional<Frame> readFrameText(std::string_view text, std::string* wrong);

/// Whether a text begins with a word that readFrameText() knows.
bool isFrameText(std::string_view text);

}  // namespace Agent
