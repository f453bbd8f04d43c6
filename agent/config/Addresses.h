#pragma once

#include <Nimnet/Addr.h>
#include <agent/config/Cursor.h>

namespace Config {

/// Reads one address condition: `any`, `host A`, `A/LENGTH` (not of MAC addresses) or `A WILDCARD`, whose
/// set bits are ignored. A bare address is a mistake. What is stored is the address and the mask of the bits
/// that are compared; the address's other bits are cleared, so that equal conditions are equal values.
bool readAddress(Cursor& at, Nimnet::IpAddr* address, Nimnet::IpAddr* mask);
bool readAddress(Cursor& at, Nimnet::Ip6Addr* address, Nimnet::Ip6Addr* mask);
bool readAddress(Cursor& at, Nimnet::EthAddr* address, Nimnet::EthAddr* mask);

}  // namespace Config
