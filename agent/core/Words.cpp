#include <agent/core/Words.h>
#include <fmt/format.h>

#include <cstdio>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string title(std::string_view type, std::string_view name) {
  return fmt::format("{} access-list {}", type, name);
}

}  // namespace

std::string listTitle(Acl::AclType type, std::string_view name) {
  return title(Acl::stringValue(type), name);
}

std::string listTitle(const Json& list) {
  return title(list.at("type").get_ref<const std::string&>(), list.at("name").get_ref<const std::string&>());
}

Json listWords(Acl::AclType type, std::string_view name) {
  return {{"type", Acl::stringValue(type)}, {"name", name}};
}

Json ruleWords(uint32_t sequence, std::string_view text) { return {{"sequence", sequence}, {"text", text}}; }

void tellMistakes(const std::vector<std::string>& mistakes) {
  for (const std::string& mistake : mistakes) fmt::print(stderr, "{}\n", mistake);
}

void tellMistakes(const Json& document) {
  tellMistakes(document.value("mistakes", std::vector<std::string>()));
}

}  // namespace Agent
