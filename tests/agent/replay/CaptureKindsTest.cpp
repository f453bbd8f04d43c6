#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "../../support/Sanitizers.h"
#include "../support/CaptureBytes.h"
#include "../support/PackedBytes.h"
#include "../support/Run.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using Json = nlohmann::ordered_json;

constexpr uint32_t raw = 101, cooked = 113, cooked2 = 276, ip4 = 228, ip6 = 229;

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
Bytes type(uint16_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }

/// The two versions of the header of a cooked capture; of a frame received from 02:00:5e:00:00:07.
Bytes sll(uint16_t protocol) { return Bytes{0, 0, 0, 1, 0, 6, 2, 0, 0x5e, 0, 0, 7, 0, 0} + type(protocol); }
Bytes sll2(uint16_t protocol) {
  return type(protocol) + Bytes{0, 0, 0, 0, 0, 2, 0, 1, 0, 6, 2, 0, 0x5e, 0, 0, 7, 0, 0};
}
Bytes behindEthernet(const Bytes& frame) { return Bytes(frame.begin() + 14, frame.end()); }

Bytes udp4(uint16_t port) {
  return behindEthernet(frame().eth().ip4("192.0.2.1", "198.51.100.7").udp(1024, port).bytes());
}
Bytes udp6(uint16_t port) {
  return behindEthernet(frame().eth().ip6("2001:db8::1", "2001:db8::2").udp(1024, port).bytes());
}
Bytes arp() { return behindEthernet(frame().eth().arp("192.0.2.1", "192.0.2.2").bytes()); }

class CaptureKinds : public testing::Test {
 protected:
  void SetUp() override {
    writeFile(
        config_,
        "ip access-list FOUR\n 10 permit udp any any eq 53\n 20 permit vlan 7 udp any any eq 99\n"
        "ipv6 access-list SIX\n 10 permit udp any any eq 53\n"
        "mac access-list L2\n 10 deny any any\n"
        "interface eth1\n ip access-group FOUR in\n ipv6 access-group SIX in\n mac access-group L2 in\n");
  }
  /// "verdict", with the reason of a drop, for each frame of a capture.
  std::vector<std::string> verdicts(const Bytes& file, std::vector<std::string> more = {}) {
    writeFile(capture_, file);
    std::vector<std::string> arguments = {"replay",  "--config",  config_,      "--port", "eth1=" + capture_,
                                          "--patch", "eth1,eth2", "--verdicts", verdicts_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ran_ = runVelo(arguments);
    std::vector<std::string> all;
    std::istringstream lines(readFile(verdicts_));
    for (std::string line; std::getline(lines, line);) {
      const Json one = Json::parse(line);
      all.push_back(one.at("verdict").get<std::string>() +
                    (one.contains("reason") ? ": " + one.at("reason").get<std::string>() : ""));
    }
    return all;
  }
  static Bytes captureOf(uint32_t link, const std::vector<Bytes>& packets) {
    std::vector<Captured> frames;
    for (const Bytes& each : packets) frames.push_back({1, 0, each, static_cast<uint32_t>(each.size())});
    return pcapBytes(frames, {false, true, link});
  }

  TempDir dir_;
  const std::string config_ = dir_ / "acl", capture_ = dir_ / "in.pcap", verdicts_ = dir_ / "verdicts";
  Ran ran_;
};

const std::string noRuleMatches = "drop: No match on intf %s, default action is drop";

TEST_F(CaptureKinds, WithoutAnEthernetHeaderIpListsAreAskedAndMacListsAreNot) {
  struct Row {
    const char* why;
    uint32_t link;
    Bytes packet;
    std::string verdict;
  };
  for (const Row& row : {
           Row{"raw IPv4 that is permitted", raw, udp4(53), "pass"},
           Row{"and that is not", raw, udp4(54), noRuleMatches},
           Row{"raw IPv6", raw, udp6(53), "pass"},
           Row{"that matches no rule", raw, udp6(54), noRuleMatches},
           Row{"of one version by its link type", ip4, udp4(53), "pass"},
           Row{"and of the other", ip6, udp6(54), noRuleMatches},
           Row{"a link type that lies is malformed", ip4, udp6(53), "drop: ipv4 version is not 4"},
           Row{"as is raw IP of no version", raw, Bytes(40, 0x11), "drop: ipv4 version is not 4"},
           Row{"and of nothing", raw, Bytes(), "drop: ipv4 header cut short"},
           Row{"cooked IPv4", cooked, sll(0x0800) + udp4(53), "pass"},
           Row{"cooked IPv6 that matches no rule", cooked, sll(0x86dd) + udp6(54), noRuleMatches},
           Row{"cooked ARP meets no list", cooked, sll(0x0806) + arp(), "pass"},
           Row{"cooked IPv4 in a VLAN", cooked, sll(0x8100) + type(7) + type(0x0800) + udp4(99), "pass"},
           Row{"and in another", cooked, sll(0x8100) + type(8) + type(0x0800) + udp4(99), noRuleMatches},
           Row{"IPv4 in SNAP behind a cooked header", cooked,
               sll(0x0004) + Bytes{0xaa, 0xaa, 3, 0, 0, 0} + type(0x0800) + udp4(54), noRuleMatches},
           Row{"cut off within the cooked header", cooked, Bytes(15), "drop: ethernet header cut short"},
           Row{"cooked, second version", cooked2, sll2(0x0800) + udp4(53), "pass"},
           Row{"that matches no rule", cooked2, sll2(0x86dd) + udp6(54), noRuleMatches},
           Row{"that is ARP", cooked2, sll2(0x0806) + arp(), "pass"},
           Row{"cut off within its header", cooked2, Bytes(19), "drop: ethernet header cut short"},
       }) {
    EXPECT_EQ(verdicts(captureOf(row.link, {row.packet})), std::vector{row.verdict}) << row.why << ran_.err;
    EXPECT_EQ(ran_.status, 0) << row.why;
  }
}

TEST_F(CaptureKinds, OctetsAreThoseBehindTheCookedHeader) {
  verdicts(captureOf(cooked, {sll(0x0800) + udp4(53)}), {"--json"});
  const Json rule = Json::parse(ran_.out).at("lists").at(0).at("rules").at(0);
  EXPECT_EQ(rule.at("matches").at("in"), 1);
  EXPECT_EQ(rule.at("bytes").at("in"), udp4(53).size());
}

TEST_F(CaptureKinds, WhatLeavesGetsAnEthernetHeaderWithoutAddresses) {
  verdicts(captureOf(raw, {udp4(53), udp6(53)}), {"--out", "eth2=" + (dir_ / "out.pcap")});
  const auto written = readPcap(dir_ / "out.pcap");
  ASSERT_EQ(written.size(), 2u);
  EXPECT_EQ(written[0].frame, Bytes(12) + type(0x0800) + udp4(53));
  EXPECT_EQ(written[0].wire, 14 + udp4(53).size());
  EXPECT_EQ(written[1].frame, Bytes(12) + type(0x86dd) + udp6(53));
}

TEST_F(CaptureKinds, ACompressedCaptureIsReadAsIfItWereNot) {
  std::vector<Captured> frames;
  for (uint32_t i = 0; i < (sanitizers ? 1000 : 5000); ++i) {
    const Bytes each =
        frame().eth().ip4("192.0.2.1", "198.51.100.7").udp(1, static_cast<uint16_t>(i)).bytes();
    frames.push_back({1 + i, 0, each, static_cast<uint32_t>(each.size())});
  }
  writeFile(config_,
            "ip access-list A\n permit udp any any lt 4000\ninterface eth1\n ip access-group A in\n");
  const Bytes plain = pcapBytes(frames);
  const auto half = plain.begin() + static_cast<std::ptrdiff_t>(plain.size() / 2);
  const auto expected = verdicts(plain);
  ASSERT_EQ(expected.size(), frames.size());
  struct Row {
    const char* why;
    Bytes file;
  };
  for (const Row& row : {
           Row{"gzip", gzipBytes(plain)},
           Row{"gzip of two members",
               gzipBytes(Bytes(plain.begin(), half)) + gzipBytes(Bytes(half, plain.end()))},
           Row{"gzip with something behind it", gzipBytes(plain) + Bytes(100, 0)},
           Row{"zstd", zstdBytes(plain)},
           Row{"zstd of two frames",
               zstdBytes(Bytes(plain.begin(), half)) + zstdBytes(Bytes(half, plain.end()))},
       }) {
    const auto got = verdicts(row.file);
    if (ran_.err.find("was built without") != std::string::npos) {
      EXPECT_THAT(ran_.err, testing::ContainsRegex("in.pcap: is compressed with [a-z]+, and this program was "
                                                   "built without [a-z]+, which would unpack it"));
      EXPECT_EQ(ran_.status, 1) << row.why;
      continue;
    }
    EXPECT_EQ(got, expected) << row.why << ran_.err;
    EXPECT_EQ(ran_.status, 0) << row.why;
  }
}

TEST_F(CaptureKinds, StandardInputIsACapture) {
  writeFile(config_, "ip access-list A\n permit udp any any eq 53\ninterface eth1\n ip access-group A in\n");
  const Bytes plain = captureOf(raw, {udp4(53), udp4(54)});
  for (const auto& [name, file] :
       {std::pair("plain", plain), {"gzip", gzipBytes(plain)}, {"zstd", zstdBytes(plain)}}) {
    writeFile(capture_, file);
    const Ran ran =
        runVelo({"replay", "--config", config_, "--port", "eth1=-", "--json"}, {}, {}, {}, capture_);
    if (ran.err.find("was built without") != std::string::npos) continue;
    ASSERT_EQ(ran.status, 0) << name << ran.err;
    EXPECT_EQ(Json::parse(ran.out).at("frames"), 2) << name;
    EXPECT_EQ(Json::parse(ran.out).at("passed"), 1) << name;
  }
}

TEST_F(CaptureKinds, ACompressedCaptureThatIsCutOffOrDamagedGivesItsWholeFramesAndSaysSo) {
  std::vector<Captured> frames;
  for (uint32_t i = 0; i < 5000; ++i)
    frames.push_back({1 + i, 0, frame().eth().arp("192.0.2.1", "192.0.2.2").padTo(200).bytes(), 200});
  const Bytes plain = pcapBytes(frames);
  for (const auto& [name, whole] : {std::pair("gzip", gzipBytes(plain)), {"zstd", zstdBytes(plain)}}) {
    const auto cutAt = verdicts(cut(whole, whole.size() / 2));
    if (ran_.err.find("was built without") != std::string::npos) continue;
    EXPECT_EQ(ran_.status, 1) << name;
    EXPECT_THAT(ran_.err, HasSubstr("the compressed data are cut off")) << name;
    EXPECT_GT(cutAt.size(), 1000u) << name << ": the frames before are judged";
    Bytes broken = whole;
    broken[0xffff + 20] ^= 0xff;  // where the next block begins
    for (size_t i = 100000; i < 100012; ++i) broken[i] ^= 0xff;
    verdicts(broken);
    EXPECT_EQ(ran_.status, 1) << name;
    EXPECT_THAT(ran_.err, HasSubstr("the compressed data are damaged")) << name << ran_.err;
  }
}

TEST_F(CaptureKinds, AFrameOfSuchACaptureIsExplained) {
  writeFile(capture_, gzipBytes(captureOf(cooked, {sll(0x0806) + arp(), sll(0x0800) + udp4(54)})));
  const auto explain = [this](const std::string& frame) {
    return runVelo({"explain", "--config", config_, "--port", "eth1", "--in", frame});
  };
  const Ran four = explain(capture_ + ":2");
  if (four.err.find("was built without") != std::string::npos) GTEST_SKIP() << four.err;
  EXPECT_THAT(four.out,
              HasSubstr("udp 192.0.2.1:1024 > 198.51.100.7:54, no ethernet header, 28 octets  on eth1\n"));
  EXPECT_THAT(four.out, HasSubstr("dropped on its way in because no rule of FOUR on eth1 matches\n"));
  EXPECT_EQ(four.out.find("mac access-list"), std::string::npos);
  EXPECT_THAT(explain(capture_).out, HasSubstr("type 0x0806, no ethernet header, 28 octets  on eth1\n"));
}

}  // namespace
