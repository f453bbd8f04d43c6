#pragma once

#include <Acl/Types.h>

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace Agent {

/// Adds `--type`, the kind of a list; `besides` stands behind that in the help.
void addListType(CLI::App& command, std::string& word, const std::string& besides = {});

/// A kind of list by its word: ip, ipv6 or mac; nothing of an empty word.
std::optional<Acl::AclType> typeOfWord(const std::string& word);

}  // namespace Agent
