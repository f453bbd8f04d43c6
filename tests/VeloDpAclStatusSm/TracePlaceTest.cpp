#include "../Zeb/TracePlace.h"
#include "Fixture.h"

#include <Zeb/TraceHandle.h>

namespace SmTest {
namespace {

/// A record names the line that wrote it also where that is a line of a table's user: the caller of what all
/// walkers share, and the row of an output.
TEST(TracePlaces, ARecordNamesTheLineThatWroteIt) {
  World world;
  Zeb::TraceHandle::enable("DpAclStatusVelo/9");
  TraceCapture traces;
  world.rules(AclType::ip, "A")->ipRuleByIdIs(r(1), World::ipRule());
  world.bind(AclType::ip, AclDirection::in, "eth1", "A");
  World::count(world.in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 100);
  world.start(Rix::SmControl::synchronous);
  Zeb::TraceHandle::disableAll();

#define IN(file) "VeloAcl/VeloDpAclStatusSm/" file
  const TracePlace places[] = {
      {IN("VeloDpAclStatusSm.cpp"), "\"create local SMs\"", "create local SMs"},
      {IN("InitialScan.cpp"), "\"Initial scan done", "Initial scan done for child SMs"},
      {IN("IntfWalkers.cpp"), "visits(intfId)", "k: eth1"},
      {IN("CurrCfgWalkers.cpp"), "visits<2>(uid)", "k: 0x0000000000000001"},
      {IN("Streams.cpp"), "\"aclConfigStream = from(", "aclConfigStream = from("},
      {IN("RuleStreams.cpp"), "rowOf<Rule>().cfg", "ipRuleCfgStream = from("},
      {IN("RuleStreams.cpp"), "write(intoRuleStatus", "into( status.ruleStatus[ uid ] ): inserting"},
      {IN("CounterStreams.cpp"), "write(intoStatusOfRule", "into( status.ruleStatus[ key.ruleId ] )"},
      {IN("CounterPoll.cpp"), "spec_.firedText", "copyInCounters = Poll fired"},
      {IN("Outputs.cpp"), "aclStatusStatusAclOutput complete",
       "Input scans for aclStatusStatusAclOutput complete"},
  };
#undef IN
  for (const TracePlace& place : places) expectPlace(traces, place);
}

}  // namespace
}  // namespace SmTest
