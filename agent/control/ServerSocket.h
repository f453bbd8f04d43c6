#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace Agent {

/// A Unix stream socket that listens at a path. Its file is deleted with this object, unless another file has
/// that path by then.
class ServerSocket {
 public:
  ServerSocket() = default;
  ~ServerSocket();
  ServerSocket(const ServerSocket&) = delete;
  ServerSocket& operator=(const ServerSocket&) = delete;

  /// Listens; the file gets mode 0660. A socket file at which nobody listens is replaced, and the last folder
  /// of the path is made if it is missing. Returns what is wrong.
  std::optional<std::string> listen(const std::string& path);

  int fd() const { return fd_; }
  /// The group that the file has now: an operator may have changed it.
  gid_t group() const;

 private:
  /// The file, if it is still there and no other file has its path.
  std::optional<struct stat> ownFile() const;

  std::string path_;
  int fd_ = -1;
  gid_t group_ = 0;  // that the file had when it was made
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

/// A socket that is connected to a path; under 0, with the reason in `wrong`, when that fails. `blocking`:
/// reads and writes on it wait.
int connectTo(const std::string& path, bool blocking, std::string* wrong);

}  // namespace Agent
