#include <Kelp/Assert.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>
#include <agent/proof/RuleSets.h>

#include <algorithm>
#include <utility>
#include <variant>

namespace Proof {

namespace {

namespace IpProtocol = Nimnet::IpProtocol;
using Acl::AclType;
using Acl::Compare;

}  // namespace

const RuleSets::Usual RuleSets::usual[] = {
    {Field::later, 0},          {Field::vlan, 0},
    {Field::hops, 64},          {Field::trafficClass, 0},
    {Field::protocol, 6},       {Field::protocol, 17},
    {Field::tcpFlags, 2},       {Field::tcpFlags, Nimnet::TcpHdr::ack},
    {Field::icmpType, 8},       {Field::icmpCode, 0},
    {Field::sourcePort, 1024},  {Field::destinationPort, 80},
    {Field::etherType, 0x88b5},  // for experiments (IEEE 802, 9.2.4)
};

RuleSets::RuleSets(AclType type, const Limits& limits, const Kiv::Clock& clock)
    : type_(type), sets_(variablesOf(type), limits, clock), packets_(sets_.all()) {
  if (type == AclType::mac) return;
  first_ = is(Field::later, 0);
  tcp_ = is(Field::protocol, IpProtocol::tcp) & first_;
  ported_ = tcp_ | ((is(Field::protocol, IpProtocol::udp) | is(Field::protocol, IpProtocol::sctp)) & first_);
  icmp_ = is(Field::protocol, type == AclType::ip ? IpProtocol::icmp : IpProtocol::icmp6) & first_;
  if (type == AclType::ip) return;
  // The protocol is what follows the extension headers. In a later fragment nothing behind the fragment
  // header is read, and it may be any.
  for (const uint8_t header : {IpProtocol::hopByHop, IpProtocol::routing, IpProtocol::fragment,
                               IpProtocol::ah, IpProtocol::destinationOptions})
    packets_ = packets_ - (is(Field::protocol, header) & first_);
}

unsigned RuleSets::variableOf(Field field, unsigned bit) const {
  return firstVariable(type_, static_cast<size_t>(field)) + row(field).bits(type_) - 1 - bit;
}

PacketSet RuleSets::masked(Field field, const Value& value, const Value& mask, PacketSet among) const {
  // From the lowest variable up: each step then adds one node.
  for (unsigned bit = 0; bit < row(field).bits(type_); ++bit) {
    if (mask.bit(bit)) among = sets_.bitIs(variableOf(field, bit), value.bit(bit)) & among;
  }
  return among;
}

PacketSet RuleSets::upTo(Field field, uint64_t high) const {
  PacketSet set = sets_.all();
  for (unsigned bit = 0; bit < row(field).bits(type_); ++bit) {
    const PacketSet zero = sets_.bitIs(variableOf(field, bit), false);
    set = (high >> bit & 1) != 0 ? zero | set : zero & set;
  }
  return set;
}

PacketSet RuleSets::within(Field field, const Runs& runs) const {
  std::vector<PacketSet> parts;
  for (const Run& run : runs)
    parts.push_back(run.low == 0 ? upTo(field, run.high) : upTo(field, run.high) - upTo(field, run.low - 1));
  return joined(std::move(parts));
}

PacketSet RuleSets::compared(Field field, Compare op, const uint16_t* operands, size_t count) const {
  const PacketSet all = sets_.all();
  PacketSet listed;
  switch (op) {
    case Compare::any:
      return all;
    case Compare::eq:
    case Compare::neq:
      for (size_t i = 0; i < count; ++i) listed = listed | is(field, operands[i]);
      return op == Compare::eq ? listed : all - listed;
    case Compare::lt:
      return upTo(field, operands[0]) - is(field, operands[0]);
    case Compare::gt:
      return all - upTo(field, operands[0]);
    case Compare::range:
      return (upTo(field, operands[1]) - upTo(field, operands[0])) |
             (operands[0] <= operands[1] ? is(field, operands[0]) : PacketSet());
  }
  Kelp::fatal("a comparison that is none", __FILE__, __LINE__);
}

PacketSet RuleSets::vlan(const Acl::VlanMatch& vlan) const {
  if (vlan.isAny()) return sets_.all();
  return masked(Field::vlan, {0, vlan.id}, {0, static_cast<uint64_t>(~vlan.wildcard & 0xfff)});
}

PacketSet RuleSets::kindOf(const Acl::IpFilterBase& f) const {
  PacketSet set = packets_;
  if (f.icmpCodeNamed || f.icmpTypeNamed) set = set & icmp_;
  if (f.tcpFlags != 0 || f.established) set = set & tcp_;
  if (!f.sourcePort.isAny() || !f.destinationPort.isAny()) set = set & ported_;
  if (f.protocolNamed) set = set & is(Field::protocol, f.protocol);
  if (f.fragments) set = set & is(Field::later, 1);
  return set;
}

PacketSet RuleSets::behindAddresses(const Acl::IpFilterBase& f) const {
  // A range of hops matches nothing, see HopMatch.
  if (f.hops.op == Compare::range) return {};
  const uint16_t hops = f.hops.value;
  PacketSet set = vlan(f.vlan);
  set = set & compared(Field::hops, f.hops.op, &hops, 1);
  set = masked(Field::trafficClass, {0, f.trafficClass}, {0, f.trafficClassMask}, set);
  if (f.icmpCodeNamed) set = set & is(Field::icmpCode, f.icmpCode);
  if (f.icmpTypeNamed) set = set & is(Field::icmpType, f.icmpType);
  if (f.established) {
    constexpr uint8_t answers[] = {Nimnet::TcpHdr::ack, Nimnet::TcpHdr::rst};
    PacketSet answered;
    for (const uint8_t flag : answers) answered = answered | masked(Field::tcpFlags, {0, flag}, {0, flag});
    set = set & answered;
  }
  set = masked(Field::tcpFlags, {0, f.tcpFlags}, {0, f.tcpFlags}, set);
  const auto ports = [&](Field field, const Acl::PortMatch& match) {
    if (!match.isAny()) set = set & compared(field, match.op, match.ports.data(), match.count);
  };
  ports(Field::destinationPort, f.destinationPort);
  ports(Field::sourcePort, f.sourcePort);
  return set;
}

template <class Filter>
PacketSet RuleSets::addresses(const Filter& f, PacketSet among) const {
  return masked(
      Field::source, valueOf(f.source), valueOf(f.sourceMask),
      masked(Field::destination, valueOf(f.destination), valueOf(f.destinationMask), std::move(among)));
}

// In the order of the variables, from the last one up: so hardly any node is made that is not of the result.
template <class Filter>
PacketSet RuleSets::one(const Filter& f) const {
  return kindOf(f) & addresses(f, behindAddresses(f));
}

template <>
PacketSet RuleSets::one(const Acl::MacFilter& f) const {
  // Labels are not looked at: a rule that asks for one matches nothing.
  if (!f.mpls.isAny()) return {};
  PacketSet set = vlan(f.vlan);
  if (f.etherTypeNamed) set = set & is(Field::etherType, f.etherType);
  return addresses(f, set);
}

template <class Filter>
PacketSet RuleSets::anyOf(const Filter& filter) const {
  std::vector<PacketSet> parts;
  Acl::visitFilters(filter, [&](const Filter& each) {
    parts.push_back(one(each));
    return true;
  });
  return joined(std::move(parts));
}

PacketSet RuleSets::of(const Config::Rule& rule) const {
  KELP_ASSERT(rule.index() == static_cast<size_t>(type_), "a rule of another kind of list");
  return std::visit([this](const auto& r) { return anyOf(r.filter); }, rule);
}

void RuleSets::put(Bits& bits, Field field, const Value& value) const {
  for (unsigned bit = 0; bit < row(field).bits(type_); ++bit)
    bits.set(variableOf(field, bit), value.bit(bit));
}

Bits RuleSets::bitsOf(const Packet& packet) const {
  Bits bits;
  for (const FieldBits& each : fieldBits) put(bits, each.field, packet[each.field]);
  return bits;
}

Packet RuleSets::packetOf(const Bits& bits) const {
  Packet packet;
  for (const FieldBits& each : fieldBits) {
    for (unsigned bit = 0; bit < each.bits(type_); ++bit) {
      if (bits.get(variableOf(each.field, bit))) packet[each.field].setBit(bit);
    }
  }
  return packet;
}

Packet RuleSets::exampleOf(PacketSet set) const {
  for (const Usual& each : usual) {
    if (row(each.field).bits(type_) == 0) continue;
    if (PacketSet closer = set & is(each.field, each.value); !closer.isEmpty()) set = std::move(closer);
  }
  return packetOf(sets_.oneOf(set));
}

}  // namespace Proof
