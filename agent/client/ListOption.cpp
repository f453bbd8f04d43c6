#include <agent/client/ListOption.h>

#include <CLI/CLI.hpp>
#include <vector>

namespace Agent {

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
