#pragma once

#include <agent/ports/PortDevice.h>

namespace Agent {

/// Takes every frame and gives none: what is measured ends here. It is always there.
class NullDevice final : public PortDevice {
 public:
  std::optional<Link> look() override { return Link{.name = "null", .index = 0, .up = true, .mtu = anySize}; }
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
  bool open_ = false;
};

}  // namespace Agent
