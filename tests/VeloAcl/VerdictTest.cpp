#include "../support/UncheckedMpls.h"
#include "World.h"

// shouldDropPkt: what it decides, counts, mirrors and traces.

namespace {

using namespace TestSupport;

const std::string id5 = "0x0000000000000005";

class Verdict : public World {
 protected:
  /// One decision, with its traces; facility, level, function and file of every one of them are compared.
  bool drops(AclDirection direction, AclType type) {
    tracesOn();
    packet(frameFor(type));
    ctx->parsedPacket().maybeDoFullParse();
    TraceCapture traces;
    const bool dropped = plugin->aclHelper()->shouldDropPkt(ctx, IntfId("eth1"), direction, type);
    for (const TraceLine& line : traces.lines()) {
      EXPECT_EQ(line.facility, "Velo::Acl");
      EXPECT_EQ(line.level, 0);
      EXPECT_EQ(line.function, "shouldDropPkt");
      EXPECT_EQ(line.file, "VeloAcl/VeloPlugin/AclVeloPlugin");
    }
    lines = traces.texts();
    return dropped;
  }
  Lines lines;
};

TEST_F(Verdict, WithoutABindingThePacketPassesAndNothingIsCounted) {
  struct Row {
    const char* why;
    std::function<void()> prepare;
  };
  const Row rows[] = {
      {"nothing is bound at all", [] {}},
      {"another kind is bound", [&] { bind(AclType::mac, in); }},
      {"another direction is bound", [&] { bind(AclType::ip, out); }},
      {"another interface is bound", [&] { bind(AclType::ip, in, "eth2"); }},
  };
  rule(AclType::ip, 5, Action::deny);
  for (const Row& row : rows) {
    row.prepare();
    EXPECT_FALSE(drops(in, AclType::ip)) << row.why;
    EXPECT_EQ(lines, Lines{"Pkt7: No in acls of type ip for intf eth1"}) << row.why;
  }
  EXPECT_EQ(counted(), Lines{});
  EXPECT_EQ(named(), Lines{});
}

/// With rules or without: a list of no type has none to be asked.
TEST_F(Verdict, AListOfAnUnknownTypeBreaksAnInvariant) {
  nothingIsPublished();
  const auto unknown = static_cast<AclType>(7);
  packet(frameFor(AclType::ip));
  EXPECT_DEATH(
      {
        plugin->intfConfig()->configIs(unknown)->intfIs(in)->intfIs(IntfId("eth1"), "L");
        plugin->aclConfig()->configIs(unknown)->aclIs("L");
        plugin->aclHelper()->shouldDropPkt(ctx, IntfId("eth1"), in, unknown);
      },
      "an access list is of type ip, ipv6 or mac");
}

TEST_F(Verdict, AnEmptyNameIsNoBinding) {
  plugin->intfConfig()->configIs(AclType::ipv6)->intfIs(out)->intfIs(IntfId("eth1"), "");
  EXPECT_FALSE(drops(out, AclType::ipv6));
  EXPECT_EQ(lines, Lines{"Pkt7: No out acls of type ipv6 for intf eth1"});
}

TEST_F(Verdict, AListThatIsBoundButNotDefinedPasses) {
  bind(AclType::mac, in);
  EXPECT_FALSE(drops(in, AclType::mac));
  EXPECT_EQ(lines, Lines{"Pkt7: No acl config present for type mac"}) << "no list of the kind";
  rule(AclType::mac, 5, Action::deny, "", "OTHER");
  rule(AclType::ip, 6, Action::deny, "", "L");
  EXPECT_FALSE(drops(in, AclType::mac));
  EXPECT_EQ(lines, Lines{"Pkt7: No acl config present for type mac with name L"})
      << "a list of the same name and another kind is another list";
  EXPECT_EQ(counted(), Lines{});
  EXPECT_EQ(named(), Lines{});
  rule(AclType::mac, 5, Action::deny);
  EXPECT_TRUE(drops(in, AclType::mac)) << "once it is defined the next packet meets it";
}

struct CountedBy {
  AclDirection direction;
  AclType type;
  const char* name;
};
constexpr CountedBy collections[] = {
    {in, AclType::ip, "DpAclInRuleMatches"},        {in, AclType::ipv6, "DpAclInRuleMatches"},
    {in, AclType::mac, "DpAclInRuleMatches"},       {out, AclType::ip, "DpAclIpOutRuleMatches"},
    {out, AclType::ipv6, "DpAclIp6OutRuleMatches"}, {out, AclType::mac, "DpAclMacOutRuleMatches"},
};

class VerdictOfEach : public Verdict, public testing::WithParamInterface<CountedBy> {
 protected:
  std::string countedAs(uint64_t id, uint64_t count) const {
    return fmt::format("{}: {} {} L {} = {}", GetParam().name, GetParam().direction, GetParam().type, id,
                       count);
  }
};

TEST_P(VerdictOfEach, APermitPassesAndIsCounted) {
  const auto [direction, type, name] = GetParam();
  rule(type, 5, Action::permit);
  bind(type, direction);
  EXPECT_FALSE(drops(direction, type));
  EXPECT_EQ(lines,
            (Lines{"Pkt7: Matched acl L, rule " + id5 + " on eth1", "Pkt7: matched acl has action permit"}));
  EXPECT_EQ(counted(), Lines{countedAs(5, 1)});
  EXPECT_EQ(named(), Lines{});
}

TEST_P(VerdictOfEach, ADenyDropsIsCountedAndAccounted) {
  const auto [direction, type, name] = GetParam();
  rule(type, 5, Action::deny);
  bind(type, direction);
  EXPECT_TRUE(drops(direction, type));
  EXPECT_EQ(lines, (Lines{"Pkt7: Matched acl L, rule " + id5 + " on eth1",
                          "Pkt7: matched acl has action deny", "Pkt7: dropping pkt"}));
  EXPECT_EQ(counted(), Lines{countedAs(5, 1)});
  EXPECT_EQ(named(), Lines{"Drop/Velo::Acl/dropping pkt = 1"});
  EXPECT_TRUE(drops(direction, type));
  EXPECT_EQ(counted(), Lines{countedAs(5, 2)}) << "the second match finds the counter of the first";
  EXPECT_EQ(named(), Lines{"Drop/Velo::Acl/dropping pkt = 2"});
}

TEST_P(VerdictOfEach, APermitMirrorsInBothDirections) {
  const auto [direction, type, name] = GetParam();
  rule(type, 5, Action::permit, "W");
  bind(type, direction);
  EXPECT_FALSE(drops(direction, type));
  EXPECT_EQ(lines, (Lines{"Pkt7: Matched acl L, rule " + id5 + " on eth1", "Pkt7: mirroring packet to W",
                          "Pkt7: matched acl has action permit"}));
  EXPECT_EQ(mirror.copies, Lines{"W to eth9"});
}

TEST_P(VerdictOfEach, ADenyMirrorsOnTheWayInOnly) {
  const auto [direction, type, name] = GetParam();
  rule(type, 5, Action::deny, "W");
  bind(type, direction);
  EXPECT_TRUE(drops(direction, type));
  Lines expected{"Pkt7: Matched acl L, rule " + id5 + " on eth1", "Pkt7: mirroring packet to W",
                 "Pkt7: matched acl has action deny", "Pkt7: dropping pkt"};
  if (direction == out) expected.erase(expected.begin() + 1);
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(mirror.copies, direction == in ? Lines{"W to eth9"} : Lines{});
  EXPECT_EQ(counted(), Lines{countedAs(5, 1)}) << "a mirrored packet is counted once";
}

TEST_P(VerdictOfEach, WhatMatchesNoRuleIsDroppedAndCountedUnderTheImplicitId) {
  const auto [direction, type, name] = GetParam();
  list(type);
  bind(type, direction);
  implicitId(type, Kiv::UniqueId(uint64_t{77}));
  EXPECT_TRUE(drops(direction, type));
  EXPECT_EQ(lines, Lines{"Pkt7: No match on intf eth1, default action is drop"});
  EXPECT_EQ(counted(), Lines{countedAs(77, 1)});
  EXPECT_EQ(named(), Lines{"Drop/Velo::Acl/No match on intf %s, default action is drop = 1"})
      << "one drop count for all interfaces: its name keeps the placeholder";
}

TEST_P(VerdictOfEach, AnImplicitDropWithoutAnIdIsStillADrop) {
  const AclDirection direction = GetParam().direction;
  const AclType type = GetParam().type;
  list(type);
  bind(type, direction);
  nothingIsPublished();
  struct Row {
    const char* why;
    std::function<void()> prepare;
  };
  const Row rows[] = {
      {"no status of the kind", [] {}},
      {"no status of the list", [&] { agent.status->statusIs(type)->aclIs("OTHER"); }},
      {"no id", [&] { agent.status->statusIs(type)->aclIs("L"); }},
      {"an id of another kind of implicit rule",
       [&] {
         agent.status->statusIs(type)->aclIs("L")->implicitRuleIdIs(Acl::ImplicitRuleType::none,
                                                                    Kiv::UniqueId(uint64_t{5}));
       }},
      {"the empty id", [&] { implicitId(type, Kiv::UniqueId()); }},
  };
  uint64_t dropped = 0;
  for (const Row& row : rows) {
    row.prepare();
    EXPECT_TRUE(drops(direction, type)) << row.why;
    EXPECT_EQ(lines, (Lines{"Pkt7: Unable to count implicit drop",
                            "Pkt7: No match on intf eth1, default action is drop"}))
        << row.why;
    EXPECT_EQ(counted(), Lines{}) << row.why;
    EXPECT_EQ(named(), Lines{fmt::format("Drop/Velo::Acl/No match on intf %s, default action is drop = {}",
                                         ++dropped)});
  }
}

TEST_P(VerdictOfEach, AListWithoutRulesInForceDropsLikeAnEmptyOne) {
  const auto [direction, type, name] = GetParam();
  agent.cli->configIs(type)->aclIs("L");
  bind(type, direction);
  EXPECT_TRUE(drops(direction, type));
}

INSTANTIATE_TEST_SUITE_P(, VerdictOfEach, testing::ValuesIn(collections), [](const auto& each) {
  return fmt::format("{}_{}", each.param.direction, each.param.type);
});

TEST_F(Verdict, OfADefaultRuleIsPermitWhateverIsSaidOfIt) {
  list(AclType::ip)->ipRuleByIdIs(Kiv::UniqueId(uint64_t{5}), Acl::IpRule());
  bind(AclType::ip, in);
  EXPECT_FALSE(drops(in, AclType::ip));
}

TEST_F(Verdict, ASessionThatIsNotDefinedIsTracedAndCountedButMirrorsNothing) {
  rule(AclType::ip, 5, Action::permit, "LATER");
  bind(AclType::ip, in);
  EXPECT_FALSE(drops(in, AclType::ip));
  EXPECT_EQ(lines[1], "Pkt7: mirroring packet to LATER");
  EXPECT_EQ(mirror.copies, Lines{});
  EXPECT_EQ(named(), Lines{"Mirror/Velo::Mirroring/ingress packet to an undefined session = 1"});
}

TEST_F(Verdict, ALabelOutOfRangeIsAnErrorThatThePipelineAnswersWithADropOfItsOwn) {
  bind(AclType::mac, in);
  const auto rules = MemSlab::make<Acl::AclSubConfig>();
  Acl::MacRule rule;
  rule.filter.mpls = Acl::UncheckedMpls::of({.innerLabel = -1});
  rules->macRuleByIdIs(Kiv::UniqueId(uint64_t{5}), std::move(rule));
  plugin->aclConfig()->configIs(AclType::mac)->aclIs("L")->currCfgIs(rules);
  try {
    drops(in, AclType::mac);
    FAIL() << "no error";
  } catch (const std::range_error& error) {
    EXPECT_STREQ(error.what(), "Acl::MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed");
  }
  EXPECT_EQ(counted(), Lines{}) << "the match came to nothing";
  const auto* droppedBy = agent.manager.pipeline()->process(packet(tcp4()));
  ASSERT_TRUE(droppedBy);
  EXPECT_EQ(droppedBy->name(), "DataplaneInputAclStep");
  EXPECT_EQ(named(), Lines{"Drop/Velo::Pipeline/exception in DataplaneInputAclStep = 1"});
  plugin->aclConfig()->configDel(AclType::mac);
  EXPECT_EQ(agent.manager.pipeline()->process(packet(tcp4())), nullptr) << "the pipeline goes on";
}

TEST_F(Verdict, WithTracingOffNothingIsWritten) {
  rule(AclType::ip, 5, Action::deny, "W");
  bind(AclType::ip, in);
  TraceCapture traces;
  EXPECT_FALSE(passes(tcp4()));
  EXPECT_TRUE(traces.lines().empty());
}

TEST_F(Verdict, AChangeOfTheConfigurationHoldsForTheNextPacket) {
  rule(AclType::ip, 5, Action::deny);
  bind(AclType::ip, in);
  EXPECT_FALSE(passes(tcp4()));
  rule(AclType::ip, 6, Action::permit, "", "L", 5);
  EXPECT_TRUE(passes(tcp4())) << "a rule in front of it";
  list(AclType::ip)->ipRuleByIdDel(Kiv::UniqueId(uint64_t{6}));
  EXPECT_FALSE(passes(tcp4()));
  agent.cliIntfs->configDel(AclType::ip);
  EXPECT_TRUE(passes(tcp4())) << "the binding is gone";
}

}  // namespace
