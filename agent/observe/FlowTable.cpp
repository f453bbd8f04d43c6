#include <Kelp/Assert.h>
#include <agent/observe/FlowTable.h>

#include <bit>

namespace Agent {

FlowTable::FlowTable(uint32_t most, uint64_t seed)
    : most_(most), seed_(seed), places_(std::bit_ceil(size_t{most} * 2)) {
  KELP_ASSERT(most > 0, "a table of flows has room for one");
  flows_.reserve(size_t{most} + 1);
  flows_.emplace_back();
}

FlowTable::Flow* FlowTable::find(const FlowKey& key, uint64_t hash) {
  const size_t mask = places_.size() - 1;
  for (size_t at = hash & mask; places_[at].flow != 0; at = (at + 1) & mask) {
    if (places_[at].hash != static_cast<uint32_t>(hash)) continue;
    Flow& flow = flows_[places_[at].flow];
    if (flow.key == key) return &flow;
  }
  return nullptr;
}

FlowTable::Flow& FlowTable::add(const FlowKey& key, uint64_t hash, Kelp::Duration now) {
  KELP_ASSERT(!full(), "a table of flows is not filled beyond its size");
  uint32_t number = free_;
  if (number) {
    free_ = flows_[number].newer;
  } else {
    number = static_cast<uint32_t>(flows_.size());
    flows_.emplace_back();
  }
  Flow& flow = flows_[number];
  flow.key = key;
  flow.further = 0;
  flow.told = now;
  flow.hash = hash;
  flow.used = true;
  ++used_;
  append(number);

  const size_t mask = places_.size() - 1;
  size_t at = hash & mask;
  while (places_[at].flow != 0) at = (at + 1) & mask;
  places_[at] = {static_cast<uint32_t>(hash), number};
  return flow;
}

void FlowTable::remove(Flow& flow) {
  const size_t mask = places_.size() - 1;
  size_t gap = placeOf(flow);
  places_[gap] = {};
  // What stands behind the gap moves into it, unless its own place lies behind the gap.
  for (size_t at = (gap + 1) & mask; places_[at].flow != 0; at = (at + 1) & mask) {
    const size_t own = places_[at].hash & mask;
    if (((at - own) & mask) < ((at - gap) & mask)) continue;
    places_[gap] = places_[at];
    places_[at] = {};
    gap = at;
  }
  unlink(flow);
  flow.used = false;
  flow.newer = free_;
  free_ = numberOf(flow);
  --used_;
}

void FlowTable::toldIs(Flow& flow, Kelp::Duration now) {
  unlink(flow);
  flow.told = now;
  append(numberOf(flow));
}

size_t FlowTable::placeOf(const Flow& flow) const {
  const size_t mask = places_.size() - 1;
  const uint32_t number = numberOf(flow);
  size_t at = flow.hash & mask;
  while (places_[at].flow != number) at = (at + 1) & mask;
  return at;
}

void FlowTable::append(uint32_t number) {
  Flow& flow = flows_[number];
  flow.newer = 0;
  flow.older = ends_.newest;
  (ends_.newest ? flows_[ends_.newest].newer : ends_.oldest) = number;
  ends_.newest = number;
}

void FlowTable::unlink(const Flow& flow) {
  (flow.older ? flows_[flow.older].newer : ends_.oldest) = flow.newer;
  (flow.newer ? flows_[flow.newer].older : ends_.newest) = flow.older;
}

}  // namespace Agent
