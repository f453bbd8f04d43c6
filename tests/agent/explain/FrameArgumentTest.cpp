#include <agent/explain/FrameArgument.h>
#include <gtest/gtest.h>

#include "../../support/Frames.h"
#include "../support/CaptureBytes.h"
#include "../support/Run.h"

namespace {

using namespace TestSupport;

/// A frame without the checksums, which texts leave zero.
Bytes withoutChecksums(const FrameBuilder& builder) { return FrameBuilder(builder).padTo(60).bytes(); }

TEST(FrameArgument, TextsMakeTheFramesThatTheyDescribe) {
  const auto eth = [] { return frame().eth("02:00:00:00:00:01", "02:00:00:00:00:02"); };
  struct Row {
    const char* text;
    FrameBuilder builder;
  };
  for (const Row& row : {
           Row{"tcp 192.0.2.1:1234 > 198.51.100.7:443 ack vlan 5 ttl 64",
               eth()
                   .vlan(5)
                   .ip4("192.0.2.1", "198.51.100.7")
                   .checksum(0)
                   .tcp(1234, 443)
                   .flags(Ack)
                   .checksum(0)},
           Row{"tcp 192.0.2.1:1234 > 198.51.100.7:https syn ack", eth()
                                                                      .ip4("192.0.2.1", "198.51.100.7")
                                                                      .checksum(0)
                                                                      .tcp(1234, 443)
                                                                      .flags(Syn | Ack)
                                                                      .checksum(0)},
           Row{"udp [2001:db8::1]:53 > [2001:db8::2]:1024 hop-limit 3 traffic-class 184",
               eth()
                   .ip6("2001:db8::1", "2001:db8::2")
                   .hopLimit(3)
                   .trafficClass(184)
                   .udp(53, 1024)
                   .checksum(0)},
           Row{"udp 192.0.2.1:domain > 198.51.100.7:1024 dscp ef vlan 7 vlan 8",
               eth()
                   .vlan(7)
                   .vlan(8)
                   .ip4("192.0.2.1", "198.51.100.7")
                   .tos(184)
                   .checksum(0)
                   .udp(53, 1024)
                   .checksum(0)},
           Row{"icmp 192.0.2.1 > 198.51.100.7",
               eth().ip4("192.0.2.1", "198.51.100.7").checksum(0).icmp(8).checksum(0)},
           Row{"icmp 192.0.2.1 > 198.51.100.7 11 1 from 02:00:5e:00:00:07",
               frame()
                   .eth("02:00:5e:00:00:07", "02:00:00:00:00:02")
                   .ip4("192.0.2.1", "198.51.100.7")
                   .checksum(0)
                   .icmp(11, 1)
                   .checksum(0)},
           Row{"icmpv6 2001:db8::1 > 2001:db8::2 packet-too-big",
               eth().ip6("2001:db8::1", "2001:db8::2").icmp6(2).checksum(0)},
           Row{"eth 02:00:5e:00:00:01 > 01:80:c2:00:00:0e 0x88cc",
               frame().eth("02:00:5e:00:00:01", "01:80:c2:00:00:0e").ethType(0x88cc)},
       }) {
    std::string wrong;
    const auto made = Agent::readFrameText(row.text, &wrong);
    ASSERT_TRUE(made) << row.text << ": " << wrong;
    EXPECT_EQ(Agent::hexOf(made->octets), Agent::hexOf(withoutChecksums(row.builder))) << row.text;
    EXPECT_EQ(made->wireLength, made->octets.size()) << row.text;
  }
}

TEST(FrameArgument, AFragmentHasNoHeaderBehindIp) {
  std::string wrong;
  const auto sctp = Agent::readFrameText("sctp 192.0.2.1:m3ua > 198.51.100.7:2906", &wrong);
  ASSERT_TRUE(sctp) << wrong;
  EXPECT_EQ(Agent::hexOf(sctp->octets).substr(2 * 34, 8), "0b590b5a")
      << "a whole packet has one, with its ports";
  const auto four = Agent::readFrameText("tcp 192.0.2.1 > 198.51.100.7 fragment 2 size 100", &wrong);
  ASSERT_TRUE(four) << wrong;
  EXPECT_EQ(four->octets.size(), 100u);
  EXPECT_EQ(four->octets[20] << 8 | four->octets[21], 2) << "the offset";
  EXPECT_EQ(four->octets[23], 6) << "the protocol is told in every fragment";
  const auto six = Agent::readFrameText("ipv6 2001:db8::1 > 2001:db8::2 protocol udp fragment", &wrong);
  ASSERT_TRUE(six) << wrong;
  EXPECT_EQ(six->octets[20], 44) << "a fragment header follows";
  EXPECT_EQ(six->octets[54], 17) << "and names the protocol";
  EXPECT_EQ(six->octets[56] << 8 | six->octets[57], 1480)
      << "and the offset in octets, for its lowest bits are flags";
}

TEST(FrameArgument, MistakesAreToldWithTheirPlace) {
  struct Row {
    const char* text;
    const char* wrong;
  };
  for (const Row& row : {
           Row{"tpc 192.0.2.1:1 > 198.51.100.7:2", "(did you mean tcp?)"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 vlna 5", "(did you mean vlan?)"},
           Row{"ip 192.0.2.1 > 198.51.100.7 protocol gree", "(did you mean gre?)"},
           Row{"tcp 192.0.2.1:1 > 198.51.100.7:shh", "(did you mean ssh?)"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 dscp af4", "(did you mean af41, af42 or af43?)"},
           Row{"tcp", "column 4: found the end of the line, expected an address and a port"},
           Row{"tcp 192.0.2.1:1 198.51.100.7:2", "column 17: found \"198.51.100.7:2\", expected >"},
           Row{"tcp 192.0.2.1:1 > 2001:db8::1", "an address of the same kind as the source"},
           Row{"tcp 192.0.2.1:1 > 198.51.100.7", "a port behind both addresses"},
           Row{"tcp 192.0.2.1:99999 > 198.51.100.7:1", "column 5"},
           Row{"tcp 192.0.2.1:nosuch > 198.51.100.7:1", "column 5"},
           Row{"icmp 2001:db8::1 > 2001:db8::2", "an IPv4 address"},
           Row{"ip 192.0.2.1:80 > 198.51.100.7", "column 4: found \"192.0.2.1:80\", expected an address"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 syn", "no TCP flag"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 protocol 6", "no protocol"},
           Row{"arp 192.0.2.1 > 198.51.100.7 protocol 6", "no protocol"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 vlan 1 vlan 2 vlan 3", "no third tag"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 ttl 256", "0 to 255"},
           Row{"udp 192.0.2.1:1 > 198.51.100.7:2 colour red", "\"colour\""},
           Row{"udp [2001:db8::1 > [2001:db8::2]:2", "column 5"},
       }) {
    std::string wrong;
    EXPECT_FALSE(Agent::readFrameText(row.text, &wrong)) << row.text;
    EXPECT_NE(wrong.find(row.wrong), std::string::npos) << row.text << ": " << wrong;
  }
}

TEST(FrameArgument, IsACaptureHexOrText) {
  const TempDir dir;
  const Bytes first = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).bytes();
  const Bytes second = frame().eth().arp("192.0.2.1", "192.0.2.2").bytes();
  writeFile(dir / "two:2.pcap", pcapBytes({{1, 0, first, 60}, {2, 0, second, 1500}}));
  const std::string path = dir / "two:2.pcap";
  struct Row {
    const char* why;
    std::string argument;
    std::optional<Bytes> octets;
    const char* wrong;
  };
  for (const Row& row : {
           Row{"the first frame without a number", path, first, ""},
           Row{"a frame by number; a colon in the name does not count", path + ":2", second, ""},
           Row{"a frame that is not there", path + ":3", {}, "has 2 frames, no frame 3"},
           Row{"frames are counted from 1", path + ":0", {}, "no frame 0"},
           Row{"hexadecimal digits", "0200 00:00:00:02 AbCd", Bytes{2, 0, 0, 0, 0, 2, 0xab, 0xcd}, ""},
           Row{"an odd digit", "abc", {}, "no hexadecimal digits"},
           Row{"a file that does not exist", "no/such.pcap:1", {}, "no capture that exists"},
           Row{"a text with a mistake", "tpc 192.0.2.1:1 > 192.0.2.2:2", {}, "found \"tpc\""},
           Row{"nothing", "", {}, "no text such as"},
       }) {
    std::string wrong;
    const auto made = Agent::readFrameArgument(row.argument, &wrong);
    EXPECT_EQ(made.has_value(), row.octets.has_value()) << row.why << ": " << wrong;
    if (made && row.octets) {
      EXPECT_EQ(made->octets, *row.octets) << row.why;
    }
    EXPECT_NE(wrong.find(row.wrong), std::string::npos) << row.why << ": " << wrong;
  }
  std::string wrong;
  EXPECT_EQ(Agent::readFrameArgument(path + ":2", &wrong)->wireLength, 1500u)
      << "of a cut frame the whole length";
}

}  // namespace
