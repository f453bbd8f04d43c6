#pragma once

#include <agent/ports/PortDevice.h>
#include <agent/ports/PortWhat.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct rte_mbuf;
struct rte_mempool;

namespace Agent {

/// A device of a user-space driver: a network card that is bound to one, or a virtual device. Frames stay in
/// the buffers of the driver, and go from one such port to another without a copy.
class DpdkDevice final : public PortDevice {
 public:
  static constexpr uint16_t mostQueues = 16;

  /// `what` is the address of a card, or a virtual device with its arguments; its option `queues` the number
  /// of receive queues. Null, with what is `wrong`.
  static std::unique_ptr<PortDevice> of(const PortWhat& what, const PortSetup& setup, std::string& wrong);

  /// `environment` has the arguments of the environment, which begins with the first device that is made.
  DpdkDevice(std::string name, std::string arguments, uint16_t queues, std::string environment);
  ~DpdkDevice() override;

  std::optional<std::string> make() override;
  std::optional<Link> look() override;
  std::optional<std::string> attach(const Link& link) override;
  void detach() override;
  bool isOpen() const override { return open_; }
  bool isSilent() const override { return true; }
  Received receive(Frames frames) override;
  void release() override;
  size_t send(std::span<const LiveFrame> frames, int& error) override;
  bool isFullForAll() const override { return true; }
  void stopReceiving() override;
  DeviceCounts counts() const override;
  std::string how() const override;

 private:
  /// Finds the device, or has the environment look for it. Returns what went wrong.
  std::optional<std::string> find();
  std::optional<std::string> start();
  std::optional<std::string> failed(std::string_view doing, int error);
  /// Queues, buffers and descriptors. Returns the error, and what it was about.
  int setUp(std::string& doing);
  /// A buffer to send a frame from: its own, or one with a copy of it.
  /// Null: there is none for it; `error` is EMSGSIZE when it is too large for any.
  rte_mbuf* bufferOf(const LiveFrame& frame, int& error) const;
  /// What the driver counts, on top of what earlier openings have counted.
  DeviceCounts countsNow() const;

  const std::string name_, arguments_, environment_;
  const uint16_t queues_;
  uint16_t port_ = 0;
  bool known_ = false;  // port_ is that of the device
  bool open_ = false;
  std::optional<std::string> missing_;  // why there is no device yet
  unsigned looks_ = 0;                  // in vain, since it has gone
  std::atomic<bool> removed_{false};    // set by a thread of the environment
  rte_mempool* pool_ = nullptr;
  std::string driver_;
  DeviceCounts before_;
  uint64_t rxTooLarge_ = 0;
  std::optional<uint32_t> leftToDrain_;  // frames, once nothing new is to be received
  uint16_t nextQueue_ = 0;
  uint16_t held_ = 0;
  std::array<rte_mbuf*, burst> received_;
};

}  // namespace Agent
