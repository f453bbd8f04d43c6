#include <agent/config/Sentences.h>
#include <agent/study/ListChoice.h>
#include <fmt/format.h>

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

}  // namespace Agent
