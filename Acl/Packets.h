#pragma once

#include <Acl/Keys.h>
#include <Acl/MatchFields.h>
#include <Classify/Find.h>

/// What a packet is to the rules of each kind. Made where it is needed and thrown away: its parts are
/// pointers and small values, which a caller has in registers.
///
/// fields() is what a rule is held against; look() and search() ask the compiled form, the one quick, the
/// other thorough (see Classify::Kernels).
namespace Acl {

using Classify::kernels;
using Classify::Questions;
using Classify::View;

/// What packets before the rules of IPv4 and IPv6 have in common. The L4 headers are null where the packet
/// has none of that kind; at most one is not.
template <class HeaderType, class Icmp, class FieldsType>
struct IpPacketOf {
  const HeaderType& ip;
  const Icmp* icmp;
  const Nimnet::TcpHdr* tcp;
  const Nimnet::UdpHdr* udp;
  const Nimnet::SctpHdr* sctp;
  uint16_t vlanId;
  bool vlanKnown;
  bool hopsKnown;

  FieldsType fields() const {
    FieldsType made(ip);
    made.vlanId = vlanId;
    made.vlanKnown = vlanKnown;
    made.hopsKnown = hopsKnown;
    made.l4Is(icmp, tcp, udp, sctp);
    return made;
  }
  /// Without what the list of a view does not look at.
  [[gnu::always_inline]] Classify::Key keyFor(const View& view) const {
    return keyOf(ip, icmp, tcp, udp, sctp, vlanId, vlanKnown, hopsKnown, view.shape & Classify::wideShape);
  }
};

/// A packet whose words are all in its key.
template <class Packet>
struct ByKey {
  [[gnu::always_inline]] static uint32_t look(const Packet& packet, const View& view) {
    const Classify::Key key = packet.keyFor(view);
    return kernels->find[view.shape](view, key.bits[0], key.bits[1], key.quad);
  }
  static uint32_t search(const Packet& packet, const View& view, const Questions& questions,
                         const void* context) {
    const Classify::Key key = packet.keyFor(view);
    return kernels->search(view, key.bits[0], key.bits[1], key.quad, questions, context);
  }
};

struct IpPacket : IpPacketOf<Nimnet::IpHdr, Nimnet::IcmpHdr, IpFields> {
  [[gnu::always_inline]] uint32_t look(const View& view) const { return ByKey<IpPacket>::look(*this, view); }
  uint32_t search(const View& view, const Questions& questions, const void* context) const {
    return ByKey<IpPacket>::search(*this, view, questions, context);
  }
};

/// The addresses are not in the key: the look-up reads them in the header.
struct Ip6Packet : IpPacketOf<Nimnet::Ip6Hdr, Nimnet::Icmp6Hdr, Ip6Fields> {
  static constexpr uint32_t addressesAt = 8;  // source, then destination (RFC 8200, 3)

  [[gnu::always_inline]] uint32_t look(const View& view) const {
    const Classify::Key key = keyFor(view);
    return kernels->findLong[view.shape](view, ip.fixed() + addressesAt, key.bits[1], key.quad);
  }
  uint32_t search(const View& view, const Questions& questions, const void* context) const {
    const Classify::Key key = keyFor(view);
    return kernels->searchLong(view, ip.fixed() + addressesAt, key.bits[1], key.quad, questions, context);
  }
};

struct MacPacket {
  Nimnet::EthAddr source, destination;
  uint16_t typeOrLen;
  uint16_t vlanId;

  MacFields fields() const { return {source, destination, typeOrLen, vlanId}; }
  [[gnu::always_inline]] Classify::Key keyFor(const View&) const {
    return keyOf(source, destination, typeOrLen, vlanId);
  }
  [[gnu::always_inline]] uint32_t look(const View& view) const { return ByKey<MacPacket>::look(*this, view); }
  uint32_t search(const View& view, const Questions& questions, const void* context) const {
    return ByKey<MacPacket>::search(*this, view, questions, context);
  }
};

}  // namespace Acl
