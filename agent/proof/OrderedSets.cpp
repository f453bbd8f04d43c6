#include <Kelp/Assert.h>
#include <agent/proof/OrderedSets.h>

#include <bit>
#include <utility>

namespace Proof {

namespace {

constexpr int mostTries = 100, triesInOne = 5;

}  // namespace

void OrderedSets::add(uint32_t sequence, uint32_t effect, PacketSet asked) {
  Hull hull;
  const bool dead = asked.isEmpty();
  if (!dead) hull = sets_.sets().hullOf(asked);
  entries_.push_back({sequence, effect, dead, std::move(asked), hull.exact});
  cubes_.push_back(hull.cube);
  firstWords_.emplace_back(hull.cube.value.word[0], hull.cube.mask.word[0]);
}

std::vector<size_t> OrderedSets::near(size_t at, size_t from, size_t to) const {
  std::vector<size_t> found;
  const auto [value, mask] = firstWords_[at];
  for (size_t i = from; i < to; ++i) {
    if (((firstWords_[i].first ^ value) & firstWords_[i].second & mask) != 0) continue;
    if (!entries_[i].isDead && cubes_[i].meets(cubes_[at])) found.push_back(i);
  }
  return found;
}

std::optional<size_t> OrderedSets::firstOf(const std::vector<size_t>& among, const Bits& packet) const {
  for (const size_t each : among) {
    if (has(each, packet)) return each;
  }
  return std::nullopt;
}

/// A packet of one entry that is not in another one, if one bit can tell; else any packet of it.
Bits OrderedSets::besides(size_t at, Bits packet, size_t avoided, std::mt19937_64& random) const {
  std::vector<unsigned> telling;
  for (size_t i = 0; i < Bits::words; ++i) {
    uint64_t left = cubes_[avoided].mask.word[i] & ~cubes_[at].mask.word[i];
    for (; left != 0; left &= left - 1)
      telling.push_back(static_cast<unsigned>(i * 64) + static_cast<unsigned>(std::countr_zero(left)));
  }
  if (!telling.empty()) {
    const unsigned bit = telling[random() % telling.size()];
    packet.set(bit, !packet.get(bit));
    if (has(at, packet)) return packet;
  }
  return sets_.sets().anyOf(entries_[at].asked, random);
}

/// A packet of one entry that is in another one, too, if that is easily found; else any packet of it.
Bits OrderedSets::within(size_t at, size_t other, std::mt19937_64& random) const {
  Bits packet = sets_.sets().anyOf(entries_[other].asked, random);
  const Cube& cube = cubes_[at];
  for (size_t i = 0; i < Bits::words; ++i)
    packet.word[i] = (packet.word[i] & ~cube.mask.word[i]) | cube.value.word[i];
  return has(at, packet) ? packet : sets_.sets().anyOf(entries_[at].asked, random);
}

OrderedSets::Tried OrderedSets::tryPackets(size_t at, const std::vector<size_t>& earlier,
                                           const std::vector<size_t>& later, std::mt19937_64& random) const {
  Tried tried;
  std::vector<size_t> others;  // that do otherwise
  for (const size_t each : later) {
    if (entries_[each].effect != entries_[at].effect) others.push_back(each);
  }
  Bits packet = sets_.sets().anyOf(entries_[at].asked, random);
  for (int i = 0; i < mostTries; ++i) {
    if (!others.empty() && i % triesInOne == triesInOne - 1)
      packet = within(at, others[random() % others.size()], random);
    auto inTheWay = firstOf(earlier, packet);
    if (!inTheWay) {
      tried.taken = packet;
      inTheWay = firstOf(later, packet);
      if ((inTheWay ? entries_[*inTheWay].effect : 0) != entries_[at].effect) {
        tried.changed = packet;
        return tried;
      }
      // The same as without any rule.
      if (!inTheWay) inTheWay = at;
    }
    packet = besides(at, packet, *inTheWay, random);
  }
  return tried;
}

}  // namespace Proof
