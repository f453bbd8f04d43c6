#include <VeloAcl/VeloDpAclStatusSm/Polls.h>

namespace Velo::VeloAcl {

MachinePolls::MachinePolls(const Arguments& args)
    : MachineStreams(args),
      copyIpOutCounters_(
          *this,
          {.line = __LINE__,
           .inputReadyText = "handleCopyIpOutCountersCodefInputReady",
           .inputsText = "Inputs for copyIpOutCountersCodef ready",
           .firedText = "copyIpOutCounters = Poll fired",
           .flatteningText = " foreach( ipOutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( ipOutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyIpOutCountersTask",
           .input = &MachineFrame::ipOutCounters,
           .scan = &ipOutCountersPoll,
           .duplicateSeen = &MachinePolls::copyIpOutCountersDuplicateSeen,
           .duplicateSeenIs = &MachinePolls::copyIpOutCountersDuplicateSeenIs}),
      copyIp6OutCounters_(
          *this,
          {.line = __LINE__,
           .inputReadyText = "handleCopyIp6OutCountersCodefInputReady",
           .inputsText = "Inputs for copyIp6OutCountersCodef ready",
           .firedText = "copyIp6OutCounters = Poll fired",
           .flatteningText = " foreach( ip6OutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( ip6OutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyIp6OutCountersTask",
           .input = &MachineFrame::ip6OutCounters,
           .scan = &ip6OutCountersPoll,
           .duplicateSeen = &MachinePolls::copyIp6OutCountersDuplicateSeen,
           .duplicateSeenIs = &MachinePolls::copyIp6OutCountersDuplicateSeenIs}),
      copyInCounters_(
          *this,
          {.line = __LINE__,
           .inputReadyText = "handleCopyInCountersCodefInputReady",
           .inputsText = "Inputs for copyInCountersCodef ready",
           .firedText = "copyInCounters = Poll fired",
           .flatteningText = " foreach( inCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( inCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyInCountersTask",
           .input = &MachineFrame::inCounters,
           .scan = &inCountersPoll,
           .duplicateSeen = &MachinePolls::copyInCountersDuplicateSeen,
           .duplicateSeenIs = &MachinePolls::copyInCountersDuplicateSeenIs}),
      copyMacOutCounters_(
          *this,
          {.line = __LINE__,
           .inputReadyText = "handleCopyMacOutCountersCodefInputReady",
           .inputsText = "Inputs for copyMacOutCountersCodef ready",
           .firedText = "copyMacOutCounters = Poll fired",
           .flatteningText = " foreach( macOutCounters.counterCollection ) flattening {} elements",
           .resumingText =
               " Resuming foreach( macOutCounters.counterCollection ) w/key {}, while flattening {} elements",
           .taskName = "VeloDpAclStatusSm-copyMacOutCountersTask",
           .input = &MachineFrame::macOutCounters,
           .scan = &macOutCountersPoll,
           .duplicateSeen = &MachinePolls::copyMacOutCountersDuplicateSeen,
           .duplicateSeenIs = &MachinePolls::copyMacOutCountersDuplicateSeenIs}) {
  static_assert(std::tuple_size_v<decltype(polls())> == pollScans.size(), "polls() has not all polls");
  // The status of the rules waits for this output and for the polls. A poll that was faster than this output,
  // or is going on, may have missed lists that were not published yet. So each poll makes another pass, as
  // soon as possible.
  ruleIdsByAclRuleIdsOutput_.whenReady([this] {
    if (synchronous_) return;
    for (CounterPoll* poll : polls()) poll->askAnew();
  });
}

}  // namespace Velo::VeloAcl
