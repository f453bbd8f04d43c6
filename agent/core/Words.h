#pragma once

#include <Acl/Types.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// The words for what people are told about most, in text and in JSON: written here, whoever tells it. A
// packet in a line is show/PacketText.h.

/// A list as it is typed: "ip access-list EDGE-IN".
std::string listTitle(Acl::AclType type, std::string_view name);
/// Of a list in a document, with the members of listWords().
std::string listTitle(const nlohmann::ordered_json& list);
/// Members `type` and `name`.
nlohmann::ordered_json listWords(Acl::AclType type, std::string_view name);

/// A rule as it was typed: members `sequence` and `text`.
nlohmann::ordered_json ruleWords(uint32_t sequence, std::string_view text);

/// Mistakes on standard error, a line each.
void tellMistakes(const std::vector<std::string>& mistakes);
/// Of a document, if it has a member `mistakes`.
void tellMistakes(const nlohmann::ordered_json& document);

}  // namespace Agent
