#pragma once

#include <Nimnet/EthHdr.h>
#include <Velo/PacketContext.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// What an IP packet has unless its line says otherwise. Besides, its traffic class is 0.
namespace Unsaid {
inline constexpr Nimnet::EthAddr from{{0x02, 0, 0, 0, 0, 0x01}};
inline constexpr Nimnet::EthAddr to{{0x02, 0, 0, 0, 0, 0x02}};
inline constexpr uint8_t hops = 64;
}  // namespace Unsaid

/// The packet of a context, parsed, in a line:
///   "tcp 192.0.2.1:1024 > 198.51.100.7:443 syn, vlan 5, 60 octets"
/// All is there that a rule can ask for. A super-frame that a sender left to be cut into segments is one
/// packet here, as it is for the lists. `velo explain` takes the line back (explain/FrameText.h): whoever
/// adds words to it, adds them there.
std::string packetText(const Velo::PacketContext& ctx);

/// The same of a packet of which only the first octets are there: what is known of the whole of it. Such a
/// line can have ", 3 segments" in it: so many frames a wire carries for the super-frame.
struct WholePacket {
  Velo::ParseFault fault = Velo::ParseFault::none;
  uint64_t segments = 1;
  /// The MAC addresses of an IP packet are told, too. Without them a line is shorter, and only good enough
  /// for a packet of which nothing was decided by them.
  bool addresses = true;
};
std::string packetText(const Nimnet::Pkt& pkt, const Velo::ParsedPacket& parsed, const WholePacket& whole);

/// What IPv6 extension headers are called there (RFC 8200, 4; RFC 4302). Fragment headers are not among them:
/// fragments are told as such.
struct ExtensionName {
  std::string_view name;
  uint8_t header;
};
std::span<const ExtensionName> extensionNames();

/// The protocol of an IP packet by its name in the configuration text, or by number.
std::string protocolText(uint8_t protocol);

}  // namespace Agent
