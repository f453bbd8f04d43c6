#include <Velo/ParsedPacket.h>
#include <agent/explain/FrameDamage.h>
#include <agent/explain/FrameDraft.h>

#include <algorithm>

namespace Agent {

namespace {

namespace EtherType = Nimnet::EtherType;
namespace IpProtocol = Nimnet::IpProtocol;
using Nimnet::TcpHdr;
using Velo::ParseFault;

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

constexpr size_t dataOctets = 8;  // of data without a meaning, and of messages

/// The header behind the IP header. Data and messages can be up to `less` octets shorter than usual.
Octets l4Header(const Draft& draft, size_t less) {
  Octets l4;
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
      const bool message = *draft.protocol == IpProtocol::icmp || *draft.protocol == IpProtocol::icmp6;
      l4.resize(dataOctets - std::min(less, message ? dataOctets - Nimnet::IcmpHdr::minSize : dataOctets));
  }
  return l4;
}

/// The same as it is in the frame, with its fault; for a later fragment some data instead.
Octets l4Octets(const Draft& draft, size_t less) {
  if (draft.fragmentOffset) return Octets(dataOctets - std::min(less, dataOctets));
  Octets l4 = l4Header(draft, less);
  const size_t whole = l4.size();
  damageL4(l4, draft.fault);
  // A header that is cut anyway may lose the octets that are too many for the frame, too.
  if (l4.size() < whole) l4.resize(l4.size() - std::min(less, l4.size()));
  return l4;
}

Octets ip4Octets(const Draft& draft, size_t less) {
  constexpr uint32_t moreFragments = 0x2000;
  const Octets l4 = l4Octets(draft, less);
  Octets ip;
  put8(ip, 0x45);
  put8(ip, draft.trafficClass);
  put16(ip, static_cast<uint32_t>(Nimnet::IpHdr::minSize + l4.size()));
  put16(ip, 0);
  put16(ip, draft.fragmentOffset.value_or(draft.firstFragment ? moreFragments : 0));
  put8(ip, draft.hops);
  put8(ip, *draft.protocol);
  put16(ip, 0);
  put32(ip, std::get<Nimnet::IpAddr>(draft.source).value);
  put32(ip, std::get<Nimnet::IpAddr>(draft.destination).value);
  damageIp4(ip, draft.fault);
  put(ip, l4);
  return ip;
}

/// Whether the packet ends within the chain of extension headers: because the chain is cut, or because the
/// length of the packet is wrong and the text of the frame does not know the protocol behind the chain.
bool cutsChain(const Draft& draft) {
  return draft.fault == ParseFault::ip6ChainCut ||
         (draft.fault == ParseFault::ip6PayloadLengthTooLong && draft.unknownProtocol);
}

/// The kinds of the extension headers in their order. Some faults need headers that the draft does not name.
Octets chainOf(const Draft& draft) {
  Octets chain = draft.headers;
  if (draft.fragmentOffset || draft.firstFragment) chain.push_back(IpProtocol::fragment);
  if (cutsChain(draft)) chain.push_back(IpProtocol::destinationOptions);
  switch (draft.fault) {
    case ParseFault::ip6SecondFragmentHeader:
      if (!draft.firstFragment) chain.push_back(IpProtocol::fragment);
      chain.push_back(IpProtocol::fragment);
      break;
    case ParseFault::ip6AhTooShort:
      chain.push_back(IpProtocol::ah);
      break;
    case ParseFault::ip6ChainTooLong:
      chain.resize(Velo::ParsedPacket::maxIp6Headers + 1, IpProtocol::destinationOptions);
      break;
    default:
      break;
  }
  return chain;
}

/// One extension header of the smallest size.
Octets headerOctets(const Draft& draft, uint8_t kind, uint8_t next, bool last) {
  constexpr uint32_t padding = 1;  // option PadN with the rest of the octets (RFC 8200, 4.2)
  constexpr uint32_t ahWords = 1;  // less two, for the 12 octets without a check value
  Octets header;
  put8(header, next);
  if (kind == IpProtocol::fragment) {
    put8(header, 0);
    put16(header, draft.fragmentOffset ? *draft.fragmentOffset << 3 : draft.firstFragment ? 1 : 0);
    put32(header, 0);
  } else if (kind == IpProtocol::ah) {
    put8(header, last && draft.fault == ParseFault::ip6AhTooShort ? 0 : ahWords);
    header.resize(12);
  } else {
    put8(header, last && cutsChain(draft) ? 0xff : 0);
    put8(header, kind == IpProtocol::routing ? 0 : padding);
    put8(header, kind == IpProtocol::routing ? 0 : 4);
    header.resize(8);
  }
  return header;
}

/// How many octets at the end of a malformed chain may be missing: the fault is found without them.
size_t needlessOctets(const Draft& draft) {
  if (cutsChain(draft)) return 8;
  switch (draft.fault) {
    case ParseFault::ip6ChainTooLong:
      return 8;
    case ParseFault::ip6AhTooShort:
      return 4;
    default:
      return 0;
  }
}

Octets ip6Octets(const Draft& draft, size_t less) {
  const Octets chain = chainOf(draft);
  Octets payload;
  for (size_t i = 0; i < chain.size(); ++i) {
    const bool last = i + 1 == chain.size();
    put(payload, headerOctets(draft, chain[i], last ? *draft.protocol : chain[i + 1], last));
  }
  const Octets l4 = l4Octets(draft, less);
  if (l4.empty() && less > dataOctets)
    payload.resize(payload.size() - std::min(less - dataOctets, needlessOctets(draft)));
  put(payload, l4);
  Octets ip;
  put32(ip, (6u << 28) | (uint32_t{draft.trafficClass} << 20));
  put16(ip, static_cast<uint32_t>(payload.size()));
  put8(ip, chain.empty() ? *draft.protocol : chain.front());
  put8(ip, draft.hops);
  for (const IpAddress* address : {&draft.source, &draft.destination}) {
    const auto& six = std::get<Nimnet::Ip6Addr>(*address);
    put64(ip, six.high);
    put64(ip, six.low);
  }
  damageIp6(ip, draft.fault);
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

/// The frame with IP data that are `less` octets shorter than usual, before it is filled up.
Octets frameOctets(const Draft& draft, size_t less) {
  Octets frame;
  if (draft.ethernet) {
    put(frame, draft.to);
    put(frame, draft.from);
  }
  for (const uint16_t vlan : draft.vlans) {
    put16(frame, EtherType::vlan);
    put16(frame, vlan);
  }
  put16(frame, draft.etherType);
  if (isSix(draft.source)) {
    put(frame, ip6Octets(draft, less));
  } else if (draft.protocol) {
    put(frame, ip4Octets(draft, less));
  } else if (draft.etherType == etherTypeArp && draft.source.index() != 0) {
    put(frame, arpOctets(draft));
  }
  // The first type of a frame without an Ethernet header stands beside it.
  if (!draft.ethernet) frame.erase(frame.begin(), frame.begin() + 2);
  return frame;
}

}  // namespace

size_t Draft::captured(size_t octets) const {
  constexpr size_t tag = 4;
  if (cutOff) return std::min<size_t>(octets, Nimnet::EthHdr::size - 1);
  const size_t l2 = (ethernet ? Nimnet::EthHdr::size : 0) + tag * vlans.size();
  switch (fault) {
    case ParseFault::tagCut:
    case ParseFault::ip6HeaderCut:
      return std::min(octets, l2);
    case ParseFault::ipHeaderCut:
      // A frame with addresses has its header without the options; any other has none.
      return std::min(octets, l2 + (protocol ? Nimnet::IpHdr::minSize : 0));
    case ParseFault::ipTotalLengthTooLong:
    case ParseFault::ip6PayloadLengthTooLong:
      // A protocol that is named without its ports, or without its message, has no header there.
      if (!anyProtocol || fragmentOffset || unknownProtocol) return octets;
      return std::min(octets, frameOctets(*this, 0).size() - l4Octets(*this, 0).size());
    default:
      return octets;
  }
}

std::vector<uint8_t> Draft::octets() const {
  if (cutOff) return Octets(exactSize.value_or(0));
  Octets frame = frameOctets(*this, 0);
  if (!exactSize) {
    if (ethernet) frame.resize(std::max(frame.size(), size));
    return frame;
  }
  if (frame.size() > *exactSize) frame = frameOctets(*this, frame.size() - *exactSize);
  frame.resize(*exactSize);
  return frame;
}

}  // namespace Agent
