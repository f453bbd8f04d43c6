#include <Nimnet/Addr.h>
#include <agent/proof/FieldChoices.h>
#include <fmt/format.h>

#include <utility>

// What boxes ask of addresses.
namespace Proof {

namespace {

using Acl::AclType;
using Kind = Choice::Kind;

constexpr size_t mostLeftOut = 4;

}  // namespace

std::string FieldChoices::addressText(const Value& value, const Value& mask) const {
  const Value known{value.high & mask.high, value.low & mask.low}, ignored{~mask.high, ~mask.low};
  const auto words = [&](auto address, auto wildcard, unsigned bits) {
    unsigned length = 0;
    while (length < bits && mask.bit(bits - 1 - length)) ++length;
    unsigned ones = 0;
    for (unsigned i = 0; i < bits; ++i) ones += mask.bit(i);
    if (ones == 0) return std::string("any");
    if (ones == bits) return "host " + address;
    if (ones == length && sets_.type() != AclType::mac) return fmt::format("{}/{}", address, length);
    return address + " " + wildcard;
  };
  switch (sets_.type()) {
    case AclType::ip:
      return words(Nimnet::IpAddr{static_cast<uint32_t>(known.low)}.str(),
                   Nimnet::IpAddr{static_cast<uint32_t>(ignored.low)}.str(), 32);
    case AclType::ipv6:
      return words(Nimnet::Ip6Addr{known.high, known.low}.str(),
                   Nimnet::Ip6Addr{ignored.high, ignored.low}.str(), 128);
    default:
      return words(Nimnet::EthAddr::fromValue(known.low).str(),
                   Nimnet::EthAddr::fromValue(ignored.low & 0xffffffffffff).str(), 48);
  }
}

Choice FieldChoices::address(Field field, const PacketSet& bad, const Packet& packet) const {
  const BitSpan span = sets_.spanOf(field);
  const auto holed = sets_.sets().holedAround(bad, sets_.bitsOf(packet), span, mostLeftOut);
  Value mask;
  for (unsigned i = 0; i < holed.bits; ++i) mask.setBit(span.count - 1 - i);
  const Value& loose = field == Field::source ? loose_.source : loose_.destination;
  for (unsigned i = 0; i < span.count && holed.holes.empty(); ++i) {
    if (!mask.bit(i) || !loose.bit(i)) continue;
    Value wider = mask;
    (i < 64 ? wider.low : wider.high) &= ~(uint64_t{1} << (i % 64));
    if ((sets_.masked(field, packet[field], wider) & bad).isEmpty()) mask = wider;
  }
  Choice choice{Kind::named, sets_.masked(field, packet[field], mask), addressText(packet[field], mask)};
  for (const Cube& hole : holed.holes) {
    const Value value = sets_.packetOf(hole.value)[field], known = sets_.packetOf(hole.mask)[field];
    choice.packets = choice.packets - sets_.masked(field, value, known);
    const std::string words = addressText(value, known);
    choice.without.push_back(field == Field::source ? words + " any" : "any " + words);
  }
  return choice;
}

}  // namespace Proof
