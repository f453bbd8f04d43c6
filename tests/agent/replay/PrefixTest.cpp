#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using namespace TestSupport;
using Json = nlohmann::ordered_json;

const char* const prefixLists =
    "mac access-list M\n 10 permit any any ip\n 20 permit any any\n"
    "ip access-list A\n 10 permit tcp any any established\n 20 permit udp any any eq 53\n 30 permit icmp any "
    "any echo\n"
    " 40 permit sctp any any eq 7\n 50 permit ip any any fragments\n 60 deny ip any any\n"
    "ipv6 access-list S\n 10 permit tcp any any established\n 20 permit udp any any eq 53\n"
    " 30 permit icmpv6 any any echo-request\n 40 permit sctp any any eq 7\n 50 permit ipv6 any any "
    "fragments\n"
    " 60 deny ipv6 any any\n"
    "interface eth1\n mac access-group M in\n ip access-group A in\n ipv6 access-group S in\n"
    "interface eth2\n mac access-group M out\n ip access-group A out\n ipv6 access-group S out\n";

/// Frames with as many kinds of headers as fit.
std::vector<Bytes> richFrames() {
  const auto tagged = frame().eth().vlan(100, 0x88a8).vlan(200);
  return {
      FrameBuilder(tagged)
          .ip4("192.0.2.1", "192.0.2.2")
          .options(Bytes(12, 1))
          .tcp(1, 2)
          .flags(Ack)
          .tcpOptions(Bytes(8, 1))
          .payload(10),
      frame().eth().ip4("192.0.2.1", "192.0.2.2").fragment(0, true).udp(9, 53).payload(8),
      frame().eth().ip4("192.0.2.1", "192.0.2.2").fragment(5, false).protocol(6).payload(8),
      frame().eth().snap().ip4("192.0.2.1", "192.0.2.2").icmp(8),
      frame().eth().ip4("192.0.2.1", "192.0.2.2").sctp(1, 7).payload(4),
      frame().eth().ip4("192.0.2.1", "192.0.2.2").ah().udp(1, 53),
      FrameBuilder(tagged)
          .ip6("2001:db8::1", "2001:db8::2")
          .hopByHop(16)
          .routing(24)
          .fragment(0, true)
          .ah(12)
          .destinationOptions()
          .tcp(1, 2)
          .flags(Rst)
          .payload(3),
      frame().eth().ip6("2001:db8::1", "2001:db8::2").fragment(1, false).protocol(17).payload(9),
      frame().eth().ip6("2001:db8::1", "2001:db8::2").destinationOptions().icmp6(128),
      frame().eth().vlan(5).snap().ip6("2001:db8::1", "2001:db8::2").udp(1, 53),
      frame().eth().mpls(16).mpls(17).ip4("192.0.2.1", "192.0.2.2").udp(1, 2),
      frame().eth().arp("192.0.2.1", "192.0.2.2"),
      frame().eth().llc(0x42, 0x42, 3).payload(35),
  };
}

/// Every prefix of every frame: cut off by the snap length, and as short as that on the wire.
std::vector<Captured> prefixes() {
  std::vector<Captured> all;
  for (const Bytes& whole : richFrames()) {
    for (size_t size = 0; size <= whole.size(); ++size) {
      all.push_back({all.size(), 0, cut(whole, size), static_cast<uint32_t>(whole.size())});
      all.push_back({all.size(), 0, cut(whole, size), static_cast<uint32_t>(size)});
    }
  }
  return all;
}

class Prefixes : public testing::TestWithParam<const char*> {};

TEST_P(Prefixes, EachHasAVerdict) {
  const TempDir dir;
  const auto frames = prefixes();
  ASSERT_GT(frames.size(), 1500u);
  writeFile(dir / "c.acl", prefixLists);
  writeFile(dir / "in.pcap", pcapBytes(frames));
  const Ran ran =
      runVelo({"replay", "--config", dir / "c.acl", "--port", "eth1=" + (dir / "in.pcap"), "--patch",
               "eth1,eth2", "--verdicts", dir / "v", "--json", "--malformed", GetParam()});
  ASSERT_EQ(ran.status, 0) << ran.err;
  std::istringstream lines(readFile(dir / "v"));
  uint64_t number = 0, passed = 0;
  for (std::string line; std::getline(lines, line);) {
    const Json verdict = Json::parse(line);
    EXPECT_EQ(verdict["frame"], ++number);
    const bool pass = verdict["verdict"] == "pass";
    passed += pass;
    EXPECT_TRUE(pass || !verdict["reason"].get<std::string>().empty()) << line;
  }
  EXPECT_EQ(number, frames.size());
  const Json report = Json::parse(ran.out);
  EXPECT_EQ(report["passed"], passed);
  EXPECT_EQ(report["dropped"], frames.size() - passed);
  EXPECT_GT(passed, 100u);
}

INSTANTIATE_TEST_SUITE_P(Agent, Prefixes, testing::Values("drop", "pass"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
