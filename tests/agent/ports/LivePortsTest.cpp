#include <agent/ports/LivePorts.h>
#include <gtest/gtest.h>
#include <linux/capability.h>

#include "../../support/Frames.h"

#include <cstring>
#include <deque>

namespace {

using namespace TestSupport;
using Agent::LiveFrame;
using Agent::Offload;

/// A port without a device: what is to be received is put into it, and what was sent is kept.
class FakePort final : public Agent::LivePort {
 public:
  using LivePort::LivePort;
  std::optional<std::string> attach(const Agent::Link&) override { return std::nullopt; }
  bool receive(Agent::FrameReceiver& to) override {
    for (size_t i = 0; i < burst && !waiting.empty(); ++i) {
      held.push_back(waiting.front());
      waiting.pop_front();
      to.receive(port_, {held.back(), offload});
    }
    return !waiting.empty();
  }
  void release() override {
    EXPECT_TRUE(held.empty() || others->collected.empty())
        << "what was received goes behind what it is sent as";
    held.clear();
  }
  void send(const Nimnet::Pkt&) override { collected.push_back(inHand_); }
  void flush() override {
    for (const LiveFrame& each : collected) {
      sent.emplace_back(each.bytes.begin(), each.bytes.end());
      lastOffload = each.offload;
    }
    if (!collected.empty()) ++batches;
    collected.clear();
  }
  void stopReceiving() override {}

  std::deque<Bytes> waiting;
  std::deque<Bytes> held;
  Offload offload{};
  std::vector<LiveFrame> collected;
  std::vector<Bytes> sent;
  Offload lastOffload{};
  int batches = 0;
  FakePort* others = nullptr;
};

class LivePortsTest : public testing::Test {
 protected:
  void SetUp() override {
    a_ = add("eth1");
    b_ = add("eth2");
    a_->others = b_;
    b_->others = a_;
    ASSERT_EQ(forwarder_.patchIs("eth1", "eth2"), std::nullopt);
  }
  FakePort* add(const char* name) {
    auto made = std::make_unique<FakePort>(forwarder_.portIs(name), name, ports_.inHand());
    FakePort* port = made.get();
    ports_.portIs(std::move(made));
    return port;
  }
  static Bytes numbered(uint16_t number) {
    return frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(number, 53).payload(number % 100u);
  }

  Kiv::ManualClock clock_, wall_;
  Agent::EventLoop loop_{clock_, wall_};
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  Agent::LivePorts ports_{forwarder_, loop_};
  FakePort* a_ = nullptr;
  FakePort* b_ = nullptr;
};

TEST_F(LivePortsTest, FramesGoThroughInBurstsInOrderAndWhole) {
  std::vector<Bytes> expected;
  for (uint16_t i = 0; i < 150; ++i) expected.push_back(numbered(i));
  a_->waiting.assign(expected.begin(), expected.end());
  for (int i = 0; i < 3; ++i) loop_.turn(0);
  EXPECT_EQ(b_->sent, expected);
  EXPECT_EQ(b_->batches, 3) << "64, 64 and 22";
  EXPECT_EQ(ports_.totals().frames, 150u);
  EXPECT_EQ(ports_.totals().passed, 150u);
  a_->waiting.push_back(cut(numbered(1), 20));
  loop_.turn(0);
  EXPECT_EQ(ports_.totals().frames, 151u);
  EXPECT_EQ(ports_.totals().passed, 150u);
  EXPECT_EQ(ports_.totals().dropped, 1u);
}

TEST_F(LivePortsTest, APortThatIsAlwaysBusyStarvesNoOther) {
  for (uint16_t i = 0; i < 1000; ++i) a_->waiting.push_back(numbered(i));
  b_->waiting.push_back(numbered(7));
  loop_.turn(0);
  EXPECT_EQ(b_->sent.size(), 64u);
  EXPECT_EQ(a_->sent.size(), 1u);
}

TEST_F(LivePortsTest, WhatIsLeftToTheDeviceGoesAlong) {
  a_->offload = {Offload::needsChecksum, 1, 66, 1448, 34, 16};
  a_->waiting.push_back(numbered(1));
  loop_.turn(0);
  EXPECT_EQ(b_->lastOffload.segmentLength, 1448u);
  EXPECT_EQ(b_->lastOffload.checksumStart, 34u);
}

TEST_F(LivePortsTest, DrainingSendsAllThatHasCome) {
  for (uint16_t i = 0; i < 500; ++i) a_->waiting.push_back(numbered(i));
  ports_.drain();
  EXPECT_EQ(b_->sent.size(), 500u);
}

TEST_F(LivePortsTest, TwoPortsCannotBeOnOneDevice) {
  EXPECT_EQ(ports_.portIs("eth3", "ens3"), std::nullopt);
  EXPECT_EQ(ports_.portIs("eth4", "ens3"), "eth3 and eth4 cannot both be on ens3");
  EXPECT_EQ(ports_.portIs("eth4", "tap:ens3"), "eth3 and eth4 cannot both be on ens3");
  EXPECT_EQ(ports_.portIs("eth4", "tap:"), "eth4: no device is named");
}

TEST_F(LivePortsTest, DevicesAreOpenedAgainWithTheCapabilitiesOfTheirKinds) {
  EXPECT_TRUE(ports_.capabilities().empty());
  EXPECT_EQ(ports_.portIs("eth3", "tap:tap3"), std::nullopt);
  EXPECT_EQ(ports_.capabilities(), std::set<int>{CAP_NET_ADMIN});
  EXPECT_EQ(ports_.portIs("eth4", "tap"), std::nullopt) << "an interface of that name";
  EXPECT_EQ(ports_.capabilities(), (std::set<int>{CAP_NET_ADMIN, CAP_NET_RAW}));
}

TEST(SegmentsFit, WhatALargeFrameIsCutIntoIsHeldAgainstTheMtu) {
  Bytes bytes(4000, 0);
  bytes[12] = 0x08;
  bytes[34 + 12] = 0x80;  // eight words of TCP header
  const auto fits = [&bytes](Offload offload, uint32_t mtu) {
    return Agent::segmentsFit({bytes, offload}, mtu);
  };
  const auto tcp = [](uint16_t length) { return Offload{1, 1, 66, length, 34, 16}; };
  EXPECT_TRUE(fits({}, 100)) << "not to be cut: the kernel judges it";
  EXPECT_TRUE(fits(tcp(1448), 1500)) << "20 of IPv4, 32 of TCP, 1448";
  EXPECT_FALSE(fits(tcp(1449), 1500));
  EXPECT_FALSE(fits(tcp(1448), 1499));
  EXPECT_TRUE(fits({1, 5, 42, 1472, 34, 6}, 1500)) << "20 of IPv4, 8 of UDP, 1472";
  EXPECT_FALSE(fits({1, 5, 42, 1473, 34, 6}, 1500));
  EXPECT_FALSE(fits({1, 1, 66, 1448, 3990, 16}, 65535)) << "a header that is not there";
  bytes[12] = 0x81;
  bytes[34 + 4 + 12] = 0x80;
  EXPECT_TRUE(fits({1, 1, 70, 1448, 38, 16}, 1500)) << "a tag is not counted";
  EXPECT_FALSE(fits({1, 1, 70, 1449, 38, 16}, 1500));
}

TEST(LiveFrame, SegmentsAreCountedWhereTheOffloadTellsThem) {
  const Bytes tcp = frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).payload(3000).bytes();
  const Bytes options =
      frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).tcpOptions(Bytes(12)).payload(3000).bytes();
  const Bytes udp = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(3000).bytes();
  constexpr uint8_t cutTcp = 1;
  struct Row {
    const char* why;
    const Bytes& frame;
    uint8_t cut;
    uint16_t length, checksumStart;
    uint64_t segments;
  };
  for (const Row& row : {
           Row{"a frame that is whole", tcp, Offload::notCut, 1000, 34, 1},
           Row{"three full segments", tcp, cutTcp, 1000, 34, 3},
           Row{"and a fourth that is not", tcp, cutTcp, 999, 34, 4},
           Row{"fewer octets than a segment has", tcp, cutTcp, 4000, 34, 1},
           Row{"with congestion bits", tcp, cutTcp | Offload::withEcn, 1000, 34, 3},
           Row{"options are in every segment", options, cutTcp, 1000, 34, 3},
           Row{"datagrams", udp, Offload::cutUdp, 100, 34, 30},
           Row{"no length of a segment", tcp, cutTcp, 0, 34, 1},
           Row{"headers beyond the frame", tcp, cutTcp, 1000, 4000, 1},
       }) {
    const LiveFrame whole{row.frame, {0, row.cut, 0, row.length, row.checksumStart, 0}};
    EXPECT_EQ(segmentsOf(whole), row.segments) << row.why;
    Bytes piece(sizeof(Offload));
    std::memcpy(piece.data(), &whole.offload, sizeof(Offload));
    piece.insert(piece.end(), row.frame.begin(), row.frame.end());
    EXPECT_EQ(segmentsOf(LiveFrame::of({piece.data(), piece.size()})), row.segments)
        << "as it is sent: " << row.why;
  }
}

}  // namespace
