#pragma once

#include <agent/ports/LivePort.h>

#include <vector>

namespace Agent {

/// A port on a TAP device. Frames that the host sends by the device come in here, and frames that leave here
/// are received by the host. If there is no such device, it is made and set up, and it goes away with the
/// port; a device that was there before stays.
class TapPort final : public LivePort {
 public:
  using LivePort::LivePort;

  /// Makes the device, or opens the one that is there.
  std::optional<std::string> open() override;
  bool receive(FrameReceiver& to) override;
  void send(const Nimnet::Pkt& pkt) override;
  void stopReceiving() override { stopped_ = true; }

 private:
  std::optional<std::string> attach(const Link&) override { return isOpen() ? std::nullopt : open(); }

  bool stopped_ = false;
  // The received frames, one after the other, until the end of the burst.
  std::vector<uint8_t> received_;
};

}  // namespace Agent
