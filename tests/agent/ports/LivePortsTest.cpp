#include <agent/ports/CaptureDevice.h>
#include <agent/ports/LivePorts.h>
#include <agent/ports/PortKinds.h>
#include <gtest/gtest.h>
#include <linux/capability.h>

#include "../../support/Frames.h"
#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <list>
#include <sstream>
#include <tuple>

namespace {

using namespace TestSupport;
using Agent::LiveFrame;
using Agent::Offload;

/// What is to be received is put into it, and what was sent is kept.
class FakeDevice final : public Agent::PortDevice {
 public:
  std::optional<std::string> make() override { return unmade; }
  std::optional<Agent::Link> look() override {
    return there ? std::optional(Agent::Link{"fake", 0, true, 1500}) : std::nullopt;
  }
  std::optional<std::string> attach(const Agent::Link&) override {
    open = true;
    return std::nullopt;
  }
  void detach() override { open = false; }
  bool isOpen() const override { return open; }
  Received receive(Frames frames) override {
    Received received;
    for (; received.count < burst && !waiting.empty(); ++received.count) {
      held.push_back(waiting.front());
      waiting.pop_front();
      frames[received.count] = {held.back(), offload};
    }
    received.more = !waiting.empty();
    return received;
  }
  void release() override {
    // What is sent behind this is seen.
    for (Bytes& each : held) std::fill(each.begin(), each.end(), uint8_t{0});
    released.splice(released.end(), held);
  }
  size_t send(std::span<const LiveFrame> frames, int& error) override {
    size_t count = 0;
    ++batches;
    for (const LiveFrame& each : frames) {
      if (room == 0) {
        error = ENOBUFS;
        return count;
      }
      if (room > 0) --room;
      if (failing > 0 && --failing >= 0) {
        error = failsWith;
        return count;
      }
      sent.emplace_back(each.bytes.begin(), each.bytes.end());
      lastOffload = each.offload;
      ++count;
    }
    return count;
  }
  bool isFullForAll() const override { return fullForAll; }
  bool takesOffloads() const override { return offloads; }
  void stopReceiving() override {}

  std::optional<std::string> unmade;  ///< why it cannot be made
  bool there = true;
  bool open = false;
  bool offloads = true;
  std::deque<Bytes> waiting;
  std::list<Bytes> held, released;
  Offload offload{};
  std::vector<Bytes> sent;
  Offload lastOffload{};
  int batches = 0;
  bool fullForAll = false;
  int room = -1;      ///< for so many frames; -1: for all
  int failing = 0;    ///< so many frames are not sent
  int failsWith = 0;  ///< with this error
};

class LivePortsTest : public testing::Test {
 protected:
  void SetUp() override {
    a_ = add("eth1");
    b_ = add("eth2");
    ASSERT_EQ(forwarder_.patchIs("eth1", "eth2"), std::nullopt);
  }
  FakeDevice* add(const char* name, bool offloads = true) {
    auto made = std::make_unique<FakeDevice>();
    made->offloads = offloads;
    FakeDevice* device = made.get();
    ports_.portIs(name, std::move(made));
    return device;
  }
  Agent::PortState state(const char* name) const {
    for (auto& each : ports_.states()) {
      if (each.name == name) return each;
    }
    return {};
  }
  static Bytes numbered(uint16_t number) {
    return frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(number, 53).payload(number % 100u);
  }

  /// Of a process whose workers have the ports.
  static Agent::PortSetup ofFirst() {
    Agent::PortSetup setup;
    setup.workers = 2;
    return setup;
  }

  Kiv::ManualClock clock_, wall_;
  Agent::EventLoop loop_{clock_, wall_};
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  Agent::LivePorts ports_{forwarder_, loop_};
  FakeDevice* a_ = nullptr;
  FakeDevice* b_ = nullptr;
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
  EXPECT_EQ(b_->sent.size(), 64u * Agent::EventLoop::burstsATurn);
  EXPECT_EQ(a_->sent.size(), 1u);
}

TEST_F(LivePortsTest, WhatIsLeftToTheDeviceGoesAlong) {
  a_->offload = {Offload::needsChecksum, 1, 66, 1446, 34, 16};
  a_->waiting.push_back(frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).payload(2500));
  loop_.turn(0);
  ASSERT_EQ(b_->sent.size(), 1u) << "whole";
  EXPECT_EQ(b_->lastOffload.segmentLength, 1446u);
  EXPECT_EQ(b_->lastOffload.checksumStart, 34u);
}

TEST_F(LivePortsTest, DrainingSendsAllThatHasCome) {
  for (uint16_t i = 0; i < 500; ++i) a_->waiting.push_back(numbered(i));
  ports_.drain();
  EXPECT_EQ(b_->sent.size(), 500u);
}

TEST_F(LivePortsTest, WhatIsNotSentIsCountedByItsReasonAndTheRestIsSent) {
  for (uint16_t i = 0; i < 10; ++i) a_->waiting.push_back(numbered(i));
  a_->waiting.push_back(frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 53).payload(1600));
  b_->failing = 2;
  b_->failsWith = ENOBUFS;
  loop_.turn(0);
  EXPECT_EQ(b_->sent.size(), 8u);
  EXPECT_EQ(state("eth2").txFrames, 8u);
  EXPECT_EQ(state("eth2").sendFailed, 2u);
  EXPECT_EQ(state("eth2").tooLarge, 1u);
  EXPECT_EQ(state("eth1").rxFrames, 11u);
}

TEST_F(LivePortsTest, ADeviceThatIsFullForAllIsNotAskedForEveryFrame) {
  struct Row {
    const char* why;
    bool fullForAll;
    int room;
    int batches;
  };
  for (const Row& row : {
           Row{"there was room for some: once more", true, 3, 2},
           Row{"there is none", true, 0, 1},
           Row{"an error may be about one frame", false, 3, 64 - 3},
       }) {
    const uint64_t failed = state("eth2").sendFailed, sent = state("eth2").txFrames;
    for (uint16_t i = 0; i < 64; ++i) a_->waiting.push_back(numbered(i));
    b_->fullForAll = row.fullForAll;
    b_->room = row.room;
    b_->batches = 0;
    loop_.turn(0);
    EXPECT_EQ(b_->batches, row.batches) << row.why;
    EXPECT_EQ(state("eth2").txFrames - sent, static_cast<uint64_t>(row.room)) << row.why;
    EXPECT_EQ(state("eth2").sendFailed - failed, 64u - static_cast<uint64_t>(row.room)) << row.why;
  }
}

TEST(CaptureDevice, WhatIsReadAgainIsReadFromItsBeginning) {
  const TempDir folder;
  const std::string path = folder / "in.pcap";
  const Bytes bytes = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(30);
  const auto size = static_cast<uint32_t>(bytes.size());
  // The first frame was not captured to its end.
  const auto whole = pcapBytes({{1, 0, bytes, size + 1}, {2, 0, bytes, size}, {3, 0, bytes, size}});
  auto cutOff = whole;
  cutOff.resize(whole.size() - 1);
  Agent::CaptureDevice device(path, 1);
  writeFile(path, cutOff);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(device.make().has_value());
  writeFile(path, whole);
  EXPECT_EQ(device.make(), std::nullopt);
  EXPECT_EQ(device.counts().rxTooLarge, 1u);
  EXPECT_EQ(device.attach({}), std::nullopt);
  std::array<LiveFrame, Agent::PortDevice::burst> frames;
  EXPECT_EQ(device.receive(frames).count, 2u);
}

TEST_F(LivePortsTest, WorkOfSendersIsDoneForADeviceThatDoesNot) {
  FakeDevice* plain = add("eth4", false);
  FakeDevice* large = add("eth3");
  ASSERT_EQ(forwarder_.patchIs("eth3", "eth4"), std::nullopt);
  large->offload = {Offload::needsChecksum, 1, 54, 1000, 34, 16};
  large->waiting.push_back(frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).payload(2500));
  loop_.turn(0);
  ASSERT_EQ(plain->sent.size(), 3u);
  EXPECT_EQ(plain->sent[0].size(), 1054u);
  EXPECT_EQ(plain->sent[2].size(), 554u);
  EXPECT_EQ(state("eth4").txFrames, 1u);
  EXPECT_EQ(state("eth4").txSegments, 3u);
}

TEST_F(LivePortsTest, TwoPortsCannotBeOnOneDevice) {
  EXPECT_EQ(ports_.portIs("eth3", "ens3"), std::nullopt);
  EXPECT_EQ(ports_.portIs("eth4", "ens3"), "eth3 and eth4 cannot both be on ens3");
  EXPECT_EQ(ports_.portIs("eth4", "tap:ens3"), "eth3 and eth4 cannot both be on ens3");
  EXPECT_EQ(ports_.portIs("eth4", "packet:ens3"), "eth3 and eth4 cannot both be on ens3");
}

TEST_F(LivePortsTest, APortIsWrittenAsItsKindAndWhatItIsOn) {
  for (const char* right : {"ens9", "packet:ens8", "tap:tap1", "null:", "null:", "pcap:/a,b.pcap,endless",
                            "pcap:/a,b.pcap,repeat=3", "pcap:/a,b.pcap", "xdp:x1", "xdp:x2,queue=3,copy",
                            "xdp:x3,zerocopy,queue=0-3", "xdp:x4,gather=0", "xdp:x5,gather=1000,copy"}) {
    EXPECT_EQ(ports_.portIs("eth4", right), std::nullopt) << right;
  }
  const std::pair<const char*, const char*> wrong[] = {
      {"tap:", "eth4: no device is named"},
      {"packet:", "eth4: no device is named"},
      {"null:x", "eth4: null: has no device"},
      {"nul:", "eth4: there is no kind of port nul (there are "},
      {"pcap:", "eth4: no device is named"},
      {"pcap:a,repeat=0", "eth4: repeat=0 is no number from 1 on"},
      {"pcap:a,repeat=1x", "eth4: repeat=1x is no number from 1 on"},
      {"pcap:a,endless=1", "eth4: endless has no value"},
      {"xdp:y,queue=3-2", "eth4: queue=3-2 is no queue and no range of queues below 64"},
      {"xdp:y,queue=64", "eth4: queue=64 is no queue"},
      {"xdp:y,gather=1001", "eth4: gather=1001 is no number of microseconds up to 1000"},
      {"xdp:y,gather=5us", "eth4: gather=5us is no number"},
      {"xdp:y,gather", "eth4: gather= is no number"},
      {"xdp:y,copy,zerocopy", "eth4: copy and zerocopy exclude each other"},
      {"pcap:a,repeat=2,endless", "eth4: repeat and endless exclude each other"},
  };
  for (const auto& [text, message] : wrong) {
    const auto told = ports_.portIs("eth4", text);
    EXPECT_EQ(told.value_or("").substr(0, std::strlen(message)), message) << text;
  }
}

/// The checksum of RFC 1071 over octets, added one by one.
uint16_t referenceSum(const Bytes& bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    sum += i % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return static_cast<uint16_t>(sum);
}

/// What a receiver adds up for the transport checksum of an IPv4 or IPv6 frame without tags: 0xffff when
/// right.
uint16_t transportSum(const Bytes& frame, size_t transport, uint8_t protocol) {
  const bool six = frame[12] == 0x86;
  Bytes all(frame.begin() + (six ? 22 : 26), frame.begin() + (six ? 54 : 34));
  const size_t size = frame.size() - transport;
  all.insert(all.end(), {0, protocol, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
  all.insert(all.end(), frame.begin() + static_cast<std::ptrdiff_t>(transport), frame.end());
  return referenceSum(all);
}

TEST(LiveFrame, OffloadAndFrameAreOnePieceForTheKernel) {
  Bytes room(sizeof(Offload) + 60, 7);
  const LiveFrame whole{{&room[sizeof(Offload)], 60}, {1, 2, 3, 4, 5, 6}};
  const iovec piece = whole.withOffload();
  EXPECT_EQ(piece.iov_base, room.data());
  EXPECT_EQ(piece.iov_len, room.size());
  EXPECT_EQ(std::memcmp(room.data(), &whole.offload, sizeof(Offload)), 0);
}

TEST(Segments, SuperFramesBecomeFramesThatAReceiverTakes) {
  constexpr uint8_t cutTcp = 1, tcp = 6, udp = 17;
  struct Row {
    const char* why;
    Bytes frame;
    uint8_t cut, protocol;
    uint16_t transport, length;
    size_t segments;
  };
  const Row rows[] = {
      {"TCP", frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).payload(2500), cutTcp, tcp, 34, 1000, 3},
      {"an odd length", frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).payload(2501), cutTcp, tcp, 34,
       999, 3},
      {"UDP", frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(1000), Offload::cutUdp, udp, 34,
       400, 3},
      {"TCP over IPv6", frame().eth().ip6("2001:db8::1", "2001:db8::2").tcp(1, 2).payload(3000), cutTcp, tcp,
       54, 1400, 3},
  };
  Agent::Segments segments;
  for (const Row& row : rows) {
    const LiveFrame whole{row.frame, {Offload::needsChecksum, row.cut, 0, row.length, row.transport, 16}};
    const auto pieces = segments.of(whole);
    ASSERT_EQ(pieces.size(), row.segments) << row.why;
    const size_t headers = row.transport + (row.protocol == tcp ? 20u : 8u);
    Bytes payload;
    for (size_t i = 0; i < pieces.size(); ++i) {
      const Bytes piece(pieces[i].bytes.begin(), pieces[i].bytes.end());
      EXPECT_FALSE(pieces[i].hasWork()) << row.why;
      EXPECT_EQ(transportSum(piece, row.transport, row.protocol), 0xffff) << row.why << " " << i;
      if (row.transport == 34) {
        EXPECT_EQ(referenceSum(Bytes(piece.begin() + 14, piece.begin() + 34)), 0xffff) << row.why;
        EXPECT_EQ(piece[16] << 8 | piece[17], static_cast<int>(piece.size()) - 14) << row.why;
        EXPECT_EQ(piece[19] - row.frame[19], static_cast<int>(i)) << "numbers go on: " << row.why;
      }
      if (row.protocol == tcp) {
        const auto at = [&](const Bytes& bytes) {
          return bytes[row.transport + 6u] << 8 | bytes[row.transport + 7u];
        };
        EXPECT_EQ(at(piece) - at(row.frame), static_cast<int>(i * row.length)) << row.why;
      }
      payload.insert(payload.end(), piece.begin() + static_cast<std::ptrdiff_t>(headers), piece.end());
    }
    EXPECT_EQ(payload, Bytes(row.frame.begin() + static_cast<std::ptrdiff_t>(headers), row.frame.end()))
        << row.why;
  }
}

TEST(Segments, WhatIsNoSuperFrameIsRefused) {
  const Bytes tcp = frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 2).payload(2500).bytes();
  Agent::Segments segments;
  const auto count = [&](const Bytes& bytes, Offload offload) {
    return segments.of({bytes, offload}).size();
  };
  EXPECT_EQ(count(tcp, {1, 1, 0, 1000, 34, 16}), 3u);
  EXPECT_EQ(count(tcp, {1, 1, 0, 0, 34, 16}), 0u) << "no length";
  EXPECT_EQ(count(tcp, {1, 1, 0, 1000, 20, 16}), 0u) << "within IPv4";
  EXPECT_EQ(count(tcp, {1, 1, 0, 1000, 2530, 16}), 0u) << "behind its end";
  Bytes arp = tcp;
  arp[12] = 8, arp[13] = 6;
  EXPECT_EQ(count(arp, {1, 1, 0, 1000, 34, 16}), 0u) << "no IP";
  Bytes large(60000, 1);
  std::copy_n(tcp.begin(), 54, large.begin());
  EXPECT_EQ(count(large, {1, 1, 0, 1, 34, 16}), 0u) << "too many";
  EXPECT_EQ(count(tcp, {1, 0, 0, 0, 34, 4000}), 0u) << "no checksum there";
}

TEST(Segments, AChecksumIsCompletedFromTheSumOfItsPseudoHeader) {
  Bytes bytes = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).payload(33);
  const size_t size = bytes.size() - 34;
  Bytes pseudo(bytes.begin() + 26, bytes.begin() + 34);
  pseudo.insert(pseudo.end(), {0, 17, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
  const uint16_t sum = referenceSum(pseudo);
  bytes[40] = static_cast<uint8_t>(sum >> 8);
  bytes[41] = static_cast<uint8_t>(sum);
  Agent::Segments segments;
  const auto pieces = segments.of({bytes, {Offload::needsChecksum, Offload::notCut, 0, 0, 34, 6}});
  ASSERT_EQ(pieces.size(), 1u);
  EXPECT_EQ(transportSum(Bytes(pieces[0].bytes.begin(), pieces[0].bytes.end()), 34, 17), 0xffff);
}

/// A table says what they are, another one what several processes do with them.
TEST(PortKinds, AreInBothTablesOfTheDocument) {
  std::vector<std::string> rows;
  std::istringstream document(readFile(VELO_SOURCE_DIR "/docs/ports.md"));
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("| `")) rows.push_back(line.substr(0, line.find(" |")));
  }
  std::istringstream forms(Agent::portForms());  // "[packet:]DEV, tap:NAME"
  for (std::string word; forms >> word;) {
    const std::string name = word.substr(word.starts_with('['), word.find(':') - word.starts_with('[') + 1);
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(),
                            [&](const std::string& row) { return row.find("`" + name) != row.npos; }),
              2)
        << name;
  }
}

TEST_F(LivePortsTest, DevicesAreOpenedAgainWithTheCapabilitiesOfTheirKinds) {
  EXPECT_TRUE(ports_.capabilities().empty());
  EXPECT_EQ(ports_.portIs("eth3", "tap:tap3"), std::nullopt);
  EXPECT_EQ(ports_.capabilities(), std::set<int>{CAP_NET_ADMIN});
  EXPECT_EQ(ports_.portIs("eth5", "null:"), std::nullopt);
  EXPECT_EQ(ports_.capabilities(), std::set<int>{CAP_NET_ADMIN}) << "none";
  EXPECT_EQ(ports_.portIs("eth4", "tap"), std::nullopt) << "an interface of that name";
  EXPECT_EQ(ports_.capabilities(), (std::set<int>{CAP_NET_ADMIN, CAP_NET_RAW}));
  EXPECT_EQ(ports_.portIs("eth6", "xdp:ens6"), std::nullopt);
  EXPECT_EQ(ports_.capabilities(), (std::set<int>{CAP_NET_ADMIN, CAP_NET_RAW, CAP_BPF, CAP_IPC_LOCK}));
}

TEST_F(LivePortsTest, OneWhoStartsOthersKeepsWhatTheirDriversMayNeed) {
  const std::string device = "dpdk:net_af_packet%w,iface=side%w";
  const std::set<int> known{CAP_NET_RAW, CAP_NET_ADMIN, CAP_BPF, CAP_IPC_LOCK, CAP_SYS_RAWIO};
  Agent::LivePorts first(forwarder_, loop_, ofFirst());
  EXPECT_EQ(first.portIs("eth3", "null:"), std::nullopt);
  EXPECT_TRUE(first.capabilitiesToMake().empty());
  EXPECT_EQ(first.portIs("eth4", device), std::nullopt);
  EXPECT_EQ(first.capabilitiesToMake(), known);
  EXPECT_TRUE(first.capabilities().empty()) << "it is no harm when it has them not";
}

TEST_F(LivePortsTest, TroubleWithAPortEndsTheStartOrClosesThatPortOnly) {
  const TempDir folder;
  const std::string path = folder / "late.pcap";
  for (const auto trouble : {Agent::LivePorts::Trouble::endsStart, Agent::LivePorts::Trouble::closesPort}) {
    Agent::LivePorts ports(forwarder_, loop_);
    EXPECT_EQ(ports.portIs("late", "pcap:" + path + ",endless"), std::nullopt);
    EXPECT_EQ(ports.portIs("other", "null:"), std::nullopt);
    const auto wrong = ports.open(trouble);
    EXPECT_EQ(wrong.has_value(), trouble == Agent::LivePorts::Trouble::endsStart);
    if (wrong) continue;
    for (int turn = 0; turn < 3; ++turn) {
      clock_.advance(Kelp::Duration(1.1));
      loop_.turn(0);
      EXPECT_FALSE(ports.states()[0].present);
      EXPECT_NE(ports.states()[0].wrong.find("late.pcap"), std::string::npos);
      EXPECT_TRUE(ports.states()[1].present);
    }
    const Bytes bytes = numbered(1);
    writeFile(path, pcapBytes({{1, 0, bytes, static_cast<uint32_t>(bytes.size())}}));
    clock_.advance(Kelp::Duration(1.1));
    for (int turn = 0; turn < 3; ++turn) loop_.turn(0);
    EXPECT_TRUE(ports.states()[0].present);
    EXPECT_EQ(ports.states()[0].wrong, "");
    EXPECT_GT(ports.states()[0].rxFrames, 0u);
  }
}

TEST_F(LivePortsTest, APortDoesNotGoOnToComplainOfWhatIsMendedWhenItsDeviceIsNotThereYet) {
  Agent::LivePorts ports(forwarder_, loop_);
  auto made = std::make_unique<FakeDevice>();
  FakeDevice& device = *made;
  device.there = false;
  device.unmade = "no memory";
  ports.portIs("late", std::move(made));
  EXPECT_EQ(ports.open(Agent::LivePorts::Trouble::closesPort), std::nullopt);
  for (const char* wrong : {"no memory", "no such device", ""}) {
    device.unmade = *wrong == 0 ? std::nullopt : std::optional<std::string>(wrong);
    clock_.advance(Kelp::Duration(1.1));
    loop_.turn(0);
    EXPECT_FALSE(ports.states()[0].present);
    EXPECT_EQ(ports.states()[0].wrong, wrong);
  }
}

TEST_F(LivePortsTest, WhatOthersTellOfTheirDevicesIsTheLinkOfThePort) {
  std::vector<std::string> log;
  Agent::LivePorts first(forwarder_, loop_, ofFirst());
  EXPECT_EQ(first.portIs("eth3", "null:"), std::nullopt);
  EXPECT_EQ(first.portIs("eth4", "packet:nowhere9"), std::nullopt);
  first.logIs([&log](const Agent::LogEvent& event) { log.push_back(event.text); });
  EXPECT_EQ(first.open(), std::nullopt);
  const auto shown = [&first](size_t port) {
    const Agent::PortState state = first.states()[port];
    return std::tuple(state.present, state.up, state.mtu);
  };
  EXPECT_EQ(shown(0), std::tuple(true, true, Agent::anySize)) << "nobody has told yet";
  first.toldIs("eth3", Agent::Link{"eth3", 0, false, 1500});
  EXPECT_EQ(shown(0), std::tuple(true, false, 1500u));
  EXPECT_FALSE(forwarder_.portIs("eth3").up) << "another member of a port-channel is chosen";
  first.toldIs("eth3", Agent::Link{"eth3", 0, false, 1500});
  first.toldIs("eth3", std::nullopt);
  EXPECT_EQ(shown(0), std::tuple(false, false, 0u));
  first.toldIs("eth3", Agent::Link{"eth3", 0, true, 1400});
  EXPECT_EQ(shown(0), std::tuple(true, true, 1400u));
  EXPECT_TRUE(forwarder_.portIs("eth3").up);
  first.toldIs("eth4", Agent::Link{"eth4", 0, true, 1500});
  EXPECT_EQ(shown(1), std::tuple(false, false, 0u)) << "of this one the kernel tells";
  EXPECT_EQ(log, (std::vector<std::string>{"port eth3: its device null is down",
                                           "port eth3: its device null has gone",
                                           "port eth3: its device null is back"}));
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
  }
}

}  // namespace
