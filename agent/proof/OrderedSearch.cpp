#include <agent/proof/OrderedSets.h>

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace Proof {

namespace {

unsigned bitsAskedBy(const Cube& cube) {
  unsigned count = 0;
  for (const uint64_t word : cube.mask.word) count += static_cast<unsigned>(std::popcount(word));
  return count;
}

}  // namespace

/// Looks for a packet, and is led by packets: any one of what is left is either what is looked for, or shows
/// a rule that is in the way, and then all that this rule asks for is taken away at once. So the sets have to
/// do only with rules that matter, and these are most often few among very many.
class OrderedSets::Search {
 public:
  /// In the packets of an entry, behind those that come before it.
  Search(const OrderedSets& all, size_t at, const std::vector<size_t>& earlier)
      : all_(all), left_(all.entries_[at].asked), earlier_(widestFirst(earlier)) {}

  /// Any packet. What was in the way is in tookAway().
  std::optional<Bits> any() {
    while (!left_.isEmpty()) {
      const Bits packet = oneOf(left_);
      if (!takeAwayAround(packet)) return packet;
    }
    return std::nullopt;
  }
  /// One to which something else happens than `effect` by the first of `later` that it meets.
  std::optional<Bits> otherwise(uint32_t effect, const std::vector<size_t>& later) {
    while (!left_.isEmpty()) {
      const Bits packet = oneOf(left_);
      if (takeAwayAround(packet)) continue;
      if (auto found = otherwiseNear(packet, effect, later)) return found;
    }
    return std::nullopt;
  }
  const std::vector<size_t>& tookAway() const { return tookAway_; }

 private:
  Bits oneOf(const PacketSet& packets) { return all_.sets_.sets().anyOf(packets, random_); }

  /// Those first that ask for much: few of them are often enough.
  std::vector<size_t> widestFirst(const std::vector<size_t>& entries) const {
    std::vector<std::vector<size_t>> byWidth(Bits::words * 64 + 1);
    for (const size_t each : entries) byWidth[bitsAskedBy(all_.cubes_[each])].push_back(each);
    std::vector<size_t> sorted;
    sorted.reserve(entries.size());
    for (const auto& alike : byWidth) sorted.insert(sorted.end(), alike.begin(), alike.end());
    return sorted;
  }

  /// Whether an earlier rule asks for a packet. What that rule asks for is not left then.
  bool takeAwayAround(const Bits& packet) {
    const auto entry = all_.firstOf(earlier_, packet);
    if (!entry) return false;
    left_ = left_ - all_.entries_[*entry].asked;
    tookAway_.push_back(*entry);
    return true;
  }

  /// A later rule that does the same as the entry: what it asks for is of no use, except for what rules
  /// before it that do otherwise ask for, too. The number of rules stands for what no rule asks for.
  struct Same {
    size_t place;
    size_t next = 0;  ///< none of those before that one has anything in common with what is left of it
  };

  /// A packet that is looked for, from one on that no earlier rule asks for; nothing: what is like that one
  /// is not left.
  std::optional<Bits> otherwiseNear(Bits packet, uint32_t effect, const std::vector<size_t>& later) {
    const auto isSame = [&](size_t place) {
      return (place < later.size() ? all_.entries_[later[place]].effect : 0) == effect;
    };
    const auto first = [&] {
      const auto at =
          std::find_if(later.begin(), later.end(), [&](size_t each) { return all_.has(each, packet); });
      return static_cast<size_t>(at - later.begin());
    };
    std::vector<Same> due{{first()}};
    if (!isSame(due.back().place)) return packet;
    while (!due.empty()) {
      const Same same = due.back();
      const PacketSet of = same.place < later.size() ? left_ & all_.entries_[later[same.place]].asked : left_;
      PacketSet both;
      size_t next = same.next;
      for (; next < same.place; ++next) {
        if (isSame(next)) continue;
        both = of & all_.entries_[later[next]].asked;
        if (!both.isEmpty()) break;
      }
      due.back().next = next;
      if (next == same.place) {
        left_ = left_ - of;
        due.pop_back();
        continue;
      }
      packet = oneOf(both);
      if (takeAwayAround(packet)) continue;
      const size_t place = first();
      if (!isSame(place)) return packet;
      due.push_back({place});
    }
    return std::nullopt;
  }

  const OrderedSets& all_;
  PacketSet left_;
  const std::vector<size_t> earlier_;
  std::vector<size_t> tookAway_;
  std::mt19937_64 random_;  // the same for every search: so are the answers
};

OrderedSets::Left OrderedSets::leftOf(size_t at, const std::vector<size_t>& earlier) const {
  Search search(*this, at, earlier);
  Left left{search.any()};
  if (left.packet) return left;
  left.by = search.tookAway();
  std::sort(left.by.begin(), left.by.end());
  left.by = takersOf(at, left.by);
  return left;
}

std::optional<Bits> OrderedSets::changedWithout(size_t at, const std::vector<size_t>& earlier,
                                                const std::vector<size_t>& later) const {
  return Search(*this, at, earlier).otherwise(entries_[at].effect, later);
}

std::optional<Bits> OrderedSets::metOtherwise(size_t at, uint32_t effect,
                                              const std::vector<size_t>& among) const {
  return Search(*this, at, {}).otherwise(effect, among);
}

std::vector<size_t> OrderedSets::takersOf(size_t at, const std::vector<size_t>& among) const {
  std::vector<size_t> takers;
  PacketSet left = entries_[at].asked;
  for (size_t i = 0; i < among.size() && !left.isEmpty(); ++i) {
    PacketSet less = left - entries_[among[i]].asked;
    if (less != left) takers.push_back(among[i]);
    left = std::move(less);
  }
  return takers;
}

}  // namespace Proof
