#include <MemSlab/Slab.h>
#include <agent/observe/FrameQueue.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "../../support/Frames.h"

#include <deque>

namespace {

using namespace TestSupport;

/// A judged packet, and what a queue is to tell of it.
struct Judged {
  Bytes octets;
  uint32_t wire = 0;
  double time = 0;
  uint64_t segments = 1;
  Agent::Fate fate;

  static Judged random(Dice& dice, int number) {
    Judged one;
    one.octets = frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(static_cast<uint16_t>(number), 53).bytes();
    one.octets.resize(one.octets.size() + dice.below(300), static_cast<uint8_t>(number));
    one.wire = static_cast<uint32_t>(one.octets.size() + dice.below(2) * 1000);
    one.time = number;
    one.segments = 1 + dice.below(3);
    one.fate.port = fmt::format("eth{}", dice.below(3));
    one.fate.passed = dice.below(2) == 0;
    one.fate.reason = one.fate.passed ? "" : fmt::format("reason {}", number);
    one.fate.direction = dice.below(2) ? Acl::AclDirection::in : Acl::AclDirection::out;
    for (uint32_t i = dice.below(5); i > 0; --i)
      one.fate.hits.push_back({Acl::AclDirection::in, Nimnet::IntfId("eth1"), Acl::AclType::ip,
                               fmt::format("L{}", i), static_cast<uint32_t>(number), Acl::Action::permit});
    for (uint32_t i = dice.below(5); i > 0; --i)
      one.fate.egress.push_back({Nimnet::IntfId(fmt::format("eth{}", i)), i % 2 == 0, "because", number});
    for (uint32_t i = dice.below(2); i > 0; --i) one.fate.mirrored.push_back("S");
    return one;
  }
};

std::string textOf(const Agent::Fate& fate) {
  std::string text = fmt::format("{} {} {} {}:", fate.port, fate.passed, fate.direction, fate.reason);
  for (const auto& hit : fate.hits) text += fmt::format(" {} {} {}", hit.intf, hit.list, hit.sequence);
  for (const auto& one : fate.egress)
    text += fmt::format(" {} {} {} {}", one.port, one.passed, one.reason, one.by.value_or(0));
  for (const auto& session : fate.mirrored) text += fmt::format(" {}", session);
  return text;
}

/// What the queue should hold, by counting alone.
struct Model {
  struct Held {
    Judged frame;
    uint64_t passedOver;
  };
  const Agent::FrameQueue::Room room;
  const size_t mostOctets;
  std::deque<Held> held;
  uint64_t passedOver = 0;

  void push(const Judged& frame) {
    size_t hits = frame.fate.hits.size(), egress = frame.fate.egress.size();
    size_t mirrored = frame.fate.mirrored.size(), octets = kept(frame).size();
    for (const Held& each : held) {
      hits += each.frame.fate.hits.size();
      egress += each.frame.fate.egress.size();
      mirrored += each.frame.fate.mirrored.size();
      octets += kept(each.frame).size();
    }
    if (held.size() + 1 > room.frames || hits > room.hits || egress > room.hits || mirrored > room.frames ||
        octets > room.octets) {
      ++passedOver;
      return;
    }
    held.push_back({frame, std::exchange(passedOver, 0)});
  }
  Bytes kept(const Judged& frame) const {
    Bytes octets = frame.octets;
    octets.resize(std::min(octets.size(), mostOctets));
    return octets;
  }
};

TEST(FrameQueue, KeepsWhatThereIsRoomForAndCountsTheRest) {
  const Agent::FrameQueue::Room rooms[] = {
      {4, 100, 100000}, {100, 7, 100000}, {100, 100, 1000}, {5, 12, 900}};
  uint64_t overall = 0;
  for (const auto& room : rooms) {
    Dice dice(static_cast<uint32_t>(room.frames + room.hits));
    Agent::FrameQueue queue(room, 200);
    Model model{room, 200, {}};
    const auto ctx = MemSlab::make<Velo::PacketContext>(MemSlab::make<Velo::VeloNamedCounters>());
    const Nimnet::IntfId port("eth1");
    for (int number = 1; number < 3000; ++number) {
      if (dice.below(100) < 55) {
        const Judged frame = Judged::random(dice, number);
        ctx->pkt()->assign(frame.octets, frame.wire, frame.time);
        ctx->begin(port);
        ctx->parsedPacket().maybeDoFullParse();
        queue.push(*ctx, frame.fate, frame.segments);
        model.push(frame);
      } else if (!model.held.empty()) {
        const Agent::SeenFrame seen = queue.pop();
        const auto [frame, passedOver] = model.held.front();
        model.held.pop_front();
        ASSERT_EQ(seen.octets, model.kept(frame)) << number;
        EXPECT_EQ(textOf(seen.fate), textOf(frame.fate)) << number;
        EXPECT_EQ(std::tuple(seen.time, seen.wireLength, seen.segments, seen.passedOver),
                  std::tuple(frame.time, frame.wire, frame.segments, passedOver))
            << number;
        overall += passedOver;
      }
      ASSERT_EQ(queue.size(), model.held.size()) << number;
      ASSERT_EQ(queue.hasPassedOver(), model.passedOver > 0) << number;
    }
    EXPECT_EQ(queue.takePassedOver(), model.passedOver);
    EXPECT_FALSE(queue.hasPassedOver()) << "told once";
  }
  EXPECT_GT(overall, 100u) << "there was too little room now and then";
}

TEST(FrameQueue, TellsTheFaultOfTheWholeFrame) {
  Agent::FrameQueue queue({}, 20);
  const auto ctx = MemSlab::make<Velo::PacketContext>(MemSlab::make<Velo::VeloNamedCounters>());
  const auto push = [&](const Bytes& octets) {
    ctx->pkt()->assign(octets, static_cast<uint32_t>(octets.size()), 1);
    ctx->begin(Nimnet::IntfId("eth1"));
    ctx->parsedPacket().maybeDoFullParse();
    queue.push(*ctx, {}, 1);
  };
  push(frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 53));
  push(Bytes(13));
  EXPECT_EQ(queue.pop().fault, Velo::ParseFault::none) << "it is only the copy that is cut short";
  EXPECT_EQ(queue.pop().fault, Velo::ParseFault::ethHeaderCut);
}

}  // namespace
