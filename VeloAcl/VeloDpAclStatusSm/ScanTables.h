#pragma once

#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>

#include <algorithm>
#include <array>

/// Where the scan state has what it says about one stream and about one poll, for code that is the same for
/// all of them: a row a stream, and a row a poll.
namespace Velo::VeloAcl {

/// The flag that a stream's scan has finished its current pass.
struct StreamScan {
  const bool& (InputSmScanState::*done)() const;
  bool (InputSmScanState::*doneIs)(bool);
  const Zeb::Attribute& (*attribute)();
  const char* falseText;
};
#define VELO_STREAM_SCAN(stream)                                                                     \
  {                                                                                                  \
    .done = &InputSmScanState::stream##Scan, .doneIs = &InputSmScanState::stream##ScanIs,            \
    .attribute = &InputSmScanState::stream##ScanAttribute, .falseText = " " #stream " scan is false" \
  }
inline constexpr StreamScan aclIntfConfigStream VELO_STREAM_SCAN(aclIntfConfigStream);
inline constexpr StreamScan aclConfigStream VELO_STREAM_SCAN(aclConfigStream);
inline constexpr StreamScan ip6RuleCfgStream VELO_STREAM_SCAN(ip6RuleCfgStream);
inline constexpr StreamScan ipRuleCfgStream VELO_STREAM_SCAN(ipRuleCfgStream);
inline constexpr StreamScan macRuleCfgStream VELO_STREAM_SCAN(macRuleCfgStream);
inline constexpr StreamScan rixPipeline0 VELO_STREAM_SCAN(rix_pipeline0);
#undef VELO_STREAM_SCAN

/// In the order in which they are asked whether they are done.
inline constexpr std::array streamScans{&aclIntfConfigStream, &aclConfigStream,  &ip6RuleCfgStream,
                                        &ipRuleCfgStream,     &macRuleCfgStream, &rixPipeline0};

/// A poll's passes: whether none is in progress, the one last completed and the one asked for.
struct PollState {
  bool (InputSmScanState::*idleIs)(bool);
  const uint64_t& (InputSmScanState::*done)() const;
  bool (InputSmScanState::*doneIs)(uint64_t);
  const Zeb::Attribute& (*doneAttribute)();
  const uint64_t& (InputSmScanState::*asked)() const;
  bool (InputSmScanState::*askedIs)(uint64_t);
  void (InputSmScanState::*askedInc)();

  /// The pass that was asked for last is through.
  bool complete(const InputSmScanState& state) const {
    const uint64_t generation = (state.*asked)();
    return generation != 0 && generation == (state.*done)();
  }
};
#define VELO_POLL_STATE(poll)                                                                 \
  {                                                                                           \
    .idleIs = &InputSmScanState::poll##IdleIs, .done = &InputSmScanState::poll##CodefDoneGen, \
    .doneIs = &InputSmScanState::poll##CodefDoneGenIs,                                        \
    .doneAttribute = &InputSmScanState::poll##CodefDoneGenAttribute,                          \
    .asked = &InputSmScanState::poll##CodefGeneration,                                        \
    .askedIs = &InputSmScanState::poll##CodefGenerationIs,                                    \
    .askedInc = &InputSmScanState::poll##CodefGenerationInc                                   \
  }
inline constexpr PollState copyIpOutCountersState VELO_POLL_STATE(copyIpOutCounters);
inline constexpr PollState copyIp6OutCountersState VELO_POLL_STATE(copyIp6OutCounters);
inline constexpr PollState copyInCountersState VELO_POLL_STATE(copyInCounters);
inline constexpr PollState copyMacOutCountersState VELO_POLL_STATE(copyMacOutCounters);
#undef VELO_POLL_STATE
inline constexpr std::array pollStates{&copyIpOutCountersState, &copyIp6OutCountersState,
                                       &copyInCountersState, &copyMacOutCountersState};

inline bool pollsComplete(const InputSmScanState& state) {
  return std::all_of(pollStates.begin(), pollStates.end(),
                     [&](const PollState* poll) { return poll->complete(state); });
}

}  // namespace Velo::VeloAcl
