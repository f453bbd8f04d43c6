#include <agent/control/Peer.h>
#include <agent/core/Output.h>
#include <agent/run/DeviceClaims.h>
#include <fmt/format.h>
#include <linux/capability.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>

namespace Agent {

namespace {

struct Address {
  explicit Address(const std::string& device) {
    const std::string text = ("velo-device-" + device).substr(0, sizeof socket.sun_path - 1);
    socket.sun_family = AF_UNIX;
    // The first octet of an abstract name is zero.
    std::memcpy(socket.sun_path + 1, text.data(), text.size());
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&socket); }

  sockaddr_un socket{};
  socklen_t length = 0;
};

/// Whether a process may have the right to open devices. True, too, when that cannot be seen.
bool mayOpenDevices(pid_t pid) {
  std::ifstream file(fmt::format("/proc/{}/status", pid));
  constexpr std::string_view field = "CapPrm:\t";
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(field)) continue;
    const uint64_t capabilities = std::strtoull(line.c_str() + field.size(), nullptr, 16);
    return (capabilities >> CAP_NET_RAW & 1) != 0 || (capabilities >> CAP_NET_ADMIN & 1) != 0;
  }
  return true;
}

}  // namespace

std::optional<std::string> DeviceClaims::claim(const std::string& device) {
  const Address address(device);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) return failureOf("a device cannot be claimed");
  if (bind(socket.get(), address.get(), address.length) == 0) {
    // Whoever comes later connects to it, to learn who has the device.
    constexpr int backlog = 8;
    if (listen(socket.get(), backlog) != 0) return failureOf("a device cannot be claimed");
    sockets_.push_back(std::move(socket));
    return std::nullopt;
  }
  if (errno != EADDRINUSE) return failureOf("a device cannot be claimed");
  // It may have gone, or have no room for further connections; in the second case nobody can be named.
  Peer peer;
  if (connect(socket.get(), address.get(), address.length) == 0) peer = peerOf(socket.get());
  if (peer.pid != 0 && !mayOpenDevices(peer.pid)) {
    complain(
        fmt::format("{} is claimed by a process without the rights of an agent: {}", device, peer.str()));
    return std::nullopt;
  }
  const std::string name = peer.pid == 0 ? "" : processName(peer.pid);
  return fmt::format("{} is a port of another agent already: {}, pid {}", device,
                     name.empty() ? "unnamed" : name, peer.pid);
}

}  // namespace Agent
