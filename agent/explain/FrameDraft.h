#pragma once

#include <Nimnet/EthHdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>
#include <Velo/ParseFault.h>
#include <agent/show/PacketText.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Agent {

inline constexpr uint16_t etherTypeArp = 0x0806;
inline constexpr size_t smallestFrame = 60;  // IEEE 802.3, 3.2.8, without the frame check sequence

/// An IPv4 or IPv6 address; neither of them before it is read.
using IpAddress = std::variant<std::monostate, Nimnet::IpAddr, Nimnet::Ip6Addr>;

inline bool isSix(const IpAddress& address) { return std::holds_alternative<Nimnet::Ip6Addr>(address); }

/// What a text says about a frame. With a `protocol` the frame is an IP packet. Without one but with
/// addresses it is an ARP request for the destination (RFC 826). Otherwise it is an Ethernet header and
/// zeros.
struct Draft {
  Nimnet::EthAddr from = Unsaid::from;
  Nimnet::EthAddr to = Unsaid::to;
  std::vector<uint16_t> vlans;
  uint16_t etherType = 0;
  IpAddress source, destination;
  std::optional<uint8_t> protocol;
  bool anyProtocol = false;  ///< the text may name any protocol: its first word is `ip` or `ipv6`
  std::optional<uint16_t> sourcePort, destinationPort;
  uint8_t icmpType = 0, icmpCode = 0;
  uint8_t tcpFlags = 0;
  uint8_t trafficClass = 0;
  uint8_t hops = Unsaid::hops;
  std::optional<uint32_t> fragmentOffset;  ///< of a later fragment
  bool firstFragment = false;
  std::vector<uint8_t> headers;  ///< IPv6 extension headers, in their order; without fragment headers
  size_t size = smallestFrame;   ///< the frame has at least so many octets, without a frame check sequence
  /// It has exactly so many. A frame that is too large for that loses octets that mean nothing first.
  std::optional<size_t> exactSize;
  bool ethernet = true;  ///< without: the octets are what would stand behind the EtherType
  bool cutOff = false;   ///< too short for an Ethernet header
  /// Made so that a parser finds this fault, if the rest of the draft allows it.
  Velo::ParseFault fault = Velo::ParseFault::none;
  bool unknownProtocol = false;  ///< as it is behind malformed headers
  std::string port{};            ///< where the frame comes in; empty: not said
  uint32_t segments = 1;         ///< more: the frame is a super-frame that is still to be cut

  /// The octets of the frame. Lengths are right, checksums are zero; of a malformed frame one thing is wrong.
  std::vector<uint8_t> octets() const;
  /// How many octets a capture has of a frame of so many: of some malformed frames not all.
  size_t captured(size_t octets) const;
  /// Of a frame without an Ethernet header the type that would stand before its octets.
  uint16_t typeBefore() const { return vlans.empty() ? etherType : Nimnet::EtherType::vlan; }
};

}  // namespace Agent
