#include <agent/observe/FrameQueue.h>

#include <algorithm>
#include <utility>

namespace Agent {

FrameQueue::FrameQueue(const Room& room, uint32_t mostOctets)
    : mostOctets_(mostOctets),
      entries_(room.frames),
      hits_(room.hits),
      egress_(room.hits),
      mirrored_(room.frames),
      octets_(room.octets) {}

void FrameQueue::push(const Velo::PacketContext& ctx, const Fate& fate, uint64_t segments) {
  const Nimnet::Pkt& pkt = *ctx.pkt();
  const auto octets = pkt.frame().first(std::min(pkt.size(), mostOctets_));
  if (!entries_.hasRoom(1) || !hits_.hasRoom(fate.hits.size()) || !egress_.hasRoom(fate.egress.size()) ||
      !mirrored_.hasRoom(fate.mirrored.size()) || !octets_.hasRoom(octets.size())) {
    ++passedOver_;
    return;
  }
  Entry entry{{}, fate.hits.size(), fate.egress.size(), fate.mirrored.size(), octets.size()};
  SeenFrame& head = entry.head;
  head.time = pkt.time();
  head.fate.port = fate.port;
  head.fate.passed = fate.passed;
  head.fate.direction = fate.direction;
  head.fate.reason = fate.reason;
  head.fate.addressed = fate.addressed;
  head.wireLength = pkt.wireLength();
  head.fault = ctx.parsedPacket().fault();
  head.segments = segments;
  head.passedOver = takePassedOver();
  hits_.push(fate.hits);
  egress_.push(fate.egress);
  mirrored_.push(fate.mirrored);
  octets_.push(octets);
  entries_.push({&entry, 1});
}

SeenFrame FrameQueue::pop() {
  Entry entry = std::move(entries_.pop(1).front());
  SeenFrame frame = std::move(entry.head);
  frame.fate.hits = hits_.pop(entry.hits);
  frame.fate.egress = egress_.pop(entry.egress);
  frame.fate.mirrored = mirrored_.pop(entry.mirrored);
  frame.octets = octets_.pop(entry.octets);
  return frame;
}

uint64_t FrameQueue::takePassedOver() { return std::exchange(passedOver_, 0); }

}  // namespace Agent
