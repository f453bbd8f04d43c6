#include <agent/config/Sentences.h>
#include <agent/control/ListChoice.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string_view>
#include <vector>

namespace Agent {

std::optional<Config::ListKey> chosenList(const Effective& effective, const std::string& name,
                                          std::optional<Acl::AclType> type, std::string* wrong) {
  std::vector<Config::ListKey> found;
  std::vector<std::string_view> names;
  for (const auto& [key, owner] : effective.lists) {
    if (key.second != name) names.push_back(key.second);
    if (key.second == name && (!type || key.first == *type)) found.push_back(key);
  }
  if (found.size() == 1) return found.front();
  const std::string kind = type ? std::string(Acl::stringValue(*type)) + " list" : "list";
  *wrong = found.empty() ? Config::noSuch(kind, name, names)
                         : fmt::format("there are several lists {}: --type says which", name);
  return std::nullopt;
}

void addListType(CLI::App& command, std::string& word, const std::string& besides) {
  std::vector<std::string> words;
  for (const Acl::AclType type : Acl::aclTypes) words.emplace_back(Acl::stringValue(type));
  command.add_option("--type", word, "the kind of list" + besides)
      ->check(CLI::IsMember(words))
      ->type_name("ip|ipv6|mac");
}

std::optional<Acl::AclType> typeOfWord(const std::string& word) {
  for (const Acl::AclType type : Acl::aclTypes) {
    if (word == Acl::stringValue(type)) return type;
  }
  return std::nullopt;
}

}  // namespace Agent
