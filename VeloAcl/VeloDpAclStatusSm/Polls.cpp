#include <VeloAcl/VeloDpAclStatusSm/Polls.h>

namespace Velo::VeloAcl {

MachinePolls::MachinePolls(const Arguments& args)
    : MachineStreams(args),
      copyIpOutCounters_(*this, {.name = "IpOutCounters",
                                 .inputName = "ipOutCounters",
                                 .input = &MachineFrame::ipOutCounters,
                                 .state = copyIpOutCountersState,
                                 .duplicateSeen = &MachinePolls::copyIpOutCountersDuplicateSeen,
                                 .duplicateSeenIs = &MachinePolls::copyIpOutCountersDuplicateSeenIs}),
      copyIp6OutCounters_(*this, {.name = "Ip6OutCounters",
                                  .inputName = "ip6OutCounters",
                                  .input = &MachineFrame::ip6OutCounters,
                                  .state = copyIp6OutCountersState,
                                  .duplicateSeen = &MachinePolls::copyIp6OutCountersDuplicateSeen,
                                  .duplicateSeenIs = &MachinePolls::copyIp6OutCountersDuplicateSeenIs}),
      copyInCounters_(*this, {.name = "InCounters",
                              .inputName = "inCounters",
                              .input = &MachineFrame::inCounters,
                              .state = copyInCountersState,
                              .duplicateSeen = &MachinePolls::copyInCountersDuplicateSeen,
                              .duplicateSeenIs = &MachinePolls::copyInCountersDuplicateSeenIs}),
      copyMacOutCounters_(*this, {.name = "MacOutCounters",
                                  .inputName = "macOutCounters",
                                  .input = &MachineFrame::macOutCounters,
                                  .state = copyMacOutCountersState,
                                  .duplicateSeen = &MachinePolls::copyMacOutCountersDuplicateSeen,
                                  .duplicateSeenIs = &MachinePolls::copyMacOutCountersDuplicateSeenIs}) {
  // The status of the rules waits for this output and for the polls. A poll that was faster has met lists
  // that were not there yet, and so may one that is half way: another pass comes, without a second between.
  ruleIdsByAclRuleIdsOutput_.whenReady([this] {
    if (synchronous_) return;
    for (CounterPoll* poll : polls()) poll->askAnew();
  });
}

}  // namespace Velo::VeloAcl
