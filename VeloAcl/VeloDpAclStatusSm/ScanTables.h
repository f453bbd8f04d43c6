#pragma once

#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>

#include <array>

/// Where the scan state has the fields of each stream, for code that is the same for all of them: a row for
/// each stream.
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

}  // namespace Velo::VeloAcl
