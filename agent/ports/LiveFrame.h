#pragma once

#include <Nimnet/Pkt.h>
#include <agent/ports/Offload.h>
#include <sys/uio.h>

#include <cstdint>
#include <cstring>
#include <span>

namespace Agent {

/// A frame between being received and being sent. The work that its sender left to a device (a checksum to
/// complete, a segment to cut) goes with it to every port that it leaves by. There the kernel does that work
/// if the device does not. Packets that refer to it have it as their Nimnet::Pkt::origin().
struct LiveFrame {
  std::span<const uint8_t> bytes;
  Offload offload{};           ///< right before `bytes` is room for it, so that both can be sent as one piece
  const void* home = nullptr;  ///< whose memory it lies in, if devices can take it over; see PortDevice
  void* buffer = nullptr;      ///< what it is there

  /// Whether its sender left work to the device that sends it.
  bool hasWork() const {
    return offload.cut != Offload::notCut || (offload.flags & Offload::needsChecksum) != 0;
  }

  /// Offload and frame as one piece.
  iovec withOffload() const {
    uint8_t* begin = const_cast<uint8_t*>(bytes.data()) - sizeof offload;
    std::memcpy(begin, &offload, sizeof offload);
    return {begin, sizeof offload + bytes.size()};
  }
};

/// The frame that a packet refers to; null when it is none of a live port.
inline const LiveFrame* liveFrameOf(const Nimnet::Pkt& pkt) {
  return static_cast<const LiveFrame*>(pkt.origin());
}

/// Whether a frame that is to be cut into segments gives segments of at most `mtu` octets behind the Ethernet
/// header. True of every frame that is not to be cut.
bool segmentsFit(const LiveFrame& frame, uint32_t mtu);
/// How many frames a wire carries for this one: 1 unless it is to be cut, and when its offload does not tell.
uint64_t segmentsOf(const LiveFrame& frame);

}  // namespace Agent
