#pragma once

#include <cstddef>
#include <cstdint>

namespace Agent {

/// The receive ring of a packet socket: slots in memory that is shared with the kernel, which fills them in
/// order. The status word of a slot says whether it belongs to the kernel or to the agent (Linux: packet(7),
/// TPACKET_V2).
class PacketRing {
 public:
  PacketRing() = default;
  ~PacketRing();
  PacketRing(const PacketRing&) = delete;
  PacketRing& operator=(const PacketRing&) = delete;

  /// Makes the ring of a socket. Its slots have room for frames of up to `mtu` octets behind the Ethernet
  /// header, but not for the very largest. False when that is not possible (errno).
  bool open(int socket, uint32_t mtu);
  void close();

  /// The slot with a number. Numbers go on counting while the slots come round again.
  uint8_t* slot(size_t at) const { return base_ + (at & (slots_ - 1)) * slotSize_; }
  /// Whether the kernel has put a frame into a slot and handed it over.
  static bool isFilled(uint8_t* slot);
  /// Hands a slot back to the kernel, which may overwrite it at once.
  static void giveBack(uint8_t* slot);

 private:
  uint8_t* base_ = nullptr;
  size_t slots_ = 0;  // a power of two
  size_t slotSize_ = 0;
};

}  // namespace Agent
