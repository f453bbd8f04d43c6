#pragma once

#include <agent/ports/LivePort.h>
#include <agent/ports/PacketRing.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <vector>

namespace Agent {

/// A port on a network interface. Its descriptor is an AF_PACKET socket with a receive ring in memory that is
/// shared with the kernel; frames are sent in batches. While the port is open the interface is promiscuous;
/// nothing else about the interface is changed. Frames that the agent or its host sends by the interface are
/// not received.
class PacketPort final : public LivePort {
 public:
  PacketPort(Port& port, std::string device, const LiveFrame& inHand);
  ~PacketPort() override;

  bool receive(FrameReceiver& to) override;
  void release() override;
  void send(const Nimnet::Pkt& pkt) override;
  void flush() override;
  void clearError() override;
  void stopReceiving() override;
  PortState state() const override;

 private:
  std::optional<std::string> attach(const Link& link) override;
  void detach() override;
  std::optional<std::string> openOn(const Link& link);
  std::optional<LiveFrame> frameIn(uint8_t* slot);
  /// Reads a frame that is too large for a slot; null when not all of it can be had.
  uint8_t* readLarge(size_t size);
  void kernelDropsAdd() const;

  int index_ = 0;
  PacketRing ring_;
  size_t next_ = 0;      // the first slot that is not released
  size_t received_ = 0;  // how many slots from there on hold received frames
  std::vector<uint8_t> large_;
  mutable uint64_t kernelDrops_ = 0;

  // Frames to be sent. The memory that they point to stays until the end of the burst.
  size_t collected_ = 0;
  std::array<iovec, burst> parts_;
  std::array<mmsghdr, burst> messages_;
};

}  // namespace Agent
