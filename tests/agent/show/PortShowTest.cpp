#include <agent/forward/Bridge.h>
#include <agent/show/Shows.h>

#include <gmock/gmock.h>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

class PortShowTest : public testing::Test {
 protected:
  std::string text(const char* what) {
    return Agent::showOf(what)->text(agent_.show(what), {false, RunningAgent::startTime + 100});
  }
  static Agent::PortState port(const char* name, bool present = true) {
    Agent::PortState state;
    state.name = state.device = name;
    state.kind = "packet";
    state.present = state.up = present;
    state.mtu = present ? 9000 : 0;
    return state;
  }
  static Bytes from(const char* source, uint16_t vlan = 0) {
    FrameBuilder builder = frame().eth(source, "ff:ff:ff:ff:ff:ff");
    if (vlan) builder.vlan(vlan);
    return builder.arp("192.0.2.1", "192.0.2.2").bytes();
  }

  RunningAgent agent_;
};

TEST_F(PortShowTest, ABridgeTellsWhatItHasLearnedByPortVlanAndAddress) {
  agent_.start("port-channel po1 members eth2 eth3\n");
  agent_.bridge({"eth1", "po1", "eth4"});
  agent_.receive("eth4", from("02:00:5e:00:00:09"));
  agent_.advance(10);
  agent_.receive("eth1", from("02:00:5e:00:00:02"));
  agent_.receive("eth1", from("02:00:5e:00:00:01"));
  agent_.receive("eth3", from("02:00:5e:00:00:03", 7));
  agent_.advance(65);
  EXPECT_EQ(text("bridge"),
            "bridge of eth1, po1, eth4\n"
            "address            vlan  port  heard of\n"
            "02:00:5e:00:00:01     -  eth1  1 min 5 s ago\n"
            "02:00:5e:00:00:02     -  eth1  1 min 5 s ago\n"
            "02:00:5e:00:00:09     -  eth4  1 min 15 s ago\n"
            "02:00:5e:00:00:03     7  po1   1 min 5 s ago\n");
  agent_.advance(230);
  EXPECT_THAT(text("bridge"), Not(HasSubstr("02:00:5e:00:00:09"))) << "not heard of for five minutes";
  agent_.advance(100);
  EXPECT_EQ(text("bridge"), "bridge of eth1, po1, eth4\nno address was learned\n");
}

TEST_F(PortShowTest, EveryStationOfALargeTableIsToldOnceAndInPieces) {
  agent_.start("");
  agent_.bridge({"eth1", "eth2"});
  agent_.bridge({"eth3", "eth4"});
  constexpr int many = 3000;
  for (int i = 0; i < many; ++i)
    agent_.receive("eth1", from(fmt::format("02:00:00:00:{:02x}:{:02x}", i >> 8, i & 255).c_str()));
  agent_.receive("eth3", from("02:00:5e:00:00:01"));
  const Json bridges = agent_.show("bridge").at("bridges");
  ASSERT_EQ(bridges.size(), 2u);
  std::set<std::string> addresses;
  for (const Json& station : bridges.at(0).at("stations")) {
    EXPECT_TRUE(addresses.insert(station.at("address").get<std::string>()).second);
    EXPECT_EQ(station.at("port"), "eth1");
  }
  EXPECT_EQ(addresses.size(), size_t{many});
  EXPECT_EQ(bridges.at(1).at("stations").size(), 1u);

  const Agent::ZeroLine zero;
  const auto document =
      Agent::showOf("bridge")->document({agent_.core(), agent_.forwarder(), zero}, Agent::ShowOptions());
  size_t pieces = 1, last = 0;
  std::string text;
  for (; document->next(text); ++pieces) {
    EXPECT_LT(text.size() - last, 32u * 1024) << "a piece is small";
    last = text.size();
  }
  EXPECT_GT(pieces, 2 * Agent::Bridge::stations / 4096) << "an empty table is looked at in pieces, too";
}

TEST_F(PortShowTest, WithoutABridgeItSaysSo) {
  agent_.start("");
  agent_.patch("eth1", "eth2");
  EXPECT_EQ(text("bridge"), "no ports are bridged\n");
}

TEST_F(PortShowTest, TheMtuOfADeviceIsTold) {
  Agent::PortState copying = port("eth2", false);
  copying.kind = "xdp";
  copying.how = "copy";
  agent_.portStatesAre({port("eth1"), copying});
  agent_.start("");
  agent_.patch("eth1", "eth2");
  EXPECT_THAT(text("ports"),
              HasSubstr("port  kind        device  link   mtu  frames in  frames out  lost\n"
                        "eth1  packet      eth1    up    9000          0           0  nothing\n"
                        "eth2  xdp (copy)  eth2    gone     -          0           0  nothing\n"));
}

TEST_F(PortShowTest, AMirrorDestinationWithoutADeviceIsMarked) {
  agent_.portStatesAre({port("eth1"), port("eth3"), port("eth7", false)});
  agent_.start(
      "mirror session GONE destination eth7 eth1\n"
      "port-channel po1 members eth2 eth3\nport-channel po2 members eth4\n"
      "mirror session LOST destination eth9\nmirror session SEEN destination eth1 po1\n"
      "mirror session HALF destination eth1 po2 eth9\n");
  EXPECT_THAT(text("interfaces"),
              HasSubstr("mirror session GONE to eth7 (no device: copies are lost) eth1\n"
                        "mirror session HALF to eth1 po2 (no device: copies are lost) eth9 (no device: "
                        "copies are lost)\n"
                        "mirror session LOST to eth9 (no device: copies are lost)\n"
                        "mirror session SEEN to eth1 po1\n"));
  const std::string ports = text("ports");
  EXPECT_THAT(ports,
              HasSubstr("eth7: its device eth7 is missing: copies to it are lost (mirror session GONE)\n"));
  EXPECT_THAT(ports, HasSubstr("eth2 has no device: what leaves there is lost\n"));
  EXPECT_THAT(ports, HasSubstr("eth9 has no device: copies to it are lost (mirror session HALF, mirror "
                               "session LOST)\n"));
}

}  // namespace
