#pragma once

#include <sys/types.h>

#include <string>

namespace Agent {

/// The process at the other end of a connected Unix socket. The kernel tells who it was when it connected.
struct Peer {
  uid_t uid = 0;
  pid_t pid = 0;  ///< 0: none that this process can see

  /// "uid 0, pid 123, velo": for the log. The name is that of the process with this pid now.
  std::string str() const;
};
Peer peerOf(int socket);

/// What the system calls a process; empty when there is none, or it may not be seen.
std::string processName(pid_t pid);

/// Whether a peer may change what the agent does. Root, the agent's own user and members of `group` may.
bool peerMayChange(int socket, gid_t group);

}  // namespace Agent
