#include <fmt/format.h>

#include <set>
#include <tuple>

#include "classbench/Generate.h"

namespace Bench {

namespace {

uint64_t mixed(uint64_t number) {
  for (const uint64_t factor : {0xff51afd7ed558ccdull, 0xc4ceb9fe1a85ec53ull}) {
    number = (number ^ number >> 33) * factor;
  }
  return number ^ number >> 33;
}

/// A prefix that has as much in common with others of the same copy as before, and the first bits with those
/// of all copies: each bit behind these is turned over or not, according to the bits before it.
Prefix turned(const Prefix& prefix, uint64_t copy) {
  constexpr unsigned kept = 4;
  Prefix made{prefix.address & prefix.mask(), prefix.length};
  const uint32_t before = made.address;
  for (unsigned at = kept; at < prefix.length; ++at) {
    const uint64_t above = before >> (32 - at);
    made.address ^= static_cast<uint32_t>(mixed(copy << 40 | above << 6 | at) & 1) << (31 - at);
  }
  return made;
}

auto contents(const TupleRule& r) {
  return std::tuple(r.source.address, r.source.length, r.destination.address, r.destination.length,
                    r.sourcePort.low, r.sourcePort.high, r.destinationPort.low, r.destinationPort.high,
                    r.protocolNamed, r.protocol);
}

}  // namespace

RuleSet grownSet(const RuleSet& set, size_t times, size_t headers, uint64_t seed) {
  RuleSet grown;
  grown.name = fmt::format("{}x{}.{}", set.name, times, seed);
  std::set<decltype(contents(TupleRule()))> known;  // rules with few bits are the same in many copies
  for (const TupleRule& rule : set.rules) {
    for (uint64_t copy = 0; copy < times; ++copy) {
      const uint64_t number = 2 * (seed * times + copy);
      TupleRule made = rule;
      made.source = turned(rule.source, number);
      made.destination = turned(rule.destination, number + 1);
      if (known.insert(contents(made)).second) grown.rules.push_back(made);
    }
  }
  grown.traces = tracesFor(grown.rules, headers, seed);
  return grown;
}

}  // namespace Bench
