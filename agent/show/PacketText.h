#pragma once

#include <Velo/PacketContext.h>

#include <string>

namespace Agent {

/// The packet of a context, parsed, in a line: "tcp 192.0.2.1:1024 > 198.51.100.7:443 syn, vlan 5, 60
/// octets".
std::string packetText(const Velo::PacketContext& ctx);

}  // namespace Agent
