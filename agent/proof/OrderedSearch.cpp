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
    const PacketSet& packets;
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
    for (const bool value : {false, true}) {
      Cube half = part.around;
      half.mask.set(bit);
      half.value.set(bit, value);
      std::vector<size_t> near;
      for (const size_t each : part.near) {
        if (all.cubes_[each].meets(half)) near.push_back(each);
      }
      const PacketSet packets = part.packets & all.sets_.sets().bitIs(bit, value);
      if (auto found = in({packets, half, near})) return found;
    }
    return std::nullopt;
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

}  // namespace Proof
