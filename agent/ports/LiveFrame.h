#pragma once

#include <agent/forward/Port.h>
#include <agent/ports/Offload.h>
#include <sys/uio.h>

#include <cstdint>
#include <cstring>
#include <span>

namespace Agent {

/// A frame between being received and being sent. The work that its sender left to a device (a checksum to
/// complete, a segment to cut) goes with it to every port that it leaves by. There the kernel does that work
/// if the device does not.
struct LiveFrame {
  std::span<const uint8_t> bytes;
  Offload offload{};  ///< a copy lies in memory right before `bytes`, so that both can be sent as one piece

  /// The frame of what withOffload() has given.
  static LiveFrame of(const iovec& piece) {
    LiveFrame frame{
        {static_cast<const uint8_t*>(piece.iov_base) + sizeof offload, piece.iov_len - sizeof offload}};
    std::memcpy(&frame.offload, piece.iov_base, sizeof frame.offload);
    return frame;
  }

  iovec withOffload() const {
    const uint8_t* begin = bytes.data() - sizeof offload;
    return {const_cast<uint8_t*>(begin), sizeof offload + bytes.size()};
  }
};

/// Takes received frames one by one.
class FrameReceiver {
 public:
  virtual void receive(Port& port, const LiveFrame& frame) = 0;

 protected:
  ~FrameReceiver() = default;
};

/// Whether a frame that is to be cut into segments gives segments of at most `mtu` octets behind the Ethernet
/// header. True of every frame that is not to be cut.
bool segmentsFit(const LiveFrame& frame, uint32_t mtu);
/// How many frames a wire carries for this one: 1 unless it is to be cut, and when its offload does not tell.
uint64_t segmentsOf(const LiveFrame& frame);

}  // namespace Agent
