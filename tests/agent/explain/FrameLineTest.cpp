#include <MemSlab/Slab.h>
#include <agent/explain/FrameText.h>
#include <agent/show/PacketText.h>
#include <gtest/gtest.h>

#include <set>

#include "../../support/RandomFrames.h"
#include "../../support/Sanitizers.h"
#include "../../support/SharedData.h"

namespace {

using namespace TestSupport;

/// The line by which velo tells of a frame. `wire`: its octets on the wire, when it was cut.
std::string lineOf(const Agent::Frame& frame) {
  const auto pkt = MemSlab::make<Nimnet::Pkt>();
  frame.assignTo(*pkt);
  Velo::ParsedPacket parsed;
  parsed.reset(pkt.get());
  parsed.maybeDoFullParse();
  return Agent::packetText(*pkt, parsed, {parsed.fault()});
}
std::string lineOf(const Bytes& octets, uint32_t wire = 0, std::optional<uint16_t> type = {}) {
  return lineOf(Agent::Frame{octets, std::max(wire, static_cast<uint32_t>(octets.size())), type});
}

/// The line of the frame that a line makes.
std::string again(const std::string& line) {
  std::string wrong;
  const auto made = Agent::readFrameText(line, &wrong);
  return made ? lineOf(*made) : wrong;
}

TEST(FrameLine, TellsWhatListsLookAtInWordsOfTheConfiguration) {
  const auto eth = [] { return frame().eth(); };
  const auto six = [] { return frame().eth().ip6("2001:db8::1", "2001:db8::2"); };
  struct Row {
    Bytes frame;
    const char* line;
  };
  for (const Row& row : {
           Row{eth().vlan(7, 0x88a8).vlan(8).ip4("192.0.2.1", "192.0.2.2").tcp(1, 443).flags(Syn),
               "tcp 192.0.2.1:1 > 192.0.2.2:443 syn, vlan 7, inner vlan 8, 62 octets"},
           Row{eth().vlan(0).arp("192.0.2.1", "192.0.2.2"),
               "eth 02:00:00:00:00:01 > 02:00:00:00:00:02 0x0806, vlan 0, 46 octets"},
           Row{eth().ip4("192.0.2.1", "192.0.2.2").fragment(0, true).udp(1, 2).payload(1472),
               "udp 192.0.2.1:1 > 192.0.2.2:2, first fragment, 1514 octets"},
           Row{eth().ip4("192.0.2.1", "192.0.2.2").fragment(185, false).protocol(17).payload(100),
               "ip 192.0.2.1 > 192.0.2.2 protocol udp, later fragment 185, 134 octets"},
           Row{eth().ip4("192.0.2.1", "192.0.2.2").protocol(47).payload(30),
               "ip 192.0.2.1 > 192.0.2.2 protocol gre, 64 octets"},
           Row{eth().ip4("192.0.2.1", "192.0.2.2").protocol(99).payload(30),
               "ip 192.0.2.1 > 192.0.2.2 protocol 99, 64 octets"},
           Row{six().hopByHop().routing().destinationOptions(16).icmp6(128),
               "icmpv6 2001:db8::1 > 2001:db8::2 type 128 code 0, headers hop-by-hop routing "
               "destination-options, "
               "94 octets"},
           Row{six().fragment(0, true).ah().tcp(1, 2).flags(Ack),
               "tcp [2001:db8::1]:1 > [2001:db8::2]:2 ack, first fragment, headers ah, 98 octets"},
           Row{six().destinationOptions().fragment(185, true).protocol(6).payload(40),
               "ipv6 2001:db8::1 > 2001:db8::2 protocol tcp, later fragment 185, headers "
               "destination-options, "
               "110 octets"},
           Row{eth().ip4("192.0.2.1", "192.0.2.2").tos(46 << 2).ttl(3).udp(1, 2),
               "udp 192.0.2.1:1 > 192.0.2.2:2, dscp ef, ttl 3, 42 octets"},
           Row{eth().ip4("192.0.2.1", "192.0.2.2").tos(0x02).udp(1, 2),
               "udp 192.0.2.1:1 > 192.0.2.2:2, 42 octets"},
           Row{six().trafficClass(1 << 2).hopLimit(255).udp(1, 2),
               "udp [2001:db8::1]:1 > [2001:db8::2]:2, dscp le, hop-limit 255, 62 octets"},
           Row{six().trafficClass(0x2f).udp(1, 2),
               "udp [2001:db8::1]:1 > [2001:db8::2]:2, traffic-class 47, 62 octets"},
           Row{frame()
                   .eth("02:00:5e:00:00:01", "02:00:5e:00:00:02")
                   .vlan(7)
                   .ip4("192.0.2.1", "192.0.2.2")
                   .udp(1, 2),
               "udp 192.0.2.1:1 > 192.0.2.2:2, from 02:00:5e:00:00:01, to 02:00:5e:00:00:02, vlan 7, 46 "
               "octets"},
           Row{six().protocol(50).payload(10), "ipv6 2001:db8::1 > 2001:db8::2 protocol esp, 64 octets"},
       }) {
    EXPECT_EQ(lineOf(row.frame), row.line);
    EXPECT_EQ(again(row.line), row.line) << "and takes it back";
  }
}

TEST(FrameLine, ASuperFrameIsOnePacketHoweverManySegmentsItIs) {
  EXPECT_EQ(again("tcp 192.0.2.1:1 > 192.0.2.2:443 ack, 2954 octets, 3 segments"),
            "tcp 192.0.2.1:1 > 192.0.2.2:443 ack, 2954 octets");
  EXPECT_NE(again("tcp 192.0.2.1:1 > 192.0.2.2:443 ack, 1 segments").find("a number of segments"),
            std::string::npos);
}

TEST(FrameLine, AFrameThatIsMadeOfALineIsWhatTheLineSays) {
  std::string wrong;
  const auto tags =
      Agent::readFrameText("tcp 192.0.2.1:1 > 192.0.2.2:443 syn, vlan 7, inner vlan 8, 62 octets", &wrong);
  ASSERT_TRUE(tags) << wrong;
  EXPECT_EQ(tags->octets.size(), 62u);
  EXPECT_EQ(Bytes(tags->octets.begin() + 12, tags->octets.begin() + 20),
            (Bytes{0x81, 0, 0, 7, 0x81, 0, 0, 8}));
  const auto first = Agent::readFrameText(
      "udp [2001:db8::1]:1 > [2001:db8::2]:2, first fragment, headers hop-by-hop", &wrong);
  ASSERT_TRUE(first) << wrong;
  EXPECT_EQ(first->octets[20], 0) << "hop-by-hop follows";
  EXPECT_EQ(first->octets[54], 44) << "then a fragment header";
  EXPECT_EQ(first->octets[65], 1) << "of the first of several";
  const auto first4 = Agent::readFrameText("udp 192.0.2.1:1 > 192.0.2.2:2 first fragment", &wrong);
  ASSERT_TRUE(first4) << wrong;
  EXPECT_EQ(first4->octets[20], 0x20);
  const auto none = Agent::readFrameText("type 0x0806, no ethernet header, 28 octets", &wrong);
  ASSERT_TRUE(none) << wrong;
  EXPECT_EQ(none->typeBefore, 0x0806);
  EXPECT_EQ(none->octets, Bytes(28));
  const auto port = Agent::readFrameText("arp 192.0.2.1 > 192.0.2.2  on eth7", &wrong);
  ASSERT_TRUE(port) << wrong;
  EXPECT_EQ(port->port, "eth7");
}

TEST(FrameLine, MistakesAreTold) {
  struct Row {
    const char* text;
    const char* wrong;
  };
  for (const Row& row : {
           Row{"tcp 192.0.2.1:1 > 192.0.2.2:2 headers ah",
               "no extension headers in a frame that is not IPv6"},
           Row{"ipv6 ::1 > ::2 headers", "hop-by-hop, routing, ah or destination-options"},
           Row{"ipv6 ::1 > ::2 headers ah ah ah ah ah ah ah ah ah", "no ninth extension header"},
           Row{"arp 192.0.2.1 > 192.0.2.2 first fragment", "no fragment of a frame that is not IP"},
           Row{"ip 192.0.2.1 > 192.0.2.2 inner vlan 8", "a vlan before the inner one"},
           Row{"ip 192.0.2.1 > 192.0.2.2 later vlan", "fragment"},
           Row{"ip 192.0.2.1 > 192.0.2.2 60", "or a number of octets"},
           Row{"ip 192.0.2.1 > 192.0.2.2 999999 octets", "a number of octets 0 to 262144"},
           Row{"ip 192.0.2.1 > 192.0.2.2 no flags", "ethernet"},
           Row{"ip 192.0.2.1 > 192.0.2.2, malformed: it smells", "a reason that velo show drops tells"},
           Row{"arp 192.0.2.1 > 192.0.2.2, malformed: tcp header cut short", "cannot be malformed so"},
           Row{"ipv6 ::1 > ::2 protocol unknown", "the protocol is only unknown"},
       }) {
    std::string wrong;
    EXPECT_FALSE(Agent::readFrameText(row.text, &wrong)) << row.text;
    EXPECT_NE(wrong.find(row.wrong), std::string::npos) << row.text << ": " << wrong;
  }
}

/// Holds a frame's line against the line of the frame that it makes.
void expectTakenBack(const std::string& line) { EXPECT_EQ(again(line), line); }

TEST(FrameLine, EveryLineIsTakenBack) {
  Dice dice(20260101);
  std::set<std::string> faults;
  for (int i = 0; i < casesOf(20000) && !testing::Test::HasFailure(); ++i) {
    Bytes octets = randomFrame(dice);
    if (dice.once(2)) damage(octets, dice);
    const auto wire = static_cast<uint32_t>(octets.size());
    if (dice.once(8)) octets.resize(dice.below(octets.size() + 1));
    const std::string line = lineOf(octets, wire);
    if (const size_t at = line.find("malformed: "); at != line.npos) faults.insert(line.substr(at));
    expectTakenBack(line);
    if (octets.size() < 14) continue;
    const auto type = static_cast<uint16_t>(octets[12] << 8 | octets[13]);
    expectTakenBack(lineOf(Bytes(octets.begin() + 14, octets.end()), wire - 14, type));
  }
  EXPECT_GT(faults.size(), 15u) << "many faults came up";
}

TEST(FrameLine, EveryFaultIsTakenBack) {
  const auto four = [] { return frame().eth().ip4("192.0.2.1", "192.0.2.2"); };
  const auto six = [] { return frame().eth().ip6("2001:db8::1", "2001:db8::2"); };
  std::set<std::string> faults;
  for (const Bytes& octets : std::vector<Bytes>{
           cut(four().bytes(), 9),
           cut(frame().eth().vlan(7).bytes(), 17),
           frame().eth().vlan(1).vlan(2).vlan(3).arp("192.0.2.1", "192.0.2.2"),
           cut(four().bytes(), 30),
           four().version(5).udp(1, 2),
           four().ihl(4).udp(1, 2),
           four().totalLength(0).udp(1, 2),
           four().totalLength(4000).udp(1, 2),
           cut(six().bytes(), 50),
           six().version(5).udp(1, 2),
           six().payloadLength(4000).udp(1, 2),
           six().hopByHop().extLength(200).udp(1, 2),
           six()
               .hopByHop()
               .hopByHop()
               .hopByHop()
               .hopByHop()
               .hopByHop()
               .hopByHop()
               .hopByHop()
               .hopByHop()
               .hopByHop(),
           six().fragment(0, false).fragment(0, false).udp(1, 2),
           six().fragment(0, true).fragment(0, true).udp(1, 2),
           six().routing().ah().extLength(0).udp(1, 2),
           four().totalLength(30).tcp(1, 2),
           four().tcp(1, 2).dataOffset(4),
           four().tcp(1, 2).dataOffset(15),
           four().fragment(1, false).protocol(6).payload(40),
           six().fragment(1, false).protocol(6).payload(40),
           four().totalLength(24).udp(1, 2),
           four().udp(1, 2).udpLength(7),
           four().totalLength(24).sctp(1, 2),
           four().totalLength(22).icmp(8),
           six().payloadLength(2).icmp6(128),
           six().payloadLength(9).tcp(1, 2),
       }) {
    const std::string line = lineOf(octets);
    const size_t at = line.find("malformed: ");
    EXPECT_NE(at, line.npos) << line;
    if (at != line.npos) faults.insert(line.substr(at));
    expectTakenBack(line);
  }
  const std::string cutOptions = lineOf(cut(four().options({1, 1, 1, 1}).udp(1, 2).bytes(), 36), 60);
  EXPECT_NE(cutOptions.find("ipv4 header cut short"), cutOptions.npos) << cutOptions;
  expectTakenBack(cutOptions);
  EXPECT_EQ(faults.size(), Velo::parseFaultCount - 1) << "all of them";
}

}  // namespace
