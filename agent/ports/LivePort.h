#pragma once

#include <agent/core/Descriptor.h>
#include <agent/forward/Forwarder.h>
#include <agent/ports/LiveFrame.h>
#include <agent/ports/PortState.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// A network device as the kernel shows it.
struct Link {
  std::string name;
  int index = 0;
  bool up = false;  ///< administratively, and the carrier is there
  uint32_t mtu = 0;
};

/// A port on a device of the running system: an interface, a TAP device. It is a sink: it collects frames and
/// sends them when it is flushed. The device may be missing or go away; frames to it then count as not sent.
///
/// A burst is receive() of one port, then flush() of all ports, then release() of the first. Received frames
/// stay where they are until release(), so that they need not be copied to be sent.
///
/// A kind of port says how it is opened on a device (attach) and how it receives and sends.
class LivePort : public FrameSink {
 public:
  /// How many frames are received or sent at once.
  static constexpr size_t burst = 64;

  /// `inHand` is the frame that the forwarder is handling now, the same for all ports. Port and frame outlive
  /// this object.
  LivePort(Port& port, std::string device, const LiveFrame& inHand);

  /// Makes the device if this kind of port makes its own, before anybody looks for it. Returns what went
  /// wrong.
  virtual std::optional<std::string> open() { return std::nullopt; }
  /// The device is there, or has changed: opens the port on it if it is not open. Returns what went wrong.
  std::optional<std::string> linkIs(const Link& link);
  /// The device is gone: closes the port.
  void linkDel();

  /// The descriptor to wait for when there is nothing to receive; -1 while the port is not open.
  int fd() const { return descriptor_.get(); }
  /// Receives the frames that are there, at most a burst. Returns whether there may be more.
  virtual bool receive(FrameReceiver& to) = 0;
  /// Gives the received frames back to the kernel.
  virtual void release() {}
  /// Sends the frames that were collected.
  virtual void flush() {}
  /// Clears the error that the descriptor has.
  virtual void clearError() {}
  /// From now on no new frame is received; those that have arrived already still can be.
  virtual void stopReceiving() = 0;

  Port& port() const { return port_; }
  /// The name of the device.
  const std::string& device() const { return device_; }
  /// Link state and counters as they are now.
  virtual PortState state() const;

 protected:
  /// Makes sure that the port is open on this device. Returns what went wrong.
  virtual std::optional<std::string> attach(const Link& link) = 0;
  /// Gives up what is open beside the descriptor, which is closed next.
  virtual void detach() {}

  bool isOpen() const { return static_cast<bool>(descriptor_); }
  /// Closes the port after a failure. Returns the text for it, and leaves errno as it is.
  std::string failed(std::string_view doing);
  void countReceived(const LiveFrame& frame);
  void countSent(const LiveFrame& frame);
  /// Counts a frame that the kernel did not send, by its error.
  void countUnsent(int error);

  Port& port_;
  const std::string device_;
  const LiveFrame& inHand_;
  Descriptor descriptor_;
  PortState state_;
};

}  // namespace Agent
