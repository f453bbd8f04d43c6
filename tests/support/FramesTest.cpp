#include "Frames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace TestSupport;

std::string hex(const Bytes& bytes) { return fmt::format("{:02x}", fmt::join(bytes, "")); }

TEST(Frames, ATcpFrameIsTheOneWrittenByHand) {
  const Bytes made = frame()
                         .eth("00:00:00:00:00:0a", "00:00:00:00:00:0b")
                         .vlan(100, 0x8100, 5)
                         .ip4("192.0.2.1", "198.51.100.7")
                         .tcp(1024, 443)
                         .flags(Syn)
                         .bytes();
  EXPECT_EQ(hex(made),
            "00000000000b"
            "00000000000a"
            "8100"
            "a064"
            "0800"
            "45000028"
            "00000000"
            "40068e94"
            "c0000201"
            "c6336407"
            "040001bb"
            "00000000"
            "00000000"
            "5002ffff"
            "bdeb0000");
}

TEST(Frames, ChecksumsHoldOverWhatTheyCover) {
  const Bytes ip =
      frame().ip4("192.0.2.1", "198.51.100.7").options({1, 1, 1}).udp(1, 2).payload("odd").bytes();
  EXPECT_EQ(internetChecksum(Bytes(ip.begin(), ip.begin() + 24)), 0)
      << "an IPv4 header with its checksum sums to 0";
  const Bytes ping = frame().icmp(8).payload(3, 0x55).bytes();
  EXPECT_EQ(internetChecksum(ping), 0) << "so does an ICMP message";
  EXPECT_EQ(crc32c(Bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0x839206e3u)
      << "the check value of CRC32c, e3069283, least significant octet first";
}

TEST(Frames, LengthsCountWhatFollowsButNoPadding) {
  const Bytes made =
      frame().eth().snap().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(2).padTo(60).bytes();
  EXPECT_EQ(made.size(), 60u);
  EXPECT_EQ(made[13], 8 + 20 + 8 + 2) << "802.3 length";
  EXPECT_EQ(made[14 + 8 + 3], 20 + 8 + 2) << "IPv4 total length";
  EXPECT_EQ(made[14 + 8 + 20 + 5], 8 + 2) << "UDP length";
}

TEST(Frames, OverridesWin) {
  const Bytes made =
      frame().ip4("0.0.0.0", "0.0.0.0").totalLength(7).ihl(4).version(5).protocol(99).checksum(1).bytes();
  EXPECT_EQ(hex(made).substr(0, 24), "540000070000000040630001");
}

TEST(Frames, AnExtensionHeaderNamesTheNextOne) {
  const Bytes made = frame().ip6("::1", "::2").hopByHop().fragment(2, true).ah(12).udp(1, 2).bytes();
  EXPECT_EQ(made[6], 0);
  EXPECT_EQ(hex(Bytes(made.begin() + 40, made.end() - 8)),
            "2c00010400000000"
            "3300001100001234"
            "110100000000000000000000");
}

TEST(Frames, MistakesAreThrown) {
  EXPECT_THROW(frame().eth().ttl(3), std::logic_error) << "no IPv4 header to set it in";
  EXPECT_THROW(frame().ip4("192.0.2.1", "x"), std::invalid_argument);
}

}  // namespace
