#pragma once

#include <cstdint>
#include <vector>

namespace Proof {

/// Values of a field: from `low` to `high`.
struct Run {
  uint64_t low = 0, high = 0;
  uint64_t count() const { return high - low + 1; }
  bool operator==(const Run&) const = default;
};

/// Values in their order.
using Runs = std::vector<Run>;

/// How many values they are.
uint64_t countOf(const Runs& runs);
/// Each of them.
std::vector<uint64_t> valuesOf(const Runs& runs);
/// What lies between runs, from 0 to `last`.
Runs gapsOf(const Runs& runs, uint64_t last);
/// The run that has a value; it is there.
const Run& runAround(const Runs& runs, uint64_t value);

}  // namespace Proof
