#pragma once

#include <agent/config/Model.h>
#include <agent/proof/RuleSets.h>

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace Proof {

/// The rules of a list with what they ask for, in their order. What lies around a rule's set, a cube, tells
/// quickly that two rules have nothing in common, and a packet tried at random most often shows what would
/// take long to prove of all packets.
class OrderedSets {
 public:
  struct Entry {
    uint32_t sequence = 0;
    /// What becomes of the packets that it takes; equal numbers: the same. 0 becomes of what no entry takes.
    uint32_t effect = 0;
    bool isDead = false;  ///< it never matches: others may leave it out
    PacketSet asked;
    bool exact = false;  ///< the cube around it is all of it
  };

  /// `sets` outlives it.
  explicit OrderedSets(const RuleSets& sets) : sets_(sets) {}

  void add(uint32_t sequence, uint32_t effect, PacketSet asked);
  size_t size() const { return entries_.size(); }
  Entry& operator[](size_t at) { return entries_[at]; }
  const Entry& operator[](size_t at) const { return entries_[at]; }

  /// The entries between two that a packet of one may meet, too, in their order; without dead ones.
  std::vector<size_t> near(size_t at, size_t from, size_t to) const;
  bool has(size_t at, const Bits& packet) const {
    return cubes_[at].has(packet) &&
           (entries_[at].exact || sets_.sets().contains(entries_[at].asked, packet));
  }
  /// The first of these that a packet meets.
  std::optional<size_t> firstOf(const std::vector<size_t>& among, const Bits& packet) const;
  /// Whether an entry asks for all that another one asks for.
  bool covers(size_t at, size_t other) const {
    return cubes_[at].covers(cubes_[other]) &&
           (entries_[at].exact || (entries_[other].asked - entries_[at].asked).isEmpty());
  }

  /// What trying packets has shown of an entry.
  struct Tried {
    std::optional<Bits> taken;    ///< it takes this packet
    std::optional<Bits> changed;  ///< and to this one something else happens without it
  };
  /// Tries some packets. `earlier` and `later` are those near it.
  Tried tryPackets(size_t at, const std::vector<size_t>& earlier, const std::vector<size_t>& later,
                   std::mt19937_64& random) const;

  // These search to the end, however long it takes.

  /// What is left of an entry behind earlier ones.
  struct Left {
    std::optional<Bits> packet;  ///< for which none of them asks; nothing if there is none
    /// If there is none: some of them that ask for all of it together, in their order, and of which each
    /// takes a part when the others of these stand before and behind it.
    std::vector<size_t> by{};
  };
  Left leftOf(size_t at, const std::vector<size_t>& earlier) const;
  /// A packet that an entry takes behind `earlier`, and to which something else happens without it: by one of
  /// `later`, or because none asks for it. Nothing if there is none.
  std::optional<Bits> changedWithout(size_t at, const std::vector<size_t>& earlier,
                                     const std::vector<size_t>& later) const;

  /// A packet of an entry to which something else happens than this, by the first of those that asks for it,
  /// or because none does. Nothing if there is none.
  std::optional<Bits> metOtherwise(size_t at, uint32_t effect, const std::vector<size_t>& among) const;

  /// Of these, which ask for all of an entry together, the ones that take some of it in their order.
  std::vector<size_t> takersOf(size_t at, const std::vector<size_t>& among) const;

 private:
  class Search;
  Bits within(size_t at, size_t other, std::mt19937_64& random) const;
  Bits besides(size_t at, Bits packet, size_t avoided, std::mt19937_64& random) const;

  const RuleSets& sets_;
  std::vector<Entry> entries_;
  // The same entries. The first words are what most comparisons end with, so they lie together.
  std::vector<Cube> cubes_;
  std::vector<std::pair<uint64_t, uint64_t>> firstWords_;  ///< value, mask
};

}  // namespace Proof
