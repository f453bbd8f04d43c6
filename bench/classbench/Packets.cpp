#include "classbench/Packets.h"

namespace Bench {

namespace {

constexpr uint8_t ttl = 64;

template <class Packet>
void l4Is(Packet& packet, const TupleHeader& header) {
  packet.around.protocol = header.protocol;
  // Written for every protocol: who classifies by five numbers reads four octets here whatever they mean.
  write16(packet.l4Octets, header.sourcePort);
  write16(packet.l4Octets + 2, header.destinationPort);
  if (header.protocol != 6) return;
  packet.l4Octets[12] = 0x50;
  packet.l4Octets[13] = Nimnet::TcpHdr::ack;
}

Acl::PortMatch portMatch(const PortRange& range) {
  Acl::PortMatch match;
  if (range.isAny()) return match;
  match.op = range.low == range.high ? Acl::Compare::eq : Acl::Compare::range;
  match.count = range.low == range.high ? 1 : 2;
  match.ports[0] = range.low;
  if (match.count == 2) match.ports[1] = range.high;
  return match;
}

void baseIs(Acl::IpFilterBase& filter, const TupleRule& rule) {
  filter.protocolNamed = rule.protocolNamed;
  filter.protocol = rule.protocol;
  filter.sourcePort = portMatch(rule.sourcePort);
  filter.destinationPort = portMatch(rule.destinationPort);
}

Nimnet::Ip6Addr liftedMask(const Prefix& prefix, Lift lift) {
  if (lift == Lift::high) return {0xffffffff00000000u | prefix.mask(), 0};
  return {~uint64_t{0}, 0xffffffff00000000u | prefix.mask()};
}

}  // namespace

IpPacket ipPacket(const TupleHeader& header) {
  IpPacket packet;
  packet.ip.bytes[0] = 0x45;
  write16(packet.ip.bytes + 2, 40);
  packet.ip.bytes[8] = ttl;
  packet.ip.bytes[9] = header.protocol;
  write32(packet.ip.bytes + 12, header.source);
  write32(packet.ip.bytes + 16, header.destination);
  l4Is(packet, header);
  return packet;
}

Nimnet::Ip6Addr lifted(uint32_t address, Lift lift) {
  if (lift == Lift::high) return {0x20010db800000000u | address, 0};
  return {0x20010db800000000u, address};
}

Ip6Packet ip6Packet(const TupleHeader& header, Lift lift) {
  Ip6Packet packet;
  packet.fixed[0] = 0x60;
  write16(packet.fixed + 4, 20);
  packet.fixed[6] = header.protocol;
  packet.fixed[7] = ttl;
  const Nimnet::Ip6Addr source = lifted(header.source, lift), destination = lifted(header.destination, lift);
  write64(packet.fixed + 8, source.high);
  write64(packet.fixed + 16, source.low);
  write64(packet.fixed + 24, destination.high);
  write64(packet.fixed + 32, destination.low);
  l4Is(packet, header);
  return packet;
}

std::vector<Acl::IpRule> ipRules(const std::vector<TupleRule>& rules) {
  std::vector<Acl::IpRule> made(rules.size());
  for (size_t i = 0; i < rules.size(); ++i) {
    made[i].sequence = static_cast<uint32_t>(i + 1);
    Acl::IpFilter& filter = made[i].filter;
    filter.source.value = rules[i].source.address;
    filter.sourceMask.value = rules[i].source.mask();
    filter.destination.value = rules[i].destination.address;
    filter.destinationMask.value = rules[i].destination.mask();
    baseIs(filter, rules[i]);
  }
  return made;
}

std::vector<Acl::Ip6Rule> ip6Rules(const std::vector<TupleRule>& rules, Lift lift) {
  std::vector<Acl::Ip6Rule> made(rules.size());
  for (size_t i = 0; i < rules.size(); ++i) {
    made[i].sequence = static_cast<uint32_t>(i + 1);
    Acl::Ip6Filter& filter = made[i].filter;
    const auto addressIs = [lift](const Prefix& prefix, Nimnet::Ip6Addr& address, Nimnet::Ip6Addr& mask) {
      if (prefix.length == 0) return;
      address = lifted(prefix.address, lift);
      mask = liftedMask(prefix, lift);
    };
    addressIs(rules[i].source, filter.source, filter.sourceMask);
    addressIs(rules[i].destination, filter.destination, filter.destinationMask);
    baseIs(filter, rules[i]);
  }
  return made;
}

}  // namespace Bench
