#include "World.h"

// processPkt and the two steps: which lists a packet is compared with, and in which order.

namespace {

using namespace TestSupport;

class Process : public World {
 protected:
  /// The functions and texts of all traces of one run.
  Lines traced(const std::function<void()>& run) {
    tracesOn();
    TraceCapture traces;
    run();
    Lines lines;
    for (const TraceLine& line : traces.lines()) lines.push_back(line.function + " " + line.text);
    return lines;
  }
  bool process(AclDirection direction = in) {
    return plugin->aclHelper()->processPkt(ctx, direction, IntfId("eth1"));
  }
  /// One list a name, bound to one interface, whose rule has this action.
  void listOn(const char* name, AclType type, const char* intf, Action action, AclDirection direction = in) {
    rule(type, 1, action, "", name);
    bind(type, direction, intf, name);
  }
};

TEST_F(Process, MacListsAreAskedBeforeIpLists) {
  listOn("M", AclType::mac, "eth1", Action::permit);
  listOn("I", AclType::ip, "eth1", Action::permit);
  EXPECT_EQ(traced([&] { EXPECT_TRUE(passes(tcp4())); }),
            (Lines{"shouldDropPkt Pkt7: Matched acl M, rule 0x0000000000000001 on eth1",
                   "shouldDropPkt Pkt7: matched acl has action permit",
                   "shouldDropPkt Pkt7: Matched acl I, rule 0x0000000000000001 on eth1",
                   "shouldDropPkt Pkt7: matched acl has action permit"}));
}

TEST_F(Process, AMacDropSkipsTheIpListAndItsCounting) {
  listOn("M", AclType::mac, "eth1", Action::deny);
  listOn("I", AclType::ip, "eth1", Action::permit);
  EXPECT_FALSE(passes(tcp4()));
  EXPECT_EQ(counted(), Lines{"DpAclInRuleMatches: in mac M 1 = 1"});
}

TEST_F(Process, AnArpFrameIsHeldAgainstMacListsOnly) {
  listOn("I", AclType::ip, "eth1", Action::deny);
  EXPECT_EQ(
      traced([&] { EXPECT_TRUE(passes(arp())); }),
      (Lines{"shouldDropPkt Pkt7: No in acls of type mac for intf eth1", "processL3Pkt Pkt7: No ip header"}));
  listOn("M", AclType::mac, "eth1", Action::deny);
  EXPECT_FALSE(passes(arp()));
}

TEST_F(Process, APacketWithoutAnEthernetHeaderPassesBothStages) {
  listOn("M", AclType::mac, "eth1", Action::deny);
  EXPECT_EQ(traced([&] { EXPECT_TRUE(passes(cut(tcp4(), 13))); }),
            (Lines{"processL2Pkt Pkt7: No ethernet header", "processL3Pkt Pkt7: No ip header"}));
}

TEST_F(Process, TheKindOfTheIpHeaderChoosesTheList) {
  listOn("V4", AclType::ip, "eth1", Action::permit);
  listOn("V6", AclType::ipv6, "eth1", Action::deny);
  EXPECT_TRUE(passes(tcp4()));
  EXPECT_FALSE(passes(tcp6()));
  EXPECT_EQ(counted(), (Lines{"DpAclInRuleMatches: in ip V4 1 = 1", "DpAclInRuleMatches: in ipv6 V6 1 = 1"}));
}

TEST_F(Process, TheParseIsCompletedBeforeAnythingIsAsked) {
  listOn("I", AclType::ip, "eth1", Action::deny);
  packet(tcp4());
  EXPECT_EQ(ctx->parsedPacket().ipHdr(), nullptr);
  EXPECT_FALSE(process());
  EXPECT_NE(ctx->parsedPacket().ipHdr(), nullptr);
}

TEST_F(Process, APortChannelIsAskedBeforeItsMember) {
  for (const char* intf : {"po1", "eth1"}) {
    listOn(intf[0] == 'p' ? "PM" : "EM", AclType::mac, intf, Action::permit);
    listOn(intf[0] == 'p' ? "PI" : "EI", AclType::ip, intf, Action::permit);
  }
  const Lines order = traced([&] {
    packet(tcp4());
    ctx->ingressPortChannelIs(IntfId("po1"));
    EXPECT_TRUE(process());
  });
  EXPECT_EQ(order, (Lines{"processPkt Pkt7: Intf eth1 is a member of port-channel po1",
                          "shouldDropPkt Pkt7: Matched acl PM, rule 0x0000000000000001 on po1",
                          "shouldDropPkt Pkt7: matched acl has action permit",
                          "shouldDropPkt Pkt7: Matched acl PI, rule 0x0000000000000001 on po1",
                          "shouldDropPkt Pkt7: matched acl has action permit",
                          "shouldDropPkt Pkt7: Matched acl EM, rule 0x0000000000000001 on eth1",
                          "shouldDropPkt Pkt7: matched acl has action permit",
                          "shouldDropPkt Pkt7: Matched acl EI, rule 0x0000000000000001 on eth1",
                          "shouldDropPkt Pkt7: matched acl has action permit"}));
}

TEST_F(Process, TheFirstDropEndsIt) {
  struct Row {
    const char* why;
    const char* denying;
    Lines counted;
  };
  const auto in1 = [](const char* what) { return fmt::format("DpAclInRuleMatches: in {} 1 = 1", what); };
  const Row rows[] = {
      {"the port-channel's MAC list", "PM", {in1("mac PM")}},
      {"its IP list", "PI", {in1("ip PI"), in1("mac PM")}},
      {"the member's MAC list", "EM", {in1("ip PI"), in1("mac EM"), in1("mac PM")}},
      {"the member's IP list", "EI", {in1("ip EI"), in1("ip PI"), in1("mac EM"), in1("mac PM")}},
  };
  for (const Row& row : rows) {
    plugin->inCountersIs("DpAclInRuleMatches", CtrPool::FeatureId(4));
    while (!plugin->inCounters()->counterCollection().empty()) {
      plugin->inCounters()->counterCollectionDel(plugin->inCounters()->counterCollection().begin().key());
    }
    for (const char* name : {"PM", "PI", "EM", "EI"}) {
      listOn(name, name[1] == 'M' ? AclType::mac : AclType::ip, name[0] == 'P' ? "po1" : "eth1",
             std::string_view(name) == row.denying ? Action::deny : Action::permit);
    }
    packet(tcp4());
    ctx->ingressPortChannelIs(IntfId("po1"));
    EXPECT_FALSE(process()) << row.why;
    EXPECT_EQ(counted(), row.counted) << row.why;
  }
}

TEST_F(Process, EachDirectionHasAPortChannelOfItsOwn) {
  listOn("IN", AclType::ip, "po1", Action::deny, in);
  listOn("OUT", AclType::ip, "po2", Action::deny, out);
  packet(tcp4());
  ctx->ingressPortChannelIs(IntfId("po1"));
  EXPECT_FALSE(process(in));
  EXPECT_TRUE(process(out)) << "it leaves through no port-channel";
  ctx->egressPortChannelIs(IntfId("po2"));
  EXPECT_FALSE(process(out));
  packet(tcp4());
  EXPECT_TRUE(process(in)) << "the next packet has none of it";
  ctx->egressPortChannelIs(IntfId("po2"));
  EXPECT_TRUE(process(in)) << "it came through no port-channel";
}

TEST_F(Process, AnEmptyPortChannelMeansTheMemberAlone) {
  listOn("E", AclType::mac, "eth1", Action::deny);
  plugin->intfConfig()->configIs(AclType::mac)->intfIs(in)->intfIs(IntfId(), "E");
  const Lines order = traced([&] {
    packet(arp());
    ctx->egressPortChannelIs(IntfId("po2"));
    EXPECT_FALSE(process(in));
  });
  EXPECT_EQ(order,
            (Lines{"processPkt Pkt7: Intf eth1 is a member of port-channel ",
                   "shouldDropPkt Pkt7: Matched acl E, rule 0x0000000000000001 on eth1",
                   "shouldDropPkt Pkt7: matched acl has action deny", "shouldDropPkt Pkt7: dropping pkt"}));
}

TEST_F(Process, TheHelperHoldsWhatItWasGiven) {
  const auto& helper = plugin->aclHelper();
  EXPECT_EQ(helper->aclConfig(), plugin->aclConfig());
  EXPECT_EQ(helper->intfConfig(), plugin->intfConfig());
  EXPECT_EQ(helper->aclStatus(), agent.status);
  EXPECT_EQ(helper->inCounters(), plugin->inCounters());
  EXPECT_EQ(helper->macOutCounters(), plugin->macOutCounters());
  EXPECT_EQ(helper->ipOutCounters(), plugin->ipOutCounters());
  EXPECT_EQ(helper->ip6OutCounters(), plugin->ip6OutCounters());
  EXPECT_EQ(helper->mirroringHelper(), Velo::MirroringStepHelper::singleton());
  const auto made =
      Velo::VeloAcl::DataplaneAclHelperIs(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(made->mirroringHelper(), nullptr) << "the plugin gives it later";
}

TEST_F(Process, TheStepsHaveTheirNamesAndPositions) {
  EXPECT_EQ(plugin->inputStep()->name(), "DataplaneInputAclStep");
  EXPECT_EQ(plugin->inputStep()->position(), 32000u);
  EXPECT_EQ(plugin->inputStep()->stepFlags(), 1u);
  EXPECT_EQ(plugin->outputStep()->name(), "DataplaneOutputAclStep");
  EXPECT_EQ(plugin->outputStep()->position(), 8500u);
  EXPECT_EQ(plugin->outputStep()->stepFlags(), 1u);
  EXPECT_EQ(Velo::VeloAcl::DataplaneAclInputStepIs(plugin->aclHelper())->helper(), plugin->aclHelper());
  EXPECT_EQ(Velo::VeloAcl::DataplaneAclOutputStepIs(plugin->aclHelper())->helper(), plugin->aclHelper());
}

TEST_F(Process, APacketsWayInAndWayOutAreJudgedApart) {
  listOn("IN", AclType::ip, "eth1", Action::permit, in);
  listOn("OUT", AclType::ip, "eth2", Action::deny, out);
  listOn("NO", AclType::ip, "eth1", Action::deny, out);
  EXPECT_EQ(agent.manager.pipeline()->process(packet(tcp4())), nullptr);
  outCtx->egressIntfIs(IntfId("eth2"));
  const auto* droppedBy = agent.manager.pipeline()->process(outCtx);
  ASSERT_TRUE(droppedBy);
  EXPECT_EQ(droppedBy->name(), "DataplaneOutputAclStep");
  EXPECT_EQ(counted(),
            (Lines{"DpAclInRuleMatches: in ip IN 1 = 1", "DpAclIpOutRuleMatches: out ip OUT 1 = 1"}));
}

TEST_F(Process, AMirroredCopyPassesTheWayOutUnjudged) {
  listOn("ALL", AclType::mac, "eth9", Action::deny, out);
  leaving(tcp4(), "eth9");
  EXPECT_NE(agent.manager.pipeline()->process(outCtx), nullptr) << "the list drops everything else";
  const Lines before = counted(), droppedBefore = named();
  const Lines traces = traced([&] {
    leaving(tcp4(), "eth9");
    ctx->mirroringSessionIs("W");
    EXPECT_EQ(agent.manager.pipeline()->process(outCtx), nullptr);
  });
  EXPECT_EQ(traces, Lines{"process Pkt7: Skipping acl egress filtering on mirrored pkt"});
  EXPECT_EQ(counted(), before);
  EXPECT_EQ(named(), droppedBefore);
}

TEST_F(Process, StepsKeepTheHelperAndWorkOnWithoutThePlugin) {
  listOn("I", AclType::ip, "eth1", Action::deny);
  const auto step = plugin->inputStep();
  const auto helper = plugin->aclHelper();
  EXPECT_EQ(helper->nodeUseCount(), 4u) << "plugin, two steps and this test";
  plugin->aclHelperDel();
  EXPECT_FALSE(step->process(packet(tcp4())));
  EXPECT_EQ(helper->nodeUseCount(), 3u) << "what a call takes it gives back";
}

}  // namespace
