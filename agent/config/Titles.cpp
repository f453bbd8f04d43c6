#include <agent/config/Titles.h>
#include <fmt/format.h>

namespace Config {

std::string listTitle(std::string_view type, std::string_view name) {
  return fmt::format("{} access-list {}", type, name);
}

std::string listStatement(const List& list) {
  return fmt::format("{} access-list {}{}\n", Acl::stringValue(list.type), list.standard ? "standard " : "",
                     list.name);
}

std::string ruleOfList(Acl::AclType type, std::string_view name, uint32_t sequence) {
  return fmt::format("{} rule {}", listTitle(type, name), sequence);
}

std::string bindingTitle(std::string_view interface, std::string_view type, std::string_view list,
                         std::string_view direction) {
  return fmt::format("interface {}: {} access-group {} {}", interface, type, list, direction);
}

std::string bindingTitle(const BindingKey& place, std::string_view list) {
  return bindingTitle(place.interface, Acl::stringValue(place.type), list, Acl::stringValue(place.direction));
}

}  // namespace Config
