#include <Kelp/Hash.h>
#include <Velo/FlowHash.h>

namespace Velo {

namespace {

uint32_t portsOf(const ParsedL4& l4) {
  const auto both = [](const auto* hdr) {
    return (uint32_t{hdr->sourcePort()} << 16) | hdr->destinationPort();
  };
  if (l4.tcp()) return both(l4.tcp());
  if (l4.udp()) return both(l4.udp());
  if (l4.sctp()) return both(l4.sctp());
  return 0;
}

}  // namespace

uint32_t flowHash(const ParsedPacket& packet) {
  if (const ParsedIpHdr* ip = packet.ipHdr()) {
    if (const Nimnet::IpHdr* ip4 = ip->ipHdr()) {
      return Kelp::keyHashAll(ip4->source().value, ip4->destination().value, ip4->protocol(),
                              ip4->isFragment() ? 0u : portsOf(packet.l4()));
    }
    const Nimnet::Ip6Hdr& ip6 = *ip->ip6Hdr();
    const bool whole = !ip6.isFragment();  // only the first fragment tells the protocol of the last header
    return Kelp::keyHashAll(ip6.source().high, ip6.source().low, ip6.destination().high,
                            ip6.destination().low, whole ? ip6.protocol() : uint8_t{0},
                            whole ? portsOf(packet.l4()) : 0u);
  }
  const Nimnet::EthHdr* eth = packet.ethPacket()->ethHdr();
  return eth ? Kelp::keyHashAll(eth->source().value(), eth->destination().value()) : 0;
}

}  // namespace Velo
