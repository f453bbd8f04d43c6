#pragma once

#include <agent/core/Output.h>
#include <agent/ports/PortDevice.h>
#include <agent/ports/XdpDevice.h>
#include <agent/ports/XdpProgram.h>
#include <fmt/format.h>

#include <cerrno>
#include <string>
#include <utility>

namespace Agent {

/// Keeps the XDP program on a device whose queues other processes have (XdpDevice::Share). So it stays when
/// one of them dies: what comes by the queues of that one is dropped until it is back.
class XdpKeeper final : public PortDevice {
 public:
  XdpKeeper(std::string device, XdpDevice::Queues queues) : device_(std::move(device)), wanted_(queues) {}

  std::optional<std::string> make() override {
    const std::string what = program_.load(XdpDevice::closedOf(wanted_));
    return what.empty() ? std::nullopt : std::optional(failureOf(device_ + ": " + what));
  }
  std::optional<std::string> attach(const Link& link) override {
    if (index_ == link.index) return std::nullopt;
    detach();
    const std::string what = program_.attach(link.index);
    if (what.empty()) index_ = link.index;
    // The kernel may tell of a device that is just going away. Its next message says that the device is gone.
    if (what.empty() || errno == ENODEV) return std::nullopt;
    return failureOf(fmt::format("{}: {}", device_, what));
  }
  void detach() override {
    program_.detach();
    index_ = 0;
  }
  bool isOpen() const override { return index_ != 0; }
  int handedOn() const override { return program_.sockets(); }
  Received receive(Frames) override { return {}; }
  size_t send(std::span<const LiveFrame> frames, int&) override { return frames.size(); }
  bool takesOffloads() const override { return true; }
  void stopReceiving() override {}
  std::string how() const override { return program_.isInDriver() ? "" : "generic"; }

 private:
  const std::string device_;
  const XdpDevice::Queues wanted_;
  XdpProgram program_;
  int index_ = 0;
};

}  // namespace Agent
