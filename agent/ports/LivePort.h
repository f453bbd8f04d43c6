#pragma once

#include <agent/forward/Forwarder.h>
#include <agent/ports/Offload.h>
#include <agent/ports/PortState.h>
#include <sys/uio.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Agent {

/// A frame between being received and being sent. What it says of work that its sender left to a device goes
/// along with it to every port that it leaves by, where the kernel does that work if the device does not.
struct LiveFrame {
  std::span<const uint8_t> bytes;
  Offload offload{};  ///< also stands right before `bytes`, so that both can be sent as one piece

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

/// A network device as the kernel shows it.
struct Link {
  std::string name;
  int index = 0;
  bool up = false;  ///< administratively, and the carrier is there
  uint32_t mtu = 0;
};

/// A port on a device of the running system: an interface, a TAP device. It is a sink that collects frames,
/// and sends them when flushed. The device may be missing, now or later; then frames to it are counted as not
/// sent.
///
/// A burst goes: receive() from one port, flush() of all, release() of that port. Received frames stay where
/// they are until release(), so that nothing is copied to be sent.
class LivePort : public FrameSink {
 public:
  /// Frames that are received or sent at once.
  static constexpr size_t burst = 64;

  /// `inHand` is the frame that the forwarder has at present, the same for all ports. Both outlive the port.
  LivePort(Port& port, std::string device, const LiveFrame& inHand);

  /// Makes the device, where that is the port's part, before it is looked for. Returns what went wrong.
  virtual std::optional<std::string> open() { return std::nullopt; }
  /// The device is there, or has changed: opens the port if it is not open. Returns what went wrong.
  virtual std::optional<std::string> linkIs(const Link& link) = 0;
  /// The device is gone.
  virtual void linkDel() = 0;

  /// The descriptor to wait for when there is nothing to receive; -1 while the port is not open.
  virtual int fd() const = 0;
  /// Receives what is there, at most a burst. Returns whether there may be more.
  virtual bool receive(FrameReceiver& to) = 0;
  /// Gives back what was received.
  virtual void release() {}
  /// Sends what was collected.
  virtual void flush() = 0;
  /// The descriptor has an error, which is cleared.
  virtual void clearError() {}
  /// Nothing that comes from now on is received; what has come can be still.
  virtual void stopReceiving() = 0;

  Port& port() const { return port_; }
  /// The name of the device.
  const std::string& device() const { return device_; }
  /// Link state and counters as they are now.
  virtual PortState state() const;

 protected:
  Port& port_;
  const std::string device_;
  const LiveFrame& inHand_;
  PortState state_;
};

/// Counts what the kernel says of a frame that it did not send.
void countUnsent(PortState& state, int error);

/// Whether the segments that a large frame is to be cut into fit behind an Ethernet header into `mtu` octets;
/// true of all other frames.
bool segmentsFit(const LiveFrame& frame, uint32_t mtu);

}  // namespace Agent
