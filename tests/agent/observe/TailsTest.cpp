#include <agent/change/Apply.h>
#include <agent/observe/SeenFrame.h>
#include <agent/observe/Tails.h>
#include <agent/ports/LiveFrame.h>
#include <gmock/gmock.h>

#include "../../support/Frames.h"
#include "../support/AllocationCount.h"
#include "../support/ModelOf.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;

class TailsTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto refusal = core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
    ASSERT_FALSE(refusal) << *refusal;
    const auto wrong = Agent::putInForce(core_, {modelOf(R"(
ip access-list IN
 10 permit udp any any eq 1
 20 permit udp any any eq 2
 30 permit udp any any eq 4 mirror session S
 40 deny udp any any eq 3
ip access-list OUT
 10 deny udp any any eq 2
 20 permit ip any any
interface eth1
 ip access-group IN in
interface eth2
 ip access-group OUT out
mac access-list ALL
 10 permit any any
interface eth5
 mac access-group ALL in
mirror session S destination eth9
)"),
                                                 {}});
    ASSERT_FALSE(wrong) << *wrong;
    forwarder_.portsOfConfigurationIs();
    ASSERT_FALSE(forwarder_.bridgeIs({"eth1", "eth2", "eth3"}, clock_));
    ASSERT_FALSE(forwarder_.patchIs("eth4", "eth5"));
  }
  void receive(const char* port, const Bytes& frame) { receive(forwarder_.portIs(port), frame); }
  void receive(Agent::Port& port, const Bytes& frame) {
    inHand_.bytes = frame;
    forwarder_.packet().refer(frame, static_cast<uint32_t>(frame.size()), 1.0, &inHand_);
    forwarder_.receive(port);
  }
  static Bytes udp(uint16_t port, size_t payload = 0) {
    return frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, port).payload(payload);
  }
  /// The destination ports of the frames that are told of.
  static std::vector<int> seen(Agent::Tail& tail) {
    std::vector<int> ports;
    while (tail.queue().size() > 0) {
      const auto frame = tail.queue().pop();
      ports.push_back(frame.octets.size() > 37 ? frame.octets[37] : 0);
    }
    return ports;
  }

  Kiv::ManualClock clock_;
  Agent::EventLoop loop_{clock_, clock_};
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  Agent::LiveFrame inHand_;
  Agent::Tails tails_{core_, forwarder_, loop_};
};

TEST_F(TailsTest, EachSeesTheFramesThatItsFilterWants) {
  struct Row {
    const char* why;
    Agent::TailFilter filter;
    std::vector<int> seen;
  };
  const Row rows[] = {
      {"everything", {}, {1, 2, 3, 4, 5, 1, 9}},
      {"a list", {.list = "IN"}, {1, 2, 3, 4, 5}},
      {"another one, also by a copy to one of several ports", {.list = "OUT"}, {1, 2, 4, 9}},
      {"a rule", {.list = "IN", .rule = 20}, {2}},
      {"a rule of the other list with that number", {.list = "OUT", .rule = 20}, {1, 4, 9}},
      {"no rule of a list", {.list = "IN", .rule = 0}, {5}},
      {"drops, also at one of two ports", {.drops = true}, {2, 3, 5}},
      {"drops of what a list permits", {.list = "IN", .rule = 20, .drops = true}, {2}},
      {"drops of what passes everywhere", {.list = "IN", .rule = 10, .drops = true}, {}},
      {"a list that there is not", {.list = "NONE"}, {}},
  };
  std::vector<std::unique_ptr<Agent::Tail>> all;
  for (size_t first = 0; first < std::size(rows); first += Agent::Tails::most) {
    const size_t end = std::min(std::size(rows), first + Agent::Tails::most);
    for (size_t i = first; i < end; ++i)
      all.push_back(std::make_unique<Agent::Tail>(tails_, rows[i].filter, 0));
    for (const int port : {1, 2, 3, 4, 5}) receive("eth1", udp(static_cast<uint16_t>(port)));
    receive("eth2", udp(1));
    receive("eth3", udp(9));
    for (size_t i = first; i < end; ++i) EXPECT_EQ(seen(*all[i - first]), rows[i].seen) << rows[i].why;
    all.clear();
  }
}

TEST_F(TailsTest, NobodyLookingCostsNothing) {
  EXPECT_FALSE(forwarder_.hasObserver());
  {
    Agent::Tail one(tails_, {}, 0);
    EXPECT_TRUE(forwarder_.hasObserver());
    { Agent::Tail two(tails_, {}, 0); }
    EXPECT_TRUE(forwarder_.hasObserver()) << "one is still looking";
  }
  EXPECT_FALSE(forwarder_.hasObserver());
  Agent::Tail again(tails_, {}, 0);
  receive("eth1", udp(1));
  EXPECT_THAT(seen(again), ElementsAre(1));
}

TEST_F(TailsTest, OneLineAFrameWithAllThatBecameOfIt) {
  Agent::Tail tail(tails_, {}, 0);
  const auto document = [&](const char* port, const Bytes& frame) {
    receive(port, frame);
    EXPECT_EQ(tail.queue().size(), 1u);
    return Agent::SeenFrameWriter().document(tail.queue().pop(), false);
  };
  EXPECT_EQ(
      document("eth1", udp(4)).dump(),
      R"({"time":1.0,"port":"eth1","verdict":"pass","hits":[)"
      R"({"direction":"in","interface":"eth1","type":"ip","list":"IN","rule":30,"action":"permit"},)"
      R"({"direction":"out","interface":"eth2","type":"ip","list":"OUT","rule":20,"action":"permit"}],)"
      R"("mirrored":["S"],"egress":[{"port":"eth2","verdict":"pass"},{"port":"eth3","verdict":"pass"}],)"
      R"("sentence":"passes by rule 30 of IN on eth1 and by rule 20 of OUT on eth2, and leaves by eth2 and eth3",)"
      R"("packet":"udp 192.0.2.1:1 > 192.0.2.2:4, 42 octets","wireLength":42,"segments":1,"passedOver":0})");
  struct Row {
    const char* port;
    Bytes frame;
    const char* verdict;
    const char* sentence;
  };
  for (const Row& row : {
           Row{"eth1", udp(3), "drop", "dropped on its way in by rule 40 of IN on eth1"},
           Row{"eth1", udp(7), "drop", "dropped on its way in because no rule of IN on eth1 matches"},
           Row{"eth1", udp(2), "pass",
               "passes by rule 20 of IN on eth1, and leaves by eth3; dropped on its way out by rule 10 of "
               "OUT "
               "on eth2"},
           Row{"eth2", Bytes(13), "drop", "dropped on its way in on eth2: ethernet header cut short"},
       }) {
    const auto told = document(row.port, row.frame);
    EXPECT_EQ(told.at("verdict"), row.verdict);
    EXPECT_EQ(told.at("sentence").get<std::string>(), row.sentence);
  }
}

TEST_F(TailsTest, TellsMacAddressesOfAnIpPacketWhereTheyDecided) {
  Agent::Tail tail(tails_, {}, 0);
  Agent::SeenFrameWriter writer;
  const auto udp = [](uint16_t port) {
    return frame().eth("02:00:5e:00:00:01", "02:00:5e:00:00:02").ip4("192.0.2.1", "192.0.2.2").udp(1, port);
  };
  struct Row {
    const char* why;
    const char* port;
    Bytes frame;
    const char* packet;
  };
  for (const Row& row : {
           Row{"where it goes is a question of addresses", "eth1", udp(1),
               "udp 192.0.2.1:1 > 192.0.2.2:1, from 02:00:5e:00:00:01, to 02:00:5e:00:00:02, 42 octets"},
           Row{"it was dropped before that", "eth1", udp(3), "udp 192.0.2.1:1 > 192.0.2.2:3, 42 octets"},
           Row{"by a patch all frames go the same way", "eth4", udp(3),
               "udp 192.0.2.1:1 > 192.0.2.2:3, 42 octets"},
           Row{"a list asked for them", "eth5", udp(3),
               "udp 192.0.2.1:1 > 192.0.2.2:3, from 02:00:5e:00:00:01, to 02:00:5e:00:00:02, 42 octets"},
       }) {
    receive(row.port, row.frame);
    ASSERT_EQ(tail.queue().size(), 1u) << row.why;
    EXPECT_EQ(writer.document(tail.queue().pop(), false).at("packet"), row.packet) << row.why;
  }
}

TEST_F(TailsTest, TellsOfSegmentsAndOfOctets) {
  Agent::Tail plain(tails_, {}, 0), whole(tails_, {}, 1000);
  const Bytes frame = TestSupport::frame().eth().ip4("192.0.2.1", "192.0.2.2").tcp(1, 443).payload(2000);
  inHand_.offload.cut = 1;
  inHand_.offload.checksumStart = 34;
  inHand_.offload.segmentLength = 900;
  receive("eth3", frame);
  inHand_ = {};
  Agent::SeenFrameWriter writer;
  const auto told = writer.document(plain.queue().pop(), plain.wantsOctets());
  EXPECT_EQ(told.at("segments"), 3);
  EXPECT_EQ(told.at("packet"), "tcp 192.0.2.1:1 > 192.0.2.2:443 no flags, 2054 octets, 3 segments");
  EXPECT_FALSE(told.contains("octets"));
  const auto kept = writer.document(whole.queue().pop(), whole.wantsOctets());
  EXPECT_EQ(kept.at("octets").get<std::string>().size(), 2000u);
  EXPECT_EQ(kept.at("wireLength"), 2054);
}

TEST_F(TailsTest, WhoDoesNotTakeFramesIsPassedOver) {
  Agent::Tail tail(tails_, {}, 0), drops(tails_, {.drops = true}, 0);
  for (int i = 0; i < 1000; ++i) receive("eth1", udp(1));
  const size_t held = Agent::FrameQueue::Room().frames;
  EXPECT_EQ(tail.queue().size(), held);
  receive("eth1", udp(3));
  EXPECT_THAT(seen(drops), ElementsAre(3)) << "what others want takes no room of its own";
  for (size_t i = 0; i < held; ++i) EXPECT_EQ(tail.queue().pop().passedOver, 0u);
  receive("eth1", udp(1));
  EXPECT_EQ(tail.queue().pop().passedOver, 1001 - held);
}

TEST_F(TailsTest, ReadyIsCalledOnceFromTheLoop) {
  Agent::Tail tail(tails_, {}, 0);
  int ready = 0;
  tail.wait([&] { ++ready; });
  loop_.turn(0);
  EXPECT_EQ(ready, 0) << "there is nothing yet";
  receive("eth1", udp(1));
  EXPECT_EQ(ready, 0) << "not while the packet is handled";
  loop_.turn(0);
  EXPECT_EQ(ready, 1);
  receive("eth1", udp(1));
  loop_.turn(0);
  EXPECT_EQ(ready, 1) << "it was not asked for again";
  tail.wait([&] { ++ready; });
  EXPECT_EQ(ready, 2) << "at once";
}

TEST_F(TailsTest, WhoIsReadyMayGoAndTakeOthersAlong) {
  auto one = std::make_unique<Agent::Tail>(tails_, Agent::TailFilter{}, 0);
  auto two = std::make_unique<Agent::Tail>(tails_, Agent::TailFilter{}, 0);
  auto three = std::make_unique<Agent::Tail>(tails_, Agent::TailFilter{}, 0);
  int ready = 0;
  one->wait([&] {
    ++ready;
    one.reset();
    two.reset();
  });
  two->wait([&] { ++ready; });
  three->wait([&] {
    ++ready;
    three.reset();
  });
  receive("eth1", udp(1));
  loop_.turn(0);
  EXPECT_EQ(ready, 2) << "the first and the last";
  EXPECT_FALSE(forwarder_.hasObserver());
}

TEST_F(TailsTest, ThePacketPathAllocatesNothingForThoseWhoLook) {
  Agent::Tail all(tails_, {}, 0), octets(tails_, {.list = "IN"}, Agent::Tail::mostOctets),
      drops(tails_, {.drops = true}, 0);
  const Bytes frames[] = {udp(1), udp(2, 1400), udp(3), udp(4), udp(9), Bytes(13)};
  Agent::Port& port = forwarder_.portIs("eth1");
  uint64_t allocations = 0;
  for (int round = 0; round < 1000; ++round) {
    const uint64_t before = allocationCount();
    for (const Bytes& frame : frames) receive(port, frame);
    if (round > 0) allocations += allocationCount() - before;
    // Now with room, now without.
    if (round % 200 == 0) seen(all), seen(octets), seen(drops);
  }
  EXPECT_EQ(allocations, 0u);
}

}  // namespace
