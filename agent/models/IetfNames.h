#pragma once

#include <Acl/Types.h>
#include <agent/models/Found.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Models {

/// The kinds of list that are kinds here, too.
struct IetfType {
  std::string_view name;
  Acl::AclType type;
};
inline constexpr IetfType typeNames[] = {{"ipv4-acl-type", Acl::AclType::ip},
                                         {"ipv6-acl-type", Acl::AclType::ipv6},
                                         {"eth-acl-type", Acl::AclType::mac}};

/// In characters, of which names of lists and entries have one at least.
inline constexpr size_t longestIetfName = 64;
/// Whether a name is not too long and not empty; refuses it when it is.
bool checkIetfLength(const Found& found);

/// The EtherType that a leaf says by its number or its name.
std::optional<uint16_t> etherTypeOf(const Node& leaf, std::string_view text);

}  // namespace Models
