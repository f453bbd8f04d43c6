#pragma once

#include <agent/forward/Port.h>
#include <agent/ports/Offload.h>
#include <sys/uio.h>

#include <cstdint>
#include <span>

namespace Agent {

/// A frame between being received and being sent. The work that its sender left to a device (a checksum to
/// complete, a segment to cut) goes with it to every port that it leaves by. There the kernel does that work
/// if the device does not.
struct LiveFrame {
  std::span<const uint8_t> bytes;
  Offload offload{};  ///< a copy lies in memory right before `bytes`, so that both can be sent as one piece

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

}  // namespace Agent
