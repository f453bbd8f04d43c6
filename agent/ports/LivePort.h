#pragma once

#include <agent/forward/Port.h>
#include <agent/ports/PortDevice.h>
#include <agent/ports/PortState.h>
#include <agent/ports/Segments.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// A live port: a device, and what is counted of the frames that go by it. It is a sink: it collects frames
/// and sends them when it is flushed. While its device is missing, frames to it count as not sent.
///
/// A burst is receive() of one port, then flush() of all ports, then release() of the first (see PortDevice).
class LivePort final : public FrameSink {
 public:
  static constexpr size_t burst = PortDevice::burst;

  /// The port outlives this object. `device` is its name.
  LivePort(Port& port, std::string_view kind, std::string device, std::unique_ptr<PortDevice> by);
  ~LivePort() override;

  /// The device is there, or has changed: opens the port on it if it is not open. Returns what went wrong.
  std::optional<std::string> linkIs(const Link& link);
  /// The device is gone: closes the port.
  void linkDel();
  /// Why there is no device to open, until one is there.
  void wrongIs(const std::string& text) { state_.wrong = text; }

  struct Received {
    std::span<const LiveFrame> frames;  ///< until release()
    bool more = false;                  ///< there may be more at once
  };
  /// Receives the frames that are there, at most a burst.
  Received receive();
  void release() { by_->release(); }
  /// The packet refers to a LiveFrame.
  void send(const Nimnet::Pkt& pkt) override;
  /// Sends the frames that were collected.
  void flush() {
    if (collected_ > 0) sendCollected();
  }

  Port& port() const { return port_; }
  /// The name of the device.
  const std::string& device() const { return device_; }
  PortDevice& by() const { return *by_; }
  bool isOpen() const { return state_.present; }
  /// Link state and counters as they are now.
  PortState state() const;

 private:
  bool fits(const LiveFrame& frame) const;
  void sendCollected();
  /// Does the work that is left to the device, and sends what comes of it.
  void sendFinished(const LiveFrame& frame);
  /// Sends frames and counts them, as the ones that they come from: a super-frame that was cut is one.
  void sendNow(std::span<const LiveFrame> frames);
  void countUnsent(int error) { ++(error == EMSGSIZE ? state_.tooLarge : state_.sendFailed); }

  Port& port_;
  const std::string device_;
  const std::unique_ptr<PortDevice> by_;
  PortState state_;
  std::unique_ptr<Segments> segments_;  // null: the device takes the work of senders
  std::array<LiveFrame, burst> received_;
  // Frames to be sent. The memory that they point to stays until the end of the burst.
  size_t collected_ = 0;
  std::array<LiveFrame, burst> toSend_;
};

}  // namespace Agent
