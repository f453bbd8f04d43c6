#include <Velo/FlowHash.h>
#include <Velo/PacketContext.h>
#include <Velo/PortChannels.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "../support/Frames.h"

namespace {

using namespace TestSupport;
using Nimnet::IntfId;
using Velo::PortChannels;

PortChannels::Members members(std::initializer_list<const char*> names) {
  PortChannels::Members all;
  for (const char* name : names) all.emplace_back(Kelp::String(name));
  return all;
}

TEST(PortChannels, KnowTheirMembersAndMembersKnowTheirs) {
  PortChannels all;
  EXPECT_EQ(all.membersIs(IntfId("po1"), members({"eth2", "eth3"})), std::nullopt);
  EXPECT_TRUE(all.has(IntfId("po1")));
  EXPECT_FALSE(all.has(IntfId("eth2")));
  EXPECT_EQ(all.portChannelOf(IntfId("eth3")), IntfId("po1"));
  EXPECT_TRUE(all.portChannelOf(IntfId("eth4")).empty());
  EXPECT_EQ(all.membersIs(IntfId("po1"), members({"eth3", "eth4"})), std::nullopt) << "defined anew";
  EXPECT_TRUE(all.portChannelOf(IntfId("eth2")).empty()) << "a member that left is free";
  all.portChannelDel(IntfId("po1"));
  EXPECT_TRUE(all.portChannelOf(IntfId("eth3")).empty());
  EXPECT_FALSE(all.has(IntfId("po1")));
  all.portChannelDel(IntfId("po1"));
}

TEST(PortChannels, WhatCannotBeIsRefusedWithASentenceAndChangesNothing) {
  PortChannels all;
  all.membersIs(IntfId("po1"), members({"eth1", "eth2"}));
  struct Row {
    const char* portChannel;
    PortChannels::Members members;
    const char* sentence;
  };
  const Row rows[] = {
      {"po2", members({"eth3", "eth2"}), "eth2 is a member of po1 already"},
      {"po2", members({"po2"}), "po2 cannot be its own member"},
      {"po1", members({"eth1", "eth3", "eth1"}), "eth1 is named twice"},
  };
  for (const auto& [portChannel, wanted, sentence] : rows) {
    EXPECT_EQ(all.membersIs(IntfId(portChannel), wanted), sentence);
    EXPECT_EQ(all.all().size(), 1u);
    EXPECT_EQ(all.all().at(IntfId("po1")), members({"eth1", "eth2"}));
    EXPECT_TRUE(all.portChannelOf(IntfId("eth3")).empty());
  }
}

TEST(PortChannels, TheEgressMemberFollowsTheFlowHash) {
  EXPECT_EQ(PortChannels::chosen(0, 3), 0u);
  EXPECT_EQ(PortChannels::chosen(~0u, 3), 2u) << "the greatest hash stays within the members";
  std::vector<int> flows(3);
  for (uint32_t i = 0; i < 3000; ++i) ++flows[PortChannels::chosen(i * 1431656u, flows.size())];
  for (const int count : flows) EXPECT_NEAR(count, 1000, 20);
}

uint32_t hashOf(const Bytes& bytes) {
  Nimnet::Pkt pkt;
  pkt.assign(bytes, static_cast<uint32_t>(bytes.size()), 0);
  Velo::ParsedPacket parsed;
  parsed.reset(&pkt);
  parsed.maybeDoFullParse();
  return Velo::flowHash(parsed);
}

FrameBuilder v4() { return frame().eth().ip4("192.0.2.1", "192.0.2.2"); }
FrameBuilder v6() { return frame().eth().ip6("::1", "::2"); }

TEST(FlowHash, PacketsOfAFlowAgree) {
  struct Row {
    const char* why;
    Bytes a, b;
  };
  const Row rows[] = {
      {"payload, TTL and class do not count", v4().ttl(1).tos(4).tcp(1, 2).payload(9),
       v4().tcp(1, 2).flags(Fin)},
      {"nor do MAC addresses or tags of an IP packet",
       frame().eth("02:00:00:00:00:09").vlan(7).ip4("192.0.2.1", "192.0.2.2").udp(1, 2), v4().udp(1, 2)},
      {"the fragments of an IPv4 datagram stay together", v4().fragment(0, true).udp(1, 2).payload(8),
       v4().fragment(2, false).protocol(17).payload(8)},
      {"those of IPv6", v6().fragment(0, true).udp(1, 2).payload(8),
       v6().fragment(2, false).protocol(17).payload(8)},
      {"though only the first one tells what is behind its options",
       v6().fragment(0, true).destinationOptions().udp(1, 2),
       v6().fragment(2, false).protocol(60).payload(8)},
      {"other frames go by their MAC addresses", frame().eth().arp("192.0.2.1", "192.0.2.2"),
       frame().eth().ethType(0x88cc).payload(46)},
      {"a frame without an Ethernet header has a hash, too", cut(v4().udp(1, 2), 13), Bytes{}},
  };
  for (const auto& [why, a, b] : rows) EXPECT_EQ(hashOf(a), hashOf(b)) << why;
}

TEST(FlowHash, FlowsDiffer) {
  const Bytes flows[] = {v4().tcp(1, 2),
                         v4().tcp(2, 1),
                         v4().tcp(1, 3),
                         v4().udp(1, 2),
                         v4().sctp(1, 2),
                         frame().eth().ip4("192.0.2.2", "192.0.2.1").tcp(1, 2),
                         v6().tcp(1, 2),
                         v6().udp(1, 2),
                         frame().eth().ip6("::2", "::1").tcp(1, 2),
                         frame().eth().ip6("1::1", "::2").tcp(1, 2),
                         frame().eth().arp("192.0.2.1", "192.0.2.2"),
                         frame().eth("02:00:00:00:00:09").arp("192.0.2.1", "192.0.2.2")};
  std::set<uint32_t> hashes;
  for (const Bytes& flow : flows) hashes.insert(hashOf(flow));
  EXPECT_EQ(hashes.size(), std::size(flows));
}

/// One context has packet after packet.
TEST(LagPacketInfo, KnowsThePortChannelsOfThisPacketOnly) {
  const auto ctx = MemSlab::make<Velo::PacketContext>(MemSlab::make<Velo::VeloNamedCounters>());
  const IntfId eth1("eth1"), one("po1"), two("po2");
  const auto info = [&ctx] { return Velo::LagPacketInfo::extractInfo(ctx); };
  ctx->begin(eth1);
  EXPECT_EQ(info(), nullptr);
  ctx->ingressPortChannelIs(one);
  ctx->egressPortChannelIs(two);
  ASSERT_NE(info(), nullptr);
  EXPECT_EQ(info()->ingressPortChannel, one);
  EXPECT_EQ(info()->egressPortChannel, two);
  ctx->begin(eth1);
  EXPECT_EQ(info(), nullptr);
  ctx->egressPortChannelIs(one);
  EXPECT_EQ(info()->ingressPortChannel, IntfId());
  ctx->begin(eth1);
  ctx->ingressPortChannelIs(two);
  EXPECT_EQ(info()->egressPortChannel, IntfId());
}

}  // namespace
