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
  uint32_t wireLength = 0;  ///< more than there are octets when a capture has cut the frame short
};

/// Makes the frame that a text describes:
///
///   tcp|udp|sctp ADDRESS:PORT > ADDRESS:PORT [words]
///   icmp|icmpv6 ADDRESS > ADDRESS [MESSAGE | TYPE [CODE]] [words]
///   ip|ipv6 ADDRESS > ADDRESS [words]
///   arp ADDRESS > ADDRESS [words]
///   eth MAC > MAC TYPE [words]
///
/// Both addresses are IPv4 or both are IPv6. An IPv6 address with a port stands in brackets. Ports,
/// protocols, messages and types have the names of the configuration text. The words can have any order:
/// `vlan ID` (a second one is the inner tag), `from MAC`, `to MAC`, `ttl N`, `hop-limit N`, `dscp VALUE`,
/// `traffic-class N`, `protocol P` (with ip and ipv6), `fragment [OFFSET]` (a later fragment; the offset is
/// in units of 8 octets), `syn ack fin rst psh urg`, `size N` (octets of the frame).
///
/// Lengths are right, checksums are zero, because nobody here reads them. Returns nothing, and sets `wrong`,
/// for any other text.
std::optional<Frame> readFrameText(std::string_view text, std::string* wrong);

/// Whether a text begins with one of the first words above.
bool isFrameText(std::string_view text);

}  // namespace Agent
