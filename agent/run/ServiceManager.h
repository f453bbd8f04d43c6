#pragma once

#include <string_view>

namespace Agent {

/// Tells the service manager that started the process how it is doing ("READY=1"; sd_notify(3)), by a
/// datagram to the socket that NOTIFY_SOCKET names. Without one does nothing; nobody hearing it is no
/// failure.
void tellServiceManager(std::string_view state);

}  // namespace Agent
