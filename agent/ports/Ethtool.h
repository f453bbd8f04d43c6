#pragma once

#include <agent/core/Descriptor.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace Agent {

/// Asks the driver of a device; `command` is one of the structures of linux/ethtool.h, and has the answer.
/// False if there is none (errno).
inline bool ethtoolAnswers(const std::string& device, void* command) {
  const Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::memcpy(request.ifr_name, device.data(), std::min(device.size(), sizeof request.ifr_name - 1));
  request.ifr_data = static_cast<char*>(command);
  return ioctl(control.get(), SIOCETHTOOL, &request) == 0;
}

}  // namespace Agent
