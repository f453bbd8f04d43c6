#include <MemSlab/Slab.h>
#include <agent/client/TailText.h>
#include <agent/explain/FrameLine.h>
#include <agent/explain/FrameText.h>
#include <agent/observe/MatchLine.h>
#include <agent/show/PacketText.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "../../support/RandomFrames.h"
#include "../support/RunningAgent.h"

// Lines that velo tells of packets, put into `velo explain` again.
namespace {

using namespace TestSupport;
using Agent::FlowKey;
using Kind = FlowKey::Kind;
using Sentences = std::vector<std::string>;

struct ToldFrame {
  explicit ToldFrame(const Agent::Frame& frame) : pkt(MemSlab::make<Nimnet::Pkt>()) {
    frame.assignTo(*pkt);
    parsed.reset(pkt.get());
    parsed.maybeDoFullParse();
  }
  Kelp::Ptr<Nimnet::Pkt> pkt;
  Velo::ParsedPacket parsed;
};

Agent::Frame wholeFrameOf(const Bytes& octets) { return {octets, static_cast<uint32_t>(octets.size())}; }

std::optional<Agent::Frame> takenBack(const std::string& line) {
  std::string wrong;
  auto frame = Agent::readFrameText(line, &wrong);
  EXPECT_TRUE(frame) << line << ": " << wrong;
  return frame;
}

TEST(ToldLine, OfTheTailMakesItsPacket) {
  Dice dice(5);
  Agent::TailText text(false);
  for (int i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) {
    Bytes octets = randomFrame(dice);
    if (dice.once(3)) damage(octets, dice);
    const ToldFrame sent(wholeFrameOf(octets));
    const std::string packet = Agent::packetText(*sent.pkt, sent.parsed, {sent.parsed.fault()});
    const bool dropped = dice.once(2);
    const std::string port = dice.once(2) ? "eth1" : "a-port-of-a-longer-name";
    Json hits = Json::array();
    for (uint64_t count = dice.below(3); count > 0; --count)
      hits.push_back({{"list", "tcp"}, {"rule", 10}, {"action", dropped ? "deny" : "permit"}});
    const std::string line = text.lines({{"time", 1.5 + i},
                                         {"port", port},
                                         {"verdict", dropped ? "drop" : "pass"},
                                         {"reason", "acl"},
                                         {"hits", hits},
                                         {"egress", Json::array()},
                                         {"passedOver", 0},
                                         {"packet", packet}});
    const auto frame = takenBack(line.substr(0, line.size() - 1));
    if (!frame) continue;
    const ToldFrame again(*frame);
    EXPECT_EQ(Agent::packetText(*again.pkt, again.parsed, {again.parsed.fault()}), packet);
    EXPECT_EQ(frame->port, port);
  }
}

TEST(ToldLine, OfTheLogMakesAPacketOfItsFlow) {
  RunningAgent agent;  // has the plugin's messages
  const Agent::MatchMessages messages;
  ASSERT_TRUE(messages.wrong().empty());
  Dice dice(6);
  std::map<std::pair<Acl::AclType, Kind>, int> told;
  for (int i = 0; i < 6000 && !testing::Test::HasFailure(); ++i) {
    const Bytes octets = randomFrame(dice);
    const ToldFrame sent(wholeFrameOf(octets));
    if (sent.parsed.fault() != Velo::ParseFault::none) continue;
    const auto* ip = sent.parsed.ipHdr();
    const bool six = ip && ip->ip6Hdr();
    const auto type = !ip || dice.once(4) ? Acl::AclType::mac : six ? Acl::AclType::ipv6 : Acl::AclType::ip;
    Agent::MatchLine line;
    line.list = dice.once(2) ? "A" : "denied";
    line.sequence = dice.once(3) ? 0 : 10;
    line.action = dice.once(2) ? Acl::Action::permit : Acl::Action::deny;
    line.direction = dice.once(3) ? Acl::AclDirection::out : Acl::AclDirection::in;
    line.flow = Agent::flowOf(type, sent.parsed);
    line.flow.intf = Nimnet::IntfId("eth7");
    line.packets = 1 + dice.below(3);
    line.first = dice.once(2);
    std::vector<Agent::LogEvent> events;
    messages.addTo(events, line);
    ASSERT_EQ(events.size(), 1u);
    const auto frame = takenBack("Nov 22 15:04:05 host velo[17]: " + events.front().text);
    if (!frame) continue;
    const ToldFrame again(*frame);
    FlowKey flow = Agent::flowOf(type, again.parsed);
    flow.intf = line.flow.intf;
    EXPECT_EQ(flow, line.flow) << events.front().text;
    EXPECT_EQ(again.parsed.fault(), Velo::ParseFault::none) << events.front().text;
    EXPECT_EQ(frame->port, line.direction == Acl::AclDirection::in ? "eth7" : "") << events.front().text;
    ++told[{type, line.flow.kind}];
  }
  for (const auto type : {Acl::AclType::ip, Acl::AclType::ipv6}) {
    for (const Kind kind : {Kind::ports, Kind::icmp, Kind::laterFragment, Kind::protocolOnly})
      EXPECT_GT((told[{type, kind}]), 10) << Acl::stringValue(type) << static_cast<int>(kind);
  }
  EXPECT_GT((told[{Acl::AclType::mac, Kind::ethernet}]), 10);
}

TEST(ToldLine, AnyOtherTextStaysAsItIs) {
  for (const char* text : {
           "tcp 192.0.2.1:1 > 192.0.2.2:2 syn",
           "12:00:00 eth1 pass",
           "12:00 eth1  pass  A 10  udp 192.0.2.1:1 > 192.0.2.2:2",
           "12:00:00  eth1  perhaps  A 10  udp 192.0.2.1:1 > 192.0.2.2:2",
           "rule 10 denied udp 192.0.2.1 192.0.2.2 to eth1",
           "list A denied udp 192.0.2.1(1) -> 192.0.2.2(2)",
           "",
           " denied ",
       })
    EXPECT_EQ(Agent::frameTextOf(text), text);
  Sentences notes;
  EXPECT_EQ(Agent::frameTextOf("list A rule 10 denied gre 192.0.2.1 -> 192.0.2.2 on eth1 out, 2 more packets",
                               &notes),
            "ip 192.0.2.1 > 192.0.2.2 protocol gre");
  EXPECT_EQ(notes, Sentences{"the line says that the packet left on eth1, not where it came in"});
  EXPECT_EQ(Agent::frameTextOf("rule 1 permitted udp 2001:db8::1(1) -> ::2(53) on eth1 in, 1 packet"),
            "udp [2001:db8::1]:1 > [::2]:53 on eth1");
}

TEST(ToldLine, OfAMacListIsOfAPacketThatIsMadeUp) {
  const std::string from = " rule 1 permitted 0x",
                    to = " 02:00:00:00:00:01 -> 02:00:00:00:00:02 on eth1 in, 1 packet";
  const std::string macs = " from 02:00:00:00:00:01 to 02:00:00:00:00:02 on eth1";
  Sentences notes;
  EXPECT_EQ(Agent::frameTextOf(from + "0800" + to, &notes), "ip 0.0.0.0 > 0.0.0.0" + macs);
  EXPECT_EQ(
      notes,
      Sentences{"the line does not say what the packet is: it is taken for ip 0.0.0.0 > 0.0.0.0, and what "
                "IP lists say of it means nothing"});
  notes.clear();
  EXPECT_EQ(Agent::frameTextOf(from + "86dd" + to, &notes), "ipv6 :: > ::" + macs);
  EXPECT_EQ(notes.size(), 1u);
  notes.clear();
  EXPECT_EQ(Agent::frameTextOf(from + "88cc" + to, &notes),
            "eth 02:00:00:00:00:01 > 02:00:00:00:00:02 0x88cc on eth1");
  EXPECT_EQ(notes, Sentences());
  const auto frame = takenBack(from + "0800" + to);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->notes.size(), 1u);
  const auto whole = takenBack("tcp 192.0.2.1:1 > 192.0.2.2:2, 7306 octets, 5 segments");
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->notes, std::vector<std::string>{"a super-frame of 5 segments is one packet to the lists"});
}

}  // namespace
