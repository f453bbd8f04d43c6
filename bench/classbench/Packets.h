#pragma once

#include <Acl/Rule.h>
#include <Nimnet/EthHdr.h>
#include <Nimnet/Ip6Hdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>

#include <array>
#include <cstring>
#include <vector>

#include "classbench/Tuples.h"

namespace Bench {

/// Packets as the matchers take them: headers in network order where a frame would have them, the L4 header
/// right behind the last one. One cache line each, so that whoever answers reads the same bytes.

/// What the packet path knows beside the octets of the headers.
struct Around {
  uint8_t protocol = 0;  ///< says which L4 header is there: see l4()
  uint16_t vlanId = 0;
};

struct alignas(64) IpPacket {
  Nimnet::IpHdr ip{};
  uint8_t l4Octets[Nimnet::TcpHdr::minSize]{};
  Around around;
};

struct alignas(64) Ip6Packet {
  uint8_t fixed[Nimnet::Ip6Hdr::size]{};
  uint8_t l4Octets[Nimnet::TcpHdr::minSize]{};
  Around around;
};

struct MacPacket {
  Nimnet::EthAddr source, destination;
  uint16_t typeOrLen = 0;
  uint16_t vlanId = 0;
};

template <class Rule>
struct PacketTypeOf;
template <>
struct PacketTypeOf<Acl::IpRule> {
  using Type = IpPacket;
};
template <>
struct PacketTypeOf<Acl::Ip6Rule> {
  using Type = Ip6Packet;
};
template <>
struct PacketTypeOf<Acl::MacRule> {
  using Type = MacPacket;
};
/// The packets that a kind of rules judges.
template <class Rule>
using PacketOf = typename PacketTypeOf<Rule>::Type;

/// The kinds of L4 headers by protocol, in IPv4 or IPv6.
template <uint8_t icmpProtocol, Nimnet::L4Kind icmp>
inline constexpr auto l4Kinds = [] {
  std::array<Nimnet::L4Kind, 256> kinds{};
  kinds[icmpProtocol] = icmp;
  kinds[6] = Nimnet::L4Kind::tcp;
  kinds[17] = Nimnet::L4Kind::udp;
  kinds[132] = Nimnet::L4Kind::sctp;
  return kinds;
}();
inline Nimnet::L4 l4(const IpPacket& packet) {
  return {l4Kinds<1, Nimnet::L4Kind::icmp>[packet.around.protocol], packet.l4Octets};
}
inline Nimnet::L4 l4(const Ip6Packet& packet) {
  return {l4Kinds<58, Nimnet::L4Kind::icmp6>[packet.around.protocol], packet.l4Octets};
}

/// The L4 header when it is the one of `protocol`, else null.
template <class Hdr, class Packet>
const Hdr* l4(const Packet& packet, uint8_t protocol) {
  return packet.around.protocol == protocol ? reinterpret_cast<const Hdr*>(packet.l4Octets) : nullptr;
}

inline void write16(uint8_t* at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}
inline void write32(uint8_t* at, uint32_t value) {
  write16(at, static_cast<uint16_t>(value >> 16));
  write16(at + 2, static_cast<uint16_t>(value));
}
inline void write64(uint8_t* at, uint64_t value) {
  write32(at, static_cast<uint32_t>(value >> 32));
  write32(at + 4, static_cast<uint32_t>(value));
}

/// A packet with these five fields; TTL 64, DSCP 0, of TCP with ACK.
IpPacket ipPacket(const TupleHeader& header);

/// How IPv4 addresses are put into IPv6: below 2001:db8::/96, or right behind 2001:db8::/32.
enum class Lift { low, high };
Nimnet::Ip6Addr lifted(uint32_t address, Lift lift);
Ip6Packet ip6Packet(const TupleHeader& header, Lift lift);

/// The same as rules of our lists; rule i has the sequence number i + 1.
std::vector<Acl::IpRule> ipRules(const std::vector<TupleRule>& rules);
std::vector<Acl::Ip6Rule> ip6Rules(const std::vector<TupleRule>& rules, Lift lift);

template <class Header, class Make>
auto packetsOf(const std::vector<Header>& headers, const Make& make) {
  std::vector<decltype(make(headers.front()))> packets;
  packets.reserve(headers.size());
  for (const Header& header : headers) packets.push_back(make(header));
  return packets;
}

}  // namespace Bench
