#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/PortDevice.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A TAP device. Frames that the host sends by it come in here, and frames that leave here are received by
/// the host. If there is no such device, it is made and set up, and it goes away with this object; a device
/// that was there before stays.
class TapDevice final : public PortDevice {
 public:
  /// What of the device this object has: the only queue; one of several, by which the kernel deals out the
  /// flows; or none, so that the device stays while the processes that have its queues go and come.
  enum class Queue { only, one, none };

  explicit TapDevice(std::string device, Queue queue = Queue::only)
      : device_(std::move(device)), queue_(queue) {}

  /// Makes the device, or opens the one that is there.
  std::optional<std::string> make() override;
  std::optional<std::string> attach(const Link&) override { return isOpen() ? std::nullopt : make(); }
  void detach() override { tap_.reset(); }
  bool isOpen() const override { return static_cast<bool>(tap_); }
  int fd() const override { return queue_ == Queue::none ? -1 : tap_.get(); }
  Received receive(Frames frames) override;
  size_t send(std::span<const LiveFrame> frames, int& error) override;
  bool takesOffloads() const override { return true; }
  void stopReceiving() override;

 private:
  std::string failed(std::string_view doing);

  const std::string device_;
  const Queue queue_;
  Descriptor tap_;
  std::optional<int> leftToDrain_;  // frames, once nothing new is to be received
  // The received frames, one after the other, until the end of the burst.
  std::vector<uint8_t> received_;
};

}  // namespace Agent
