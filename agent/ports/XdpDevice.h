#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/FrameGathering.h>
#include <agent/ports/PortDevice.h>
#include <agent/ports/XdpProgram.h>
#include <agent/ports/XdpSocket.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

/// A network interface whose frames the kernel hands over before it makes packets of its own of them: by
/// AF_XDP sockets, one for each receive queue. The host sees nothing of the frames of these queues. While it
/// is open the interface is promiscuous. Between ports of this kind frames go without a copy.
class XdpDevice final : public PortDevice {
 public:
  /// From the first queue to the last one; nothing: all that the device has.
  using Queues = std::optional<XdpProgram::Range>;

  /// What one of several processes has of the device: every `of`-th queue, `worker` (from 1 on) being its
  /// number.
  struct Share {
    uint32_t worker = 1;
    uint32_t of = 1;
    int sockets = -1;  ///< of the program that the process has which keeps the device for all; see XdpKeeper
  };

  XdpDevice(std::string device, Queues queues, XdpMode mode, FrameGathering::Wanted gather,
            const std::optional<Share>& share = std::nullopt);
  /// The queues that it has, of those that are wanted.
  static XdpProgram::Range rangeOf(const std::string& device, const Queues& wanted);
  /// The queues whose frames are the port's alone. All that can be, where it is to have all: how many a
  /// device has changes, and is not known before it is there.
  static XdpProgram::Range closedOf(const Queues& wanted);

  std::optional<std::string> make() override;
  std::optional<std::string> attach(const Link& link) override;
  void detach() override;
  bool isOpen() const override { return !sockets_.empty(); }
  int fd() const override { return sockets_.size() == 1 ? sockets_.front()->fd() : all_.get(); }
  Received receive(Frames frames) override;
  void release() override;
  size_t send(std::span<const LiveFrame> frames, int& error) override;
  bool isFullForAll() const override { return true; }
  void stopReceiving() override;
  DeviceCounts counts() const override;
  std::string how() const override;

 private:
  std::string failed(std::string_view doing);
  /// The queues of this process.
  std::vector<uint32_t> queues() const;
  /// Why the port cannot have these queues of its device; nothing if it can.
  std::optional<std::string> whyNot(const std::vector<uint32_t>& queues) const;
  /// Returns what could not be done (errno); empty when all is open.
  std::string openOn(const Link& link);
  std::string openPatiently(std::unique_ptr<XdpSocket>& socket, int index, uint32_t queue);

  const std::string device_;
  const Queues wanted_;
  const XdpMode mode_;
  const Share share_;
  const std::shared_ptr<XdpMemory> memory_;
  XdpProgram program_;
  const bool ownsDevice_;  // its settings are this process's, and not another one's
  FrameGathering gathering_;
  Descriptor promiscuous_;
  Descriptor all_;  // readable when one of several sockets is
  int index_ = 0;
  int patience_ = 75;  // so often a queue is tried that is not free yet: 1.5 seconds, when the port begins
  bool isOn_ = false;
  size_t mostQueues_ = 0;         // there is memory for so many
  std::vector<uint32_t> queues_;  // of the sockets
  std::vector<std::unique_ptr<XdpSocket>> sockets_;
  size_t nextSocket_ = 0;
  DeviceCounts before_;
  size_t held_ = 0;
  std::array<uint32_t, burst> received_;  // their chunks
};

}  // namespace Agent
