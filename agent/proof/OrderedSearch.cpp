#include <agent/proof/OrderedSets.h>

#include <algorithm>
#include <array>
#include <bit>

namespace Proof {

namespace {

// So many rules are taken away at once. Of more the packets are split in two first, so that each half has to
// do with fewer: what is in the way of which packets differs from place to place.
constexpr size_t few = 24;
constexpr unsigned noBit = ~0u;

}  // namespace

/// Looks for packets part by part.
struct OrderedSets::Search {
  /// Packets, what lies around them, and who asks for some of them.
  struct Part {
    const PacketSet packets;
    const Cube& around;
    const std::vector<size_t>& earlier;  ///< what they ask for is not looked for
    const std::vector<size_t>& later = none;
  };
  inline static const std::vector<size_t> none;

  const OrderedSets& all;
  /// Only a packet to which something else happens behind the earlier ones; nothing: any packet.
  const std::optional<uint32_t> effect{};

  std::optional<Bits> in(const Part& part) const {
    if (part.packets.isEmpty()) return std::nullopt;
    for (const size_t each : part.earlier) {
      if (asksForAllOf(each, part)) return std::nullopt;
    }
    if (effect && !isOpen(part)) return std::nullopt;
    const unsigned bit = part.earlier.size() <= few ? noBit : tellingBit(part);
    if (bit == noBit) return amongFew(part);
    std::optional<Bits> found;
    inHalves(part, bit, [&](const Part& half) {
      if (!found) found = in(half);
    });
    return found;
  }

  bool asksForAllOf(size_t entry, const Part& part) const {
    return all.entries_[entry].exact && all.cubes_[entry].covers(part.around);
  }
  /// Whether something else may happen to packets of a part.
  bool isOpen(const Part& part) const {
    for (const size_t each : part.later) {
      if (!all.cubes_[each].meets(part.around)) continue;
      if (all.entries_[each].effect != effect) return true;
      if (asksForAllOf(each, part)) return false;
    }
    return effect != 0;
  }

  template <class Visit>
  void inHalves(const Part& part, unsigned bit, const Visit& visit) const {
    for (const bool value : {false, true}) {
      Cube half = part.around;
      half.mask.set(bit);
      half.value.set(bit, value);
      const auto earlier = meeting(part.earlier, half);
      visit({part.packets & all.sets_.sets().bitIs(bit, value), half, earlier, part.later});
    }
  }
  std::vector<size_t> meeting(const std::vector<size_t>& entries, const Cube& half) const {
    std::vector<size_t> found;
    for (const size_t each : entries) {
      if (all.cubes_[each].meets(half)) found.push_back(each);
    }
    return found;
  }

  /// Adds those that take some of a part of which nothing is left. Where all are known, nobody looks.
  void addTakers(const Part& part, std::set<size_t>& takers) const {
    if (part.packets.isEmpty()) return;
    std::vector<size_t> near;
    for (const size_t each : part.earlier) {
      near.push_back(each);
      if (!all.entries_[each].exact || !all.cubes_[each].covers(part.around)) continue;
      // Which of very many take some of it would take too long to find out.
      if (near.size() > few) return takers.insert(each), void();
      break;
    }
    if (std::all_of(near.begin(), near.end(), [&](size_t each) { return takers.contains(each); })) return;
    const unsigned bit = near.size() <= few ? noBit : tellingBit({part.packets, part.around, near});
    if (bit != noBit)
      return inHalves({part.packets, part.around, near}, bit,
                      [&](const Part& half) { addTakers(half, takers); });
    PacketSet left = part.packets;
    for (size_t i = 0; i < near.size() && !left.isEmpty(); ++i) {
      PacketSet less = left - all.entries_[near[i]].asked;
      if (less != left) takers.insert(near[i]);
      left = std::move(less);
    }
  }

  std::optional<Bits> amongFew(const Part& part) const {
    PacketSet left = part.packets;
    const auto one = [this](const PacketSet& packets) { return all.sets_.sets().oneOf(packets); };
    for (size_t i = 0; i < part.earlier.size() && !left.isEmpty(); ++i)
      left = left - all.entries_[part.earlier[i]].asked;
    for (size_t i = 0; i < part.later.size() && !left.isEmpty(); ++i) {
      if (!all.cubes_[part.later[i]].meets(part.around)) continue;
      const Entry& entry = all.entries_[part.later[i]];
      if (entry.effect == effect)
        left = left - entry.asked;
      else if (const PacketSet met = left & entry.asked; !met.isEmpty())
        return one(met);
    }
    if (left.isEmpty() || effect == 0) return std::nullopt;
    return one(left);
  }

  /// The bit that most of those ask for that are near.
  unsigned tellingBit(const Part& part) const {
    std::array<size_t, Bits::words * 64> asking{};
    for (const size_t each : part.earlier) {
      for (size_t i = 0; i < Bits::words; ++i) {
        uint64_t left = all.cubes_[each].mask.word[i] & ~part.around.mask.word[i];
        for (; left != 0; left &= left - 1) ++asking[i * 64 + static_cast<size_t>(std::countr_zero(left))];
      }
    }
    const auto most = std::max_element(asking.begin(), asking.end());
    return *most == 0 ? noBit : static_cast<unsigned>(most - asking.begin());
  }
};

std::optional<Bits> OrderedSets::leftOf(size_t at, const std::vector<size_t>& earlier) const {
  return Search{*this}.in({entries_[at].asked, cubes_[at], earlier});
}

std::optional<Bits> OrderedSets::changedWithout(size_t at, const std::vector<size_t>& earlier,
                                                const std::vector<size_t>& later) const {
  return Search{*this, entries_[at].effect}.in({entries_[at].asked, cubes_[at], earlier, later});
}

std::set<size_t> OrderedSets::takersOf(size_t at, const std::vector<size_t>& near) const {
  std::set<size_t> takers;
  Search{*this}.addTakers({entries_[at].asked, cubes_[at], near}, takers);
  return takers;
}

}  // namespace Proof
