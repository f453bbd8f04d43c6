#pragma once

#include <agent/change/Effective.h>

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace Agent {

/// The one list that a user means by a name and, where there are several, its kind. Nothing, and what is
/// wrong, if there is none.
std::optional<Config::ListKey> chosenList(const Effective& effective, const std::string& name,
                                          std::optional<Acl::AclType> type, std::string* wrong);

/// Adds `--type`, the kind of a list; `besides` stands behind that in the help.
void addListType(CLI::App& command, std::string& word, const std::string& besides = {});

/// A kind of list by its word: ip, ipv6 or mac; nothing of an empty word.
std::optional<Acl::AclType> typeOfWord(const std::string& word);

}  // namespace Agent
