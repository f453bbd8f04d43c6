#include <Classify/BitChooser.h>

#include <bit>
#include <cmath>

namespace Classify {

namespace {

constexpr size_t manyCells = 64;    // so many are looked at to choose a bit
constexpr size_t manyMembers = 96;  // and so many members of each
static_assert(manyMembers <= BitCounts::mostAdded);

}  // namespace

/// What the choice of each bit would change, added up over cells.
struct BitChooser::Prospects {
  float cost = 0;  ///< without the bit: members that a packet is compared with, times packets
  Each gain{};
  Each copies{};
  Words told{};  ///< the bits that tell members apart
};

void BitChooser::countAsked(const Growing& made, size_t cell, size_t step) {
  const auto members = made.cells[cell];
  const Region& region = made.regions[cell];
  zeros_.clear();
  ones_.clear();
  const Interval pair[2] = {pairIn(region, 0), pairIn(region, 1)};
  const auto count = [this](const Asked& asked) {
    zeros_.add(Words{asked.zeros[0], asked.zeros[1]});
    ones_.add(Words{asked.ones[0], asked.ones[1]});
  };
  if (region.mask[1] >> 32) {
    for (size_t i = 0; i < members.size(); i += step) count(images_.askedIn(pair, members[i]));
  } else {
    for (size_t i = 0; i < members.size(); i += step) count(images_.asked(members[i]));
  }
}

void BitChooser::add(const Growing& made, size_t cell, Prospects& prospects) {
  const size_t members = made.cells[cell].size(), step = members / manyMembers + 1;
  countAsked(made, cell, step);
  const auto size = static_cast<float>((members + step - 1) / step);
  // Scaled up as if every member had been counted.
  const auto all = static_cast<float>(members), copied = static_cast<float>(step);
  const float share = static_cast<float>(made.packets[cell]) / size * (all / size);
  prospects.cost += share * size * size;
  // A bit that is the same in all members does not divide them.
  const Words tells = zeros_.any() & ones_.any();
  prospects.told |= tells;
  for (size_t octet = 0; octet < 16; ++octet) {
    const auto bits = static_cast<uint32_t>(tells[octet / 8] >> (octet % 8 * 8)) & 0xff;
    if (bits == 0) continue;
    Four zeros[2], ones[2];
    zeros_.counts(octet, zeros);
    ones_.counts(octet, ones);
    for (const size_t half : {size_t{0}, size_t{1}}) {
      const Four zero = zeros[half], one = ones[half], both = size - zero - one;
      const Four cost = (zero + both) * (zero + both / 2) + (one + both) * (one + both / 2);
      const auto tell = (zero > 0) & (one > 0);
      prospects.gain[2 * octet + half] += tell ? share * (size * size - cost) : Four{};
      prospects.copies[2 * octet + half] += tell ? both * copied : Four{};
    }
  }
}

int BitChooser::best(const Growing& made) {
  std::vector<size_t> large;
  for (size_t cell = 0; cell < made.cells.size(); ++cell) {
    if (made.cells[cell].size() > limits_.small) large.push_back(cell);
  }
  Prospects prospects;
  float members = 1;
  const size_t step = large.size() / manyCells + 1;
  for (size_t i = 0; i < large.size(); i += step) {
    add(made, large[i], prospects);
    members += static_cast<float>(made.cells[large[i]].size());
  }
  return lowest(prospects, made.mask, members);
}

int BitChooser::lowest(const Prospects& prospects, uint64_t const (&chosen)[2], float members) const {
  constexpr float worthIt = 0.03f;
  int best = -1;
  float least = 0;
  for (const int word : {0, 1}) {
    uint64_t free = prospects.told[word] & limits_.allowed[word] & ~chosen[word];
    for (; free; free &= free - 1) {
      const auto bit = static_cast<size_t>(64 * word + std::countr_zero(free));
      const float gain = prospects.gain[bit / 4][bit % 4], copies = prospects.copies[bit / 4][bit % 4];
      if (gain <= prospects.cost * worthIt) continue;
      const float cost = (prospects.cost - gain) * std::sqrt(1 + copies / members);
      if (best < 0 || cost < least) best = static_cast<int>(bit), least = cost;
    }
  }
  return best;
}

}  // namespace Classify
