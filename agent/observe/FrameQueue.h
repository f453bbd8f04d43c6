#pragma once

#include <Velo/PacketContext.h>
#include <agent/observe/Ring.h>
#include <agent/show/Verdicts.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace Agent {

/// A frame that was seen while it was judged.
struct SeenFrame {
  double time = 0;  ///< seconds since the epoch
  Fate fate{};
  std::vector<uint8_t> octets{};  ///< its first ones
  uint32_t wireLength = 0;
  Velo::ParseFault fault = Velo::ParseFault::none;  ///< of the whole frame
  uint64_t segments = 1;    ///< how many frames a wire carries for it, if its sender left it to be cut
  uint64_t passedOver = 0;  ///< how many that were wanted came before it, for which there was no room
};

/// Frames that wait to be told of, the oldest first. All memory is taken when the queue is made: to put a
/// frame in copies a few words and octets, and a frame for which there is no room is only counted.
class FrameQueue {
 public:
  /// What there is room for.
  struct Room {
    size_t frames = 256;
    size_t hits = 2048;  ///< of all frames together, and as many egress ports
    size_t octets = 64 << 10;
  };

  /// Keeps at most `mostOctets` of a frame.
  FrameQueue(const Room& room, uint32_t mostOctets);

  /// The packet is that of a context which has been judged.
  void push(const Velo::PacketContext& ctx, const Fate& fate, uint64_t segments);
  /// The oldest frame. There must be one.
  SeenFrame pop();
  size_t size() const { return entries_.size(); }
  /// How many frames had no room since the last one that had. To ask sets the count to zero.
  uint64_t takePassedOver();
  bool hasPassedOver() const { return passedOver_ > 0; }

 private:
  /// A frame without its parts that differ in number; those are in rings of their own.
  struct Entry {
    SeenFrame head{};
    // How many of each there are.
    size_t hits = 0, egress = 0, mirrored = 0, octets = 0;
  };

  const uint32_t mostOctets_;
  Ring<Entry> entries_;
  Ring<Hit> hits_;
  Ring<Egress> egress_;
  Ring<Kelp::String> mirrored_;
  Ring<uint8_t> octets_;
  uint64_t passedOver_ = 0;
};

}  // namespace Agent
