#pragma once

#include <agent/proof/Boxes.h>
#include <agent/proof/RuleSets.h>

#include <string>
#include <vector>

namespace Proof {

/// What a box asks of one field.
struct Choice {
  enum class Kind : uint8_t { any, named, excepted };

  Kind kind = Kind::any;
  PacketSet packets;                   ///< that meet it
  std::string words{};                 ///< named: as they stand in a rule
  std::vector<std::string> without{};  ///< excepted, or beside the words: what stands behind each `not`
};

/// Chooses conditions on single fields: each is met by a packet, and by no packet that is bad. Of all that
/// can be written it is a large one.
class FieldChoices {
 public:
  FieldChoices(const RuleSets& sets, const LooseBits& loose) : sets_(sets), loose_(loose) {}

  /// `bad` says nothing of other fields, and does not have the packet.
  Choice choose(Field field, const PacketSet& bad, const Packet& packet) const;
  /// The packet's value and no other, as far as rules can tell it.
  Choice exactly(Field field, const Packet& packet) const;

 private:
  Choice any() const { return {Choice::Kind::any, sets_.sets().all()}; }
  Choice among(Field field, const Runs& good, std::string words, std::vector<std::string> without = {}) const;
  Choice except(const PacketSet& bad, std::vector<std::string> without) const;
  Choice address(Field field, const PacketSet& bad, const Packet& packet) const;
  std::string addressText(const Value& value, const Value& mask) const;
  Choice ports(Field field, const Runs& bad, uint64_t value) const;
  Choice hops(const Runs& bad, uint64_t value) const;
  Choice flags(const Runs& bad, uint64_t value) const;
  /// A field of which rules name one value.
  Choice single(Field field, const PacketSet& bad, const Packet& packet) const;
  /// A field of which rules name some bits.
  Choice bits(Field field, const PacketSet& bad, const Packet& packet) const;
  std::string wordsOf(Field field, uint64_t value, const Packet& packet) const;
  std::string bitsText(Field field, uint64_t value, uint64_t mask) const;

  const RuleSets& sets_;
  const LooseBits& loose_;
};

}  // namespace Proof
