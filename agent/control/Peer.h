#pragma once

#include <sys/types.h>

namespace Agent {

/// Whether the process at the other end of a connected Unix socket may change what the agent does: root, the
/// agent's own user, and members of `group`. The kernel answers, as of when the peer connected.
bool peerMayChange(int socket, gid_t group);

}  // namespace Agent
