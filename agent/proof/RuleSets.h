#pragma once

#include <Acl/Filter.h>
#include <agent/config/Model.h>
#include <agent/proof/Fields.h>
#include <agent/proof/PacketSets.h>

#include <array>
#include <vector>

namespace Proof {

/// The sets of packets that rules of one kind of list match, of the same filters that packets are judged by
/// (Acl/MatchFields.h). Packets are those that reach a list: without a fault, with all that their protocol
/// says they have. So ports are there in TCP, UDP and SCTP, and only outside later fragments.
class RuleSets {
 public:
  /// The limits hold for all that is made of these sets.
  RuleSets(Acl::AclType type, const Limits& limits, const Kiv::Clock& clock = Kiv::steadyClock());

  /// All packets that can be.
  const PacketSet& packets() const { return packets_; }
  /// Those of them that are later fragments; of MAC lists none.
  PacketSet laterFragments() const {
    return type_ == Acl::AclType::mac ? PacketSet() : is(Field::later, 1) & packets_;
  }
  /// The rule is of the kind of list that this was made for.
  PacketSet of(const Config::Rule& rule) const;

  // Of all assignments, those that no packet has included.

  /// The bits of a field that are set in the mask are as in the value.
  PacketSet masked(Field field, const Value& value, const Value& mask) const {
    return masked(field, value, mask, sets_.all());
  }
  PacketSet is(Field field, uint64_t value) const {
    return masked(field, {0, value}, {~uint64_t{0}, ~uint64_t{0}});
  }
  /// A field of at most 64 bits has one of these values.
  PacketSet within(Field field, const Runs& runs) const;
  /// Where the bits of a field are.
  BitSpan spanOf(Field field) const {
    return {firstVariable(type_, static_cast<size_t>(field)), row(field).bits(type_)};
  }

  bool contains(const PacketSet& set, const Packet& packet) const {
    return sets_.contains(set, bitsOf(packet));
  }
  Bits bitsOf(const Packet& packet) const;
  Packet packetOf(const Bits& bits) const;
  /// A packet of a set that is not empty: of all that are in it one that is as usual as possible.
  Packet exampleOf(PacketSet set) const;
  /// A packet near another one, as usual as it can be while isGood(bits) remains true, which it is of that.
  template <class IsGood>
  Packet asUsual(Bits bits, const IsGood& isGood) const;
  Acl::AclType type() const { return type_; }
  const PacketSets& sets() const { return sets_; }

 private:
  /// How a packet looks where nothing says otherwise, the most important first.
  struct Usual {
    Field field;
    uint64_t value;
  };
  static const Usual usual[13];
  void put(Bits& bits, Field field, const Value& value) const;

  template <class Filter>
  PacketSet anyOf(const Filter& filter) const;
  template <class Filter>
  PacketSet one(const Filter& filter) const;
  /// The packets that may be as a rule asks: those of a protocol that has the fields which it names.
  PacketSet kindOf(const Acl::IpFilterBase& filter) const;
  /// What a rule asks of the fields whose variables lie behind those of the addresses.
  PacketSet behindAddresses(const Acl::IpFilterBase& filter) const;
  template <class Filter>
  PacketSet addresses(const Filter& filter, PacketSet among) const;

  PacketSet masked(Field field, const Value& value, const Value& mask, PacketSet among) const;
  unsigned variableOf(Field field, unsigned bit) const;
  PacketSet upTo(Field field, uint64_t high) const;
  PacketSet compared(Field field, Acl::Compare op, const uint16_t* operands, size_t count) const;
  PacketSet vlan(const Acl::VlanMatch& vlan) const;

  const Acl::AclType type_;
  PacketSets sets_;
  PacketSet first_, ported_, tcp_, icmp_;  ///< not later fragments; those with ports; of TCP; of ICMP
  PacketSet packets_;
};

template <class IsGood>
Packet RuleSets::asUsual(Bits bits, const IsGood& isGood) const {
  const auto keepIfGood = [&](const Bits& other) {
    const bool good = isGood(other);
    if (good) bits = other;
    return good;
  };
  std::array<bool, fieldCount> done{};
  for (const Usual& each : usual) {
    bool& isDone = done[static_cast<size_t>(each.field)];
    if (row(each.field).bits(type_) == 0 || isDone) continue;
    Bits other = bits;
    put(other, each.field, {0, each.value});
    isDone = keepIfGood(other);
  }
  for (const Field field : {Field::source, Field::destination}) {
    Bits none = bits;
    put(none, field, {});
    keepIfGood(none);
    for (unsigned bit = row(field).bits(type_); bit-- > 0;) {
      Bits other = bits;
      other.set(variableOf(field, bit), false);
      if (other != bits) keepIfGood(other);
    }
  }
  return packetOf(bits);
}

}  // namespace Proof
