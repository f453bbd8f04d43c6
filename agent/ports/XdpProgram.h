#pragma once

#include <agent/core/Descriptor.h>

#include <cstdint>
#include <string>

namespace Agent {

/// The program that the kernel runs for every frame that a device receives: it hands the frame to the socket
/// of the queue that it came by, and leaves it to the host where there is none. It hangs on a descriptor:
/// however this process ends, the kernel takes the program off the device.
class XdpProgram {
 public:
  /// Loads it, once. Returns what could not be done (errno); empty when it is loaded.
  std::string load();
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
  Descriptor sockets_, program_, link_;
  bool inDriver_ = false;
};

}  // namespace Agent
