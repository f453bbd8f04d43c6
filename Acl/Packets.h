#pragma once

#include <Acl/Keys.h>
#include <Acl/MatchFields.h>
#include <Classify/Find.h>

/// A packet as the rules of each kind see it. Made where it is needed and thrown away: its parts are pointers
/// and small values, which the caller has in registers. `fields()`: the values that rules are tested with,
/// one rule at a time; `keyFor()`: the key for the compiled form.
namespace Acl {

/// What packets before the rules of IPv4 and IPv6 have in common.
template <class HeaderType, class FieldsType>
struct IpPacketOf {
  const HeaderType& ip;
  Nimnet::L4 l4;
  uint16_t vlanId;
  bool vlanKnown;
  bool hopsKnown;

  FieldsType fields() const {
    FieldsType made(ip);
    made.vlanId = vlanId;
    made.vlanKnown = vlanKnown;
    made.hopsKnown = hopsKnown;
    made.l4Is(l4);
    return made;
  }
  /// Without what the list of a view does not look at.
  [[gnu::always_inline]] Classify::Key keyFor(const Classify::View& view) const {
    return keyOf(ip, l4, vlanId, vlanKnown, hopsKnown, view.shape & Classify::wideShape);
  }
};

struct IpPacket : IpPacketOf<Nimnet::IpHdr, IpFields> {};

/// The addresses are not in the key: the look-up reads them in the header.
struct Ip6Packet : IpPacketOf<Nimnet::Ip6Hdr, Ip6Fields> {
  /// Source and destination, one behind the other (RFC 8200, 3).
  const uint8_t* addresses() const { return ip.fixed() + 8; }
};

struct MacPacket {
  const uint8_t* source;  ///< six octets, as they are sent
  const uint8_t* destination;
  uint16_t typeOrLen;
  uint16_t vlanId;

  MacFields fields() const {
    return {Nimnet::EthAddr::at(source), Nimnet::EthAddr::at(destination), typeOrLen, vlanId};
  }
  [[gnu::always_inline]] Classify::Key keyFor(const Classify::View&) const {
    return keyOf(source, destination, typeOrLen, vlanId);
  }
};

/// Asks a compiled form quickly or thoroughly, see Classify::Kernels.
template <class Packet>
[[gnu::always_inline]] inline uint32_t look(const Packet& packet, const Classify::View& view) {
  const Classify::Key key = packet.keyFor(view);
  if constexpr (requires { packet.addresses(); }) {
    return Classify::kernels->findLong[view.shape](view, packet.addresses(), key.bits[1], key.quad);
  } else {
    return Classify::kernels->find[view.shape](view, key.bits[0], key.bits[1], key.quad);
  }
}
/// Asks quickly for up to Classify::burstMost packets, which packetAt(i) makes.
template <class PacketAt>
[[gnu::always_inline]] inline void look(uint32_t count, const PacketAt& packetAt, const Classify::View& view,
                                        uint32_t* slots) {
  if (count == 0) return;
  Classify::Keys keys;
  for (uint32_t i = 0; i < count; ++i) {
    const auto& packet = packetAt(i);
    Classify::Key key = packet.keyFor(view);
    if constexpr (requires { packet.addresses(); }) {
      key.bits[0] = Classify::kernels->project(view, packet.addresses(), key.bits[1]);
    }
    keys.keyIs(i, key.bits[0], key.bits[1], key.quad);
  }
  Classify::kernels->findBurst[view.shape & Classify::wideShape](view, keys, count, slots);
}
template <class Packet>
uint32_t search(const Packet& packet, const Classify::View& view, const Classify::Questions& questions,
                const void* context) {
  const Classify::Key key = packet.keyFor(view);
  if constexpr (requires { packet.addresses(); }) {
    return Classify::kernels->searchLong(view, packet.addresses(), key.bits[1], key.quad, questions, context);
  } else {
    return Classify::kernels->search(view, key.bits[0], key.bits[1], key.quad, questions, context);
  }
}

}  // namespace Acl
