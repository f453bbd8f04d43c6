#pragma once

#include <Kelp/Duration.h>
#include <agent/observe/FlowKey.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Agent {

/// A bounded number of flows, found by their keys, and in the order in which people were told of them last:
/// the oldest is the one that nobody was told of for longest. Everything is allocated at the start. For one
/// thread.
class FlowTable {
 public:
  struct Flow {
    FlowKey key;
    uint64_t further = 0;  ///< packets that nobody was told of yet
    Kelp::Duration told;   ///< when somebody was told last, or should have been

   private:
    friend class FlowTable;
    uint64_t hash = 0;
    uint32_t newer = 0;  // by number; free ones are linked by it, too
    uint32_t older = 0;
    bool used = false;
  };

  /// `most`: how many flows there may be, at least one.
  FlowTable(uint32_t most, uint64_t seed);

  uint64_t hashOf(const FlowKey& key) const { return key.hash(seed_); }
  /// The flow with a key; null when there is none. Valid until it is removed.
  Flow* find(const FlowKey& key, uint64_t hash);
  /// Adds a flow that is not there, as the newest one. The table must not be full.
  Flow& add(const FlowKey& key, uint64_t hash, Kelp::Duration now);
  void remove(Flow& flow);
  /// The flow is the newest one now.
  void toldIs(Flow& flow, Kelp::Duration now);

  bool full() const { return used_ == most_; }
  size_t size() const { return used_; }
  /// Null when there is none.
  Flow* oldest() { return ends_.oldest ? &flows_[ends_.oldest] : nullptr; }
  /// Flows have numbers from 1 to numbers(), which they keep. Null when none has that number.
  Flow* numbered(uint32_t number) { return flows_[number].used ? &flows_[number] : nullptr; }
  uint32_t numbers() const { return static_cast<uint32_t>(flows_.size() - 1); }

 private:
  /// Where a flow is found. The places form a ring. A flow stands at the place that its hash names, or at the
  /// next one behind it that was free; no place between the two is empty.
  struct Place {
    uint32_t hash = 0;
    uint32_t flow = 0;  // 0: empty
  };

  size_t placeOf(const Flow& flow) const;
  void append(uint32_t number);
  void unlink(const Flow& flow);
  uint32_t numberOf(const Flow& flow) const { return static_cast<uint32_t>(&flow - flows_.data()); }

  const uint32_t most_;
  const uint64_t seed_;
  uint32_t used_ = 0;
  uint32_t free_ = 0;        // the first free one of those that were in use before
  std::vector<Flow> flows_;  // the first one is not used, as 0 means "no flow"; grows up to what is reserved
  std::vector<Place> places_;  // a power of two, at least twice as many as flows
  struct {
    uint32_t oldest = 0;
    uint32_t newest = 0;
  } ends_;
};

}  // namespace Agent
