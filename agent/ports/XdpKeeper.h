#pragma once

#include <agent/core/Output.h>
#include <agent/ports/FrameGathering.h>
#include <agent/ports/PortDevice.h>
#include <agent/ports/XdpDevice.h>
#include <agent/ports/XdpProgram.h>
#include <fmt/format.h>

#include <cerrno>
#include <string>
#include <utility>

namespace Agent {

/// Keeps the XDP program, and what is set with it, on a device whose queues other processes have
/// (XdpDevice::Share). So it stays when one of them dies: what comes by the queues of that one is dropped
/// until it is back.
class XdpKeeper final : public PortDevice {
 public:
  XdpKeeper(std::string device, XdpDevice::Queues queues, FrameGathering::Wanted gather)
      : device_(std::move(device)), wanted_(queues), gathering_(gather) {}

  std::optional<std::string> make() override {
    const std::string what = program_.load(XdpDevice::closedOf(wanted_));
    return what.empty() ? std::nullopt : std::optional(failureOf(device_ + ": " + what));
  }
  std::optional<std::string> attach(const Link& link) override {
    std::string what;
    const bool keepsIt = index_ == link.index;
    if (!keepsIt) {
      detach();
      what = program_.attach(link.index);
      if (what.empty()) index_ = link.index;
    }
    if (what.empty()) what = gathering_.attach(link);
    // The kernel may tell of a device that is just going away. Its next message says that the device is gone.
    if (what.empty() || errno == ENODEV) return std::nullopt;
    const std::string wrong = failureOf(fmt::format("{}: {}", device_, what));
    if (keepsIt) {
      // Without the program, frames for the workers would go to the host.
      complain(wrong);
      return std::nullopt;
    }
    detach();
    return wrong;
  }
  void detach() override {
    gathering_.detach();
    program_.detach();
    index_ = 0;
  }
  bool isOpen() const override { return index_ != 0; }
  int handedOn() const override { return program_.sockets(); }
  Received receive(Frames) override { return {}; }
  size_t send(std::span<const LiveFrame> frames, int&) override { return frames.size(); }
  bool takesOffloads() const override { return true; }
  void stopReceiving() override {}
  std::string how() const override {
    const std::string how = (program_.isInDriver() ? "" : ", generic") + gathering_.how();
    return how.empty() ? how : how.substr(2);
  }

 private:
  const std::string device_;
  const XdpDevice::Queues wanted_;
  XdpProgram program_;
  FrameGathering gathering_;
  int index_ = 0;
};

}  // namespace Agent
