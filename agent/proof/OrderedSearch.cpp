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

/// Looks for a packet that no entry asks for.
struct OrderedSets::Search {
  /// Packets, what lies around them, and who asks for some of them.
  struct Part {
    const PacketSet packets;
    const Cube& around;
    const std::vector<size_t>& near;
  };

  const OrderedSets& all;

  std::optional<Bits> in(const Part& part) const {
    if (part.packets.isEmpty()) return std::nullopt;
    for (const size_t each : part.near) {
      if (all.entries_[each].exact && all.cubes_[each].covers(part.around)) return std::nullopt;
    }
    const unsigned bit = part.near.size() <= few ? noBit : tellingBit(part);
    if (bit == noBit) return amongFew(part);
    std::optional<Bits> found;
    inHalves(part, bit, [&](const Part& half) {
      if (!found) found = in(half);
    });
    return found;
  }

  template <class Visit>
  void inHalves(const Part& part, unsigned bit, const Visit& visit) const {
    for (const bool value : {false, true}) {
      Cube half = part.around;
      half.mask.set(bit);
      half.value.set(bit, value);
      std::vector<size_t> near;
      for (const size_t each : part.near) {
        if (all.cubes_[each].meets(half)) near.push_back(each);
      }
      visit({part.packets & all.sets_.sets().bitIs(bit, value), half, near});
    }
  }

  /// Adds those that take some of a part of which nothing is left. Where all are known, nobody looks.
  void addTakers(const Part& part, std::set<size_t>& takers) const {
    if (part.packets.isEmpty()) return;
    std::vector<size_t> near;
    for (const size_t each : part.near) {
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
    for (size_t i = 0; i < part.near.size() && !left.isEmpty(); ++i)
      left = left - all.entries_[part.near[i]].asked;
    if (left.isEmpty()) return std::nullopt;
    return all.sets_.sets().oneOf(left);
  }

  /// The bit that most of those ask for that are near.
  unsigned tellingBit(const Part& part) const {
    std::array<size_t, Bits::words * 64> asking{};
    for (const size_t each : part.near) {
      for (size_t i = 0; i < Bits::words; ++i) {
        uint64_t left = all.cubes_[each].mask.word[i] & ~part.around.mask.word[i];
        for (; left != 0; left &= left - 1) ++asking[i * 64 + static_cast<size_t>(std::countr_zero(left))];
      }
    }
    const auto most = std::max_element(asking.begin(), asking.end());
    return *most == 0 ? noBit : static_cast<unsigned>(most - asking.begin());
  }
};

std::optional<Bits> OrderedSets::leftOf(size_t at, const PacketSet& part,
                                        const std::vector<size_t>& near) const {
  return Search{*this}.in({part, cubes_[at], near});
}

std::set<size_t> OrderedSets::takersOf(size_t at, const std::vector<size_t>& near) const {
  std::set<size_t> takers;
  Search{*this}.addTakers({entries_[at].asked, cubes_[at], near}, takers);
  return takers;
}

}  // namespace Proof
