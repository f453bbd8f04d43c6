#include <agent/core/Descriptor.h>
#include <agent/dpdk/StaleSocket.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <sstream>

namespace Agent {

namespace {

std::map<std::string, std::string> pairsOf(const std::string& arguments) {
  std::map<std::string, std::string> pairs;
  std::istringstream all(arguments);
  for (std::string each; std::getline(all, each, ',');) {
    const size_t equals = std::min(each.find('='), each.size());
    pairs[each.substr(0, equals)] = each.substr(std::min(equals + 1, each.size()));
  }
  return pairs;
}

/// Whether a path is a socket at which nobody listens any more.
bool isStale(const std::string& path) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  const Descriptor client(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  return connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
         errno == ECONNREFUSED;
}

}  // namespace

void takeStaleSocketAway(const std::string& name, const std::string& arguments) {
  if (!name.starts_with("net_memif")) return;
  auto given = pairsOf(arguments);
  if (given["role"] != "server" || given["socket-abstract"] != "no") return;
  if (const std::string& path = given["socket"]; isStale(path)) unlink(path.c_str());
}

}  // namespace Agent
