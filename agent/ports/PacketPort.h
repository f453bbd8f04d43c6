#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/LivePort.h>
#include <agent/ports/PacketRing.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <vector>

namespace Agent {

/// A port on a network interface, by an AF_PACKET socket with a receive ring that it shares with the kernel;
/// sends in batches. The interface is promiscuous while the port is open; it does not belong to the agent and
/// stays as it was otherwise. What the agent or its host sends by the interface is not received.
class PacketPort final : public LivePort {
 public:
  PacketPort(Port& port, std::string device, const LiveFrame& inHand);
  ~PacketPort() override;

  std::optional<std::string> linkIs(const Link& link) override;
  void linkDel() override;
  int fd() const override { return socket_.get(); }
  bool receive(FrameReceiver& to) override;
  void release() override;
  void send(const Nimnet::Pkt& pkt) override;
  void flush() override;
  void clearError() override;
  void stopReceiving() override;
  PortState state() const override;

 private:
  std::optional<std::string> openOn(const Link& link);
  std::optional<LiveFrame> frameIn(uint8_t* slot);
  /// Reads a frame for which a slot is too small; null when it cannot be had whole.
  uint8_t* readLarge(size_t size);
  void kernelDropsAdd() const;

  Descriptor socket_;
  int index_ = 0;
  PacketRing ring_;
  size_t next_ = 0;      // the slot to receive from
  size_t received_ = 0;  // slots behind it that are not yet released
  std::vector<uint8_t> large_;
  mutable uint64_t kernelDrops_ = 0;

  // Frames to be sent; what they point to stays until the end of the burst.
  size_t collected_ = 0;
  std::array<iovec, burst> parts_;
  std::array<mmsghdr, burst> messages_;
};

}  // namespace Agent
