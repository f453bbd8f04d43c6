#include <agent/control/ServerSocket.h>
#include <agent/core/Output.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Agent {

namespace {

constexpr int clientsWaiting = 128;
constexpr mode_t othersNothing = 0117;  // leaves 0660

std::optional<sockaddr_un> addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

/// Deletes a socket file at which nobody listens. Returns why the path cannot be used.
std::optional<std::string> clearPlace(const std::string& path) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0) return std::nullopt;
  if (!S_ISSOCK(file.st_mode)) return fmt::format("{}: is there already, and is no socket", path);
  std::string wrong;
  const int other = connectTo(path, false, &wrong);
  if (other >= 0) {
    close(other);
    return fmt::format("{}: another agent listens there", path);
  }
  if (errno != ECONNREFUSED) return wrong;
  if (unlink(path.c_str()) != 0) return failureOf(path);
  return std::nullopt;
}

}  // namespace

ServerSocket::~ServerSocket() {
  if (fd_ < 0) return;
  close(fd_);
  if (ownFile()) unlink(path_.c_str());
}

std::optional<struct stat> ServerSocket::ownFile() const {
  struct stat file {};
  if (lstat(path_.c_str(), &file) != 0 || file.st_dev != device_ || file.st_ino != inode_)
    return std::nullopt;
  return file;
}

gid_t ServerSocket::group() const {
  const auto file = ownFile();
  return file ? file->st_gid : group_;
}

std::optional<std::string> ServerSocket::listen(const std::string& path) {
  const auto address = addressOf(path);
  if (!address) return fmt::format("{}: too long for a socket, or empty", path);
  std::error_code unmade;
  if (const auto folder = std::filesystem::path(path).parent_path(); !folder.empty())
    std::filesystem::create_directory(folder, unmade);
  if (auto taken = clearPlace(path)) return taken;

  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const mode_t usual = umask(othersNothing);
  const bool bound =
      fd_ >= 0 && bind(fd_, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
  umask(usual);
  struct stat file {};
  if (!bound || lstat(path.c_str(), &file) != 0 || ::listen(fd_, clientsWaiting) != 0) {
    auto wrong = failureOf(path);
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    return wrong;
  }
  path_ = path;
  group_ = file.st_gid;
  device_ = file.st_dev;
  inode_ = file.st_ino;
  return std::nullopt;
}

int connectTo(const std::string& path, bool blocking, std::string* wrong) {
  const auto address = addressOf(path);
  if (!address) {
    *wrong = fmt::format("{}: too long for a socket, or empty", path);
    errno = ENAMETOOLONG;
    return -1;
  }
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (blocking ? 0 : SOCK_NONBLOCK), 0);
  if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0) return fd;
  const int reason = errno;
  *wrong = failureOf(path);
  if (fd >= 0) close(fd);
  errno = reason;
  return -1;
}

}  // namespace Agent
