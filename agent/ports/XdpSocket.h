#pragma once

#include <agent/core/Descriptor.h>
#include <agent/ports/PortDevice.h>
#include <agent/ports/XdpMemory.h>
#include <agent/ports/XdpRing.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Agent {

/// How frames are to get between a driver and the memory of XDP ports.
enum class XdpMode {
  any,       ///< without a copy where the driver can, otherwise by a copy
  copy,      ///< by a copy
  zerocopy,  ///< without, or not at all
};

/// An AF_XDP socket on one queue of a device.
class XdpSocket {
 public:
  explicit XdpSocket(std::shared_ptr<XdpMemory> memory) : memory_(std::move(memory)) {}
  ~XdpSocket();
  XdpSocket(const XdpSocket&) = delete;
  XdpSocket& operator=(const XdpSocket&) = delete;

  /// Chunks that one such socket needs at most: those that wait for frames, and those that are being sent.
  static constexpr size_t chunks = size_t{2} * XdpRing<uint64_t>::size;

  /// Returns what could not be done (errno); empty when it is open.
  std::string open(int device, uint32_t queue, XdpMode mode);
  int fd() const { return socket_.get(); }
  bool isZeroCopy() const { return zeroCopy_; }

  /// Appends the frames that are there, and returns how many they are; at most what is left of `frames`.
  size_t receive(std::span<LiveFrame> frames);
  /// Takes frames to be sent; returns how many there was room for.
  size_t send(std::span<const LiveFrame> frames);
  /// Has the kernel send what was taken. Returns its error, 0 for none.
  int push();
  /// Whether taken frames still wait for the kernel.
  bool isPushing() const { return socket_ && tx_.room() < XdpRing<xdp_desc>::size; }
  DeviceCounts counts() const;

 private:
  bool registerMemory();
  bool openRings();
  void handOver(uint64_t address) { ++atKernel_[XdpMemory::chunkOf(address)]; }
  void handBack(uint64_t address) { --atKernel_[XdpMemory::chunkOf(address)]; }
  /// Gives the kernel free chunks to receive into.
  void refill();
  /// Takes back the chunks of frames that have been sent.
  void reap();

  const std::shared_ptr<XdpMemory> memory_;
  XdpRing<uint64_t> fill_, completion_;
  XdpRing<xdp_desc> rx_, tx_;
  bool zeroCopy_ = false;
  std::vector<uint16_t> atKernel_;  // how often each chunk has been handed over, and has not come back
  Descriptor socket_;               // closed before the rings go
};

}  // namespace Agent
