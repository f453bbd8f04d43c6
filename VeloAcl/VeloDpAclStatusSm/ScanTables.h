#pragma once

#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>

#include <array>

/// Where the scan state has the fields of each stream and of each poll, for code that is the same for all of
/// them: a row for each.
namespace Velo::VeloAcl {

/// The flag that the scan of a stream has finished its current pass.
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

/// The passes of a poll.
struct PollScan {
  const bool& (InputSmScanState::*idle)() const;  ///< whether no pass is in progress
  bool (InputSmScanState::*idleIs)(bool);
  const uint64_t& (InputSmScanState::*done)() const;  ///< the number of the pass that was completed last
  bool (InputSmScanState::*doneIs)(uint64_t);
  const Zeb::Attribute& (*doneAttribute)();
  const uint64_t& (InputSmScanState::*asked)() const;  ///< the number of the pass that was asked for last
  bool (InputSmScanState::*askedIs)(uint64_t);

  /// Whether a pass was asked for, and the last one that was is completed.
  bool complete(const InputSmScanState& state) const {
    const uint64_t wanted = (state.*asked)();
    return wanted != 0 && wanted == (state.*done)();
  }
};
inline constexpr PollScan ipOutCountersPoll{
    .idle = &InputSmScanState::copyIpOutCountersIdle,
    .idleIs = &InputSmScanState::copyIpOutCountersIdleIs,
    .done = &InputSmScanState::copyIpOutCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyIpOutCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyIpOutCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyIpOutCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyIpOutCountersCodefGenerationIs};
inline constexpr PollScan ip6OutCountersPoll{
    .idle = &InputSmScanState::copyIp6OutCountersIdle,
    .idleIs = &InputSmScanState::copyIp6OutCountersIdleIs,
    .done = &InputSmScanState::copyIp6OutCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyIp6OutCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyIp6OutCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyIp6OutCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyIp6OutCountersCodefGenerationIs};
inline constexpr PollScan inCountersPoll{
    .idle = &InputSmScanState::copyInCountersIdle,
    .idleIs = &InputSmScanState::copyInCountersIdleIs,
    .done = &InputSmScanState::copyInCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyInCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyInCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyInCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyInCountersCodefGenerationIs};
inline constexpr PollScan macOutCountersPoll{
    .idle = &InputSmScanState::copyMacOutCountersIdle,
    .idleIs = &InputSmScanState::copyMacOutCountersIdleIs,
    .done = &InputSmScanState::copyMacOutCountersCodefDoneGen,
    .doneIs = &InputSmScanState::copyMacOutCountersCodefDoneGenIs,
    .doneAttribute = &InputSmScanState::copyMacOutCountersCodefDoneGenAttribute,
    .asked = &InputSmScanState::copyMacOutCountersCodefGeneration,
    .askedIs = &InputSmScanState::copyMacOutCountersCodefGenerationIs};

inline constexpr std::array pollScans{&ipOutCountersPoll, &ip6OutCountersPoll, &inCountersPoll,
                                      &macOutCountersPoll};

}  // namespace Velo::VeloAcl
