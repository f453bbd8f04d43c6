#include "../Zeb/TracePlace.h"
#include "World.h"

// Where the records of the packet path say that they come from.

namespace {

using namespace TestSupport;

using TracePlaces = World;

TEST_F(TracePlaces, ARecordNamesTheLineThatWroteIt) {
  tracesOn();
  rule(AclType::ip, 5, Action::deny, "W");
  bind(AclType::ip, in);
  TraceCapture traces;
  EXPECT_FALSE(passes(tcp4()));
  EXPECT_TRUE(passes(arp()));
  EXPECT_TRUE(passes(cut(tcp4(), 13)));
  leaving(tcp4(), "eth9");
  ctx->mirroringSessionIs("W");
  EXPECT_TRUE(plugin->outputStep()->process(outCtx));

  for (const TraceLine& line : traces.lines()) {
    EXPECT_EQ(line.file, "VeloAcl/VeloPlugin/AclVeloPlugin") << line.text;
  }
  constexpr auto helper = "VeloAcl/VeloPlugin/DataplaneAclHelper.cpp";
  const TracePlace places[] = {
      {helper, "\"No {} acls of type", "No in acls of type mac"},
      {helper, "\"Matched acl {}", "Matched acl L"},
      {helper, "\"mirroring packet to {}", "mirroring packet to W"},
      {helper, "\"matched acl has action {}", "matched acl has action deny"},
      {helper, "\"No ip header", "No ip header"},
      {helper, "\"No ethernet header", "No ethernet header"},
      {"VeloAcl/VeloPlugin/DataplaneAclSteps.cpp", "\"Skipping acl egress filtering",
       "Skipping acl egress filtering"},
  };
  for (const TracePlace& place : places) expectPlace(traces, place);
}

}  // namespace
