#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/LivePort.h>

#include <vector>

namespace Agent {

/// A port on a TAP device: what the host sends by the device comes in here, and what leaves here the host
/// receives by it. A device that is not there is made, is up, and goes with the port; one that was there
/// before stays.
class TapPort final : public LivePort {
 public:
  using LivePort::LivePort;

  /// Makes the device, or takes hold of the one that is there. Returns what went wrong.
  std::optional<std::string> open() override;

  std::optional<std::string> linkIs(const Link& link) override;
  void linkDel() override;
  int fd() const override { return tap_.get(); }
  bool receive(FrameReceiver& to) override;
  void send(const Nimnet::Pkt& pkt) override;
  void flush() override {}
  void stopReceiving() override { stopped_ = true; }

 private:
  Descriptor tap_;
  bool stopped_ = false;
  // Received frames lie in here one after the other until the end of the burst.
  std::vector<uint8_t> received_;
};

}  // namespace Agent
