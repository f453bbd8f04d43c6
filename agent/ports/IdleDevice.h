#pragma once

#include <agent/ports/PortDevice.h>

#include <optional>
#include <utility>

namespace Agent {

/// A device by which nothing comes, and which takes whatever is sent.
class IdleDevice : public PortDevice {
 public:
  /// `always`: how it is; nothing: the kernel tells of it.
  explicit IdleDevice(std::optional<Link> always = std::nullopt) : always_(std::move(always)) {}

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
