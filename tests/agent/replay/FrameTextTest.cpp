#include "FrameText.h"

#include <gtest/gtest.h>

namespace {

using namespace TestSupport;

TEST(FrameText, ALineMakesTheFrameThatItSays) {
  struct Row {
    const char* why;
    const char* line;
    Bytes frame;
  };
  const Row rows[] = {
      {"addresses, ports and flags", "p 1 tcp 192.0.2.1:1024 > 198.51.100.7:443 syn ack",
       frame().eth().ip4("192.0.2.1", "198.51.100.7").tcp(1024, 443).flags(Syn | Ack)},
      {"words of an outer header may stand behind those of an inner one",
       "p 1 udp 192.0.2.1:1 > 192.0.2.2:2 ttl 7 vlan 9",
       frame().eth().vlan(9).ip4("192.0.2.1", "192.0.2.2").ttl(7).udp(1, 2)},
      {"IPv6 with a chain in the order of the words",
       "p 1 sctp [2001:db8::1]:1 > [2001:db8::2]:2 routing hop-by-hop",
       frame().eth().ip6("2001:db8::1", "2001:db8::2").routing().hopByHop().sctp(1, 2)},
      {"adapters' addresses", "p 1 arp 192.0.2.1 > 192.0.2.2 from 02:00:00:00:00:aa to ff:ff:ff:ff:ff:ff",
       frame().eth("02:00:00:00:00:aa", "ff:ff:ff:ff:ff:ff").arp("192.0.2.1", "192.0.2.2")},
      {"a message with type and code", "p 1 icmp 192.0.2.1 > 192.0.2.2 3 4",
       frame().eth().ip4("192.0.2.1", "192.0.2.2").icmp(3, 4)},
      {"a fragment and its flag", "p 1 ip 192.0.2.1 > 192.0.2.2 proto 17 fragment 3 more payload 8",
       frame().eth().ip4("192.0.2.1", "192.0.2.2").protocol(17).fragment(3, true).payload(8)},
      {"bytes as they are", "p 1 bytes 00ff10", {0x00, 0xff, 0x10}},
  };
  for (const Row& row : rows)
    EXPECT_EQ(readFrame(row.line).captured.frame, row.frame) << row.why << ": " << row.line;
}

TEST(FrameText, TimeAndPortStandInFront) {
  const FrameText frame = readFrame("eth1 1700000000.000000007 eth 0x88cc");
  EXPECT_EQ(frame.port, "eth1");
  EXPECT_EQ(frame.captured.seconds, 1700000000u);
  EXPECT_EQ(frame.captured.nanoseconds, 7u);
}

TEST(FrameText, CutShortensTheCaptureAndShortTheFrame) {
  const auto whole = readFrame("p 1 udp 192.0.2.1:1 > 192.0.2.2:2 payload 50").captured;
  const auto cutShort = readFrame("p 1 udp 192.0.2.1:1 > 192.0.2.2:2 payload 50 cut 40").captured;
  EXPECT_EQ(cutShort.frame, cut(whole.frame, 40));
  EXPECT_EQ(cutShort.wire, whole.wire);
  EXPECT_EQ(readFrame("p 1 udp 192.0.2.1:1 > 192.0.2.2:2 payload 50 short 40").captured.wire, 40u);
}

TEST(FrameText, AWordThatIsNotKnownIsRefused) {
  for (const char* line : {"p 1 ip 192.0.2.1 > 192.0.2.2 colour", "p 1 smtp 192.0.2.1 > 192.0.2.2",
                           "p 1 tcp 192.0.2.1:1", "p 1 ip 192.0.2.1 > 192.0.2.2 ttl many"}) {
    EXPECT_THROW(readFrame(line), std::runtime_error) << line;
  }
}

}  // namespace
