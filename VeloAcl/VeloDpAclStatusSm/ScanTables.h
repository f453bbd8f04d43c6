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
    &InputSmScanState::aclIntfConfigStreamScan, &InputSmScanState::aclIntfConfigStreamScanIs,
    &InputSmScanState::aclIntfConfigStreamScanAttribute, " aclIntfConfigStream scan is false"};
inline constexpr StreamScan aclConfigStream{
    &InputSmScanState::aclConfigStreamScan, &InputSmScanState::aclConfigStreamScanIs,
    &InputSmScanState::aclConfigStreamScanAttribute, " aclConfigStream scan is false"};
inline constexpr StreamScan ip6RuleCfgStream{
    &InputSmScanState::ip6RuleCfgStreamScan, &InputSmScanState::ip6RuleCfgStreamScanIs,
    &InputSmScanState::ip6RuleCfgStreamScanAttribute, " ip6RuleCfgStream scan is false"};
inline constexpr StreamScan ipRuleCfgStream{
    &InputSmScanState::ipRuleCfgStreamScan, &InputSmScanState::ipRuleCfgStreamScanIs,
    &InputSmScanState::ipRuleCfgStreamScanAttribute, " ipRuleCfgStream scan is false"};
inline constexpr StreamScan macRuleCfgStream{
    &InputSmScanState::macRuleCfgStreamScan, &InputSmScanState::macRuleCfgStreamScanIs,
    &InputSmScanState::macRuleCfgStreamScanAttribute, " macRuleCfgStream scan is false"};
inline constexpr StreamScan rixPipeline0{
    &InputSmScanState::rix_pipeline0Scan, &InputSmScanState::rix_pipeline0ScanIs,
    &InputSmScanState::rix_pipeline0ScanAttribute, " rix_pipeline0 scan is false"};

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
inline constexpr PollState copyIpOutCountersState{&InputSmScanState::copyIpOutCountersIdleIs,
                                                  &InputSmScanState::copyIpOutCountersCodefDoneGen,
                                                  &InputSmScanState::copyIpOutCountersCodefDoneGenIs,
                                                  &InputSmScanState::copyIpOutCountersCodefDoneGenAttribute,
                                                  &InputSmScanState::copyIpOutCountersCodefGeneration,
                                                  &InputSmScanState::copyIpOutCountersCodefGenerationIs,
                                                  &InputSmScanState::copyIpOutCountersCodefGenerationInc};
inline constexpr PollState copyIp6OutCountersState{&InputSmScanState::copyIp6OutCountersIdleIs,
                                                   &InputSmScanState::copyIp6OutCountersCodefDoneGen,
                                                   &InputSmScanState::copyIp6OutCountersCodefDoneGenIs,
                                                   &InputSmScanState::copyIp6OutCountersCodefDoneGenAttribute,
                                                   &InputSmScanState::copyIp6OutCountersCodefGeneration,
                                                   &InputSmScanState::copyIp6OutCountersCodefGenerationIs,
                                                   &InputSmScanState::copyIp6OutCountersCodefGenerationInc};
inline constexpr PollState copyInCountersState{&InputSmScanState::copyInCountersIdleIs,
                                               &InputSmScanState::copyInCountersCodefDoneGen,
                                               &InputSmScanState::copyInCountersCodefDoneGenIs,
                                               &InputSmScanState::copyInCountersCodefDoneGenAttribute,
                                               &InputSmScanState::copyInCountersCodefGeneration,
                                               &InputSmScanState::copyInCountersCodefGenerationIs,
                                               &InputSmScanState::copyInCountersCodefGenerationInc};
inline constexpr PollState copyMacOutCountersState{&InputSmScanState::copyMacOutCountersIdleIs,
                                                   &InputSmScanState::copyMacOutCountersCodefDoneGen,
                                                   &InputSmScanState::copyMacOutCountersCodefDoneGenIs,
                                                   &InputSmScanState::copyMacOutCountersCodefDoneGenAttribute,
                                                   &InputSmScanState::copyMacOutCountersCodefGeneration,
                                                   &InputSmScanState::copyMacOutCountersCodefGenerationIs,
                                                   &InputSmScanState::copyMacOutCountersCodefGenerationInc};
inline constexpr std::array pollStates{&copyIpOutCountersState, &copyIp6OutCountersState,
                                       &copyInCountersState, &copyMacOutCountersState};

inline bool pollsComplete(const InputSmScanState& state) {
  return std::all_of(pollStates.begin(), pollStates.end(),
                     [&](const PollState* poll) { return poll->complete(state); });
}

}  // namespace Velo::VeloAcl
