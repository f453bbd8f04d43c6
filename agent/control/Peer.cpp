#include <agent/control/Peer.h>
#include <agent/core/Words.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <utility>
#include <vector>

namespace Agent {

Peer peerOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return {};
  return {peer.uid, peer.pid};
}

std::string Peer::str() const {
  const std::string name = pid == 0 ? "" : processName(pid);
  return fmt::format("uid {}, pid {}{}{}", uid, pid, name.empty() ? "" : ", ", name);
}

std::string processName(pid_t pid) {
  std::ifstream file(fmt::format("/proc/{}/comm", pid));
  std::string name;
  std::getline(file, name);
  return printableText(std::move(name));
}

bool peerMayChange(int socket, gid_t group) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  if (peer.uid == 0 || peer.uid == geteuid() || peer.gid == group) return true;
#ifdef SO_PEERGROUPS
  std::vector<gid_t> groups(64);
  for (int tries = 0; tries < 2; ++tries) {
    size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    if (getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
      groups.resize(size / sizeof(gid_t));
      return std::find(groups.begin(), groups.end(), group) != groups.end();
    }
    if (errno != ERANGE) return false;
    groups.resize(size / sizeof(gid_t));
  }
#endif
  return false;
}

}  // namespace Agent
