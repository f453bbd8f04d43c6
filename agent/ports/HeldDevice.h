#pragma once

#include <agent/ports/PortDevice.h>

#include <utility>

namespace Agent {

/// A device that other processes have: here it is only known whether it is there.
class HeldDevice final : public PortDevice {
 public:
  /// `always`: how it is, of a device that the kernel does not tell of.
  explicit HeldDevice(std::optional<Link> always = std::nullopt) : always_(std::move(always)) {}

  std::optional<Link> look() override { return always_; }
  std::optional<std::string> attach(const Link&) override {
    open_ = true;
    return std::nullopt;
  }
  void detach() override { open_ = false; }
  bool isOpen() const override { return open_; }
  Received receive(Frames) override { return {}; }
  size_t send(std::span<const LiveFrame> frames, int&) override { return frames.size(); }
  bool takesOffloads() const override { return true; }
  void stopReceiving() override {}

 private:
  const std::optional<Link> always_;
  bool open_ = false;
};

}  // namespace Agent
