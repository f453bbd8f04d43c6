#pragma once

#include <Nimnet/Addr.h>
#include <agent/config/Cursor.h>

#include <vector>

namespace Config {

/// The bits of an address that are compared, as readAddress() gives them.
template <class Addr>
struct AddressMatch {
  Addr address, mask;
  bool operator==(const AddressMatch&) const = default;
};

/// Reads one address condition: `any`, `host A`, `A/LENGTH` (not for MAC addresses) or `A WILDCARD`; the set
/// bits of a wildcard are ignored when packets are matched. A bare address is a mistake.
///
/// Stores the address, and the mask of the bits that are compared. All other bits of the address are cleared,
/// so that equal conditions are equal values.
bool readAddress(Cursor& at, Nimnet::IpAddr* address, Nimnet::IpAddr* mask);
bool readAddress(Cursor& at, Nimnet::Ip6Addr* address, Nimnet::Ip6Addr* mask);
bool readAddress(Cursor& at, Nimnet::EthAddr* address, Nimnet::EthAddr* mask);

/// Reads a member of a group of networks: `host A`, `A/LENGTH`, `A WILDCARD` or `range LOW HIGH`, which is as
/// many prefixes as it takes, and adds it. A wildcard that would be a netmask is a mistake: in groups
/// of other systems it is one.
bool readAddresses(Cursor& at, std::vector<AddressMatch<Nimnet::IpAddr>>* all);
bool readAddresses(Cursor& at, std::vector<AddressMatch<Nimnet::Ip6Addr>>* all);

}  // namespace Config
