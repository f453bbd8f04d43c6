#pragma once

#include <agent/core/Descriptor.h>

#include <cstdint>
#include <string>
#include <utility>

namespace Agent {

/// The program that the kernel runs for every frame that a device receives: it hands the frame to the socket
/// of the queue that it came by. Where there is none, it drops the frame if the queue is closed, and leaves
/// it to the host otherwise. It hangs on a descriptor: however this process ends, the kernel takes the
/// program off the device.
class XdpProgram {
 public:
  /// From the first queue to the last one.
  using Range = std::pair<uint32_t, uint32_t>;

  XdpProgram() = default;
  /// One that another process has loaded and attaches; this is a descriptor of its sockets, for this process
  /// to put its own in.
  explicit XdpProgram(int sockets);

  /// Loads it, once. What comes by the queues in `closed` is dropped while no socket has it. Returns what
  /// could not be done (errno); empty when it is loaded.
  std::string load(const Range& closed);
  int sockets() const { return sockets_.get(); }
  /// Attaches it to a device, in the driver if that can. Returns as load() does.
  std::string attach(int device);
  void detach() { link_.reset(); }
  /// From now on, frames of a queue go to a socket. False if not (errno).
  bool socketIs(uint32_t queue, int socket);
  /// From now on, frames of a queue go nowhere new.
  void socketDel(uint32_t queue);
  bool isInDriver() const { return inDriver_; }

  static constexpr uint32_t mostQueues = 64;

 private:
  bool own_ = true;
  Descriptor sockets_, program_, link_;
  bool inDriver_ = false;
};

}  // namespace Agent
