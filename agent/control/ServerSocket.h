#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace Agent {

/// A Unix stream socket that listens at a path. The file is removed with the object, unless another has taken
/// its place by then.
class ServerSocket {
 public:
  ServerSocket() = default;
  ~ServerSocket();
  ServerSocket(const ServerSocket&) = delete;
  ServerSocket& operator=(const ServerSocket&) = delete;

  /// Listens, the file having mode 0660. A socket file at which nobody listens is replaced; the last folder
  /// of the path is made when it is missing. Returns what is wrong.
  std::optional<std::string> listen(const std::string& path);

  int fd() const { return fd_; }
  /// The group of the file as it is now: who operates the agent may give it to another.
  gid_t group() const;

 private:
  /// The file, unless it is gone or another's.
  std::optional<struct stat> ownFile() const;

  std::string path_;
  int fd_ = -1;
  gid_t group_ = 0;  // when it was made
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

/// A connected socket to a path, or what is wrong. `blocking`: reads and writes on it wait.
int connectTo(const std::string& path, bool blocking, std::string* wrong);

}  // namespace Agent
