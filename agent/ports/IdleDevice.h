#pragma once

#include <agent/ports/PortDevice.h>

#include <optional>
#include <utility>

namespace Agent {

/// A device by which nothing comes, and which takes whatever is sent.
class IdleDevice : public PortDevice {
 public:
  /// `link`: how it is, until something else is told; nothing: the kernel tells of it.
  explicit IdleDevice(std::optional<Link> link = std::nullopt) : ofKernel_(!link), link_(std::move(link)) {}

  std::optional<Link> look() override { return link_; }
  void toldIs(const std::optional<Link>& link) override {
    if (!ofKernel_) link_ = link;
  }
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
  const bool ofKernel_;
  std::optional<Link> link_;
  bool open_ = false;
};

}  // namespace Agent
