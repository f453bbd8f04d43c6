#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/PacketRing.h>
#include <agent/ports/PortDevice.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A network interface. Its descriptor is an AF_PACKET socket with a receive ring in memory that is shared
/// with the kernel; frames are sent in batches. While it is open the interface is promiscuous; nothing else
/// about the interface is changed. Frames that the agent or its host sends by the interface are not received.
class PacketDevice final : public PortDevice {
 public:
  /// `together`: several processes have the interface, and each receives a share of its flows.
  explicit PacketDevice(std::string device, bool together = false);
  ~PacketDevice() override;

  std::optional<std::string> attach(const Link& link) override;
  void detach() override;
  bool isOpen() const override { return static_cast<bool>(socket_); }
  int fd() const override { return socket_.get(); }
  Received receive(Frames frames) override;
  void release() override;
  size_t send(std::span<const LiveFrame> frames, int& error) override;
  bool takesOffloads() const override { return true; }
  void clearError() override;
  void stopReceiving() override;
  DeviceCounts counts() const override;

 private:
  std::optional<std::string> openOn(const Link& link);
  /// Joins the others that have the interface. Returns as failed() does.
  std::optional<std::string> join(int index);
  std::string failed(std::string_view doing);
  std::optional<LiveFrame> frameIn(uint8_t* slot);
  /// Reads a frame that is too large for a slot; null when not all of it can be had.
  uint8_t* readLarge(size_t size);
  void dropsAdd() const;

  const std::string device_;
  const bool together_;
  Descriptor socket_;
  int index_ = 0;
  PacketRing ring_;
  size_t next_ = 0;      // the first slot that is not released
  size_t received_ = 0;  // how many slots from there on hold received frames
  std::vector<uint8_t> large_;
  mutable DeviceCounts counts_;

  std::array<iovec, burst> parts_;
  std::array<mmsghdr, burst> messages_;
};

}  // namespace Agent
