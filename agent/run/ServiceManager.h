#pragma once

#include <string>
#include <string_view>

namespace Agent {

/// Reports a state ("READY=1"; sd_notify(3)) to the service manager that started the process, by a datagram
/// to the socket that NOTIFY_SOCKET names. Does nothing when there is none, and does not fail when nobody
/// listens.
void tellServiceManager(std::string_view state);

/// The state of a process that begins to read its configuration again; READY=1 ends it.
std::string reloading();

}  // namespace Agent
