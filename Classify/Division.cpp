#include <Classify/Division.h>

#include <array>
#include <bit>
#include <cmath>
#include <numeric>

namespace Classify {

namespace {

constexpr size_t manyCells = 64;    // so many are looked at to choose a bit
constexpr size_t manyMembers = 96;  // and so many members of each

/// A number for each bit of a key, four in a vector. Left to itself, the compiler makes no vectors here.
using Four = float __attribute__((vector_size(16)));
using Each = std::array<Four, 32>;

/// The words of a key.
using Words = uint64_t __attribute__((vector_size(16)));

/// Counts, for each bit of a key, how often it was set. digits_[i] has bit i of all counters, so one addition
/// with carry adds to all of them at once.
class BitCounts {
 public:
  void clear() {
    added_ = 0;
    digits_ = {};
  }
  /// At most 255 times. No branch depends on the key: the processor could not foresee it.
  void add(Words key) {
    const auto used = static_cast<size_t>(std::bit_width(++added_));
    for (size_t i = 0; i < used; ++i) {
      const Words carry = digits_[i] & key;
      digits_[i] ^= key;
      key = carry;
    }
  }
  /// The bits that were ever set.
  Words any() const {
    Words bits{};
    for (const Words& digit : digits_) bits |= digit;
    return bits;
  }
  /// How often each of the eight bits of an octet was set.
  void counts(size_t octet, Four (&counts)[2]) const {
    uint64_t all = 0;  // eight counts
    const auto used = static_cast<size_t>(std::bit_width(added_));
    for (size_t i = 0; i < used; ++i) all += spread(digits_[i][octet / 8] >> (octet % 8 * 8) & 0xff) << i;
    for (const int half : {0, 1}) {
      using Numbers = int32_t __attribute__((vector_size(16)));
      const auto some = static_cast<int32_t>(all >> (half * 32));
      constexpr Numbers places = {0, 8, 16, 24};
      counts[half] = __builtin_convertvector((Numbers{some, some, some, some} >> places) & 0xff, Four);
    }
  }

 private:
  /// Eight bits, each in an octet of its own.
  static uint64_t spread(uint64_t bits) {
    const uint64_t each = bits * 0x0101010101010101 & 0x8040201008040201;  // bit i is in octet i, at place i
    return (each + 0x00406070787c7e7f) >> 7 & 0x0101010101010101;          // and is carried to the highest
  }

  std::array<Words, 8> digits_;
  uint32_t added_ = 0;
};
static_assert(manyMembers < 256);

class Divider {
 public:
  Divider(const Images& images, std::span<const uint32_t> members, const Region& region,
          const DivisionLimits& limits)
      : images_(images), limits_(limits) {
    made_.cells.members.assign(members.begin(), members.end());
    made_.cells.begins.push_back(static_cast<uint32_t>(members.size()));
    regions_.push_back(region);
    packets_.push_back(static_cast<double>(members.size()));
    if (limits.maxCopies) copies_.assign(images.size(), 0);
  }

  Division run() {
    for (int bits = 0; bits < limits_.maxBits; ++bits) {
      const int bit = bestBit();
      if (bit < 0 || regions_.size() * 2 > limits_.maxCells || !split(bit)) break;
    }
    sortCells();
    return std::move(made_);
  }

 private:
  /// What the choice of each bit would change, added up over cells.
  struct Prospects {
    float cost = 0;  ///< without the bit: members that a packet is compared with, times packets
    Each gain{};
    Each copies{};
    Words told{};  ///< the bits that tell members apart
  };

  void addProspects(size_t cell, Prospects& prospects) {
    const auto members = made_.cells[cell];
    zeros_.clear();
    ones_.clear();
    const size_t step = members.size() / manyMembers + 1;
    const Interval pair[2] = {pairIn(regions_[cell], 0), pairIn(regions_[cell], 1)};
    const auto count = [&](const Asked& asked) {
      zeros_.add(Words{asked.zeros[0], asked.zeros[1]});
      ones_.add(Words{asked.ones[0], asked.ones[1]});
    };
    if (regions_[cell].mask[1] >> 32) {
      for (size_t i = 0; i < members.size(); i += step) count(images_.askedIn(pair, members[i]));
    } else {
      for (size_t i = 0; i < members.size(); i += step) count(images_.asked(members[i]));
    }
    const auto size = static_cast<float>((members.size() + step - 1) / step);
    // Scaled up as if every member had been counted.
    const auto all = static_cast<float>(members.size()), copied = static_cast<float>(step);
    const float share = static_cast<float>(packets_[cell]) / size * (all / size);
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

  /// The bit after which the cost, raised for the copies that the bit makes, is lowest; -1 when no bit is
  /// worth it.
  int bestBit() {
    std::vector<size_t> large;
    for (size_t cell = 0; cell < made_.cells.size(); ++cell) {
      if (made_.cells[cell].size() > limits_.small) large.push_back(cell);
    }
    Prospects prospects;
    float members = 1;
    const size_t step = large.size() / manyCells + 1;
    for (size_t i = 0; i < large.size(); i += step) {
      addProspects(large[i], prospects);
      members += static_cast<float>(made_.cells[large[i]].size());
    }
    int best = -1;
    float lowest = 0;
    for (const int word : {0, 1}) {
      uint64_t free = prospects.told[word] & limits_.allowed[word] & ~made_.mask[word];
      for (; free; free &= free - 1) {
        const auto bit = static_cast<size_t>(64 * word + std::countr_zero(free));
        const float gain = prospects.gain[bit / 4][bit % 4], copies = prospects.copies[bit / 4][bit % 4];
        constexpr float worthIt = 0.03f;
        if (gain <= prospects.cost * worthIt) continue;
        const float cost = (prospects.cost - gain) * std::sqrt(1 + copies / members);
        if (best < 0 || cost < lowest) best = static_cast<int>(bit), lowest = cost;
      }
    }
    return best;
  }

  /// Cuts each cell in two. False, and nothing is changed, when that makes too many members.
  bool split(int bit) {
    const int word = bit / 64;
    const uint64_t mask = uint64_t{1} << (bit % 64);
    Halves halves;
    halves.cells.members.resize(made_.cells.members.size() * 2);
    halves.cells.begins.reserve(made_.cells.begins.size() * 2);
    halves.regions.reserve(regions_.size() * 2);
    halves.packets.reserve(regions_.size() * 2);
    for (size_t cell = 0; cell < made_.cells.size(); ++cell) {
      const auto [zeros, ones] = cut(cell, word, mask, halves);
      const auto size = static_cast<double>(made_.cells[cell].size());
      // A member that is in both halves sends half of its packets to each. The packets of a member that is
      // left out come to the same halves as those of the others.
      const double both = std::max(0.0, static_cast<double>(zeros + ones) - size);
      const double inZero = static_cast<double>(zeros) - both / 2,
                   inOne = static_cast<double>(ones) - both / 2;
      const double share = zeros + ones > 0 ? packets_[cell] / (inZero + inOne) : 0;
      halves.packets.push_back(share * inZero);
      halves.packets.push_back(share * inOne);
    }
    halves.cells.members.resize(halves.cells.begins.back());
    leaving_.clear();
    if (limits_.maxCopies) leaveOut(halves.cells);
    if (halves.cells.members.size() > limits_.maxMembers || needTooMuch(halves.cells)) return false;
    made_.shadowing.insert(made_.shadowing.end(), halves.shadowing.begin(), halves.shadowing.end());
    made_.left.insert(made_.left.end(), leaving_.begin(), leaving_.end());
    made_.cells = std::move(halves.cells);
    made_.mask[word] |= mask;
    regions_ = std::move(halves.regions);
    packets_ = std::move(halves.packets);
    return true;
  }

  /// Whether the leaves of cells, and the table of the cells, would take more blocks than the limit.
  bool needTooMuch(const Cells& cells) {
    constexpr size_t cellsPerBlock = 64;
    const auto blocksOf = [](std::span<const uint32_t> members) {
      return (members.size() + Plane::lanes - 1) / Plane::lanes;
    };
    size_t blocks = cells.size() / cellsPerBlock;
    for (size_t cell = 0; cell < cells.size(); ++cell) blocks += blocksOf(cells[cell]);
    if (blocks <= limits_.maxBlocks) return false;
    // Cells with the same members share a leaf, which counts once.
    seen_.assign(std::bit_ceil(cells.size() * 2), 0);
    for (size_t cell = 0; cell < cells.size(); ++cell) {
      const auto members = cells[cell];
      if (members.empty()) continue;
      uint64_t hash = members.size();
      for (const uint32_t member : members) hash = (hash ^ member) * 0x9e3779b97f4a7c15;
      hash |= 1;
      size_t at = hash >> 32;
      while (seen_[at &= seen_.size() - 1] != 0 && seen_[at] != hash) ++at;
      if (seen_[at] == hash) blocks -= blocksOf(members);
      seen_[at] = hash;
    }
    return blocks > limits_.maxBlocks;
  }

  struct Halves {
    Cells cells;
    std::vector<Region> regions;
    std::vector<double> packets;
    std::vector<uint32_t> shadowing;
  };

  /// One half of a cell that is being made.
  struct Half {
    Half(const Region& whole, int word, uint64_t mask, uint64_t value, uint32_t* into)
        : region(whole), at(into) {
      region.mask[word] |= mask;
      region.value[word] |= value;
    }

    Region region;
    uint32_t* at;         ///< where the next member goes
    bool closed = false;  ///< a member takes all packets: no more members are added
  };

  /// Cuts a cell in two; returns how many members each half has.
  std::pair<size_t, size_t> cut(size_t cell, int word, uint64_t mask, Halves& halves) {
    constexpr size_t ahead = 12;
    const auto members = made_.cells[cell];
    uint32_t* const begin = halves.cells.members.data() + halves.cells.begins.back();
    other_.resize(members.size());
    Half zero(regions_[cell], word, mask, 0, begin), one(regions_[cell], word, mask, mask, other_.data());
    const bool ranges = word == 1 && (mask >> 32) != 0;
    const int number = mask >> 48 ? 1 : 0;  // of the pair
    const Interval zeros = pairIn(zero.region, number), ones = pairIn(one.region, number);
    for (size_t i = 0; i < members.size() && !(zero.closed && one.closed); ++i) {
      const uint32_t member = members[i];
      if (const size_t next = made_.cells.begins[cell] + i + ahead; next < made_.cells.members.size()) {
        images_.fetch(made_.cells.members[next], ranges);
      }
      const Asked& asked = images_.asked(member);
      bool inZero = !(asked.ones[word] & mask), inOne = !(asked.zeros[word] & mask);
      if (ranges) {
        const Interval range = pairOf(images_[member], number);
        inZero = inZero && range.low <= zeros.high && range.high >= zeros.low;
        inOne = inOne && range.low <= ones.high && range.high >= ones.low;
      }
      const bool last = i + 1 == members.size();
      put(member, inZero, last, zero, halves);
      put(member, inOne, last, one, halves);
    }
    const auto inZero = static_cast<size_t>(zero.at - begin);
    const auto inOne = static_cast<size_t>(one.at - other_.data());
    std::copy_n(other_.data(), inOne, zero.at);
    for (const size_t size : {inZero, inOne}) {
      halves.cells.begins.push_back(halves.cells.begins.back() + static_cast<uint32_t>(size));
    }
    halves.regions.push_back(zero.region);
    halves.regions.push_back(one.region);
    return {inZero, inOne};
  }

  /// Adds a member to a half that it `meets`. No branch depends on the member: the processor could not
  /// foresee it.
  void put(uint32_t member, bool meets, bool last, Half& half, Halves& halves) {
    const Asked& asked = images_.asked(member);
    meets = meets && !half.closed;
    *half.at = member;
    half.at += meets;
    const uint64_t open = ((asked.zeros[0] | asked.ones[0]) & ~half.region.mask[0]) |
                          ((asked.zeros[1] | asked.ones[1]) & ~half.region.mask[1] & 0xffffffff);
    if (open == 0 && meets && overlap(half.region, images_[member]) == Overlap::all) {
      half.closed = true;
      if (!last) halves.shadowing.push_back(member);
    }
  }

  /// Takes the members that are in too many cells out of all cells.
  void leaveOut(Cells& cells) {
    std::fill(copies_.begin(), copies_.end(), 0);
    for (const uint32_t member : cells.members) {
      if (++copies_[member] == limits_.maxCopies + 1) leaving_.push_back(member);
    }
    if (leaving_.empty()) return;
    uint32_t kept = 0, at = 0;
    for (size_t cell = 1; cell < cells.begins.size(); ++cell) {
      for (; at < cells.begins[cell]; ++at) {
        if (copies_[cells.members[at]] <= limits_.maxCopies) cells.members[kept++] = cells.members[at];
      }
      cells.begins[cell] = kept;
    }
    cells.members.resize(kept);
  }

  /// Sorts the cells by their numbers; up to then their order follows that in which the bits were chosen.
  void sortCells() {
    const int lower = __builtin_popcountll(made_.mask[1]);
    std::vector<uint32_t> from(regions_.size());
    for (uint32_t cell = 0; cell < regions_.size(); ++cell) {
      const uint64_t number = gatherBits(regions_[cell].value[0], made_.mask[0]) << lower |
                              gatherBits(regions_[cell].value[1], made_.mask[1]);
      from[number] = cell;
    }
    Cells sorted;
    sorted.members.reserve(made_.cells.members.size());
    const double all = std::max(1.0, std::accumulate(packets_.begin(), packets_.end(), 0.0));
    for (const uint32_t cell : from) {
      const auto members = made_.cells[cell];
      sorted.members.insert(sorted.members.end(), members.begin(), members.end());
      sorted.begins.push_back(static_cast<uint32_t>(sorted.members.size()));
      made_.packets.push_back(packets_[cell] / all);
      made_.meanCompany += made_.packets.back() * static_cast<double>(members.size());
    }
    made_.cells = std::move(sorted);
    std::sort(made_.left.begin(), made_.left.end());
  }

  const Images& images_;
  const DivisionLimits& limits_;
  Division made_;
  std::vector<Region> regions_;  // of the cells
  std::vector<double> packets_;  // that come to the cells, in those that come to one image
  std::vector<uint32_t> copies_;
  std::vector<uint32_t> leaving_;
  std::vector<uint32_t> other_;  // the half of a cell that is put behind the one
  std::vector<uint64_t> seen_;   // hashes of cells, in a table of twice their number
  BitCounts zeros_, ones_;
};

}  // namespace

uint64_t gatherBits(uint64_t bits, uint64_t mask) {
  uint64_t gathered = 0;
  for (uint64_t place = 1; mask; mask &= mask - 1, place <<= 1) {
    if (bits & mask & -mask) gathered |= place;
  }
  return gathered;
}

uint64_t scatterBits(uint64_t gathered, uint64_t mask) {
  uint64_t bits = 0;
  for (; mask; mask &= mask - 1, gathered >>= 1) {
    if (gathered & 1) bits |= mask & -mask;
  }
  return bits;
}

Images::Images(std::span<const Image> images) : images_(images), asked_(images.size()) {
  for (size_t i = 0; i < images.size(); ++i) {
    Overlap lies;
    const Ternary bits = ternaryIn({}, images[i], &lies);
    for (const int word : {0, 1}) {
      asked_[i].zeros[word] = bits.mask[word] & ~bits.value[word];
      asked_[i].ones[word] = bits.value[word];
    }
  }
}

Region Division::regionOf(const Region& whole, size_t cell) const {
  Region region = whole;
  const int lower = __builtin_popcountll(mask[1]);
  const uint64_t parts[2] = {cell >> lower, cell & ((uint64_t{1} << lower) - 1)};
  for (const int word : {0, 1}) {
    region.mask[word] |= mask[word];
    region.value[word] |= scatterBits(parts[word], mask[word]);
  }
  return region;
}

Division divide(const Images& images, std::span<const uint32_t> members, const Region& region,
                const DivisionLimits& limits) {
  return Divider(images, members, region, limits).run();
}

}  // namespace Classify
