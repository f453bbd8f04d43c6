#pragma once

#include <Acl/Types.h>
#include <agent/config/Titles.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// The words for what people are told about most, in text and in JSON. Whoever tells of such a thing uses
// these words, so that it reads the same everywhere. Frames and verdicts are in show/PacketText.h and
// show/Verdicts.h.

using Config::bindingTitle, Config::listTitle;

/// Of a list in a document, with the members of listWords().
std::string listTitle(const nlohmann::ordered_json& list);
/// Members `type` and `name`.
nlohmann::ordered_json listWords(Acl::AclType type, std::string_view name);

/// A rule as it is typed: "10 permit ip any any".
std::string ruleTitle(uint32_t sequence, std::string_view text);
/// Of a rule in a document, with the members of ruleWords().
std::string ruleTitle(const nlohmann::ordered_json& rule);
/// Members `sequence` and `text`.
nlohmann::ordered_json ruleWords(uint32_t sequence, std::string_view text);

/// Where a list is bound: "eth1 in".
std::string boundAt(std::string_view interface, std::string_view direction);
/// Of a binding in a document, with the members of boundAtWords().
std::string boundAt(const nlohmann::ordered_json& binding);
/// Members `interface` and `direction`.
nlohmann::ordered_json boundAtWords(std::string_view interface, Acl::AclDirection direction);

/// Of a binding in a document, with the members of bindingWords().
std::string bindingTitle(const nlohmann::ordered_json& place, std::string_view list);
/// Members `interface`, `direction` and `type`.
nlohmann::ordered_json bindingWords(const Config::BindingKey& place);

/// How much a configuration has: members `lists`, `rules` and `bindings`.
nlohmann::ordered_json sizeWords(const Config::Size& size);
/// Of a document with these members: "2 lists, 1 rule, 0 bindings".
std::string sizeText(const nlohmann::ordered_json& document);

/// What is wrong with a list that is bound, if it is not defined; with the consequence.
inline constexpr std::string_view notDefined = "not defined: everything passes it";

/// Why a port-channel is not taken for a port.
std::string portChannelIsNoPort(std::string_view name);

/// Of a change that waits to be confirmed: what can be done until it is taken back in so many seconds.
std::string waitsText(double within);

/// A text that somebody else has made, as a line may have it: what is not printable ASCII becomes "?".
std::string printableText(std::string text);

/// Of the member `restart` of a status: what a restart would not do, a sentence each.
std::vector<std::string> restartSentences(const nlohmann::ordered_json& restart);

/// "1 rule", "2 rules".
std::string countText(uint64_t count, std::string_view one);

/// Mistakes on standard error, a line each.
void tellMistakes(const std::vector<std::string>& mistakes);
/// Of a document, if it has a member `mistakes`.
void tellMistakes(const nlohmann::ordered_json& document);

}  // namespace Agent
