#pragma once

#include <VeloAcl/VeloDpAclStatusSm/CounterPoll.h>

#include <array>

namespace Velo::VeloAcl {

/// The polls of the status machine, with operations by name: for each poll the work of its task, what
/// schedules the task, and one pass, which returns false when it has yielded; `copy...` is for a machine that
/// runs without tasks. What a poll copies is a row in Polls.cpp.
class MachinePolls : public MachineStreams {
  ZEB_ENTITY(MachinePolls, Zeb::Entity)

 public:
  void handleCopyInCountersCodefInputReady() { copyInCounters_.handleInputReady(); }
  void handleCopyMacOutCountersCodefInputReady() { copyMacOutCounters_.handleInputReady(); }
  void handleCopyIpOutCountersCodefInputReady() { copyIpOutCounters_.handleInputReady(); }
  void handleCopyIp6OutCountersCodefInputReady() { copyIp6OutCounters_.handleInputReady(); }
  void handleCopyInCountersCodef() { copyInCounters_.run(); }
  void handleCopyMacOutCountersCodef() { copyMacOutCounters_.run(); }
  void handleCopyIpOutCountersCodef() { copyIpOutCounters_.run(); }
  void handleCopyIp6OutCountersCodef() { copyIp6OutCounters_.run(); }
  bool eventToCopyInCountersInternal(uint64_t generation) {
    return copyInCounters_.pass(generation) == RunEnd::complete;
  }
  bool eventToCopyMacOutCountersInternal(uint64_t generation) {
    return copyMacOutCounters_.pass(generation) == RunEnd::complete;
  }
  bool eventToCopyIpOutCountersInternal(uint64_t generation) {
    return copyIpOutCounters_.pass(generation) == RunEnd::complete;
  }
  bool eventToCopyIp6OutCountersInternal(uint64_t generation) {
    return copyIp6OutCounters_.pass(generation) == RunEnd::complete;
  }
  void copyInCounters() { copyInCounters_.run(); }
  void copyMacOutCounters() { copyMacOutCounters_.run(); }
  void copyIpOutCounters() { copyIpOutCounters_.run(); }
  void copyIp6OutCounters() { copyIp6OutCounters_.run(); }
  void copyInCountersTaskIs(const Scheduler& scheduler, int priority, const char* name) {
    copyInCounters_.taskIs(scheduler, priority, name);
  }
  void copyMacOutCountersTaskIs(const Scheduler& scheduler, int priority, const char* name) {
    copyMacOutCounters_.taskIs(scheduler, priority, name);
  }
  void copyIpOutCountersTaskIs(const Scheduler& scheduler, int priority, const char* name) {
    copyIpOutCounters_.taskIs(scheduler, priority, name);
  }
  void copyIp6OutCountersTaskIs(const Scheduler& scheduler, int priority, const char* name) {
    copyIp6OutCounters_.taskIs(scheduler, priority, name);
  }
  void copyInCountersTaskDel() { copyInCounters_.taskDel(); }
  void copyMacOutCountersTaskDel() { copyMacOutCounters_.taskDel(); }
  void copyIpOutCountersTaskDel() { copyIpOutCounters_.taskDel(); }
  void copyIp6OutCountersTaskDel() { copyIp6OutCounters_.taskDel(); }
  // When somebody sets one of these, the pass of the poll ends behind the counter that it is at. The next one
  // begins at once: where the last pass that has yielded did so, or else at the first counter.
  ZEB_VALUE(bool, copyInCountersDuplicateSeen)
  ZEB_VALUE(bool, copyMacOutCountersDuplicateSeen)
  ZEB_VALUE(bool, copyIpOutCountersDuplicateSeen)
  ZEB_VALUE(bool, copyIp6OutCountersDuplicateSeen)

 protected:
  explicit MachinePolls(const Arguments& args);

  /// All of them, in the order in which they run.
  auto polls() {
    return std::to_array<CounterPoll*>(
        {&copyIpOutCounters_, &copyIp6OutCounters_, &copyInCounters_, &copyMacOutCounters_});
  }

 private:
  CounterPoll copyIpOutCounters_;
  CounterPoll copyIp6OutCounters_;
  CounterPoll copyInCounters_;
  CounterPoll copyMacOutCounters_;
};

}  // namespace Velo::VeloAcl
