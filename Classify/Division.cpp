#include <Classify/BitChooser.h>
#include <Classify/Division.h>

#include <bit>
#include <numeric>

namespace Classify {

namespace {

class Divider {
 public:
  Divider(const Images& images, std::span<const uint32_t> members, const Region& region,
          const DivisionLimits& limits)
      : images_(images), limits_(limits), chooser_(images, limits) {
    now_.cells.members.assign(members.begin(), members.end());
    now_.cells.begins.push_back(static_cast<uint32_t>(members.size()));
    now_.regions.push_back(region);
    now_.packets.push_back(static_cast<double>(members.size()));
    if (limits.maxCopies) copies_.assign(images.size(), 0);
  }

  Division run() {
    for (int bits = 0; bits < limits_.maxBits; ++bits) {
      const int bit = chooser_.best(now_);
      if (bit < 0 || now_.regions.size() * 2 > limits_.maxCells || !split(bit)) break;
    }
    sortCells();
    return std::move(made_);
  }

 private:
  /// Cuts each cell in two. False, and nothing is changed, when that makes too many members.
  bool split(int bit) {
    const int word = bit / 64;
    const uint64_t mask = uint64_t{1} << (bit % 64);
    Halves halves;
    halves.cells.members.resize(now_.cells.members.size() * 2);
    halves.cells.begins.reserve(now_.cells.begins.size() * 2);
    halves.regions.reserve(now_.regions.size() * 2);
    halves.packets.reserve(now_.regions.size() * 2);
    for (size_t cell = 0; cell < now_.cells.size(); ++cell) {
      const auto [zeros, ones] = cut(cell, word, mask, halves);
      const auto size = static_cast<double>(now_.cells[cell].size());
      // A member that is in both halves sends half of its packets to each. The packets of a member that is
      // left out come to the same halves as those of the others.
      const double both = std::max(0.0, static_cast<double>(zeros + ones) - size);
      const double inZero = static_cast<double>(zeros) - both / 2,
                   inOne = static_cast<double>(ones) - both / 2;
      const double share = zeros + ones > 0 ? now_.packets[cell] / (inZero + inOne) : 0;
      halves.packets.push_back(share * inZero);
      halves.packets.push_back(share * inOne);
    }
    halves.cells.members.resize(halves.cells.begins.back());
    leaving_.clear();
    if (limits_.maxCopies) leaveOut(halves.cells);
    if (halves.cells.members.size() > limits_.maxMembers || needTooMuch(halves.cells)) return false;
    made_.shadowing.insert(made_.shadowing.end(), halves.shadowing.begin(), halves.shadowing.end());
    made_.left.insert(made_.left.end(), leaving_.begin(), leaving_.end());
    now_.cells = std::move(halves.cells);
    now_.mask[word] |= mask;
    now_.regions = std::move(halves.regions);
    now_.packets = std::move(halves.packets);
    return true;
  }

  /// Whether the leaves of cells, and the table of the cells, would take more blocks than the limit.
  bool needTooMuch(const Cells& cells) {
    constexpr size_t entriesPerBlock = 64;
    const auto blocksOf = [](std::span<const uint32_t> members) {
      return (members.size() + Plane::lanes - 1) / Plane::lanes;
    };
    size_t blocks = cells.size() * limits_.entriesPerCell / entriesPerBlock;
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
    const auto members = now_.cells[cell];
    uint32_t* const begin = halves.cells.members.data() + halves.cells.begins.back();
    other_.resize(members.size());
    Half zero(now_.regions[cell], word, mask, 0, begin),
        one(now_.regions[cell], word, mask, mask, other_.data());
    const bool ranges = word == 1 && (mask >> 32) != 0;
    const int number = mask >> 48 ? 1 : 0;  // of the pair
    const Interval zeros = pairIn(zero.region, number), ones = pairIn(one.region, number);
    for (size_t i = 0; i < members.size() && !(zero.closed && one.closed); ++i) {
      const uint32_t member = members[i];
      if (const size_t next = now_.cells.begins[cell] + i + ahead; next < now_.cells.members.size()) {
        images_.fetch(now_.cells.members[next], ranges);
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
    const int lower = __builtin_popcountll(now_.mask[1]);
    std::vector<uint32_t> from(now_.regions.size());
    for (uint32_t cell = 0; cell < now_.regions.size(); ++cell) {
      const uint64_t number = gatherBits(now_.regions[cell].value[0], now_.mask[0]) << lower |
                              gatherBits(now_.regions[cell].value[1], now_.mask[1]);
      from[number] = cell;
    }
    Cells sorted;
    sorted.members.reserve(now_.cells.members.size());
    const double all = std::max(1.0, std::accumulate(now_.packets.begin(), now_.packets.end(), 0.0));
    for (const uint32_t cell : from) {
      const auto members = now_.cells[cell];
      sorted.members.insert(sorted.members.end(), members.begin(), members.end());
      sorted.begins.push_back(static_cast<uint32_t>(sorted.members.size()));
      made_.packets.push_back(now_.packets[cell] / all);
      made_.meanCompany += made_.packets.back() * static_cast<double>(members.size());
    }
    made_.cells = std::move(sorted);
    std::copy_n(now_.mask, 2, made_.mask);
    std::sort(made_.left.begin(), made_.left.end());
  }

  const Images& images_;
  const DivisionLimits& limits_;
  BitChooser chooser_;
  Growing now_;
  Division made_;
  std::vector<uint32_t> copies_;
  std::vector<uint32_t> leaving_;
  std::vector<uint32_t> other_;  // the half of a cell that is put behind the one
  std::vector<uint64_t> seen_;   // hashes of cells, in a table of twice their number
};

}  // namespace

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
