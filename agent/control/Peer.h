#pragma once

#include <sys/types.h>

namespace Agent {

/// Whether the process at the other end of a connected Unix socket may change what the agent does. Root, the
/// agent's own user and members of `group` may. The kernel tells who the process was when it connected.
bool peerMayChange(int socket, gid_t group);

}  // namespace Agent
