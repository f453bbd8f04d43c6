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
inline constexpr StreamScan aclIntfConfigStream{
    .done = &InputSmScanState::aclIntfConfigStreamScan,
    .doneIs = &InputSmScanState::aclIntfConfigStreamScanIs,
    .attribute = &InputSmScanState::aclIntfConfigStreamScanAttribute,
    .falseText = " aclIntfConfigStream scan is false"};
inline constexpr StreamScan aclConfigStream{.done = &InputSmScanState::aclConfigStreamScan,
                                            .doneIs = &InputSmScanState::aclConfigStreamScanIs,
                                            .attribute = &InputSmScanState::aclConfigStreamScanAttribute,
                                            .falseText = " aclConfigStream scan is false"};
inline constexpr StreamScan ip6RuleCfgStream{.done = &InputSmScanState::ip6RuleCfgStreamScan,
                                             .doneIs = &InputSmScanState::ip6RuleCfgStreamScanIs,
                                             .attribute = &InputSmScanState::ip6RuleCfgStreamScanAttribute,
                                             .falseText = " ip6RuleCfgStream scan is false"};
inline constexpr StreamScan ipRuleCfgStream{.done = &InputSmScanState::ipRuleCfgStreamScan,
                                            .doneIs = &InputSmScanState::ipRuleCfgStreamScanIs,
                                            .attribute = &InputSmScanState::ipRuleCfgStreamScanAttribute,
                                            .falseText = " ipRuleCfgStream scan is false"};
inline constexpr StreamScan macRuleCfgStream{.done = &InputSmScanState::macRuleCfgStreamScan,
                                             .doneIs = &InputSmScanState::macRuleCfgStreamScanIs,
                                             .attribute = &InputSmScanState::macRuleCfgStreamScanAttribute,
                                             .falseText = " macRuleCfgStream scan is false"};
inline constexpr StreamScan rixPipeline0{.done = &InputSmScanState::rix_pipeline0Scan,
                                         .doneIs = &InputSmScanState::rix_pipeline0ScanIs,
                                         .attribute = &InputSmScanState::rix_pipeline0ScanAttribute,
                                         .falseText = " rix_pipeline0 scan is false"};

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
inline constexpr PollState copyIpOutCountersState{
    .idleIs = &InputSmScanState::copyIpOutCountersIdleIs,
    .done = &InputSmScanState::copyIpOutCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyIpOutCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyIpOutCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyIpOutCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyIpOutCountersCodefGenerationIs,
    .askedInc = &InputSmScanState::copyIpOutCountersCodefGenerationInc};
inline constexpr PollState copyIp6OutCountersState{
    .idleIs = &InputSmScanState::copyIp6OutCountersIdleIs,
    .done = &InputSmScanState::copyIp6OutCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyIp6OutCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyIp6OutCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyIp6OutCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyIp6OutCountersCodefGenerationIs,
    .askedInc = &InputSmScanState::copyIp6OutCountersCodefGenerationInc};
inline constexpr PollState copyInCountersState{
    .idleIs = &InputSmScanState::copyInCountersIdleIs,
    .done = &InputSmScanState::copyInCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyInCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyInCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyInCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyInCountersCodefGenerationIs,
    .askedInc = &InputSmScanState::copyInCountersCodefGenerationInc};
inline constexpr PollState copyMacOutCountersState{
    .idleIs = &InputSmScanState::copyMacOutCountersIdleIs,
    .done = &InputSmScanState::copyMacOutCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyMacOutCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyMacOutCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyMacOutCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyMacOutCountersCodefGenerationIs,
    .askedInc = &InputSmScanState::copyMacOutCountersCodefGenerationInc};
inline constexpr std::array pollStates{&copyIpOutCountersState, &copyIp6OutCountersState,
                                       &copyInCountersState, &copyMacOutCountersState};

inline bool pollsComplete(const InputSmScanState& state) {
  return std::all_of(pollStates.begin(), pollStates.end(),
                     [&](const PollState* poll) { return poll->complete(state); });
}

}  // namespace Velo::VeloAcl
