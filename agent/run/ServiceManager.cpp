#include <agent/core/Descriptor.h>
#include <agent/run/ServiceManager.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace Agent {

void tellServiceManager(std::string_view state) {
  const char* path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t length = path ? std::strlen(path) : 0;
  if (length == 0 || length >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, path, length);
  // The first octet of an abstract socket name is zero, and is written as @.
  if (path[0] == '@') address.sun_path[0] = '\0';
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
}

std::string reloading() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return fmt::format("RELOADING=1\nMONOTONIC_USEC={}", int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000);
}

}  // namespace Agent
