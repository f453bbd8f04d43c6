#pragma once

#include <Kelp/Assert.h>
#include <Kelp/Node.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace Nimnet {

/// One frame and what was recorded with it. Made once and used again for every frame: assign() copies a
/// frame, and allocates only for one that is larger than all before; refer() leaves it where it lies.
/// Pointers into frame() are valid until the next of these calls. The agent writes the frame, its time and
/// its trace id; the parser writes vlanId and the front offset.
class Pkt : public Kelp::Node {
 public:
  Pkt() = default;

  /// Takes a copy of `captured` (may be empty) as the frame, from its Ethernet header on and without a frame
  /// check sequence. `wireLength`: how many octets the frame had on the wire; at least as many as were
  /// captured are assumed. `time`: seconds since the epoch. The front offset and the VLAN id become 0; the
  /// trace id stays.
  void assign(std::span<const uint8_t> captured, uint32_t wireLength, double time);
  /// The same of a packet without an Ethernet header, as some captures have them: its octets are what would
  /// stand behind the field of the type, and that field would have `type`.
  void assignBehindType(uint16_t type, std::span<const uint8_t> captured, uint32_t wireLength, double time);
  /// The same as another packet, which keeps its own.
  void assign(const Pkt& other);
  /// The same with a size in octets.
  void assign(const uint8_t* captured, uint32_t capturedLength, uint32_t wireLength, double time) {
    assign({captured, capturedLength}, wireLength, time);
  }
  /// Like assign(), without a copy: the octets stay where they are, unchanged, as long as this frame is
  /// looked at. `origin` is what its owner knows of it beside; null: nothing.
  void refer(std::span<const uint8_t> captured, uint32_t wireLength, double time,
             const void* origin = nullptr) {
    frame_ = captured;
    origin_ = origin;
    recordedAre(wireLength, time);
  }
  /// The frame of another packet, as long as that one has it.
  void refer(const Pkt& other);

  void frontOffsetIs(uint32_t offset) {
    KELP_ASSERT(offset <= size(), "The front of a packet cannot be beyond its end");
    frontOffset_ = offset;
  }
  void vlanIdIs(uint16_t id) { vlanId_ = id; }
  void traceIdIs(uint64_t id) { traceId_ = id; }

  /// The captured octets.
  std::span<const uint8_t> frame() const { return frame_; }
  /// See refer().
  const void* origin() const { return origin_; }
  /// Whether the frame begins with an Ethernet header. A packet that has none has its type in typeBefore().
  bool hasEthernet() const { return hasEthernet_; }
  uint16_t typeBefore() const { return typeBefore_; }
  uint32_t size() const { return static_cast<uint32_t>(frame_.size()); }
  /// Octets on the wire, never less than size().
  uint32_t wireLength() const { return wireLength_; }
  /// Seconds since the epoch.
  double time() const { return time_; }
  /// The offset of the header that is looked at now; 0 is the first one. Never beyond size().
  uint32_t frontOffset() const { return frontOffset_; }
  const uint8_t* data() const { return frame_.data() + frontOffset_; }
  /// The id of the outer VLAN tag, 0 to 4095: 0 is untagged or priority-tagged (IEEE 802.1Q, 9.6).
  uint16_t vlanId() const { return vlanId_; }
  /// The number of this packet in traces.
  uint64_t traceId() const { return traceId_; }

 private:
  void recordedAre(uint32_t wireLength, double time) {
    wireLength_ = std::max(wireLength, size());
    time_ = time;
    frontOffset_ = 0;
    vlanId_ = 0;
    hasEthernet_ = true;
  }
  void typeIsOf(const Pkt& other) {
    typeBefore_ = other.typeBefore_;
    hasEthernet_ = other.hasEthernet_;
  }

  std::span<const uint8_t> frame_;  // in store_, or where its owner has it
  const void* origin_ = nullptr;
  uint32_t wireLength_ = 0;
  uint32_t frontOffset_ = 0;
  double time_ = 0;
  uint64_t traceId_ = 0;
  uint16_t vlanId_ = 0;
  uint16_t typeBefore_ = 0;
  bool hasEthernet_ = true;
  std::vector<uint8_t> store_;
};

}  // namespace Nimnet
