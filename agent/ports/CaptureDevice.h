#pragma once

#include <agent/ports/PortDevice.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Agent {

/// Receives the frames of a capture file, as fast as they are taken: some number of times, or without end.
/// The file is read into memory once, when the device is made. What leaves here goes nowhere, as with
/// NullDevice.
class CaptureDevice final : public PortDevice {
 public:
  static constexpr uint64_t endless = ~uint64_t{0};

  CaptureDevice(std::string path, uint64_t repeat) : path_(std::move(path)), left_(repeat) {}

  /// Of several processes that receive the capture together, each takes every n-th frame. To be called before
  /// make(). `number`: from 1 on.
  void shareIs(uint32_t number, uint32_t of) {
    first_ = number - 1;
    step_ = of;
  }

  std::optional<std::string> make() override;
  std::optional<Link> look() override;
  std::optional<std::string> attach(const Link&) override {
    open_ = true;
    return std::nullopt;
  }
  void detach() override { open_ = false; }
  bool isOpen() const override { return open_; }
  Received receive(Frames frames) override;
  size_t send(std::span<const LiveFrame> frames, int&) override { return frames.size(); }
  bool takesOffloads() const override { return true; }
  void stopReceiving() override { left_ = 0; }
  DeviceCounts counts() const override { return counts_; }
  std::string how() const override;

 private:
  const std::string path_;
  size_t first_ = 0, step_ = 1;
  uint64_t left_;  // how often the frames are still to come, or endless
  bool open_ = false;
  DeviceCounts counts_;
  std::vector<uint8_t> bytes_;  // the frames, each behind the room that LiveFrame wants
  std::vector<LiveFrame> frames_;
  size_t next_ = 0;
};

}  // namespace Agent
