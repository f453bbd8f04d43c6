#pragma once

#include <Acl/Types.h>
#include <Nimnet/Addr.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

/// Lists of rules as sets of packets, so that questions about all packets have an answer. A packet is what
/// matching sees of it: the values of its fields.
namespace Proof {

/// The fields of a packet that rules can name. ICMP and ports are fields of their own: which of them a packet
/// really has follows from its protocol, see RuleSets.
enum class Field : uint8_t {
  later,
  protocol,
  source,
  destination,
  sourcePort,
  destinationPort,
  tcpFlags,
  icmpType,
  icmpCode,
  trafficClass,
  hops,
  etherType,
  vlan,
};

/// How many bits a field has in packets before a list of each kind; 0 where such lists do not look at it.
struct FieldBits {
  Field field;
  uint8_t ip, ipv6, mac;

  constexpr unsigned bits(Acl::AclType type) const {
    return type == Acl::AclType::ip ? ip : type == Acl::AclType::ipv6 ? ipv6 : mac;
  }
};

/// All fields. Their order here, and in the enumeration above, is the order of the variables of the decision
/// diagrams, highest bit first. It decides over time and memory: with the ports before the addresses some
/// lists of a thousand rules take twenty times as long, with the addresses before the protocol up to twice.
inline constexpr FieldBits fieldBits[] = {
    {Field::later, 1, 1, 0},           {Field::protocol, 8, 8, 0},     {Field::source, 32, 128, 48},
    {Field::destination, 32, 128, 48}, {Field::sourcePort, 16, 16, 0}, {Field::destinationPort, 16, 16, 0},
    {Field::tcpFlags, 8, 8, 0},        {Field::icmpType, 8, 8, 0},     {Field::icmpCode, 8, 8, 0},
    {Field::trafficClass, 8, 8, 0},    {Field::hops, 8, 8, 0},         {Field::etherType, 0, 0, 16},
    {Field::vlan, 12, 12, 12},
};
inline constexpr size_t fieldCount = std::size(fieldBits);

constexpr bool fieldsAreInOrder() {
  for (size_t i = 0; i < fieldCount; ++i) {
    if (static_cast<size_t>(fieldBits[i].field) != i) return false;
  }
  return true;
}
static_assert(fieldsAreInOrder(), "a field is found by its number");

constexpr const FieldBits& row(Field field) { return fieldBits[static_cast<size_t>(field)]; }

/// The variable of the highest bit of a field; with the end of the table, how many variables there are.
constexpr unsigned firstVariable(Acl::AclType type, size_t field) {
  unsigned first = 0;
  for (size_t i = 0; i < field; ++i) first += fieldBits[i].bits(type);
  return first;
}
constexpr unsigned variablesOf(Acl::AclType type) { return firstVariable(type, fieldCount); }

/// The value of a field: up to 128 bits.
struct Value {
  uint64_t high = 0, low = 0;

  /// Bit 0 is the lowest one.
  constexpr bool bit(unsigned i) const { return ((i < 64 ? low >> i : high >> (i - 64)) & 1) != 0; }
  constexpr void setBit(unsigned i) { (i < 64 ? low : high) |= uint64_t{1} << (i % 64); }
  bool operator==(const Value&) const = default;
};

constexpr Value valueOf(Nimnet::IpAddr address) { return {0, address.value}; }
constexpr Value valueOf(const Nimnet::Ip6Addr& address) { return {address.high, address.low}; }
inline Value valueOf(const Nimnet::EthAddr& address) { return {0, address.value()}; }

/// A packet before lists of one kind. Fields that it does not have may have any value.
struct Packet {
  std::array<Value, fieldCount> values{};

  Value& operator[](Field field) { return values[static_cast<size_t>(field)]; }
  const Value& operator[](Field field) const { return values[static_cast<size_t>(field)]; }
};

}  // namespace Proof
