#include <VeloAcl/VeloDpAclStatusSm/Polls.h>

#include <algorithm>

namespace Velo::VeloAcl {

MachinePolls::MachinePolls(const Arguments& args)
    : MachineStreams(args),
      copyIpOutCounters_(
          *this,
          {.inputReadyText = "handleCopyIpOutCountersCodefInputReady",
           .inputsText = "Inputs for copyIpOutCountersCodef ready",
           .firedText = "copyIpOutCounters = Poll fired",
           .flatteningText = " foreach( ipOutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( ipOutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyIpOutCountersTask",
           .input = &MachineFrame::ipOutCounters,
           .idle = &InputSmScanState::copyIpOutCountersIdleAttribute,
           .done = &InputSmScanState::copyIpOutCountersCodefDoneGenAttribute,
           .asked = &InputSmScanState::copyIpOutCountersCodefGenerationAttribute,
           .duplicateSeen = &MachinePolls::copyIpOutCountersDuplicateSeenAttribute}),
      copyIp6OutCounters_(
          *this,
          {.inputReadyText = "handleCopyIp6OutCountersCodefInputReady",
           .inputsText = "Inputs for copyIp6OutCountersCodef ready",
           .firedText = "copyIp6OutCounters = Poll fired",
           .flatteningText = " foreach( ip6OutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( ip6OutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyIp6OutCountersTask",
           .input = &MachineFrame::ip6OutCounters,
           .idle = &InputSmScanState::copyIp6OutCountersIdleAttribute,
           .done = &InputSmScanState::copyIp6OutCountersCodefDoneGenAttribute,
           .asked = &InputSmScanState::copyIp6OutCountersCodefGenerationAttribute,
           .duplicateSeen = &MachinePolls::copyIp6OutCountersDuplicateSeenAttribute}),
      copyInCounters_(
          *this,
          {.inputReadyText = "handleCopyInCountersCodefInputReady",
           .inputsText = "Inputs for copyInCountersCodef ready",
           .firedText = "copyInCounters = Poll fired",
           .flatteningText = " foreach( inCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( inCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyInCountersTask",
           .input = &MachineFrame::inCounters,
           .idle = &InputSmScanState::copyInCountersIdleAttribute,
           .done = &InputSmScanState::copyInCountersCodefDoneGenAttribute,
           .asked = &InputSmScanState::copyInCountersCodefGenerationAttribute,
           .duplicateSeen = &MachinePolls::copyInCountersDuplicateSeenAttribute}),
      copyMacOutCounters_(
          *this,
          {.inputReadyText = "handleCopyMacOutCountersCodefInputReady",
           .inputsText = "Inputs for copyMacOutCountersCodef ready",
           .firedText = "copyMacOutCounters = Poll fired",
           .flatteningText = " foreach( macOutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( macOutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyMacOutCountersTask",
           .input = &MachineFrame::macOutCounters,
           .idle = &InputSmScanState::copyMacOutCountersIdleAttribute,
           .done = &InputSmScanState::copyMacOutCountersCodefDoneGenAttribute,
           .asked = &InputSmScanState::copyMacOutCountersCodefGenerationAttribute,
           .duplicateSeen = &MachinePolls::copyMacOutCountersDuplicateSeenAttribute}) {
  // The status of the rules waits for this output and for the polls. A poll that was faster than this output,
  // or is going on, may have missed lists that were not published yet. So each poll makes another pass, as
  // soon as possible.
  ruleIdsByAclRuleIdsOutput_.whenReady([this] {
    if (synchronous_) return;
    for (CounterPoll* poll : polls()) poll->askAnew();
  });
}

bool MachinePolls::pollsComplete() {
  const auto all = polls();
  return std::all_of(all.begin(), all.end(), [](const CounterPoll* poll) { return poll->complete(); });
}

}  // namespace Velo::VeloAcl
