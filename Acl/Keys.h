#pragma once

#include <Acl/Filter.h>
#include <Classify/Form.h>
#include <Nimnet/EthHdr.h>
#include <Nimnet/Ip6Hdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>

#include <array>
#include <span>
#include <vector>

/// Packets and rules in the words that the compiled form compares.
///
///            first, second            pair                       third                        quad
///   IPv4     source, destination      ports, or ICMP type,       see Third                    class, hops
///                                     code and checksum
///   IPv6     both addresses, a        the same                   the same                     the same
///            projection of the list's
///   MAC      lower 32 bits of         upper 16 bits of source    EtherType in the upper half, -
///            source, destination      and destination            VLAN id in the lower
// Functions that make keys are always inlined: the key then stays in registers. That saves a third of the
// time of a look-up in a small list.
namespace Acl {

/// The third word of an IP packet.
namespace Third {
constexpr uint32_t vlanMask = 0xfff;
constexpr uint32_t vlanKnown = 1u << 12;
constexpr uint32_t protocolKnown = 1u << 13;
constexpr uint32_t hasIcmp = 1u << 14;
constexpr uint32_t hasPorts = 1u << 15;
constexpr uint32_t laterFragment = 1u << 16;
constexpr uint32_t established = 1u << 17;   ///< TCP with ACK or RST
constexpr int flagsShift = 18;               ///< FIN, SYN, RST and ACK, see flagsOf()
constexpr uint32_t sourceAgrees = 1u << 22;  ///< IPv6, see Classify::Projection
constexpr uint32_t destinationAgrees = 1u << 23;
constexpr int protocolShift = 24;

/// The TCP flags that have a place here; rules that ask for others are inexact.
constexpr uint32_t flagsKept =
    Nimnet::TcpHdr::fin | Nimnet::TcpHdr::syn | Nimnet::TcpHdr::rst | Nimnet::TcpHdr::ack;
constexpr uint32_t flagsOf(uint32_t flags) { return ((flags & 0x07) | (flags & 0x10) >> 1) << flagsShift; }
static_assert(flagsKept == 0x17 && flagsOf(flagsKept) == 0xfu << flagsShift);
}  // namespace Third

/// The lower bounds of the quad for IP packets whose traffic class and hops lie in these ranges (both ends
/// included). From the lowest octet on: class, its complement, hops, their complement.
constexpr uint32_t quadIn(uint32_t classLow, uint32_t classHigh, uint32_t hopsLow, uint32_t hopsHigh) {
  return classLow | (0xff - classHigh) << 8 | hopsLow << 16 | (0xff - hopsHigh) << 24;
}
/// The quad of a packet. Hops that are not known lie only in the range of all hops.
constexpr uint32_t quadOf(uint32_t trafficClass, uint32_t hops, bool hopsKnown) {
  const uint32_t quad = quadIn(trafficClass, trafficClass, hops, hops);
  return hopsKnown ? quad : quad & 0xffff;
}

/// What the L4 header gives to the third word, by its kind: some bits, and the TCP flags in an octet of it
/// (the mask is zero for all others).
struct L4Form {
  uint32_t third = 0;
  uint8_t flagsAt = 0;
  uint8_t flags = 0;
};
constexpr L4Form formOf(Nimnet::L4Kind kind) {
  using Nimnet::L4Kind;
  switch (kind) {
    case L4Kind::none:
      break;
    case L4Kind::tcp:
      return {Third::hasPorts, Nimnet::TcpHdr::flagsAt, 0xff};
    case L4Kind::udp:
    case L4Kind::sctp:
      return {Third::hasPorts};
    case L4Kind::icmp:
    case L4Kind::icmp6:
      return {Third::hasIcmp};
  }
  return {};
}
inline constexpr auto l4Forms = [] {
  std::array<L4Form, Nimnet::l4Kinds> forms;
  for (uint32_t kind = 0; kind < forms.size(); ++kind) forms[kind] = formOf(Nimnet::L4Kind(kind));
  return forms;
}();
/// The bits of the third word for the flags of a TCP header.
inline constexpr auto thirdOfFlags = [] {
  std::array<uint32_t, 256> third{};
  for (uint32_t flags = 0; flags < third.size(); ++flags) {
    const bool established = flags & (Nimnet::TcpHdr::ack | Nimnet::TcpHdr::rst);
    third[flags] = Third::flagsOf(flags) | (established ? Third::established : 0);
  }
  return third;
}();

/// The pair: the header's first four octets. Whatever these are, rules that ask for them ask for hasPorts or
/// hasIcmp, too. Sets the header's bits of the third word. Packets of all kinds go the same way, for which
/// kind comes next no processor foresees.
[[gnu::always_inline]] inline uint32_t pairOf(const Nimnet::L4& l4, uint32_t& third) {
  const L4Form& form = l4Forms[static_cast<uint32_t>(l4.kind())];
  third |= form.third | thirdOfFlags[l4.octets()[form.flagsAt] & form.flags];
  return Nimnet::read32(l4.octets());
}

inline uint32_t vlanOf(uint16_t vlanId, bool known) {
  return (known ? Third::vlanKnown : 0) | (vlanId & Third::vlanMask);
}

[[gnu::always_inline]] inline Classify::Key keyOf(const Nimnet::IpHdr& ip, const Nimnet::L4& l4,
                                                  uint16_t vlanId, bool matchVlan, bool matchHops,
                                                  bool wide) {
  uint32_t third =
      vlanOf(vlanId, matchVlan) | Third::protocolKnown | uint32_t{ip.protocol()} << Third::protocolShift;
  if (ip.isNonFirstFragment()) third |= Third::laterFragment;
  const uint32_t pair = pairOf(l4, third);
  return {{Nimnet::read64(ip.bytes + 12), uint64_t{pair} << 32 | third},
          wide ? quadOf(ip.tos(), ip.ttl(), matchHops) : 0};
}

/// Without the addresses, which the look-up projects itself.
[[gnu::always_inline]] inline Classify::Key keyOf(const Nimnet::Ip6Hdr& ip6, const Nimnet::L4& l4,
                                                  uint16_t vlanId, bool matchVlan, bool matchHops,
                                                  bool wide) {
  uint32_t third = vlanOf(vlanId, matchVlan);
  if (ip6.protocolKnown()) {
    third |= Third::protocolKnown | uint32_t{ip6.protocol()} << Third::protocolShift;
  }
  if (ip6.isNonFirstFragment()) third |= Third::laterFragment;
  const uint32_t pair = pairOf(l4, third);
  return {{0, uint64_t{pair} << 32 | third},
          wide ? quadOf(ip6.trafficClass(), ip6.hopLimit(), matchHops) : 0};
}

/// Both MAC addresses are six octets as they are sent.
[[gnu::always_inline]] inline Classify::Key keyOf(const uint8_t* source, const uint8_t* destination,
                                                  uint16_t typeOrLen, uint16_t vlanId) {
  using Nimnet::read16, Nimnet::read32;
  return Classify::Key::of(read32(source + 2), read32(destination + 2),
                           uint32_t{typeOrLen} << 16 | (vlanId & Third::vlanMask),
                           uint32_t{read16(source)} << 16 | read16(destination), 0);
}

/// The projection under which the rules of an IPv6 list are told apart best.
Classify::Projection projectionOf(std::span<const Ip6Filter* const> filters);

/// A rule as images, to be added to `images`; none when it matches no packet. A rule whose ports are several
/// intervals becomes several images, or one that is inexact when they would be many. `wide` says whether the
/// quad is looked at; images for a list where it is not are inexact instead.
void addImages(const IpFilter& filter, uint32_t slot, bool wide, std::vector<Classify::Image>& images);
void addImages(const Ip6Filter& filter, const Classify::Projection& projection, uint32_t slot, bool wide,
               std::vector<Classify::Image>& images);
void addImages(const MacFilter& filter, uint32_t slot, std::vector<Classify::Image>& images);

/// True when the filter asks for something that the quad has.
inline bool asksQuad(const IpFilterBase& filter) {
  return filter.trafficClassMask != 0 || !filter.hops.isAny();
}

}  // namespace Acl
