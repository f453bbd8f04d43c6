#include <Kelp/Assert.h>
#include <agent/proof/Runs.h>

#include <algorithm>

namespace Proof {

uint64_t countOf(const Runs& runs) {
  uint64_t count = 0;
  for (const Run& run : runs) count += run.count();
  return count;
}

std::vector<uint64_t> valuesOf(const Runs& runs) {
  std::vector<uint64_t> values;
  for (const Run& run : runs) {
    for (uint64_t value = run.low; value <= run.high; ++value) values.push_back(value);
  }
  return values;
}

Runs gapsOf(const Runs& runs, uint64_t last) {
  Runs gaps;
  uint64_t next = 0;
  for (const Run& run : runs) {
    if (run.low > next) gaps.push_back({next, run.low - 1});
    next = run.high + 1;
  }
  if (next <= last) gaps.push_back({next, last});
  return gaps;
}

const Run& runAround(const Runs& runs, uint64_t value) {
  const auto at =
      std::find_if(runs.begin(), runs.end(), [value](const Run& run) { return value <= run.high; });
  KELP_ASSERT(at != runs.end() && at->low <= value, "a value that no run has");
  return *at;
}

}  // namespace Proof
