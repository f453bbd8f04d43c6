#include <agent/explain/FrameDraft.h>

#include <algorithm>

namespace Agent {

namespace {

namespace EtherType = Nimnet::EtherType;
namespace IpProtocol = Nimnet::IpProtocol;
using Nimnet::TcpHdr;

using Octets = std::vector<uint8_t>;

void put8(Octets& to, uint32_t value) { to.push_back(static_cast<uint8_t>(value)); }
void put16(Octets& to, uint32_t value) {
  put8(to, value >> 8);
  put8(to, value);
}
void put32(Octets& to, uint32_t value) {
  put16(to, value >> 16);
  put16(to, value);
}
void put64(Octets& to, uint64_t value) {
  put32(to, static_cast<uint32_t>(value >> 32));
  put32(to, static_cast<uint32_t>(value));
}
void put(Octets& to, const Nimnet::EthAddr& address) {
  to.insert(to.end(), address.bytes.begin(), address.bytes.end());
}
void put(Octets& to, const Octets& more) { to.insert(to.end(), more.begin(), more.end()); }

/// The header behind the IP header; for a later fragment some data instead.
Octets l4Octets(const Draft& draft) {
  Octets l4;
  if (draft.fragmentOffset) return Octets(8);
  const auto ports = [&] {
    put16(l4, draft.sourcePort.value_or(0));
    put16(l4, draft.destinationPort.value_or(0));
  };
  switch (*draft.protocol) {
    case IpProtocol::tcp:
      ports();
      put64(l4, 0);
      put8(l4, TcpHdr::minSize / 4 << 4);
      put8(l4, draft.tcpFlags);
      put16(l4, 0xffff);
      put32(l4, 0);
      break;
    case IpProtocol::udp:
      ports();
      put16(l4, Nimnet::UdpHdr::minSize);
      put16(l4, 0);
      break;
    case IpProtocol::sctp:
      ports();
      put64(l4, 0);
      break;
    default:
      // An ICMP message. For any other protocol these are octets without a meaning.
      put8(l4, draft.icmpType);
      put8(l4, draft.icmpCode);
      l4.resize(8);
  }
  return l4;
}

Octets ip4Octets(const Draft& draft) {
  const Octets l4 = l4Octets(draft);
  Octets ip;
  put8(ip, 0x45);
  put8(ip, draft.trafficClass);
  put16(ip, static_cast<uint32_t>(Nimnet::IpHdr::minSize + l4.size()));
  put16(ip, 0);
  put16(ip, draft.fragmentOffset.value_or(0));
  put8(ip, draft.hops);
  put8(ip, *draft.protocol);
  put16(ip, 0);
  put32(ip, std::get<Nimnet::IpAddr>(draft.source).value);
  put32(ip, std::get<Nimnet::IpAddr>(draft.destination).value);
  put(ip, l4);
  return ip;
}

Octets ip6Octets(const Draft& draft) {
  Octets payload;
  if (draft.fragmentOffset) {
    put8(payload, *draft.protocol);
    put8(payload, 0);
    put16(payload, *draft.fragmentOffset << 3);
    put32(payload, 0);
  }
  put(payload, l4Octets(draft));
  Octets ip;
  put32(ip, (6u << 28) | (uint32_t{draft.trafficClass} << 20));
  put16(ip, static_cast<uint32_t>(payload.size()));
  put8(ip, draft.fragmentOffset ? IpProtocol::fragment : *draft.protocol);
  put8(ip, draft.hops);
  for (const IpAddress* address : {&draft.source, &draft.destination}) {
    const auto& six = std::get<Nimnet::Ip6Addr>(*address);
    put64(ip, six.high);
    put64(ip, six.low);
  }
  put(ip, payload);
  return ip;
}

/// An ARP request for the destination (RFC 826).
Octets arpOctets(const Draft& draft) {
  Octets arp;
  put16(arp, 1);
  put16(arp, EtherType::ip);
  put16(arp, 0x0604);
  put16(arp, 1);
  put(arp, draft.from);
  put32(arp, std::get<Nimnet::IpAddr>(draft.source).value);
  put(arp, Nimnet::EthAddr());
  put32(arp, std::get<Nimnet::IpAddr>(draft.destination).value);
  return arp;
}

}  // namespace

std::vector<uint8_t> Draft::octets() const {
  Octets frame;
  put(frame, to);
  put(frame, from);
  for (const uint16_t vlan : vlans) {
    put16(frame, EtherType::vlan);
    put16(frame, vlan);
  }
  put16(frame, etherType);
  if (isSix(source)) {
    put(frame, ip6Octets(*this));
  } else if (protocol) {
    put(frame, ip4Octets(*this));
  } else if (etherType == etherTypeArp && source.index() != 0) {
    put(frame, arpOctets(*this));
  }
  frame.resize(std::max(frame.size(), size));
  return frame;
}

}  // namespace Agent
