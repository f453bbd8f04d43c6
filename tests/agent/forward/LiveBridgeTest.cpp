#include <agent/change/Apply.h>
#include <agent/config/Reader.h>
#include <agent/forward/Bridge.h>
#include <agent/forward/Forwarder.h>
#include <gtest/gtest.h>

#include "../../support/Frames.h"
#include "../support/AllocationCount.h"

#include <set>

namespace {

using namespace TestSupport;

using Names = std::set<std::string>;

Nimnet::EthHdr header(uint64_t destination, uint64_t source) {
  Nimnet::EthHdr eth{};
  const auto to = Nimnet::EthAddr::fromValue(destination), from = Nimnet::EthAddr::fromValue(source);
  std::copy(to.bytes.begin(), to.bytes.end(), eth.bytes);
  std::copy(from.bytes.begin(), from.bytes.end(), eth.bytes + 6);
  return eth;
}

constexpr uint64_t alice = 0x02005e000001, bob = 0x02005e000002, carol = 0x02005e000003;
constexpr uint64_t broadcast = 0xffffffffffff;

/// A bridge of three ends, on its own.
class BridgeTest : public testing::Test {
 protected:
  BridgeTest() {
    for (size_t i = 0; i < 3; ++i) ends_[i].id = Nimnet::IntfId("eth" + std::to_string(i + 1));
  }
  void hear(size_t end, uint64_t source, uint16_t vlan = 0) {
    bridge_.learn(ends_[end - 1], header(broadcast, source), vlan);
  }
  Names to(uint64_t destination, uint16_t vlan = 0) {
    Names names;
    for (const Agent::End* end : bridge_.targets(ends_[0], header(destination, alice), vlan))
      names.insert(end->id.name().str());
    return names;
  }

  Kiv::ManualClock clock_{Kelp::Duration(1000)};
  Agent::End ends_[3];
  Agent::Bridge bridge_{{&ends_[0], &ends_[1], &ends_[2]}, clock_};
};

const Names threePorts = {"eth1", "eth2", "eth3"};

TEST_F(BridgeTest, AStationThatWasHeardOfIsSentToAlone) {
  EXPECT_EQ(to(bob), threePorts) << "nobody was heard of yet";
  hear(2, bob);
  EXPECT_EQ(to(bob), Names{"eth2"});
  EXPECT_EQ(to(carol), threePorts) << "another station";
  hear(3, bob);
  EXPECT_EQ(to(bob), Names{"eth3"}) << "it has moved";
}

TEST_F(BridgeTest, VlansAreApart) {
  hear(2, bob, 7);
  EXPECT_EQ(to(bob, 7), Names{"eth2"});
  EXPECT_EQ(to(bob, 8), threePorts);
  EXPECT_EQ(to(bob, 0), threePorts);
}

TEST_F(BridgeTest, WhatIsNoStationIsNotLearned) {
  for (const uint64_t address : {broadcast, uint64_t{0x01005e000001}, uint64_t{0}}) {
    hear(2, address);
    EXPECT_EQ(bridge_.known(), 0u) << std::hex << address;
  }
  EXPECT_EQ(to(0x01005e000001), threePorts) << "a group is at every end";
}

TEST_F(BridgeTest, AddressesThatNoBridgeForwardsGoNowhere) {
  EXPECT_EQ(to(0x0180c2000000), Names{});
  EXPECT_EQ(to(0x0180c200000f), Names{});
  EXPECT_EQ(to(0x0180c2000010), threePorts) << "the first behind them";
  EXPECT_EQ(to(0x0180c1ffffff), threePorts) << "the last before them";
}

TEST_F(BridgeTest, WhoIsNotHeardOfForTooLongIsForgotten) {
  hear(2, bob);
  clock_.advance(Agent::Bridge::ageingTime);
  EXPECT_EQ(to(bob), Names{"eth2"}) << "at the limit";
  hear(2, bob);
  clock_.advance(Agent::Bridge::ageingTime);
  EXPECT_EQ(to(bob), Names{"eth2"}) << "every frame begins the time anew";
  clock_.advance(Kelp::Duration(0.001));
  EXPECT_EQ(to(bob), threePorts);
}

TEST_F(BridgeTest, AnEndThatIsDownTakesItsStationsAlong) {
  hear(2, bob);
  hear(3, carol);
  bridge_.forget(ends_[1]);
  EXPECT_EQ(to(bob), threePorts);
  EXPECT_EQ(to(carol), Names{"eth3"});
}

TEST_F(BridgeTest, AFloodOfAddressesStaysWithinTheTable) {
  for (uint64_t i = 0; i < 4 * Agent::Bridge::stations; ++i) {
    clock_.advance(Kelp::Duration(0.0001));
    hear(2, 0x020000000000 + i);
  }
  EXPECT_LE(bridge_.known(), Agent::Bridge::stations);
  EXPECT_GT(bridge_.known(), Agent::Bridge::stations * 9 / 10) << "the places are used";
  hear(3, bob);
  EXPECT_EQ(to(bob), Names{"eth3"}) << "the newcomer has a place";
  for (uint64_t i = 1; i <= 200; ++i) {
    EXPECT_EQ(to(0x020000000000 + 4 * Agent::Bridge::stations - i), Names{"eth2"})
        << "and not that of one of the " << i << " who were heard of just before";
  }
}

/// Remembers by which port how many frames were sent.
class CountingSink final : public Agent::FrameSink {
 public:
  void send(const Nimnet::Pkt&) override { ++count; }
  int count = 0;
};

/// The forwarder with ports eth1 to eth6.
class BridgingTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto refusal = core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
    ASSERT_FALSE(refusal) << *refusal;
    for (int i = 1; i <= 6; ++i) port(i).sink = &sinks_[i];
  }
  Agent::Port& port(int number) { return forwarder_.portIs("eth" + std::to_string(number)); }
  void configure(const std::string& text) {
    auto read = Config::read({{"t", text}});
    ASSERT_TRUE(read.model);
    const auto wrong = Agent::putInForce(core_, {*read.model, {}});
    ASSERT_FALSE(wrong) << *wrong;
    forwarder_.portsOfConfigurationIs();
  }
  void bridge(const std::vector<std::string>& names) {
    const auto wrong = forwarder_.bridgeIs(names, clock_);
    ASSERT_FALSE(wrong) << *wrong;
  }
  Agent::Verdict receive(int number, const Bytes& bytes) { return receive(port(number), bytes); }
  Agent::Verdict receive(Agent::Port& port, const Bytes& bytes) {
    forwarder_.packet().assign(bytes, static_cast<uint32_t>(bytes.size()), 1.0);
    return forwarder_.receive(port);
  }
  /// The ports that a frame left by, each with how often: "eth2 eth3".
  std::string leavesBy(int number, const Bytes& bytes) {
    for (auto& sink : sinks_) sink.count = 0;
    receive(number, bytes);
    std::string text;
    for (int i = 1; i <= 6; ++i) {
      for (int n = 0; n < sinks_[i].count; ++n) text += (text.empty() ? "eth" : " eth") + std::to_string(i);
    }
    return text;
  }
  static Bytes sent(uint64_t destination, uint64_t source, uint16_t udpPort = 53) {
    return frame()
        .eth(Nimnet::EthAddr::fromValue(source).str(), Nimnet::EthAddr::fromValue(destination).str())
        .ip4("192.0.2.1", "192.0.2.2")
        .udp(udpPort, udpPort);
  }

  Kiv::ManualClock clock_;
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  CountingSink sinks_[7];
};

TEST_F(BridgingTest, NothingLeavesByWhereItCameIn) {
  bridge({"eth1", "eth2", "eth3"});
  EXPECT_EQ(leavesBy(1, sent(bob, alice)), "eth2 eth3") << "flooded";
  EXPECT_EQ(leavesBy(2, sent(alice, bob)), "eth1") << "learned from the first frame";
  EXPECT_EQ(leavesBy(1, sent(bob, alice)), "eth2");
  EXPECT_EQ(leavesBy(1, sent(alice, carol)), "") << "both are behind the same port";
  EXPECT_EQ(port(1).nowhere, 1u);
}

TEST_F(BridgingTest, BridgesAndPatchesAreApart) {
  bridge({"eth1", "eth2"});
  bridge({"eth3", "eth4"});
  EXPECT_EQ(forwarder_.patchIs("eth5", "eth6"), std::nullopt);
  EXPECT_EQ(leavesBy(1, sent(broadcast, alice)), "eth2");
  EXPECT_EQ(leavesBy(3, sent(alice, bob)), "eth4") << "alice is on another bridge";
  EXPECT_EQ(leavesBy(6, sent(broadcast, alice)), "eth5");
}

TEST_F(BridgingTest, EveryEgressJudgesItsOwnCopy) {
  configure(
      "ip access-list NO\n deny ip any any\nip access-list YES\n permit ip any any\n"
      "interface eth2\n ip access-group NO out\ninterface eth3\n ip access-group YES out\n"
      "interface eth4\n ip access-group NO out\n");
  bridge({"eth1", "eth2", "eth3", "eth4"});
  const auto verdict = receive(1, sent(bob, alice));
  EXPECT_TRUE(verdict.passed()) << "one copy has left";
  EXPECT_EQ(verdict.egress, &port(3)) << "whatever became of those before and behind it";
  EXPECT_EQ(port(2).droppedOut, 1u);
  EXPECT_EQ(port(3).sent, 1u);
  EXPECT_EQ(port(4).droppedOut, 1u);
  receive(2, sent(alice, bob));
  const auto refused = receive(1, sent(bob, alice));
  EXPECT_FALSE(refused.passed()) << "the one copy was dropped";
  EXPECT_EQ(refused.egress, &port(2));
}

TEST_F(BridgingTest, WhoIsDeniedOnTheWayInIsNotLearned) {
  configure("ip access-list NO\n deny ip any any\ninterface eth1\n ip access-group NO in\n");
  bridge({"eth1", "eth2", "eth3"});
  receive(1, sent(bob, alice));
  EXPECT_EQ(leavesBy(2, sent(alice, bob)), "eth1 eth3");
}

TEST_F(BridgingTest, APortChannelIsOnePortOfTheBridge) {
  configure(
      "port-channel po1 members eth3 eth4\nip access-list NO\n deny udp any any eq 7\n permit ip any any\n"
      "interface po1\n ip access-group NO out\n");
  bridge({"eth1", "eth2", "po1"});
  for (uint16_t flow = 100; flow < 130; ++flow) {
    const std::string ports = leavesBy(1, sent(broadcast, alice, flow));
    EXPECT_TRUE(ports == "eth2 eth3" || ports == "eth2 eth4") << ports;
  }
  EXPECT_EQ(leavesBy(4, sent(broadcast, carol)), "eth1 eth2") << "never back by the other member";
  const std::string back = leavesBy(1, sent(carol, alice));
  EXPECT_TRUE(back == "eth3" || back == "eth4") << "carol is behind the port-channel, not one of its members";
  EXPECT_EQ(leavesBy(1, sent(broadcast, alice, 7)), "eth2") << "the list of the port-channel is asked";
}

TEST_F(BridgingTest, AnEarlierCopysPortChannelIsNotTheNextOnes) {
  configure(
      "port-channel po1 members eth3\nip access-list NO\n deny ip any any\n"
      "interface po1\n ip access-group NO out\n");
  bridge({"eth1", "po1", "eth2"});
  EXPECT_EQ(leavesBy(1, sent(broadcast, alice)), "eth2");
}

TEST_F(BridgingTest, FramesLeaveByMembersThatAreUp) {
  configure("port-channel po1 members eth2 eth3\n");
  ASSERT_EQ(forwarder_.patchIs("eth1", "po1"), std::nullopt);
  const auto ports = [this] {
    Names names;
    for (uint16_t flow = 100; flow < 130; ++flow) names.insert(leavesBy(1, sent(bob, alice, flow)));
    return names;
  };
  EXPECT_EQ(ports(), (Names{"eth2", "eth3"}));
  forwarder_.portUpIs(port(3), false);
  EXPECT_EQ(ports(), Names{"eth2"});
  forwarder_.portUpIs(port(2), false);
  EXPECT_EQ(ports(), (Names{"eth2", "eth3"})) << "none is up, so that none is better";
  forwarder_.portUpIs(port(3), true);
  EXPECT_EQ(ports(), Names{"eth3"});
}

TEST_F(BridgingTest, StationsBehindALinkThatIsCutAreLookedForEverywhere) {
  bridge({"eth1", "eth2", "eth3"});
  receive(2, sent(broadcast, bob));
  EXPECT_EQ(leavesBy(1, sent(bob, alice)), "eth2");
  forwarder_.portUpIs(port(2), false);
  EXPECT_EQ(leavesBy(1, sent(bob, alice)), "eth2 eth3");
}

TEST_F(BridgingTest, BridgesThatCannotBeAreRefused) {
  configure("port-channel po1 members eth3 eth4\n");
  bridge({"eth1", "eth2"});
  struct Row {
    const char* why;
    std::vector<std::string> names;
    const char* text;
  };
  for (const Row& row : {
           Row{"in another bridge", {"eth5", "eth1"}, "eth1 is bridged already"},
           Row{"one port twice", {"eth5", "eth5"}, "eth5 cannot be bridged to itself"},
           Row{"a member beside its port-channel",
               {"po1", "eth3"},
               "eth3 cannot be bridged, its port-channel po1 is"},
       }) {
    EXPECT_EQ(forwarder_.bridgeIs(row.names, clock_), row.text) << row.why;
  }
  EXPECT_EQ(leavesBy(5, sent(broadcast, alice)), "") << "what was refused has joined nothing";
  bridge({"eth4", "eth5"});
  EXPECT_EQ(forwarder_.patchIs("po1", "eth6"), "po1 cannot be patched, its member eth4 is");
}

TEST_F(BridgingTest, NothingIsAllocatedForABridgedPacket) {
  configure("port-channel po1 members eth3 eth4\n");
  bridge({"eth1", "eth2", "po1"});
  const std::vector<Bytes> frames = {sent(broadcast, alice), sent(bob, alice), sent(alice, carol, 99)};
  Agent::Port* const ports[] = {&port(1), &port(2), &port(3), &port(4)};
  const auto run = [&](size_t count) {
    for (size_t i = 0; i < count; ++i) receive(*ports[i % 4], frames[i % frames.size()]);
  };
  run(24);
  const uint64_t before = allocationCount();
  run(100000);
  EXPECT_EQ(allocationCount() - before, 0u);
}

}  // namespace
