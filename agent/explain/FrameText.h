#pragma once

#include <Nimnet/Pkt.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A frame from its Ethernet header on, if it has one, without a frame check sequence.
struct Frame {
  std::vector<uint8_t> octets;
  uint32_t wireLength = 0;  ///< more than there are octets when a capture has cut the frame short
  /// Without an Ethernet header: the EtherType of what the octets are.
  std::optional<uint16_t> typeBefore{};
  std::string port{};                ///< where it comes in, if the text says so
  std::vector<std::string> notes{};  ///< for who explains it: what was made up, or is not in the octets

  void assignTo(Nimnet::Pkt& pkt) const;
};

/// Makes the frame that a text describes:
///
///   tcp|udp|sctp ADDRESS:PORT > ADDRESS:PORT [words]
///   icmp|icmpv6 ADDRESS > ADDRESS [MESSAGE | TYPE [CODE]] [words]
///   ip|ipv6 ADDRESS > ADDRESS [words]
///   arp ADDRESS > ADDRESS [words]
///   eth MAC > MAC TYPE [words]
///   type TYPE no ethernet header [words]
///   cut off N octets
///
/// Both addresses are IPv4 or both are IPv6. An IPv6 address with a port stands in brackets. Ports,
/// protocols, messages and types have the names of the configuration text; a message can be written `type N
/// code N`, too. The words can have any order: `vlan ID` (a second one, or `inner vlan ID`, is the inner
/// tag), `from MAC`, `to MAC`, `ttl N`, `hop-limit N`, `dscp VALUE`, `traffic-class N`, `protocol P` (with ip
/// and ipv6), `first fragment`, `[later] fragment [OFFSET]` (the offset is in units of 8 octets), `headers`
/// with one or more of `hop-by-hop`, `routing`, `ah` and `destination-options`, `syn ack fin rst psh urg` or
/// `no flags`, `no ethernet header`, `size N` (at least so many octets), `N octets` (exactly so many), `on
/// PORT`. Last of all can stand `malformed: REASON`, a reason of Velo::ParseFault. Commas count as blanks.
///
/// So every line of packetText() is such a text, and the frame that it makes has that line again. Whole lines
/// of `velo tail` and of the log are taken, too (FrameLine.h).
///
/// Lengths are right, checksums are zero, because nobody here reads them. Returns nothing, and sets `wrong`,
/// for any other text.
std::optional<Frame> readFrameText(std::string_view text, std::string* wrong);

/// Whether a text begins with one of the first words above.
bool isFrameText(std::string_view text);

}  // namespace Agent
