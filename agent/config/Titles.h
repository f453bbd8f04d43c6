#pragma once

#include <agent/config/Model.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Config {

// What people call the parts of a configuration: as they are typed.

/// "ip access-list EDGE-IN".
std::string listTitle(std::string_view type, std::string_view name);
inline std::string listTitle(Acl::AclType type, std::string_view name) {
  return listTitle(Acl::stringValue(type), name);
}
/// The statement that begins a list, with its line's end: "ip access-list standard EDGE-IN".
std::string listStatement(const List& list);
/// "ip access-list EDGE-IN rule 10".
std::string ruleOfList(Acl::AclType type, std::string_view name, uint32_t sequence);
/// "interface eth1: ip access-group EDGE-IN in".
std::string bindingTitle(std::string_view interface, std::string_view type, std::string_view list,
                         std::string_view direction);
std::string bindingTitle(const BindingKey& place, std::string_view list);

}  // namespace Config
