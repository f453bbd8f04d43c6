#pragma once

#include <string>

namespace Agent {

/// Before a net_memif device is made that is a server at a socket in the file system: its driver leaves that
/// file behind when the process is killed, and refuses to make it anew. Takes such a file away if nobody
/// listens there; nothing happens for any other device.
void takeStaleSocketAway(const std::string& name, const std::string& arguments);

}  // namespace Agent
