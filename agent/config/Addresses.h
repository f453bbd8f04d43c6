#pragma once

#include <Nimnet/Addr.h>
#include <agent/config/Cursor.h>

namespace Config {

/// Reads one address condition: `any`, `host A`, `A/LENGTH` (not for MAC addresses) or `A WILDCARD`; the set
/// bits of a wildcard are ignored when packets are matched. A bare address is a mistake.
///
/// Stores the address, and the mask of the bits that are compared. All other bits of the address are cleared,
/// so that equal conditions are equal values.
bool readAddress(Cursor& at, Nimnet::IpAddr* address, Nimnet::IpAddr* mask);
bool readAddress(Cursor& at, Nimnet::Ip6Addr* address, Nimnet::Ip6Addr* mask);
bool readAddress(Cursor& at, Nimnet::EthAddr* address, Nimnet::EthAddr* mask);

}  // namespace Config
