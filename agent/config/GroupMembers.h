#pragma once

#include <agent/config/Addresses.h>
#include <agent/config/Groups.h>

#include <string>
#include <string_view>
#include <vector>

/// What the members of object-groups say. Groups have their members as texts, which were read once before.
namespace Config {

/// Whether a member is another group, and the name of that group.
bool isNested(std::string_view member);
std::string nestedIn(const std::string& member);

/// Whether a member that is no group has IPv6 addresses, among members with addresses.
bool isOfIp6(std::string_view member);

/// What members say that are no groups, sorted and each thing once. All are of the kind that is asked for.
template <class Addr>
std::vector<AddressMatch<Addr>> addressesOf(const std::vector<std::string>& members);
std::vector<Acl::IpFilterBase> servicesOf(const std::vector<std::string>& members);

}  // namespace Config
