#pragma once

#include <cstddef>
#include <cstdint>

namespace Agent {

/// The receive ring of a packet socket: slots in memory shared with the kernel, which fills them in order.
/// Which of both has a slot is said by its status word (Linux: packet(7), TPACKET_V2).
class PacketRing {
 public:
  PacketRing() = default;
  ~PacketRing();
  PacketRing(const PacketRing&) = delete;
  PacketRing& operator=(const PacketRing&) = delete;

  /// Makes the ring of a socket, of slots for frames of up to `mtu` octets behind the Ethernet header, less
  /// for the largest. False when it cannot be had (errno).
  bool open(int socket, uint32_t mtu);
  void close();

  /// The slot of a number, which goes round.
  uint8_t* slot(size_t at) const { return base_ + (at & (slots_ - 1)) * slotSize_; }
  /// Whether the kernel has handed a slot over with a frame.
  static bool isFilled(uint8_t* slot);
  /// Hands it back; what was in it may be gone at once.
  static void giveBack(uint8_t* slot);

 private:
  uint8_t* base_ = nullptr;
  size_t slots_ = 0;  // a power of two
  size_t slotSize_ = 0;
};

}  // namespace Agent
