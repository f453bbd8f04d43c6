#include <Kelp/Assert.h>
#include <agent/proof/Nodes.h>
#include <agent/proof/PacketSets.h>

#include <unordered_set>
#include <vector>

// What is read off a decision diagram. Nothing is made for it, so no limit ends it.
namespace Proof {

bool PacketSets::contains(const PacketSet& set, const Bits& bits) const {
  int at = set.root_;
  while (at > fullSet) at = bits.get(variableOf(at)) ? bdd_high(at) : bdd_low(at);
  return at == fullSet;
}

Bits PacketSets::oneOf(const PacketSet& set) const {
  KELP_ASSERT(!set.isEmpty(), "an example of nothing");
  Bits bits;
  for (int at = set.root_; at > fullSet;) {
    const bool one = bdd_low(at) == emptySet;
    bits.set(variableOf(at), one);
    at = one ? bdd_high(at) : bdd_low(at);
  }
  return bits;
}

Bits PacketSets::anyOf(const PacketSet& set, std::mt19937_64& random) const {
  KELP_ASSERT(!set.isEmpty(), "any one of none");
  Bits bits;
  for (uint64_t& word : bits.word) word = random();
  for (int at = set.root_; at > fullSet;) {
    const auto variable = variableOf(at);
    const int low = bdd_low(at), high = bdd_high(at);
    const bool one = low == emptySet || (high != emptySet && bits.get(variable));
    bits.set(variable, one);
    at = one ? high : low;
  }
  for (unsigned bit = bits_; bit < Bits::words * 64; ++bit) bits.set(bit, false);
  return bits;
}

Hull PacketSets::hullOf(const PacketSet& set) const {
  KELP_ASSERT(!set.isEmpty(), "the hull of nothing");
  Bits zeros, ones;  // which bits are ever 0, or 1
  const auto variableOrEnd = [this](int node) { return node == fullSet ? bits_ : variableOf(node); };
  const auto free = [&](unsigned from, unsigned to) {
    for (; from < to; ++from) zeros.set(from), ones.set(from);
  };
  Hull hull;
  hull.exact = true;
  free(0, variableOrEnd(set.root_));
  std::unordered_set<int> seen;
  for (std::vector<int> due{set.root_}; !due.empty();) {
    const int node = due.back();
    due.pop_back();
    if (node == fullSet) continue;
    const unsigned variable = variableOf(node);
    const int low = bdd_low(node), high = bdd_high(node);
    hull.exact = hull.exact && (low == emptySet || high == emptySet);
    if (low != emptySet) zeros.set(variable);
    if (high != emptySet) ones.set(variable);
    for (const int next : {low, high}) {
      if (next == emptySet) continue;
      free(variable + 1, variableOrEnd(next));
      if (seen.insert(next).second) due.push_back(next);
    }
  }
  for (size_t i = 0; i < Bits::words; ++i) {
    hull.cube.mask.word[i] = zeros.word[i] ^ ones.word[i];
    hull.cube.value.word[i] = ones.word[i] & ~zeros.word[i];
  }
  return hull;
}

namespace {

void addRuns(int node, unsigned depth, BitSpan span, uint64_t base, Runs& runs) {
  if (node == emptySet) return;
  const unsigned left = span.count - depth;
  if (node == fullSet) {
    const Run run{base, base + (uint64_t{1} << left) - 1};
    if (!runs.empty() && runs.back().high + 1 == run.low)
      runs.back().high = run.high;
    else
      runs.push_back(run);
    return;
  }
  KELP_ASSERT(left > 0, "a set of some bits that tells others apart");
  const bool told = variableOf(node) == span.first + depth;
  addRuns(told ? bdd_low(node) : node, depth + 1, span, base, runs);
  addRuns(told ? bdd_high(node) : node, depth + 1, span, base + (uint64_t{1} << (left - 1)), runs);
}

}  // namespace

Runs PacketSets::runsOf(const PacketSet& set, BitSpan span) const {
  KELP_ASSERT(span.count <= 16, "numbers that are too large to be listed");
  Runs runs;
  addRuns(set.root_, 0, span, 0, runs);
  return runs;
}

unsigned PacketSets::bitsToAvoid(const PacketSet& set, const Bits& bits, BitSpan span) const {
  unsigned end = span.first;
  for (int at = set.root_; at != emptySet;) {
    KELP_ASSERT(at != fullSet, "what is to be avoided cannot be");
    const auto variable = variableOf(at);
    end = variable + 1;
    at = bits.get(variable) ? bdd_high(at) : bdd_low(at);
  }
  return end - span.first;
}

namespace {

/// How many ways lead from a node to one of the ends. Counting stops behind `most`.
size_t waysTo(int end, int node, size_t most) {
  if (node <= fullSet) return node == end ? 1 : 0;
  const size_t low = waysTo(end, bdd_low(node), most);
  return low > most ? low : low + waysTo(end, bdd_high(node), most - low);
}

/// The ways that lead from a node to what is in the set.
void addWays(int node, Cube way, std::vector<Cube>& ways) {
  if (node == emptySet) return;
  if (node == fullSet) return ways.push_back(way), void();
  const unsigned bit = variableOf(node);
  way.mask.set(bit);
  addWays(bdd_low(node), way, ways);
  way.value.set(bit);
  addWays(bdd_high(node), way, ways);
}

}  // namespace

PacketSets::Holed PacketSets::holedAround(const PacketSet& set, const Bits& bits, BitSpan span,
                                          size_t mostHoles) const {
  std::vector<int> behind;  // so many bits
  for (int at = set.root_; behind.size() <= span.count;) {
    const auto bit = span.first + static_cast<unsigned>(behind.size());
    behind.push_back(at);
    if (at > fullSet && variableOf(at) == bit) at = bits.get(bit) ? bdd_high(at) : bdd_low(at);
  }
  Holed best{bitsToAvoid(set, bits, span)};
  // What is not in the set behind so few bits, in parts that can each be written without a hole.
  size_t parts = 1, holes = 0;
  for (unsigned i = best.bits; i-- > 0;) {
    const size_t holesHere = waysTo(fullSet, behind[i], mostHoles);
    if (holesHere > mostHoles) break;
    const size_t partsHere = waysTo(emptySet, behind[i], SIZE_MAX);
    const bool same = partsHere == parts && holesHere == holes;
    if (!same && partsHere - parts <= holesHere - holes) continue;
    best.bits = i;
    parts = partsHere;
    holes = holesHere;
  }
  Cube own;
  for (unsigned bit = span.first; bit < span.first + best.bits; ++bit)
    own.mask.set(bit), own.value.set(bit, bits.get(bit));
  if (holes > 0) addWays(behind[best.bits], own, best.holes);
  return best;
}

}  // namespace Proof
